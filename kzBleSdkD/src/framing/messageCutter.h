// MessageCutter: cuts a message into packets, one at a time and on demand, in the form that every sender of the
// protocol uses: the shortest start header that can say the length, full packets, continuations counted from 0.
//
// The bytes may all be at hand, or come from a file as they are needed:
//
//     MessageCutter cutter(length);                      MessageCutter cutter(kPrefixSize + fileSize);
//     while (cutter.HasNext()) {                         const auto packet = cutter.BeginNext(bytes);
//         size = cutter.WriteNext(message, bytes);       fread(bytes + packet.headerSize, 1, packet.payloadSize, file);
//         ... send `size` bytes
//     }
//
// A plain value without memory of its own: a transfer that goes on for many ticks keeps its cutter. Not thread-safe.
#pragma once

#include <algorithm>
#include <cstdint>

#include "blePacketHeader.h"

class MessageCutter {
  public:
    // How the next packet is divided; both together are at most kBlePacketSize.
    struct Packet {
        unsigned headerSize;
        unsigned payloadSize;  // bytes of the message that belong behind the header
    };

    // Of a message of `length` bytes, at most 65535. One that has no bytes is a single packet, its header.
    explicit MessageCutter(unsigned length) : m_length(length) {}

    // Whether there is a packet left.
    bool HasNext() const { return !m_started || m_offset < m_length; }
    // Position in the message of the next packet's first payload byte.
    unsigned Offset() const { return m_offset; }

    // Writes the header of the next packet, which there must be, and leaves the payload to the caller. `packet` has
    // room for kBlePacketSize bytes.
    Packet BeginNext(uint8_t* packet) {
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
    // Writes header and payload of the next packet, which there must be, and returns its size. `message` is the whole
    // message; `packet` has room for kBlePacketSize bytes.
    unsigned WriteNext(const uint8_t* message, uint8_t* packet);

  private:
    unsigned m_length;
    unsigned m_offset = 0;
    bool m_started = false;  // the start packet was written
    uint8_t m_counter = 0;   // of the next continuation
};
