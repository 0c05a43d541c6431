// Numbers in received bytes, least significant byte first. The caller has checked that the bytes are there.
#pragma once

#include <cstdint>

constexpr uint16_t ReadLittleEndian16(const uint8_t* bytes) {
    return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

constexpr uint32_t ReadLittleEndian32(const uint8_t* bytes) {
    return uint32_t{bytes[0]} | uint32_t{bytes[1]} << 8 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[3]} << 24;
}
