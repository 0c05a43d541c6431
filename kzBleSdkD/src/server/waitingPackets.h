// WaitingPackets: single packets that must leave although the radio queue may be full, such as the replies of a
// firmware update. None of them is waited for: one that finds no room is kept and tried again, and none overtakes
// another.
//
// Command thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>

#include "skylark/bleMessage.h"

class RadioPort;

class WaitingPackets {
  public:
    // An accessory that asks without end while the queue is full must not fill the memory.
    static constexpr size_t kMaxPerConnection = 4;

    explicit WaitingPackets(RadioPort& radio) : m_radio(radio) {}

    // Sends the packet, or keeps it. One more than kMaxPerConnection of a connection is dropped with a line in the log.
    void Post(const ble_message_t& record);
    // Sends what is kept, as far as there is room.
    void SendKept();
    // Drops what is kept for a connection.
    void Drop(uint32_t connectionId);
    bool IsEmpty() const { return m_kept.empty(); }

  private:
    RadioPort& m_radio;
    std::deque<ble_message_t> m_kept;
};
