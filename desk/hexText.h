// Bytes as texts: pairs of hexadecimal digits, which blanks may separate.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kzdesk {

using Bytes = std::vector<uint8_t>;

// Nothing when a character is neither a hexadecimal digit nor a blank, or a byte lacks its second digit.
std::optional<Bytes> bytesOfHex(std::string_view text);

}  // namespace kzdesk
