// Bytes as tests write and print them: "01 0a ff", blanks optional between bytes.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace e2e {

using Bytes = std::vector<uint8_t>;

// Blanks are skipped; anything else but pairs of hex digits throws std::invalid_argument.
Bytes fromHex(std::string_view text);
std::string toHex(std::span<const uint8_t> bytes);

// `count` bytes that differ from their neighbours: first, first + 1, ...
Bytes ramp(size_t count, uint8_t first = 0);
Bytes operator+(Bytes left, const Bytes& right);
Bytes textBytes(std::string_view text);
Bytes little32(uint32_t value);

}  // namespace e2e
