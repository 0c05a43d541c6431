#include "messageCutter.h"

#include <algorithm>
#include <cstring>

MessageCutter::Packet MessageCutter::BeginNext(uint8_t* packet) {
    unsigned headerSize = 1;
    if (m_started) {
        packet[0] = ContinuationHeader(m_counter++);
    } else {
        headerSize = WriteHeader(BlePacketHeader(m_length), packet);
        m_started = true;
    }
    const unsigned payloadSize = std::min(kBlePacketSize - headerSize, m_length - m_offset);
    m_offset += payloadSize;
    return {headerSize, payloadSize};
}

unsigned MessageCutter::WriteNext(const uint8_t* message, uint8_t* packet) {
    const unsigned offset = m_offset;
    const Packet next = BeginNext(packet);
    if (next.payloadSize != 0) {  // `message` may be null when there are no bytes, and memcpy must not get null
        std::memcpy(packet + next.headerSize, message + offset, next.payloadSize);
    }
    return next.headerSize + next.payloadSize;
}
