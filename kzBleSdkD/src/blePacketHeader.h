// The header of one BLE SDK packet: how a message announces its length, and how its further packets are marked.
//
// First byte, bits 7..5: 000 simple start (5-bit length), 001 extended start (13 bits, two bytes), 010 long start (16 bits,
// three bytes; sent only), 1.. continuation (4-bit counter). Lengths are big-endian.
#pragma once

#include <cstdint>

class MemoryStream;

constexpr unsigned kMaxSimpleLength = 19;      // longest message behind a one-byte header
constexpr unsigned kMaxExtendedLength = 8188;  // longest behind a two-byte header (and the size of the response buffer)

struct BlePacketHeader {
    // The receive default, into which a packet's header is read.
    BlePacketHeader() = default;
    // The start header of a message of `length` bytes.
    explicit BlePacketHeader(unsigned int length);

    bool m_isStart = false;
    uint32_t m_length = 0;   // whole message, start packets only
    int m_headerLength = 1;  // 1, 2 or 3 bytes
    uint8_t m_counter = 0;   // continuation counter, low 4 bits go on the wire
};

// Writes 1 to 3 bytes; a header length outside 1 to 3 is logged and writes nothing.
MemoryStream& operator<<(MemoryStream& stream, const BlePacketHeader& header);
// Reads 1 or 2 bytes into a header that holds the receive default. An unsupported length type is logged and leaves a start
// header of length 0.
MemoryStream& operator>>(MemoryStream& stream, BlePacketHeader& header);
