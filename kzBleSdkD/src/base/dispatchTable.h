// DispatchTable: the rows of a dispatch table (commands, actions, keys), each found by its one-byte id in one step.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>

// `Row` has a member `id` below 256. The table is built at compile time; two rows with one id do not compile.
template <typename Row, size_t Count>
class DispatchTable {
  public:
    static_assert(Count < 255);

    consteval explicit DispatchTable(const Row (&rows)[Count]) : m_rows(std::to_array(rows)) {
        for (size_t i = 0; i < Count; ++i) {
            uint8_t& index = m_index.at(m_rows[i].id);
            if (index != 0) {
                throw std::logic_error("two rows with one id");
            }
            index = static_cast<uint8_t>(i + 1);
        }
    }

    // The row of `id`; null when there is none.
    constexpr const Row* Find(uint32_t id) const {
        if (id >= m_index.size() || m_index[id] == 0) {
            return nullptr;
        }
        return &m_rows[m_index[id] - size_t{1}];
    }

  private:
    std::array<Row, Count> m_rows;
    std::array<uint8_t, 256> m_index{};  // position of the id's row + 1; 0 for an id without a row
};
