#include "bytes.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace fakes {

Bytes FromHex(std::string_view text) {
    std::string digits(text);
    std::erase(digits, ' ');
    if (digits.size() % 2 != 0 || digits.find_first_not_of("0123456789abcdef") != std::string::npos) {
        throw std::invalid_argument("not hex: " + std::string(text));
    }
    Bytes bytes;
    for (size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

std::string ToHex(std::span<const uint8_t> bytes) {
    std::string text;
    char digits[4];
    for (const uint8_t byte : bytes) {
        std::snprintf(digits, sizeof(digits), text.empty() ? "%02x" : " %02x", byte);
        text += digits;
    }
    return text;
}

Bytes Le32(std::initializer_list<uint32_t> numbers) {
    Bytes bytes;
    for (const uint32_t number : numbers) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<uint8_t>(number >> shift));
        }
    }
    return bytes;
}

}  // namespace fakes
