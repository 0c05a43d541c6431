// SettingsStatusMapping: the catalogue of settings and status fields read from settings.json, the filters that blacklist
// options, and the camera's current values. One object per process, owned by BleSDK; used by one thread at a time.
//
// Sources: settingsStatusMapping.cpp (catalogue and parser), settingsFilters.cpp (filters and capabilities),
// settingsCurrentValues.cpp (pushes of the control daemon, changed marks).
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "FlexValue.h"

struct cJSON;

class SettingsStatusMapping {
  public:
    static constexpr int kSettingsTableSize = 182;  // setting ids 0 to 181
    static constexpr int kStatusTableSize = 118;    // status ids 0 to 117
    static constexpr uint8_t kDefaultModelNumber = 58;
    static constexpr int kStatusIdResetOnDisconnect = 33;
    static constexpr int kStatusIdPresetGroup = 96;
    static constexpr int kStatusIdPreset = 97;

    // Bits of the result of CurrentSettingsStatusFromJSON.
    static constexpr uint8_t kSettingsChanged = 1;
    static constexpr uint8_t kStatusChanged = 2;

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
        virtual ~IdNums() = default;
        // Reads the id under `idKey` and the array of numbers under `numbersKey`. False when either is missing, or when no
        // number could be collected.
        bool FromJSON(const cJSON* item, const char* idKey, const char* numbersKey);
        eValueWidth GetWidth() const;  // of this id as a setting id
        void Dump() const;

        int id = 0;
        std::vector<int> numbers;
        std::string tag = "NOT BUILT FROM JSON";
        bool changed = false;
        uint8_t model = kDefaultModelNumber;
    };

    // One filter: on when every criterion holds; then its blacklist forbids options.
    class FilterItem {
      public:
        virtual ~FilterItem() = default;
        bool FromJSON(const cJSON* item, const std::vector<std::string>& idKeys);
        // Whether the filter is on for these current values (by setting id, by status id).
        bool Validate(const std::map<int, FlexValue>& settings, const std::map<int, FlexValue>& status) const;

        std::vector<std::unique_ptr<IdNums>> criteria;
        std::vector<std::unique_ptr<IdNums>> blacklist;
    };

    // Asks the control daemon for the model number; kDefaultModelNumber stays when it cannot answer.
    SettingsStatusMapping();
    virtual ~SettingsStatusMapping();
    SettingsStatusMapping(const SettingsStatusMapping&) = delete;
    SettingsStatusMapping& operator=(const SettingsStatusMapping&) = delete;

    // ---- catalogue. The file may be hostile; every problem is logged, a broken entry is skipped.
    bool ParseJsonFile(const std::string& path);
    bool ParseSettings(const cJSON* root);
    bool ParseStatus(const cJSON* root);
    bool ParseFilters(const cJSON* root);

    bool IsValidSettingsId(unsigned int id) const;
    bool IsValidStatusId(unsigned int id) const;
    void GetValidSettingsIds(std::vector<int>& ids) const;  // ascending
    void GetValidStatusIds(std::vector<int>& ids) const;
    int GetMaxSettingsId() const { return kSettingsTableSize; }
    int GetMaxStatusId() const { return kStatusTableSize; }
    std::string GetSettingName(std::string key) const;
    // Whether the camera accepts this option now: asks the control daemon's library, not the catalogue.
    bool IsCurrentlyValidSettingOptionId(unsigned int settingId, unsigned int optionId);
    void Dump() const;

    // ---- filters
    bool ApplyFilters(const std::map<int, FlexValue>& settings, const std::map<int, FlexValue>& status,
                      std::map<int, IdNums>& result) const;
    bool GetTheseSettingsCapabilityValues(const std::vector<int>& ids, std::map<int, IdNums>& result) const;

    // ---- current values
    // Takes a push of the control daemon. Returns kSettingsChanged | kStatusChanged.
    uint8_t CurrentSettingsStatusFromJSON(const char* text, bool& capabilitiesChanged);
    void GetChangedSettingsIds(std::vector<int>& ids) const;
    void GetChangedStatusIds(std::vector<int>& ids) const;
    void GetCapabilityChangedSettingsIds(std::vector<int>& ids) const;
    void ResetSettingsHasChanged();
    void ResetStatusHasChanged();
    bool TagChangedOptions(std::map<int, IdNums>& capabilities);
    // Copies the current values of `ids` (all when empty). An id without a value gets an empty one, in the model too.
    bool GetTheseSettingsValues(const std::vector<int>& ids, std::map<int, FlexValue>& result);
    bool GetTheseStatusValues(const std::vector<int>& ids, std::map<int, FlexValue>& result);
    // Sets one current status value without a changed mark (status 33 on disconnection).
    void SetStatusValue(int id, const FlexValue& value);

    uint8_t modelNumber = kDefaultModelNumber;
    std::string version = "unknown";  // the file's "version"

  private:
    // The model's owner adds what the implementation needs.
};

// The width of a setting's or status's value, by camera model; eValueWidthNone for an id outside the table.
eValueWidth kzSettingWidth(uint8_t model, int settingId);
eValueWidth kzStatusWidth(uint8_t model, int statusId);
