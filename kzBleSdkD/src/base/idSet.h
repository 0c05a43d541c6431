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
        ForEachOf(m_words, visit);
    }
    // Appends the ids that are in both sets, ascending.
    void AppendCommon(const IdSet& other, std::vector<int>& ids) const {
        Words common;
        for (size_t i = 0; i < common.size(); ++i) {
            common[i] = m_words[i] & other.m_words[i];
        }
        ForEachOf(common, [&ids](int id) { ids.push_back(id); });
    }

  private:
    static constexpr size_t kBitsPerWord = 64;
    using Words = std::array<uint64_t, kSize / kBitsPerWord>;

    template <typename Visit>
    static void ForEachOf(const Words& words, Visit visit) {
        int firstOfWord = 0;
        for (uint64_t left : words) {
            for (; left != 0; left &= left - 1) {
                visit(firstOfWord + std::countr_zero(left));
            }
            firstOfWord += static_cast<int>(kBitsPerWord);
        }
    }

    static constexpr bool IsByte(int id) { return id >= 0 && id < kSize; }
    static constexpr uint64_t Bit(int id) { return uint64_t{1} << (static_cast<unsigned>(id) % kBitsPerWord); }

    Words m_words{};
    size_t m_count = 0;
};
