#include "tlvMessage.h"

#include <stdexcept>

namespace e2e {
namespace {

constexpr uint8_t kTlvEnd = 0xEE;
constexpr size_t kHeaderSize = 4;  // of the message and of an element

void putElement(Bytes& out, uint8_t type, const Bytes& data) {
    out = out + Bytes{0, static_cast<uint8_t>(data.size() >> 8), static_cast<uint8_t>(data.size()), type} + data;
}

std::string asText(const Bytes& bytes) {
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace

Bytes TlvMessage::encode() const {
    Bytes out = {0, 0, 0, category};
    for (const auto& [type, data] : elements) {
        putElement(out, type, data);
    }
    putElement(out, kTlvEnd, {});
    out[0] = static_cast<uint8_t>(out.size() >> 8);
    out[1] = static_cast<uint8_t>(out.size());
    return out;
}

TlvMessage TlvMessage::decode(const Bytes& bytes) {
    const auto malformed = [&] { return std::runtime_error("malformed message between daemons: " + toHex(bytes)); };
    if (bytes.size() < 2 * kHeaderSize || static_cast<size_t>(bytes[0] << 8 | bytes[1]) != bytes.size()) {
        throw malformed();
    }
    TlvMessage message;
    message.category = bytes[3];
    size_t offset = kHeaderSize;
    while (offset + kHeaderSize <= bytes.size()) {
        const size_t length = static_cast<size_t>(bytes[offset + 1] << 8 | bytes[offset + 2]);
        const uint8_t type = bytes[offset + 3];
        offset += kHeaderSize;
        if (length > bytes.size() - offset) {
            throw malformed();
        }
        const auto begin = bytes.begin() + static_cast<long>(offset);
        offset += length;
        if (type == kTlvEnd) {
            break;
        }
        message.elements.emplace_back(type, Bytes(begin, begin + static_cast<long>(length)));
    }
    if (offset != bytes.size()) {
        throw malformed();
    }
    return message;
}

Bytes TlvMessage::find(uint8_t type) const {
    for (const auto& [elementType, data] : elements) {
        if (elementType == type) {
            return data;
        }
    }
    return {};
}

std::string TlvMessage::text() const {
    std::string text = std::to_string(category) + " " + asText(find(kTlvCommand)) + " " + asText(find(kTlvSource)) +
                       ">" + asText(find(kTlvDestination)) + ": " + toHex(find(kTlvArgument));
    if (const Bytes response = find(kTlvResponse); !response.empty()) {
        text += " | " + toHex(response);
    }
    return text;
}

}  // namespace e2e
