#include "meaning.h"

#include <algorithm>

#include "messageText.h"
#include "skylark/bleMessage.h"

namespace kzdesk {
namespace {

using Json = nlohmann::ordered_json;

constexpr uint8_t kFirstProtobuf = 0xf0;  // features, whose second byte is an action
constexpr uint8_t kAnswerBit = 0x80;      // of the action in an answer
constexpr size_t kMostOpen = 64;          // requests that are never answered must not pile up

bool isProtobuf(Meaning::Message message) {
    return message.size() > 1 && message[0] >= kFirstProtobuf;
}

// `details` writes what a message of this row says.
template <typename Details>
Json described(const char* what, const kzprotocol::Row* row, Details details) {
    if (row == nullptr) {
        return {};
    }
    Json meaning{{"what", what}, {"kind", row->kind}, {"name", row->name}, {"does", row->does}};
    constexpr std::string_view kSeparator = ": ";
    if (const std::string text = details(*row); text.starts_with(kSeparator)) {
        meaning["text"] = text.substr(kSeparator.size());
    }
    return meaning;
}

// A plain answer or push has its result behind the first byte, and so has the refusal of a protobuf request.
void addResult(Json& meaning, const Interface& interface, Meaning::Message message) {
    const bool isBuffer = interface.answer == KZ_STR_ID_SENSOR_RESPONSE && meaning.value("what", "") == "push";
    if (isBuffer || message.size() < 2 || (isProtobuf(message) && message.size() > 2)) {
        return;
    }
    const std::string_view name = kzprotocol::resultName(interface.answer, message[1]);
    meaning["result"] = {{"code", message[1]}, {"name", name.empty() ? "refused by the camera" : std::string(name)}};
}

}  // namespace

Json Meaning::ofRequest(const Interface& interface, Message message) {
    if (message.empty()) {
        return {};
    }
    {
        const std::lock_guard lock(m_mutex);
        m_open.push_back({interface.request, message[0], isProtobuf(message) ? message[1] | kAnswerBit : -1});
        if (m_open.size() > kMostOpen) {
            m_open.pop_front();
        }
    }
    return described("request", kzprotocol::requestOf(interface.request, message),
                     [&](const kzprotocol::Row& row) { return kzclient::requestDetails(row, message, m_names); });
}

bool Meaning::answersAnOpenOne(const Interface& interface, Message message) {
    const std::lock_guard lock(m_mutex);
    const auto open = std::find_if(m_open.begin(), m_open.end(), [&](const Open& one) {
        return one.stream == interface.request && one.first == message[0] &&
               (one.second < 0 || message.size() <= 2 || one.second == message[1]);
    });
    if (open == m_open.end()) {
        return false;
    }
    m_open.erase(open);
    return true;
}

Json Meaning::ofNotification(const Interface& interface, Message message) {
    if (message.empty()) {
        return {};
    }
    const kzprotocol::Row* const push = kzprotocol::pushOf(interface.answer, message);
    const bool isAnswer = answersAnOpenOne(interface, message) || push == nullptr;
    Json meaning = isAnswer ? described("answer", kzprotocol::answerOf(interface.answer, message),
                                        [&](const auto& row) { return kzclient::answerDetails(row, message, m_names); })
                            : described("push", push,
                                        [&](const auto& row) { return kzclient::pushDetails(row, message, m_names); });
    if (isAnswer && meaning.is_null() && message.size() == 2) {
        meaning = {{"what", "answer"}, {"kind", "refusal"}};  // it does not repeat the action
    }
    if (!meaning.is_null()) {
        addResult(meaning, interface, message);
    }
    return meaning;
}

}  // namespace kzdesk
