#include "bytes.h"

namespace kzsim {
namespace {

int digitValue(char digit) {
    if (digit >= '0' && digit <= '9') {
        return digit - '0';
    }
    const char lower = static_cast<char>(digit | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

std::string toHex(ByteView bytes) {
    constexpr const char* kDigits = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

bool fromHex(std::string_view text, Bytes& bytes) {
    if (text.size() % 2 != 0) {
        return false;
    }
    Bytes parsed;
    for (size_t i = 0; i < text.size(); i += 2) {
        const int high = digitValue(text[i]);
        const int low = digitValue(text[i + 1]);
        if (high < 0 || low < 0) {
            return false;
        }
        parsed.push_back(static_cast<uint8_t>(high << 4 | low));
    }
    bytes = std::move(parsed);
    return true;
}

}  // namespace kzsim
