// The header of one BLE SDK packet: how a message announces its length, and how its further packets are marked.
//
//   form            bytes  layout                        message length      payload room
//   simple start    1      000LLLLL                      5 bits, 0 to 31     19
//   extended start  2      001HHHHH LLLLLLLL             13 bits, 0 to 8191  18
//   long start      3      01000000 HHHHHHHH LLLLLLLL    16 bits             17
//   continuation    1      1000NNNN                      -                   19; N counts from 0 and wraps after 15
//
// Lengths are big-endian. The long form is sent only (settings.json files); it is refused on receive.
#pragma once

#include <cstdint>

class MemoryStream;

constexpr int kPacketSize = 20;                // a whole packet: header and payload
constexpr unsigned kMaxSimpleLength = 19;      // longest message sent behind a one-byte header
constexpr unsigned kMaxExtendedLength = 8188;  // longest behind a two-byte header: what the response buffer holds

// A plain value. Default-constructed it is the receive default, into which a packet's header is read.
struct BlePacketHeader {
    BlePacketHeader() = default;
    // The start header of a message of `length` bytes, in the shortest form that senders use for it. For a continuation
    // set m_isStart to false and m_counter.
    explicit BlePacketHeader(unsigned int length);

    bool m_isStart = false;
    uint32_t m_length = 0;   // bytes of the whole message, start packets only
    int m_headerLength = 1;  // 1, 2 or 3: bytes of this packet's header
    uint8_t m_counter = 0;   // continuation counter; only its low 4 bits go on the wire
};

// Writes 1 to 3 bytes at the stream's position; the stream must have room for them. A start header whose m_headerLength
// is outside 1 to 3 is logged and writes nothing.
MemoryStream& operator<<(MemoryStream& stream, const BlePacketHeader& header);

// Reads one packet's header into a header that holds the receive default. Reads at most 2 bytes: bind the stream to the
// whole packet area, whatever the packet's length.
//   continuation             the receive default stays; receivers do not use the counter
//   simple, extended start   m_isStart, m_length and m_headerLength
//   any other length type    logged; a start header of length 0, so that a message in progress ends
MemoryStream& operator>>(MemoryStream& stream, BlePacketHeader& header);
