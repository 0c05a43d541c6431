#include "bytes.h"

#include <numeric>
#include <stdexcept>

namespace e2e {
namespace {

constexpr char kHexDigits[] = "0123456789abcdef";

uint8_t hexDigit(char digit) {
    const std::string_view digits = kHexDigits;
    const size_t value = digits.find(static_cast<char>(digit >= 'A' && digit <= 'F' ? digit - 'A' + 'a' : digit));
    if (value == std::string_view::npos) {
        throw std::invalid_argument(std::string("not a hex digit: ") + digit);
    }
    return static_cast<uint8_t>(value);
}

}  // namespace

Bytes fromHex(std::string_view text) {
    Bytes bytes;
    for (size_t i = 0; i < text.size();) {
        if (text[i] == ' ') {
            ++i;
            continue;
        }
        if (i + 1 >= text.size()) {
            throw std::invalid_argument("odd number of hex digits");
        }
        bytes.push_back(static_cast<uint8_t>(hexDigit(text[i]) << 4 | hexDigit(text[i + 1])));
        i += 2;
    }
    return bytes;
}

std::string toHex(const uint8_t* data, size_t length) {
    std::string text;
    for (size_t i = 0; i < length; ++i) {
        if (i != 0) {
            text += ' ';
        }
        text += kHexDigits[data[i] >> 4];
        text += kHexDigits[data[i] & 0x0F];
    }
    return text;
}

std::string toHex(const Bytes& bytes) {
    return toHex(bytes.data(), bytes.size());
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

uint32_t readLittle32(const uint8_t* data) {
    return static_cast<uint32_t>(data[0]) | static_cast<uint32_t>(data[1]) << 8 | static_cast<uint32_t>(data[2]) << 16 |
           static_cast<uint32_t>(data[3]) << 24;
}

}  // namespace e2e
