#include "interests.h"

#include <algorithm>

#include "skylark/bleMessage.h"

namespace kzdesk {
namespace {

constexpr size_t kMostOpen = 64;  // requests that are never answered must not pile up
constexpr uint8_t kSuccess = 0;
constexpr uint8_t kPartial = 1;  // of values: has registered all the same
constexpr uint8_t kBufferOn = 1;

struct Row {
    uint8_t stream;
    uint8_t byte;
    const char* of;
    enum class Does { kAdd, kRemove, kBuffer } does;
};
constexpr Row kRows[] = {
    {KZ_STR_ID_QUERY, 0x52, "settings", Row::Does::kAdd},
    {KZ_STR_ID_QUERY, 0x62, "capabilities", Row::Does::kAdd},
    {KZ_STR_ID_QUERY, 0x53, "status", Row::Does::kAdd},
    {KZ_STR_ID_QUERY, 0x72, "settings", Row::Does::kRemove},
    {KZ_STR_ID_QUERY, 0x82, "capabilities", Row::Does::kRemove},
    {KZ_STR_ID_QUERY, 0x73, "status", Row::Does::kRemove},
    {KZ_STR_ID_SENSOR, 0x50, "display", Row::Does::kBuffer},
    {KZ_STR_ID_SENSOR, 0x52, "led", Row::Does::kBuffer},
};

const Row* rowOf(uint8_t stream, Meaning::Message message) {
    const auto* const row = std::find_if(std::begin(kRows), std::end(kRows), [&](const Row& one) {
        return !message.empty() && one.stream == stream && one.byte == message[0];
    });
    return row == std::end(kRows) ? nullptr : row;
}

// The ids of a request, or, when it names none and so means all, those of the answer: byte, result, {id length value}.
std::set<uint8_t> idsOf(const kzclient::Bytes& request, Meaning::Message answer) {
    std::set<uint8_t> ids(request.begin() + 1, request.end());
    for (size_t at = 2; request.size() == 1 && at + 1 < answer.size(); at += 2U + answer[at + 1]) {
        ids.insert(answer[at]);
    }
    return ids;
}

}  // namespace

void Interests::noteRequest(const Interface& interface, Meaning::Message message) {
    if (rowOf(interface.request, message) == nullptr) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    m_open.emplace_back(interface.request, kzclient::Bytes(message.begin(), message.end()));
    if (m_open.size() > kMostOpen) {
        m_open.pop_front();
    }
}

void Interests::noteAnswer(const Interface& interface, Meaning::Message message) {
    if (message.size() < 2) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    const auto open = std::find_if(m_open.begin(), m_open.end(), [&](const auto& one) {
        return one.first == interface.request && one.second[0] == message[0];
    });
    if (open == m_open.end()) {
        return;
    }
    const kzclient::Bytes request = std::move(open->second);
    m_open.erase(open);
    const Row& row = *rowOf(interface.request, request);
    if (message[1] != kSuccess && (message[1] != kPartial || row.does != Row::Does::kAdd)) {
        return;
    }
    if (row.does == Row::Does::kBuffer) {
        if (request.size() > 1 && request[1] == kBufferOn) {
            m_buffers.insert(row.of);
        } else {
            m_buffers.erase(row.of);
        }
    } else if (row.does == Row::Does::kAdd) {
        m_ids[row.of].merge(idsOf(request, message));
    } else if (request.size() == 1) {
        m_ids.erase(row.of);
    } else {
        for (const uint8_t id : idsOf(request, message)) {
            m_ids[row.of].erase(id);
        }
    }
}

nlohmann::ordered_json Interests::state() const {
    auto state = nlohmann::ordered_json::object();
    const std::lock_guard lock(m_mutex);
    for (const auto& [name, ids] : m_ids) {
        if (!ids.empty()) {
            state[name] = ids;
        }
    }
    for (const std::string& name : m_buffers) {
        state[name] = true;
    }
    return state;
}

}  // namespace kzdesk
