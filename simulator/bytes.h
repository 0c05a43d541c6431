// Small helpers for byte strings whose numbers are in the camera's (little-endian, the host's) order.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kzsim {

using Bytes = std::vector<uint8_t>;
using ByteView = std::span<const uint8_t>;

// The number in the first sizeof(T) bytes; missing bytes count as 0.
template <typename T>
T numberAt(ByteView bytes, size_t offset = 0) {
    T value{};
    if (offset < bytes.size()) {
        const size_t present = bytes.size() - offset;
        std::memcpy(&value, bytes.data() + offset, present < sizeof value ? present : sizeof value);
    }
    return value;
}

template <typename T>
void append(Bytes& bytes, const T& value) {
    const size_t end = bytes.size();
    bytes.resize(end + sizeof value);
    std::memcpy(bytes.data() + end, &value, sizeof value);
}

inline void appendBytes(Bytes& bytes, ByteView more) {
    const size_t end = bytes.size();
    bytes.resize(end + more.size());
    std::copy(more.begin(), more.end(), bytes.begin() + static_cast<std::ptrdiff_t>(end));
}

template <typename T>
Bytes bytesOf(const T& value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

inline Bytes bytesOfText(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

inline ByteView viewOf(std::string_view text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

// Lower-case digits without blanks ("0aff"), and the reverse of it; false for anything but pairs of hexadecimal digits.
std::string toHex(ByteView bytes);
bool fromHex(std::string_view text, Bytes& bytes);

}  // namespace kzsim
