// The header of one BLE SDK packet: how a message announces its length, and how its further packets are marked.
//
//   form            bytes  layout                        message length      payload room
//   simple start    1      000LLLLL                      5 bits, 0 to 31     19
//   extended start  2      001HHHHH LLLLLLLL             13 bits, 0 to 8191  18
//   long start      3      01000000 HHHHHHHH LLLLLLLL    16 bits             17
//   continuation    1      1000NNNN                      -                   19; N counts from 0 and wraps after 15
//
// A whole packet, header and payload, has at most kBlePacketSize bytes. Lengths are big-endian. The daemon sends the
// long form, for the file settings.json.gz, and refuses it when it receives it.
#pragma once

#include <cstdint>

#include "skylark/bleMessage.h"

class MemoryStream;

// The longest message that senders put behind a one-byte and behind a two-byte header; the latter is what the response
// buffer holds.
constexpr unsigned kMaxSimpleLength = 19;
constexpr unsigned kMaxExtendedLength = 8188;

// A plain value.
struct BlePacketHeader {
    // The receive default, into which the header of a received packet is read.
    BlePacketHeader() = default;
    // The start header of a message of `length` bytes, in the shortest form that senders use for it. MessageCutter
    // makes the headers of the packets behind it.
    explicit constexpr BlePacketHeader(unsigned int length)
        : m_isStart(true),
          m_length(length),
          m_headerLength(length > kMaxExtendedLength ? 3
                         : length > kMaxSimpleLength ? 2
                                                     : 1) {}

    bool m_isStart = false;
    uint32_t m_length = 0;   // bytes of the whole message, start packets only
    int m_headerLength = 1;  // 1, 2 or 3: bytes of this packet's header
    uint8_t m_counter = 0;   // continuation counter; only its low 4 bits go on the wire
};

// The one byte that a continuation's header is.
constexpr uint8_t ContinuationHeader(uint8_t counter) {
    return static_cast<uint8_t>(0x80 | (counter & 0x0F));
}

// Writes a header of 1 to kMaxHeaderSize bytes and returns how many. A start header whose m_headerLength is none of 1,
// 2 and 3 is logged and writes nothing.
constexpr unsigned kMaxHeaderSize = 3;
unsigned WriteHeader(const BlePacketHeader& header, unsigned char* bytes);
// The same at the stream's position; the stream must have room for the bytes.
MemoryStream& operator<<(MemoryStream& stream, const BlePacketHeader& header);

// Reads the header of a received packet into a header that holds the receive default. It reads up to 2 bytes, so the
// stream must be bound to the whole packet area, however short the packet is.
//   continuation             the header stays the receive default: receivers do not use the counter
//   simple, extended start   sets m_isStart, m_length and m_headerLength
//   any other length type    is logged and gives a start header of length 0, so that a message in progress ends
MemoryStream& operator>>(MemoryStream& stream, BlePacketHeader& header);
