#include "messageCutter.h"

#include <algorithm>
#include <cstring>

#include "MemStream.h"

MessageCutter::Packet MessageCutter::BeginNext(uint8_t* packet) {
    MemoryStream stream(packet, kBlePacketSize);
    stream << m_header;
    const Packet next{stream.getLength(), std::min<unsigned>(stream.getRemainder(), m_length - m_offset)};
    m_offset += next.payloadSize;
    if (m_header.m_isStart) {
        m_header.m_isStart = false;
    } else {
        ++m_header.m_counter;
    }
    return next;
}

unsigned MessageCutter::WriteNext(const uint8_t* message, uint8_t* packet) {
    const unsigned offset = m_offset;
    const Packet next = BeginNext(packet);
    if (next.payloadSize != 0) {  // `message` may be null when there are no bytes, and memcpy must not get null
        std::memcpy(packet + next.headerSize, message + offset, next.payloadSize);
    }
    return next.headerSize + next.payloadSize;
}
