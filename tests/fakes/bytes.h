// Bytes as tests write and print them: "01 0a ff", blanks optional between bytes.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fakes {

using Bytes = std::vector<uint8_t>;

// Blanks are skipped; anything else but pairs of hex digits throws std::invalid_argument.
Bytes FromHex(std::string_view text);
std::string ToHex(std::span<const uint8_t> bytes);

// The little-endian bytes of numbers, in order.
Bytes Le32(std::initializer_list<uint32_t> numbers);
inline Bytes Le32(uint32_t number) {
    return Le32({number});
}
inline Bytes BytesOf(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

}  // namespace fakes
