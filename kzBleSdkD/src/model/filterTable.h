// FilterTable: the filters of a catalogue, compiled so that a push costs what it changes. It follows the current values
// one by one and knows at any time which filters are on; from these it brings the capabilities up to date.
//
// What an `ApplyFilters` run gives is every setting's options less those that some filter forbids that is on: which
// filters come first does not matter, since a filter is listed under each setting it blacklists. So two tables do:
//   - per trigger id and per value that satisfies a criterion, the filters whose criterion that is; a filter is on when
//     none of its criteria is unmet;
//   - per filter, the bits to clear among the options of all settings.
// Nothing is allocated after construction but what a growing entry of the capabilities needs. Not thread-safe.
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

    // Of the options of all settings (kept by reference, not to change) and the filters (read here only), without any
    // current value.
    FilterTable(const std::map<int, IdNums>& options, const std::vector<std::unique_ptr<FilterItem>>& filters);

    // Whether the id occurs in some criterion. `id` lies in the table of settings or of status fields, here and below.
    bool IsSettingTrigger(int id) const { return m_settingTriggers[static_cast<size_t>(id)].valueCount != 0; }
    bool IsStatusTrigger(int id) const { return m_statusTriggers[static_cast<size_t>(id)].valueCount != 0; }

    // Take the value that has become the id's current one.
    void FollowSetting(int id, const FlexValue& value) { Follow(m_settingTriggers[static_cast<size_t>(id)], value); }
    void FollowStatus(int id, const FlexValue& value) { Follow(m_statusTriggers[static_cast<size_t>(id)], value); }

    // The capabilities for the values followed so far.
    std::map<int, IdNums> MakeCapabilities();

    // Takes charge of capabilities that MakeCapabilities made and that nothing was followed since: Update works on them
    // in place until they are released.
    void Attach(std::map<int, IdNums>& capabilities);
    void Release();
    bool IsAttached() const { return !m_entries.empty(); }
    // Rewrites the attached entries that differ for the values followed since, marks these alone as changed, and
    // returns whether there are any.
    bool Update();

  private:
    struct TriggerValue {
        uint32_t value;
        uint32_t firstFilter;  // of m_satisfied
        uint32_t filterCount;
    };
    struct Trigger {
        uint32_t firstValue = 0;  // of m_triggerValues, ascending by value
        uint32_t valueCount = 0;  // 0 for an id that is no trigger
        uint32_t holding = 0;     // which of the values is the current one, counted from 1; 0 when none is
    };
    struct Slot {
        int id;
        const IdNums* options;  // null for a setting that is known to a blacklist only
        uint32_t firstWord;     // of the option bits: one bit for each different option, ascending
    };
    struct Removal {
        uint32_t word;
        uint64_t bits;
    };
    struct Filter {
        uint32_t firstRemoval;
        uint32_t removalCount;
    };

    // Returns the different options of each slot.
    std::vector<std::vector<int>> MakeSlots(const std::map<int, IdNums>& options,
                                            const std::vector<std::unique_ptr<FilterItem>>& filters);
    void MakeTriggers(const std::vector<std::unique_ptr<FilterItem>>& filters);
    void MakeRemovals(const FilterItem& filter, const std::vector<std::vector<int>>& optionsOfSlots);
    size_t SlotOf(int settingId) const;  // of a setting that has one

    void Follow(Trigger& trigger, const FlexValue& value);
    uint32_t ValueHolding(const Trigger& trigger, const FlexValue& value) const;  // see Trigger::holding
    std::span<const uint32_t> FiltersOf(const Trigger& trigger) const;            // that the current value satisfies
    void SetOn(uint32_t filter, bool on);
    void ComputeRemoved();
    void WriteNumbers(const Slot& slot, std::vector<int>& numbers) const;

    std::vector<Trigger> m_settingTriggers;  // by setting id
    std::vector<Trigger> m_statusTriggers;   // by status id
    std::vector<TriggerValue> m_triggerValues;
    std::vector<uint32_t> m_satisfied;  // filters, once for each of their criteria that the value satisfies

    std::vector<Filter> m_filters;
    std::vector<Removal> m_removals;
    std::vector<uint32_t> m_unmet;  // by filter: criteria that do not hold
    std::vector<uint64_t> m_on;     // bit set of the filters without unmet criteria
    bool m_onChanged = true;        // since m_removed was computed

    std::vector<Slot> m_slots;  // ascending by id
    std::vector<uint32_t> m_slotOfWord;
    std::vector<uint64_t> m_removed;     // option bits that the filters remove
    std::vector<uint64_t> m_wasRemoved;  // those that the attached entries lack
    std::vector<IdNums*> m_entries;      // by slot; empty while nothing is attached
    std::vector<IdNums*> m_marked;       // entries that are marked as changed
};
