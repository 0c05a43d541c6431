// What the fuzzers share: a promise that must hold, and the input, consumed from the front.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

inline void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// What is asked beyond the end is zero.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : m_left(data, size) {}

    bool IsEmpty() const { return m_left.empty(); }
    size_t size() const { return m_left.size(); }
    uint8_t Byte() {
        if (m_left.empty()) {
            return 0;
        }
        const uint8_t byte = m_left.front();
        m_left = m_left.subspan(1);
        return byte;
    }
    uint16_t BigEndian16() {
        const uint8_t high = Byte();
        return static_cast<uint16_t>(high << 8 | Byte());
    }
    // Exactly as long as asked, so that a read past its end is seen.
    std::vector<uint8_t> Bytes(size_t size) {
        std::vector<uint8_t> bytes(size);
        const size_t present = std::min(size, m_left.size());
        std::copy_n(m_left.begin(), present, bytes.begin());
        m_left = m_left.subspan(present);
        return bytes;
    }
    // The same, but no longer than what is left.
    std::vector<uint8_t> Upto(size_t size) { return Bytes(std::min(size, m_left.size())); }

  private:
    std::span<const uint8_t> m_left;
};
