#include "messageCutter.h"

#include <cstring>

unsigned MessageCutter::WriteNext(const uint8_t* message, uint8_t* packet) {
    const unsigned offset = m_offset;
    const Packet next = BeginNext(packet);
    if (next.payloadSize != 0) {  // `message` may be null when there are no bytes, and memcpy must not get null
        std::memcpy(packet + next.headerSize, message + offset, next.payloadSize);
    }
    return next.headerSize + next.payloadSize;
}
