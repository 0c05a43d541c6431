#include "hexText.h"

namespace kzdesk {
namespace {

int digit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    const char lower = static_cast<char>(c | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

std::optional<Bytes> bytesOfHex(std::string_view text) {
    Bytes bytes;
    int high = -1;
    for (const char c : text) {
        const int value = digit(c);
        if (c == ' ' && high < 0) {
            continue;
        }
        if (value < 0) {
            return std::nullopt;
        }
        if (high < 0) {
            high = value;
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | value));
            high = -1;
        }
    }
    return high < 0 ? std::optional(bytes) : std::nullopt;
}

}  // namespace kzdesk
