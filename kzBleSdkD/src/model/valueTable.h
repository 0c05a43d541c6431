// ValueTable: the current values of the ids 0 to kSize - 1, each present or not. Ids are looked up, compared and
// iterated on every push, so the values lie side by side and nothing is allocated for an id.
#pragma once

#include <array>
#include <bitset>
#include <cstddef>
#include <utility>

#include "FlexValue.h"

template <int kSize>
class ValueTable {
  public:
    static constexpr bool Covers(int id) { return id >= 0 && id < kSize; }

    // The value of any id, or null. Stays valid, also while the value is replaced.
    const FlexValue* Find(int id) const {
        return Covers(id) && m_present[static_cast<size_t>(id)] ? &m_values[static_cast<size_t>(id)] : nullptr;
    }

    // Stores the value of an id of the table.
    const FlexValue& Store(int id, FlexValue&& value) {
        const size_t index = static_cast<size_t>(id);
        m_present.set(index);
        m_values[index] = std::move(value);
        return m_values[index];
    }

    // The value of any id; an id without one gets an empty value, which is kept when the id lies in the table.
    const FlexValue& GetOrMake(int id) {
        static const FlexValue kEmpty;
        if (!Covers(id)) {
            return kEmpty;
        }
        m_present.set(static_cast<size_t>(id));
        return m_values[static_cast<size_t>(id)];
    }

    void ResetHasChanged() {
        for (FlexValue& value : m_values) {
            value.SetChanged(false);
        }
    }

    // Calls use(id, value) for each value, ascending.
    template <typename Use>
    void ForEach(Use&& use) const {
        for (size_t i = 0; i < m_values.size(); ++i) {
            if (m_present[i]) {
                use(static_cast<int>(i), m_values[i]);
            }
        }
    }

  private:
    std::array<FlexValue, kSize> m_values;  // empty and unmarked where no value is present
    std::bitset<kSize> m_present;
};
