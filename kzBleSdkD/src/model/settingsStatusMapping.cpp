// The width tables, the questions that the catalogue answers, and its diagnostic listing.
#include "settingsStatusMapping.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <initializer_list>

#include "filterTable.h"
#include "kzCtrlD/kzCtrlD.h"
#include "serviceGuard.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "settingsStatusMapping.cpp";

// ---------------------------------------------------------------- widths

struct WidthTables {
    std::array<eValueWidth, 184> settings{};
    std::array<eValueWidth, SettingsStatusMapping::kStatusTableSize> status{};
};

template <size_t kSize>
constexpr void Assign(std::array<eValueWidth, kSize>& table, eValueWidth width, std::initializer_list<size_t> ids) {
    for (const size_t id : ids) {
        table[id] = width;
    }
}

constexpr WidthTables MakeWidthTables() {
    WidthTables tables;
    tables.settings.fill(eValueWidth1Byte);
    Assign(tables.settings, eValueWidthNone, {0, 182, 183});
    Assign(tables.settings, eValueWidth4Bytes, {30, 32, 60, 61, 62, 65, 66, 67, 127, 141, 168});
    tables.status.fill(eValueWidth1Byte);
    Assign(tables.status, eValueWidthNone, {0, 5, 7, 12, 18, 25, 50, 51, 52, 53, 92});
    Assign(tables.status, eValueWidth4Bytes,
           {13, 14, 15, 21, 34, 35, 36, 37, 38, 39, 49, 57, 59, 60, 62, 64, 93, 94, 95, 96, 97, 98, 99, 100, 107});
    Assign(tables.status, eValueWidth8Bytes, {54, 117});
    Assign(tables.status, eValueWidthString, {29, 30, 40});
    return tables;
}

// Every model of this release has the same widths; one that differs gets a table of its own and a case here.
const WidthTables& WidthsOfModel(uint8_t model) {
    static constexpr WidthTables kCommonWidths = MakeWidthTables();
    switch (model) {
        case 58:
        case 60:
        default:
            return kCommonWidths;
    }
}

template <size_t kSize>
eValueWidth WidthOf(const std::array<eValueWidth, kSize>& table, int id) {
    return id >= 0 && static_cast<size_t>(id) < kSize ? table[static_cast<size_t>(id)] : eValueWidthNone;
}

// ---------------------------------------------------------------- listing

std::string Join(const std::vector<int>& numbers) {
    std::string text;
    for (const int number : numbers) {
        text += std::to_string(number);
        text += ' ';
    }
    return text;
}

}  // namespace

eValueWidth kzSettingWidth(uint8_t model, int settingId) {
    return WidthOf(WidthsOfModel(model).settings, settingId);
}

eValueWidth kzStatusWidth(uint8_t model, int statusId) {
    return WidthOf(WidthsOfModel(model).status, statusId);
}

// ---------------------------------------------------------------- entries

eValueWidth SettingsStatusMapping::IdNums::GetWidth() const {
    return kzSettingWidth(model, id);
}

void SettingsStatusMapping::IdNums::Dump() const {
    std::printf("\tid:%d nums:[%s]\n", id, Join(numbers).c_str());
}

// ---------------------------------------------------------------- life

SettingsStatusMapping::SettingsStatusMapping() {
    BuildFilterTable();
    FlexValue reset(eValueWidth1Byte, 0);
    reset.SetValue(static_cast<uint8_t>(255));
    SetStatusValue(kStatusIdResetOnDisconnect, reset);
    uint8_t answer = 0;
    if (guards::control.Ask([&] { return kzc_state_get_model_number(&answer); }) == 0) {
        modelNumber = answer;
    } else {
        LOG_ERROR("Couldn't get model number using default:%lu", static_cast<unsigned long>(modelNumber));
    }
}

SettingsStatusMapping::~SettingsStatusMapping() = default;

// ---------------------------------------------------------------- questions

bool SettingsStatusMapping::IsValidSettingsId(unsigned int id) const {
    return id < kSettingsTableSize && m_tableSettingIds.Contains(static_cast<int>(id));
}

bool SettingsStatusMapping::IsValidStatusId(unsigned int id) const {
    return id < kStatusTableSize && m_tableStatusIds.Contains(static_cast<int>(id));
}

void SettingsStatusMapping::GetValidSettingsIds(std::vector<int>& ids) const {
    ids = m_validSettingIds;
}

void SettingsStatusMapping::GetValidStatusIds(std::vector<int>& ids) const {
    ids = m_validStatusIds;
}

std::string SettingsStatusMapping::GetSettingName([[maybe_unused]] std::string key) const {
    return "TODO";
}

std::unique_ptr<SettingsStatusMapping::Setting> SettingsStatusMapping::MakeSetting(int id) const {
    const auto found = m_settings.find(id);
    if (found == m_settings.end()) {
        return nullptr;
    }
    auto setting = std::make_unique<Setting>();
    setting->id = id;
    setting->display_name = found->second.Name();
    for (const PackedSetting::Option& packed : found->second.Options()) {
        auto option = std::make_unique<Option>();
        option->id = packed.id;
        option->display_name = packed.name;
        setting->options.emplace_hint(setting->options.end(), packed.id, std::move(option));
    }
    return setting;
}

bool SettingsStatusMapping::IsCurrentlyValidSettingOptionId(unsigned int settingId, unsigned int optionId) {
    constexpr int kNoOption = -1;
    return guards::control.Ask([&] { return optionIdExists(modelNumber, settingId, optionId) ? 0 : kNoOption; }) == 0;
}

// ---------------------------------------------------------------- listing

void SettingsStatusMapping::Dump() const {
    LOG_INFO("Settings Conversion Map====================================================\n");
    for (const auto& [id, setting] : m_settings) {
        std::printf("%s (id = %d)\n", setting.Name().c_str(), id);
        for (const PackedSetting::Option& option : setting.Options()) {
            std::printf("\t%s (id = %d)\n", option.name, option.id);
        }
    }
    LOG_INFO("Settings Option_id Map=========================================================\n");
    for (const auto& entry : m_settingOptions) {
        entry.second.Dump();
    }
    LOG_INFO("Status Map=================================================================\n");
    for (const auto& [id, name] : m_statusNames) {
        LOG_INFO("id:%d name:%s\n", id, name.c_str());
    }
    LOG_INFO("Filters Array==============================================================\n");
    for (size_t i = 0; i < m_filters.size(); ++i) {
        LOG_INFO("%d --> ", static_cast<int>(i));
        m_filters[i]->Dump();
    }
    LOG_INFO("Blacklisted by ID===========================================================\n");
    for (const auto& [id, entry] : m_capabilities) {
        LOG_INFO("id:%d nums:[%s]", id, Join(entry.numbers).c_str());
    }
    LOG_INFO("Active setting ID's==========================================================\n");
    for (const int id : m_triggerSettingIds) {
        LOG_INFO("%d", id);
    }
    LOG_INFO("Active status ID's==========================================================\n");
    for (const int id : m_triggerStatusIds) {
        LOG_INFO("%d", id);
    }
}
