// FilterTable: the filters of a catalogue, compiled so that the work for a push depends on what the push changes and
// not on how many filters there are. It is given every current value that is stored, knows at any time which filters
// are on, and brings the capabilities up to date from that.
//
// ApplyFilters leaves every setting the options that no filter forbids among those that are on. The order of the
// filters does not matter, since a filter is applied for each setting that it blacklists. So two tables hold all that
// is needed:
//   - for each trigger id and each value that satisfies a criterion, the filters that have this criterion. A filter is
//     on when it has no unmet criterion left;
//   - for each filter, the bits to clear in one bit set over the options of all settings.
// After construction nothing is allocated unless an entry of the capabilities grows. Not thread-safe.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <vector>

#include "settingsStatusMapping.h"

class FilterTable {
  public:
    using IdNums = SettingsStatusMapping::IdNums;
    using FilterItem = SettingsStatusMapping::FilterItem;

    // Compiles the filters for the state in which no id has a current value. `options`, the options of all settings,
    // are kept by reference and must not change; `filters` are read here only.
    FilterTable(const std::map<int, IdNums>& options, const std::vector<std::unique_ptr<FilterItem>>& filters);

    // Whether the id occurs in some criterion. Here and below `id` must lie in the table of settings or of status
    // fields.
    bool IsSettingTrigger(int id) const { return m_settingTriggers[static_cast<size_t>(id)].valueCount != 0; }
    bool IsStatusTrigger(int id) const { return m_statusTriggers[static_cast<size_t>(id)].valueCount != 0; }

    // Note the value that has become the id's current one.
    void NoteSetting(int id, const FlexValue& value) { Note(m_settingTriggers[static_cast<size_t>(id)], value); }
    void NoteStatus(int id, const FlexValue& value) { Note(m_statusTriggers[static_cast<size_t>(id)], value); }

    // Computes the capabilities of all settings for the values noted so far.
    std::map<int, IdNums> MakeCapabilities();

    // Lets Update rewrite the entries of `capabilities` in place until Release. They must be what MakeCapabilities
    // returned, and no value may have been noted since: Update takes them to be those of the present state.
    void Attach(std::map<int, IdNums>& capabilities);
    void Release();
    bool IsAttached() const { return !m_entries.empty(); }
    // Rewrites the attached entries that the values noted since Attach or the last Update changed, marks exactly these
    // as changed, and returns whether there are any.
    bool Update();

  private:
    struct TriggerValue {
        uint32_t value;
        uint32_t firstFilter;  // index in m_satisfied
        uint32_t filterCount;
    };
    struct Trigger {
        uint32_t firstValue = 0;  // index in m_triggerValues, where an id's values are ascending
        uint32_t valueCount = 0;  // 0 for an id that is no trigger
        uint32_t holding = 0;     // which of these values is current, counted from 1; 0 when none of them is
    };
    struct Slot {
        int id;
        const IdNums* options;  // null for a setting that blacklists name and the catalogue does not have
        uint32_t firstWord;     // of its bits in m_removed: one bit for each different option, ascending
    };
    struct Removal {
        uint32_t word;
        uint64_t bits;
    };
    struct Filter {
        uint32_t firstRemoval;
        uint32_t removalCount;
    };

    // Gives every setting a slot. Returns the different options of each slot, ascending.
    std::vector<std::vector<int>> MakeSlots(const std::map<int, IdNums>& options,
                                            const std::vector<std::unique_ptr<FilterItem>>& filters);
    void MakeTriggers(const std::vector<std::unique_ptr<FilterItem>>& filters);
    void MakeRemovals(const FilterItem& filter, const std::vector<std::vector<int>>& optionsOfSlots);
    size_t SlotOf(int settingId) const;  // the setting must have one

    void Note(Trigger& trigger, const FlexValue& value);
    uint32_t ValueHolding(const Trigger& trigger, const FlexValue& value) const;  // see Trigger::holding
    // The filters of which the trigger's current value satisfies a criterion. There must be such a value.
    std::span<const uint32_t> FiltersOf(const Trigger& trigger) const;
    void SetOn(uint32_t filter, bool on);
    void ComputeRemoved();
    void WriteNumbers(const Slot& slot, std::vector<int>& numbers) const;

    std::vector<Trigger> m_settingTriggers;  // by setting id
    std::vector<Trigger> m_statusTriggers;   // by status id
    std::vector<TriggerValue> m_triggerValues;
    std::vector<uint32_t> m_satisfied;  // filters; one stands here once for each criterion that a value satisfies

    std::vector<Filter> m_filters;
    std::vector<Removal> m_removals;
    std::vector<uint32_t> m_unmet;  // by filter: how many of its criteria do not hold
    std::vector<uint64_t> m_on;     // bit set of the filters without unmet criteria
    bool m_onChanged = true;        // m_on has changed since m_removed was computed

    std::vector<Slot> m_slots;  // ascending by id
    std::vector<uint32_t> m_slotOfWord;
    std::vector<uint64_t> m_removed;     // bits of the options that filters forbid
    std::vector<uint64_t> m_wasRemoved;  // the same when the attached entries were last written
    std::vector<IdNums*> m_entries;      // the attached entries by slot; empty while none are attached
    std::vector<IdNums*> m_marked;       // the attached entries that are marked as changed
};
