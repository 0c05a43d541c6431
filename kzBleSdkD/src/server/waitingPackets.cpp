#include "waitingPackets.h"

#include <algorithm>

#include "radioPort.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

}  // namespace

void WaitingPackets::Post(const ble_message_t& record) {
    if (m_kept.empty() && m_radio.TryPacket(record) != RadioPort::SendResult::kNoRoom) {
        return;
    }
    const auto kept = std::count_if(m_kept.begin(), m_kept.end(), [&record](const ble_message_t& other) {
        return other.connectionId == record.connectionId;
    });
    if (static_cast<size_t>(kept) >= kMaxPerConnection) {
        LOG_ERROR("Failed to send packet to ble client.");
        return;
    }
    m_kept.push_back(record);
}

void WaitingPackets::SendKept() {
    while (!m_kept.empty() && m_radio.TryPacket(m_kept.front()) != RadioPort::SendResult::kNoRoom) {
        m_kept.pop_front();
    }
}

void WaitingPackets::Drop(uint32_t connectionId) {
    std::erase_if(m_kept, [connectionId](const ble_message_t& record) { return record.connectionId == connectionId; });
}
