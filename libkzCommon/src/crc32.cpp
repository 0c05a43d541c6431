// CRC-32 of IEEE 802.3, eight bytes a step: table k advances the checksum of a byte by k further zero bytes, so eight
// independent look-ups replace eight dependent ones.
#include <array>

#include "utils.h"

namespace {

constexpr uint32_t kPolynomial = 0xEDB88320;
constexpr unsigned kStep = 8;
using Tables = std::array<std::array<uint32_t, 256>, kStep>;

constexpr Tables makeTables() {
    Tables tables = {};
    for (uint32_t byte = 0; byte < 256; ++byte) {
        uint32_t crc = byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc & 1) != 0 ? crc >> 1 ^ kPolynomial : crc >> 1;
        }
        tables[0][byte] = crc;
    }
    for (unsigned k = 1; k < kStep; ++k) {
        for (uint32_t byte = 0; byte < 256; ++byte) {
            const uint32_t previous = tables[k - 1][byte];
            tables[k][byte] = previous >> 8 ^ tables[0][previous & 0xFF];
        }
    }
    return tables;
}

constexpr Tables kTables = makeTables();

uint32_t littleEndian32(const uint8_t* data) {
    return uint32_t{data[0]} | uint32_t{data[1]} << 8 | uint32_t{data[2]} << 16 | uint32_t{data[3]} << 24;
}

}  // namespace

uint32_t Utils::crc32(const uint8_t* data, uint32_t length) {
    uint32_t crc = 0xFFFFFFFF;
    for (; length >= kStep; data += kStep, length -= kStep) {
        const uint32_t low = crc ^ littleEndian32(data);
        const uint32_t high = littleEndian32(data + 4);
        crc = kTables[7][low & 0xFF] ^ kTables[6][low >> 8 & 0xFF] ^ kTables[5][low >> 16 & 0xFF] ^
              kTables[4][low >> 24] ^ kTables[3][high & 0xFF] ^ kTables[2][high >> 8 & 0xFF] ^
              kTables[1][high >> 16 & 0xFF] ^ kTables[0][high >> 24];
    }
    for (; length > 0; ++data, --length) {
        crc = crc >> 8 ^ kTables[0][(crc ^ *data) & 0xFF];
    }
    return ~crc;
}
