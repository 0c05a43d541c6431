// SettingsStatusMapping: the catalogue of settings and status fields read from settings.json, the filters that
// blacklist options, and the camera's current values. One object per process, owned by BleSDK; used by one thread at a
// time.
//
// Sources: settingsStatusMapping.cpp (catalogue and its parser), settingsFilters.cpp (filters and capabilities),
// settingsCurrentValues.cpp (pushes of the control daemon, changed marks), filterTable.cpp (the filters as the push
// path evaluates them).
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
#include <string_view>
#include <utility>
#include <vector>

#include "FlexValue.h"
#include "jsonArena.h"
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

    // Bits of the result of CurrentSettingsStatusFromJSON.
    static constexpr uint8_t kSettingsChanged = 1;
    static constexpr uint8_t kStatusChanged = 2;

    static constexpr std::string_view kTagNotFromJson = "NOT BUILT FROM JSON";
    static constexpr std::string_view kTagSetting = "setting_id";
    static constexpr std::string_view kTagStatus = "status_id";

    // A catalogue has thousands of options, so they are kept small: the names of a setting's options lie in one block.
    struct Option {
        int id = 0;
        const char* display_name = "";  // owned by the setting
    };

    class Setting {
      public:
        // Copies the names; of options with the same id the last one stays.
        Setting(int settingId, std::string name, std::vector<Option> givenOptions);
        Setting(const Setting&) = delete;
        Setting& operator=(const Setting&) = delete;
        virtual ~Setting() = default;

        int id;
        std::string display_name;
        std::vector<Option> options;  // ascending by id, each id once

      private:
        std::unique_ptr<char[]> m_names;
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
        // no number could be collected. `idKey` becomes the tag: its characters must outlive the entry.
        bool FromJSON(const cJSON* item, const char* idKey, const char* numbersKey);
        eValueWidth GetWidth() const;  // of this id as a setting id
        // Prints the entry on standard output.
        void Dump() const;

        int id = 0;
        std::vector<int> numbers;                // ascending; duplicates stay
        std::string_view tag = kTagNotFromJson;  // the JSON key of the id; static characters
        bool changed = false;                    // in capabilities: the last computation changed the numbers
        uint8_t model = kDefaultModelNumber;     // selects the width table
    };

    // One filter: on when every criterion holds; then its blacklist forbids options.
    class FilterItem {
      public:
        FilterItem() = default;
        FilterItem(const FilterItem&) = delete;
        FilterItem& operator=(const FilterItem&) = delete;
        virtual ~FilterItem() = default;

        // Tries each of `idKeys` (static characters) for the id of a criterion. False, after a log line, when the item
        // is no filter; a broken blacklist entry alone is skipped.
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
    // is over kMaxFileSize, is no JSON or lacks a required part; the object is then of no use. Called once.
    bool ParseJsonFile(const std::string& path);
    bool ParseSettings(const cJSON* root);
    bool ParseStatus(const cJSON* root);
    bool ParseFilters(const cJSON* root);  // false only without "filters", which the catalogue can do without

    // Whether the catalogue has the id; ids beyond the tables are never valid.
    bool IsValidSettingsId(unsigned int id) const;
    bool IsValidStatusId(unsigned int id) const;
    // Replace `ids` by all ids of the catalogue, ascending.
    void GetValidSettingsIds(std::vector<int>& ids) const;
    void GetValidStatusIds(std::vector<int>& ids) const;
    // The sizes of the tables, that is the first ids beyond them.
    int GetMaxSettingsId() const { return kSettingsTableSize; }
    int GetMaxStatusId() const { return kStatusTableSize; }
    // "TODO", whatever the key: clients get no other names yet.
    std::string GetSettingName(std::string key) const;
    // Whether the camera accepts this option now: asks the control daemon's library, not the catalogue.
    bool IsCurrentlyValidSettingOptionId(unsigned int settingId, unsigned int optionId);
    // Lists everything, on standard output and in the log at level 5.
    void Dump() const;

    // ---- filters. Capabilities are the options of a setting less the blacklisted ones. They are computed when a push
    // carries an id that occurs in some criterion (a trigger id); until then there are none.

    // Computes the capabilities for the given values into `result`, which is replaced; tells each step at level 6.
    // Always true.
    bool ApplyFilters(const std::map<int, FlexValue>& settings, const std::map<int, FlexValue>& status,
                      std::map<int, IdNums>& result) const;
    // Brings the capabilities up to date with the current values and marks those that changed. Returns whether any did.
    // The result is that of ApplyFilters and TagChangedOptions on the current values, and below level 6 no more is done
    // than the values stored since the last call ask for.
    bool UpdateCapabilities();
    // Compares `capabilities` with the present ones, marks the entries whose numbers differ, and replaces the present
    // ones. Returns whether any differed; entries that are no longer there do not count.
    bool TagChangedOptions(std::map<int, IdNums>& capabilities);

    // Copies the capabilities of `ids` (all when empty) into `result`; an id without gets an entry without numbers.
    // Always true.
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

    // Append the ids that are marked changed and sort `ids` ascending. They clear no mark and, into a vector that has
    // the room, allocate nothing.
    void GetChangedSettingsIds(std::vector<int>& ids) const;
    void GetChangedStatusIds(std::vector<int>& ids) const;
    void GetCapabilityChangedSettingsIds(std::vector<int>& ids) const;  // as of the last computation
    // Clear the changed marks of all current values.
    void ResetSettingsHasChanged();
    void ResetStatusHasChanged();

    // Copy the current values of `ids` (all when empty) into `result`. An id without a value gets an empty one, in the
    // model too when it lies in the table. Always true.
    bool GetTheseSettingsValues(const std::vector<int>& ids, std::map<int, FlexValue>& result);
    bool GetTheseStatusValues(const std::vector<int>& ids, std::map<int, FlexValue>& result);
    // The same for one id, without a copy. Valid until a value of this id is stored.
    const FlexValue& GetSettingValue(int id);
    const FlexValue& GetStatusValue(int id);
    // The current value of an id, or null; changes nothing. Any id may be asked for. Valid as above.
    const FlexValue* FindSettingValue(int id) const { return m_settingValues.Find(id); }
    const FlexValue* FindStatusValue(int id) const { return m_statusValues.Find(id); }

    // Sets one current status value as it is, changed mark included: status 33 becomes 255 on disconnection. An id
    // beyond the table is ignored. Leaves the capabilities to the next push.
    void SetStatusValue(int id, const FlexValue& value);

    uint8_t modelNumber = kDefaultModelNumber;
    std::string version = "unknown";  // the file's "version", with 4 significant digits

  private:
    void AddSetting(const cJSON* item, int index);
    void AddStatusField(const cJSON* item, int groupIndex, int fieldIndex);
    void AddFilter(std::unique_ptr<FilterItem> filter);
    void BuildFilterTable();  // after options or filters were added

    // `id` lies in the table. Return whether the id is a trigger.
    bool StoreSetting(int id, FlexValue&& value);
    bool StoreStatus(int id, FlexValue&& value);

    // catalogue
    std::vector<int> m_validSettingIds;      // ascending
    std::map<int, IdNums> m_settingOptions;  // every option id of a setting
    std::map<int, Setting> m_settings;
    std::vector<int> m_validStatusIds;  // ascending
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
