// CRC-32 of IEEE 802.3, eight bytes a step: table k advances the checksum of a byte by k further zero bytes, so that
// eight look-ups that do not wait for one another replace eight of which each needs the result before it.
//
// The plain loop of one table would be ten lines. But a firmware image is checked on the thread that serves all
// clients, and the benchmark "roads" compares that with zlib: 300 KB take 0.13 ms here and 0.65 ms in the plain loop.
#include <array>

#include "littleEndian.h"
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

}  // namespace

uint32_t Utils::crc32(const uint8_t* data, uint32_t length) {
    uint32_t crc = 0xFFFFFFFF;
    for (; length >= kStep; data += kStep, length -= kStep) {
        const uint32_t low = crc ^ ReadLittleEndian32(data);
        const uint32_t high = ReadLittleEndian32(data + 4);
        crc = kTables[7][low & 0xFF] ^ kTables[6][low >> 8 & 0xFF] ^ kTables[5][low >> 16 & 0xFF] ^
              kTables[4][low >> 24] ^ kTables[3][high & 0xFF] ^ kTables[2][high >> 8 & 0xFF] ^
              kTables[1][high >> 16 & 0xFF] ^ kTables[0][high >> 24];
    }
    for (; length > 0; ++data, --length) {
        crc = crc >> 8 ^ kTables[0][(crc ^ *data) & 0xFF];
    }
    return ~crc;
}
