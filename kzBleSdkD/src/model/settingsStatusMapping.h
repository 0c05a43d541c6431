// SettingsStatusMapping: the catalogue of settings and status fields read from settings.json, the filters that
// blacklist options, and the camera's current values. One object per process, owned by BleSDK; used by one thread at a
// time.
//
// Sources: settingsCatalogue.cpp (the parser of settings and status fields), settingsStatusMapping.cpp (width tables,
// questions, listing), settingsFilters.cpp (filters and capabilities), settingsCurrentValues.cpp (pushes of the control
// daemon, changed marks), filterTable.cpp (the filters as the push path evaluates them).
//
// settings.json, read by cJSON; integers may also be strings of decimal digits, true (1) or false (0):
//
//   version     number, optional
//   modes       anything; must be there
//   settings[]  id, display_name, options[] (at least one) of id, display_name
//   status      groups[] of fields[] of id, name
//   filters[]   optional
//       activated_by[]  criteria, at least one: setting_id with ids[], or status_id first with values[]
//       blacklist[]     setting_id, opt_ids[] (at least one)
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FlexValue.h"
#include "idSet.h"
#include "jsonArena.h"
#include "packedSetting.h"
#include "valueTable.h"

class FilterTable;
struct cJSON;

class SettingsStatusMapping {
  public:
    static constexpr int kSettingsTableSize = 182;  // setting ids 0 to 181
    static constexpr int kStatusTableSize = 118;    // status ids 0 to 117
    static constexpr uint8_t kDefaultModelNumber = 58;
    static constexpr int kStatusIdResetOnDisconnect = 33;
    static constexpr int kStatusIdPresetGroup = 96;
    static constexpr int kStatusIdPreset = 97;
    // A larger settings.json is refused; real ones have up to some 600 KB.
    static constexpr int64_t kMaxFileSize = int64_t{8} * 1024 * 1024;
    // A file and its tree may take as much memory as this while the file is parsed. That is room for a catalogue in
    // which every setting has 255 options; millions of tiny items would take forty times their size.
    static constexpr int64_t kMaxParseSize = int64_t{20} * 1024 * 1024;

    // Bits of the result of CurrentSettingsStatusFromJSON.
    static constexpr uint8_t kSettingsChanged = 1;
    static constexpr uint8_t kStatusChanged = 2;

    static constexpr const char* kTagNotFromJson = "NOT BUILT FROM JSON";
    static constexpr const char* kTagSetting = "setting_id";
    static constexpr const char* kTagStatus = "status_id";

    class Option {
      public:
        virtual ~Option() = default;

        int id = 0;
        std::string display_name;
    };

    class Setting {
      public:
        virtual ~Setting() = default;

        int id = 0;
        std::string display_name;
        std::map<int, std::unique_ptr<Option>> options;
    };

    // An id with a sorted list of numbers: a setting with its options, a criterion, a blacklist entry.
    class IdNums {
      public:
        IdNums() = default;
        IdNums(int entryId, std::vector<int> entryNumbers) : id(entryId), numbers(std::move(entryNumbers)) {}
        IdNums(const IdNums&) = default;
        IdNums(IdNums&&) = default;
        IdNums& operator=(const IdNums&) = default;
        IdNums& operator=(IdNums&&) = default;
        virtual ~IdNums() = default;

        // Reads the id under `idKey` and the array of numbers under `numbersKey`. False when either is missing, or when
        // no number could be collected. `idKey` becomes the tag.
        bool FromJSON(const cJSON* item, const char* idKey, const char* numbersKey);
        eValueWidth GetWidth() const;  // of this id as a setting id
        // Prints id and numbers on standard output.
        void Dump() const;

        int id = 0;
        std::vector<int> numbers;             // ascending; duplicates stay
        std::string tag = kTagNotFromJson;    // the JSON key that the id was read from
        bool changed = false;                 // in capabilities: the last computation changed the numbers
        uint8_t model = kDefaultModelNumber;  // selects the width table
    };

    // One filter: on when every criterion holds; then its blacklist forbids options.
    class FilterItem {
      public:
        FilterItem() = default;
        FilterItem(const FilterItem&) = delete;
        FilterItem& operator=(const FilterItem&) = delete;
        virtual ~FilterItem() = default;

        // Reads one filter. The id of a criterion stands under the first of `idKeys` that it has. Returns false, after
        // a log line, when the item is no filter. A broken blacklist entry is skipped and does not spoil the filter.
        bool FromJSON(const cJSON* item, const std::vector<const char*>& idKeys);
        // Whether the filter is on for these current values (by setting id, by status id). A criterion holds when its
        // value's low 32 bits equal one of its numbers; one without a value, or with an empty one, does not hold.
        bool Validate(const std::map<int, FlexValue>& settings, const std::map<int, FlexValue>& status) const;
        // Prints the filter on standard output.
        void Dump() const;

        std::vector<std::unique_ptr<IdNums>> criteria;   // tag: which of the two maps the id belongs to
        std::vector<std::unique_ptr<IdNums>> blacklist;  // option ids by setting id

      private:
        bool ReadBlacklist(const cJSON* item);
    };

    // Asks the control daemon for the model number; kDefaultModelNumber stays when it cannot answer.
    SettingsStatusMapping();
    virtual ~SettingsStatusMapping();
    SettingsStatusMapping(const SettingsStatusMapping&) = delete;
    SettingsStatusMapping& operator=(const SettingsStatusMapping&) = delete;

    // ---- catalogue. The file may be hostile; every problem is logged, a broken entry is skipped.

    // Reads the file and the three parts below, in this order. False, after a log line, when the file cannot be read,
    // is over kMaxFileSize or kMaxParseSize, is no JSON or lacks a required part; the object is then of no use. Called
    // once.
    bool ParseJsonFile(const std::string& path);
    bool ParseSettings(const cJSON* root);
    bool ParseStatus(const cJSON* root);
    bool ParseFilters(const cJSON* root);  // false only without "filters"; a catalogue needs none

    // Whether the catalogue has the id; ids beyond the tables are never valid.
    bool IsValidSettingsId(unsigned int id) const;
    bool IsValidStatusId(unsigned int id) const;
    // Replace `ids` by all ids of the catalogue, ascending.
    void GetValidSettingsIds(std::vector<int>& ids) const;
    void GetValidStatusIds(std::vector<int>& ids) const;
    // The sizes of the tables, which are the first ids beyond them.
    int GetMaxSettingsId() const { return kSettingsTableSize; }
    int GetMaxStatusId() const { return kStatusTableSize; }
    // "TODO", whatever the key: clients get no other names yet.
    std::string GetSettingName(std::string key) const;
    // A setting with its options, as the file names them; null for an id that the catalogue does not have. Made on
    // demand: see PackedSetting for what keeping them would cost.
    std::unique_ptr<Setting> MakeSetting(int id) const;
    // Whether the camera accepts this option now: asks the control daemon's library, not the catalogue.
    bool IsCurrentlyValidSettingOptionId(unsigned int settingId, unsigned int optionId);
    // Lists everything, on standard output and in the log at level 5.
    void Dump() const;

    // ---- filters. The capabilities of a setting are its options without the blacklisted ones. They are computed when
    // a push carries a value of a trigger id, that is one that occurs in some criterion. Before, no setting has any.

    // Replaces `result` by the capabilities for the given values and logs each step at level 6. The result, always
    // true, belongs to the public interface.
    bool ApplyFilters(const std::map<int, FlexValue>& settings, const std::map<int, FlexValue>& status,
                      std::map<int, IdNums>& result) const;
    // Brings the capabilities up to date with the current values, marks those that changed and returns whether any did.
    // The result is that of ApplyFilters and TagChangedOptions on the current values. At log level 6 it is computed
    // that way, because the steps are to be logged; below, only what the values stored since the last call affect is
    // computed (FilterTable).
    bool UpdateCapabilities();
    // Marks the entries of `capabilities` whose numbers differ from those of the present capabilities, which they then
    // replace. Returns whether any differed. A present entry that `capabilities` does not have does not count.
    bool TagChangedOptions(std::map<int, IdNums>& capabilities);

    // Copies the capabilities of `ids`, or all when `ids` is empty, into `result`. An id without capabilities gets an
    // entry without numbers. The result is always true.
    bool GetTheseSettingsCapabilityValues(const std::vector<int>& ids, std::map<int, IdNums>& result) const;
    // The capabilities of a setting, or null. Valid until the next push.
    const IdNums* FindCapability(int id) const;
    const std::map<int, IdNums>& GetCapabilities() const { return m_capabilities; }

    // ---- current values

    // Takes a push of the control daemon: {"settings": {"2": 1, ...}, "status": {"29": "text", ...}}, both optional.
    // Stores the values, marked changed, and updates the capabilities when one of the ids is a trigger. An id beyond
    // the tables is logged and skipped. Returns kSettingsChanged when there were settings, or neither member, and
    // kStatusChanged when a status was stored; 0, after a log line, when the text is no JSON.
    uint8_t CurrentSettingsStatusFromJSON(const char* text, bool& capabilitiesChanged);

    // Append the ids that are marked changed to `ids` and sort all of it ascending. The marks stay. Nothing is
    // allocated when `ids` has the room.
    void GetChangedSettingsIds(std::vector<int>& ids) const;
    void GetChangedStatusIds(std::vector<int>& ids) const;
    void GetCapabilityChangedSettingsIds(std::vector<int>& ids) const;  // as of the last computation
    // Clear the changed marks of all current values.
    void ResetSettingsHasChanged();
    void ResetStatusHasChanged();

    // Copy the current values of `ids`, or all when `ids` is empty, into `result`. An id without a value gets an empty
    // one, which the model then keeps if the id lies in the table. The result is always true.
    bool GetTheseSettingsValues(const std::vector<int>& ids, std::map<int, FlexValue>& result);
    bool GetTheseStatusValues(const std::vector<int>& ids, std::map<int, FlexValue>& result);
    // The same for one id, without a copy. Valid until a value of this id is stored.
    const FlexValue& GetSettingValue(int id);
    const FlexValue& GetStatusValue(int id);
    // The current value of any id, or null when it has none; the model stays as it is. Valid as above.
    const FlexValue* FindSettingValue(int id) const { return m_settingValues.Find(id); }
    const FlexValue* FindStatusValue(int id) const { return m_statusValues.Find(id); }

    // Replaces one current status value, changed mark included; an id beyond the table is ignored. Used where this
    // daemon itself decides a status (33 becomes 255 at a disconnection). The capabilities follow with the next push.
    void SetStatusValue(int id, const FlexValue& value);

    uint8_t modelNumber = kDefaultModelNumber;
    std::string version = "unknown";  // the file's "version", with 4 significant digits

  private:
    void AddSetting(const cJSON* item, int index);
    void AddStatusField(const cJSON* item, int groupIndex, int fieldIndex);
    void AddFilter(std::unique_ptr<FilterItem> filter);
    void BuildFilterTable();  // after options or filters were added

    // Store the current value of `id`, which must lie in the table. Return whether the id is a trigger.
    bool StoreSetting(int id, FlexValue&& value);
    bool StoreStatus(int id, FlexValue&& value);

    // catalogue
    std::vector<int> m_validSettingIds;      // ascending
    IdSet m_tableSettingIds;                 // those of them that the tables hold, for the look-ups
    std::map<int, IdNums> m_settingOptions;  // every option id of a setting
    std::map<int, PackedSetting> m_settings;
    std::vector<int> m_validStatusIds;  // ascending
    IdSet m_tableStatusIds;             // as above
    std::map<int, std::string> m_statusNames;

    // filters
    std::vector<std::unique_ptr<FilterItem>> m_filters;     // in the order of the file
    std::map<int, std::vector<int>> m_blacklistingFilters;  // positions in m_filters, by blacklisted setting id
    std::set<int> m_triggerSettingIds;
    std::set<int> m_triggerStatusIds;
    std::unique_ptr<FilterTable> m_filterTable;  // m_filters compiled; follows the current values
    std::map<int, IdNums> m_capabilities;

    // current values: of the ids that were pushed or looked up
    ValueTable<kSettingsTableSize> m_settingValues;
    ValueTable<kStatusTableSize> m_statusValues;
    JsonArena m_pushMemory;
};

// The width of a setting's or status's value, by camera model; eValueWidthNone for an id outside the table.
eValueWidth kzSettingWidth(uint8_t model, int settingId);
eValueWidth kzStatusWidth(uint8_t model, int statusId);
