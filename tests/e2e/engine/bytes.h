// Bytes as the end-to-end tests name them; see fakes/bytes.h.
#pragma once

#include <numeric>

#include "../../fakes/bytes.h"

namespace e2e {

using Bytes = fakes::Bytes;

inline constexpr auto& fromHex = fakes::FromHex;
inline constexpr auto& toHex = fakes::ToHex;
inline constexpr auto& textBytes = fakes::BytesOf;
inline Bytes little32(uint32_t value) {
    return fakes::Le32({value});
}

// `count` bytes that differ from their neighbours: first, first + 1, ...
inline Bytes ramp(size_t count, uint8_t first = 0) {
    Bytes bytes(count);
    std::iota(bytes.begin(), bytes.end(), first);
    return bytes;
}
inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

}  // namespace e2e
