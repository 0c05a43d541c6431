// ValueTable: the current values of the ids 0 to kSize - 1; an id may be without one. Values are looked up, replaced
// and visited on every push, so they lie side by side in one array, and an id that gets a value allocates nothing.
#pragma once

#include <array>
#include <cstddef>
#include <utility>

#include "FlexValue.h"
#include "idSet.h"

template <int kSize>
class ValueTable {
    static_assert(kSize <= IdSet::kSize);

  public:
    static constexpr bool Covers(int id) { return id >= 0 && id < kSize; }

    // The value of an id; null when it has none and for ids beyond the table. The pointer stays valid as long as the
    // table and shows each later value of the id.
    const FlexValue* Find(int id) const {
        return Covers(id) && m_present.Contains(id) ? &m_values[static_cast<size_t>(id)] : nullptr;
    }

    // Replaces the value of `id`, which must lie in the table (Covers), and returns it where it is kept.
    const FlexValue& Store(int id, FlexValue&& value) {
        m_present.Add(id);
        return m_values[static_cast<size_t>(id)] = std::move(value);
    }

    // The value of an id. An id of the table without a value gets an empty one, which stays; an id beyond the table has
    // an empty value too, but nothing is stored for it.
    const FlexValue& GetOrMake(int id) {
        static const FlexValue kEmpty;
        if (!Covers(id)) {
            return kEmpty;
        }
        m_present.Add(id);
        return m_values[static_cast<size_t>(id)];
    }

    void ResetHasChanged() {
        for (FlexValue& value : m_values) {
            value.SetChanged(false);
        }
    }

    // Calls use(id, value) for each value, ascending by id.
    template <typename Use>
    void ForEach(Use&& use) const {
        m_present.ForEach([&](int id) { use(id, m_values[static_cast<size_t>(id)]); });
    }

  private:
    std::array<FlexValue, kSize> m_values;  // empty and unmarked where no value is present
    IdSet m_present;
};
