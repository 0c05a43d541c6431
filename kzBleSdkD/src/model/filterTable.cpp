// The making of the two tables that the header describes, and their use.
#include "filterTable.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <set>
#include <tuple>

namespace {

constexpr uint32_t kBitsPerWord = 64;

uint32_t WordsFor(size_t bits) {
    return static_cast<uint32_t>((bits + kBitsPerWord - 1) / kBitsPerWord);
}

uint64_t Bit(size_t index) {
    return uint64_t{1} << (index % kBitsPerWord);
}

std::vector<int> Different(const std::vector<int>& sorted) {
    std::vector<int> result;
    std::unique_copy(sorted.begin(), sorted.end(), std::back_inserter(result));
    return result;
}

}  // namespace

FilterTable::FilterTable(const std::map<int, IdNums>& options, const std::vector<std::unique_ptr<FilterItem>>& filters)
    : m_settingTriggers(SettingsStatusMapping::kSettingsTableSize),
      m_statusTriggers(SettingsStatusMapping::kStatusTableSize),
      m_on(WordsFor(filters.size())) {
    MakeTriggers(filters);
    const std::vector<std::vector<int>> optionsOfSlots = MakeSlots(options, filters);
    m_filters.reserve(filters.size());
    m_unmet.reserve(filters.size());
    for (uint32_t i = 0; i < filters.size(); ++i) {
        MakeRemovals(*filters[i], optionsOfSlots);
        m_unmet.push_back(static_cast<uint32_t>(filters[i]->criteria.size()));
        SetOn(i, m_unmet[i] == 0);
    }
    m_removals.shrink_to_fit();
}

std::vector<std::vector<int>> FilterTable::MakeSlots(const std::map<int, IdNums>& options,
                                                     const std::vector<std::unique_ptr<FilterItem>>& filters) {
    std::set<int> ids;
    for (const auto& entry : options) {
        ids.insert(entry.first);
    }
    for (const auto& filter : filters) {
        for (const auto& entry : filter->blacklist) {
            ids.insert(entry->id);
        }
    }
    std::vector<std::vector<int>> optionsOfSlots;
    m_slots.reserve(ids.size());
    for (const int id : ids) {
        const auto found = options.find(id);
        const IdNums* slotOptions = found != options.end() ? &found->second : nullptr;
        optionsOfSlots.push_back(slotOptions != nullptr ? Different(slotOptions->numbers) : std::vector<int>());
        const uint32_t words = WordsFor(optionsOfSlots.back().size());
        const uint32_t firstWord = static_cast<uint32_t>(m_slotOfWord.size());
        m_slotOfWord.insert(m_slotOfWord.end(), words, static_cast<uint32_t>(m_slots.size()));
        m_slots.push_back({id, slotOptions, firstWord});
    }
    m_removed.resize(m_slotOfWord.size());
    m_wasRemoved.resize(m_slotOfWord.size());
    return optionsOfSlots;
}

void FilterTable::MakeTriggers(const std::vector<std::unique_ptr<FilterItem>>& filters) {
    struct Satisfied {
        Trigger* trigger;
        uint32_t value;
        uint32_t filter;
    };
    std::vector<Satisfied> all;
    for (uint32_t i = 0; i < filters.size(); ++i) {
        for (const auto& criterion : filters[i]->criteria) {
            std::vector<Trigger>& triggers =
                criterion->tag == SettingsStatusMapping::kTagStatus ? m_statusTriggers : m_settingTriggers;
            // No value is ever stored for an id beyond the table, so its criterion stays unmet.
            if (criterion->id < 0 || static_cast<size_t>(criterion->id) >= triggers.size()) {
                continue;
            }
            for (const int number : Different(criterion->numbers)) {
                all.push_back({&triggers[static_cast<size_t>(criterion->id)], static_cast<uint32_t>(number), i});
            }
        }
    }
    std::sort(all.begin(), all.end(), [](const Satisfied& a, const Satisfied& b) {
        return std::tie(a.trigger, a.value, a.filter) < std::tie(b.trigger, b.value, b.filter);
    });
    m_satisfied.reserve(all.size());
    for (size_t i = 0; i < all.size(); ++i) {
        const Satisfied& entry = all[i];
        if (entry.trigger->valueCount == 0) {
            entry.trigger->firstValue = static_cast<uint32_t>(m_triggerValues.size());
        }
        if (i == 0 || entry.trigger != all[i - 1].trigger || entry.value != all[i - 1].value) {
            ++entry.trigger->valueCount;
            m_triggerValues.push_back({entry.value, static_cast<uint32_t>(m_satisfied.size()), 0});
        }
        ++m_triggerValues.back().filterCount;
        m_satisfied.push_back(entry.filter);
    }
}

void FilterTable::MakeRemovals(const FilterItem& filter, const std::vector<std::vector<int>>& optionsOfSlots) {
    std::map<uint32_t, uint64_t> bitsOfWord;
    for (const auto& entry : filter.blacklist) {
        const size_t slot = SlotOf(entry->id);
        const std::vector<int>& options = optionsOfSlots[slot];
        for (const int number : entry->numbers) {
            const auto found = std::lower_bound(options.begin(), options.end(), number);
            if (found != options.end() && *found == number) {
                const size_t index = static_cast<size_t>(found - options.begin());
                bitsOfWord[m_slots[slot].firstWord + static_cast<uint32_t>(index / kBitsPerWord)] |= Bit(index);
            }
        }
    }
    m_filters.push_back({static_cast<uint32_t>(m_removals.size()), static_cast<uint32_t>(bitsOfWord.size())});
    for (const auto& [word, bits] : bitsOfWord) {
        m_removals.push_back({word, bits});
    }
}

size_t FilterTable::SlotOf(int settingId) const {
    const auto found = std::lower_bound(m_slots.begin(), m_slots.end(), settingId,
                                        [](const Slot& slot, int id) { return slot.id < id; });
    return static_cast<size_t>(found - m_slots.begin());
}

// ---------------------------------------------------------------- which filters are on

void FilterTable::Note(Trigger& trigger, const FlexValue& value) {
    if (trigger.valueCount == 0) {
        return;
    }
    const uint32_t holding = ValueHolding(trigger, value);
    if (holding == trigger.holding) {
        return;
    }
    if (trigger.holding != 0) {
        for (const uint32_t filter : FiltersOf(trigger)) {
            if (m_unmet[filter]++ == 0) {
                SetOn(filter, false);
            }
        }
    }
    trigger.holding = holding;
    if (holding != 0) {
        for (const uint32_t filter : FiltersOf(trigger)) {
            if (--m_unmet[filter] == 0) {
                SetOn(filter, true);
            }
        }
    }
}

uint32_t FilterTable::ValueHolding(const Trigger& trigger, const FlexValue& value) const {
    if (value.GetDataLength() == 0) {
        return 0;
    }
    const auto first = m_triggerValues.begin() + trigger.firstValue;
    const auto last = first + trigger.valueCount;
    const uint32_t number = value.GetUI32Value();
    const auto found =
        std::lower_bound(first, last, number, [](const TriggerValue& entry, uint32_t n) { return entry.value < n; });
    return found != last && found->value == number ? static_cast<uint32_t>(found - first) + 1 : 0;
}

std::span<const uint32_t> FilterTable::FiltersOf(const Trigger& trigger) const {
    const TriggerValue& value = m_triggerValues[trigger.firstValue + trigger.holding - 1];
    return {m_satisfied.data() + value.firstFilter, value.filterCount};
}

void FilterTable::SetOn(uint32_t filter, bool on) {
    uint64_t& word = m_on[filter / kBitsPerWord];
    word = on ? word | Bit(filter) : word & ~Bit(filter);
    m_onChanged = true;
}

// ---------------------------------------------------------------- capabilities

void FilterTable::ComputeRemoved() {
    std::fill(m_removed.begin(), m_removed.end(), 0);
    for (size_t i = 0; i < m_on.size(); ++i) {
        for (uint64_t left = m_on[i]; left != 0; left &= left - 1) {
            const Filter& filter = m_filters[i * kBitsPerWord + static_cast<size_t>(std::countr_zero(left))];
            for (uint32_t r = 0; r < filter.removalCount; ++r) {
                const Removal& removal = m_removals[filter.firstRemoval + r];
                m_removed[removal.word] |= removal.bits;
            }
        }
    }
    m_onChanged = false;
}

void FilterTable::WriteNumbers(const Slot& slot, std::vector<int>& numbers) const {
    if (slot.options == nullptr) {
        numbers.clear();
        return;
    }
    const std::vector<int>& options = slot.options->numbers;
    numbers.resize(options.size());
    size_t kept = 0;
    size_t index = 0;  // of the option among the different ones
    for (size_t i = 0; i < options.size(); ++i) {
        index += i != 0 && options[i] != options[i - 1] ? 1 : 0;
        // Every option is written, but the end moves on only behind one that stays: a branch on it would often be
        // predicted wrongly, for forbidden options come in no regular order.
        numbers[kept] = options[i];
        kept += ((m_removed[slot.firstWord + index / kBitsPerWord] & Bit(index)) == 0) ? 1 : 0;
    }
    numbers.resize(kept);
}

std::map<int, SettingsStatusMapping::IdNums> FilterTable::MakeCapabilities() {
    ComputeRemoved();
    std::map<int, IdNums> capabilities;
    for (const Slot& slot : m_slots) {
        IdNums& entry = capabilities.try_emplace(capabilities.end(), slot.id)->second;
        entry.id = slot.options != nullptr ? slot.options->id : 0;
        WriteNumbers(slot, entry.numbers);
    }
    return capabilities;
}

void FilterTable::Attach(std::map<int, IdNums>& capabilities) {
    Release();
    m_entries.reserve(capabilities.size());
    m_marked.reserve(capabilities.size());
    for (auto& [id, entry] : capabilities) {
        if (entry.changed) {
            m_marked.push_back(&entry);
        }
        m_entries.push_back(&entry);
    }
    m_wasRemoved = m_removed;
}

void FilterTable::Release() {
    m_entries.clear();
    m_marked.clear();
}

bool FilterTable::Update() {
    for (IdNums* entry : m_marked) {
        entry->changed = false;
    }
    m_marked.clear();
    if (!m_onChanged) {
        return false;
    }
    ComputeRemoved();
    for (size_t word = 0; word < m_removed.size(); ++word) {
        IdNums* entry = m_entries[m_slotOfWord[word]];
        if (m_removed[word] == m_wasRemoved[word] || entry->changed) {
            continue;
        }
        WriteNumbers(m_slots[m_slotOfWord[word]], entry->numbers);
        entry->changed = true;
        m_marked.push_back(entry);
    }
    m_wasRemoved = m_removed;
    return !m_marked.empty();
}
