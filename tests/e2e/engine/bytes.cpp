#include "bytes.h"

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <stdexcept>

namespace e2e {

Bytes fromHex(std::string_view text) {
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

std::string toHex(std::span<const uint8_t> bytes) {
    std::string text;
    char digits[4];
    for (const uint8_t byte : bytes) {
        std::snprintf(digits, sizeof(digits), text.empty() ? "%02x" : " %02x", byte);
        text += digits;
    }
    return text;
}

Bytes ramp(size_t count, uint8_t first) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

Bytes textBytes(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

Bytes little32(uint32_t value) {
    return {static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value >> 16),
            static_cast<uint8_t>(value >> 24)};
}

}  // namespace e2e
