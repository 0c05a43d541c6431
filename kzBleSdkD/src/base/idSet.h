// IdSet: a set of one-byte ids (settings, status fields, query ids) as 256 bits. Nothing is allocated, and ids come out
// ascending and once each, whatever the order in which they went in.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

class IdSet {
  public:
    static constexpr int kSize = 256;  // holds the ids 0 to 255

    IdSet() = default;
    explicit IdSet(const std::vector<int>& ids) {
        for (const int id : ids) {
            Add(id);
        }
    }

    // An id that is no byte is in no set: adding it changes nothing.
    void Add(int id) {
        if (!IsByte(id)) {
            return;
        }
        uint64_t& word = m_words[static_cast<size_t>(id) / kBitsPerWord];
        m_count += (word & Bit(id)) == 0 ? 1 : 0;
        word |= Bit(id);
    }
    bool Contains(int id) const {
        return IsByte(id) && (m_words[static_cast<size_t>(id) / kBitsPerWord] & Bit(id)) != 0;
    }
    size_t Count() const { return m_count; }
    // Calls visit(id) for each id, ascending.
    template <typename Visit>
    void ForEach(Visit visit) const {
        for (size_t i = 0; i < m_words.size(); ++i) {
            for (uint64_t left = m_words[i]; left != 0; left &= left - 1) {
                visit(static_cast<int>(i * kBitsPerWord) + std::countr_zero(left));
            }
        }
    }

  private:
    static constexpr size_t kBitsPerWord = 64;

    static constexpr bool IsByte(int id) { return id >= 0 && id < kSize; }
    static constexpr uint64_t Bit(int id) { return uint64_t{1} << (static_cast<unsigned>(id) % kBitsPerWord); }

    std::array<uint64_t, kSize / kBitsPerWord> m_words{};
    size_t m_count = 0;
};
