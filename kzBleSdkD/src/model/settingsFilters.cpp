// Filters: their parser, their plain evaluation, and the capabilities.
#include <cjson/cJSON.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "filterTable.h"
#include "jsonText.h"
#include "parseProblems.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "settingsStatusMapping.cpp";

constexpr const char* kSettingIdKey = SettingsStatusMapping::kTagSetting;
constexpr const char* kStatusIdKey = SettingsStatusMapping::kTagStatus;

// A criterion whose first key is the status id has its numbers under "values", any other under "ids".
const char* NumbersKeyOf(const cJSON* criterion) {
    const cJSON* first = criterion->child;
    const bool isStatus = first != nullptr && first->string != nullptr && std::strcmp(first->string, kStatusIdKey) == 0;
    return isStatus ? "values" : "ids";
}

bool Holds(const SettingsStatusMapping::IdNums& criterion, const std::map<int, FlexValue>& values) {
    const auto value = values.find(criterion.id);
    if (value == values.end() || value->second.GetDataLength() == 0) {
        return false;
    }
    const int number = static_cast<int>(value->second.GetUI32Value());
    return std::binary_search(criterion.numbers.begin(), criterion.numbers.end(), number);
}

// Both lists are ascending.
void RemoveNumbers(std::vector<int>& from, const std::vector<int>& numbers) {
    std::erase_if(from, [&](int n) { return std::binary_search(numbers.begin(), numbers.end(), n); });
}

template <int kSize>
std::map<int, FlexValue> CopyOf(const ValueTable<kSize>& values) {
    std::map<int, FlexValue> copy;
    values.ForEach([&](int id, const FlexValue& value) { copy.emplace_hint(copy.end(), id, value); });
    return copy;
}

}  // namespace

// ---------------------------------------------------------------- one filter

bool SettingsStatusMapping::FilterItem::FromJSON(const cJSON* item, const std::vector<const char*>& idKeys) {
    const cJSON* activatedBy = cJSON_GetObjectItem(item, "activated_by");
    if (!cJSON_IsArray(activatedBy)) {
        LOG_PROBLEM("Unable to find <activated_by> array in file");
        return false;
    }
    if (activatedBy->child == nullptr) {
        LOG_PROBLEM("No activated_by members in array");
        return false;
    }
    int index = 0;
    for (const cJSON* element = activatedBy->child; element != nullptr; element = element->next, ++index) {
        if (cJSON_IsInvalid(element)) {
            LOG_PROBLEM("Unable to parse item from activated_by array, activated_index %d", index);
            continue;
        }
        auto criterion = std::make_unique<IdNums>();
        const char* numbersKey = NumbersKeyOf(element);
        if (std::none_of(idKeys.begin(), idKeys.end(),
                         [&](const char* idKey) { return criterion->FromJSON(element, idKey, numbersKey); })) {
            LOG_PROBLEM("Unable to parse any criteria from this filter.");
            return false;
        }
        criteria.push_back(std::move(criterion));
    }
    return ReadBlacklist(item);
}

bool SettingsStatusMapping::FilterItem::ReadBlacklist(const cJSON* item) {
    const cJSON* entries = cJSON_GetObjectItem(item, "blacklist");
    if (!cJSON_IsArray(entries)) {
        LOG_PROBLEM("There are no <blacklist> available for the filter.");
        return false;
    }
    int index = 0;
    for (const cJSON* element = entries->child; element != nullptr; element = element->next, ++index) {
        if (cJSON_IsInvalid(element)) {
            LOG_PROBLEM("Unable to parse item from blacklist array at index %d", index);
            continue;
        }
        auto entry = std::make_unique<IdNums>();
        if (!entry->FromJSON(element, kSettingIdKey, "opt_ids")) {
            LOG_PROBLEM("Unable to parse blacklist entry %s", PrintJson(element).c_str());
            continue;
        }
        blacklist.push_back(std::move(entry));
    }
    return true;
}

bool SettingsStatusMapping::FilterItem::Validate(const std::map<int, FlexValue>& settings,
                                                 const std::map<int, FlexValue>& status) const {
    for (const auto& criterion : criteria) {
        LOG_TRACE("\t\tEvaluating criteria: ");
        if (criterion->tag != kTagSetting && criterion->tag != kTagStatus) {
            LOG_ERROR("Unhandled case in %s", "Validate");
            return false;
        }
        if (!Holds(*criterion, criterion->tag == kTagStatus ? status : settings)) {
            LOG_TRACE("\t\tThis criteria (and thus filter) failed");
            return false;
        }
    }
    LOG_TRACE("\t\tThis filter succeeded");
    return true;
}

void SettingsStatusMapping::FilterItem::Dump() const {
    std::printf("FILTER\n");
    for (const auto& criterion : criteria) {
        criterion->Dump();
    }
    std::printf("BLACKLIST:\n");
    for (const auto& entry : blacklist) {
        entry->Dump();
    }
}

// ---------------------------------------------------------------- all filters

bool SettingsStatusMapping::ParseFilters(const cJSON* root) {
    const cJSON* filters = cJSON_GetObjectItem(root, "filters");
    if (filters == nullptr) {
        LOG_PROBLEM("Unable to find <filters> array in file");
        return false;
    }
    const std::vector<const char*> idKeys = {kSettingIdKey, kStatusIdKey};
    const cJSON* element = cJSON_IsArray(filters) ? filters->child : nullptr;
    for (; element != nullptr; element = element->next) {
        auto filter = std::make_unique<FilterItem>();
        if (!filter->FromJSON(element, idKeys)) {
            LOG_PROBLEM("Parsing failed");
            continue;
        }
        AddFilter(std::move(filter));
    }
    BuildFilterTable();
    return true;
}

void SettingsStatusMapping::AddFilter(std::unique_ptr<FilterItem> filter) {
    for (const auto& criterion : filter->criteria) {
        (criterion->tag == kTagStatus ? m_triggerStatusIds : m_triggerSettingIds).insert(criterion->id);
    }
    const int position = static_cast<int>(m_filters.size());
    for (const auto& entry : filter->blacklist) {
        m_blacklistingFilters[entry->id].push_back(position);
    }
    m_filters.push_back(std::move(filter));
}

void SettingsStatusMapping::BuildFilterTable() {
    m_filterTable = std::make_unique<FilterTable>(m_settingOptions, m_filters);
    m_settingValues.ForEach([&](int id, const FlexValue& value) { m_filterTable->NoteSetting(id, value); });
    m_statusValues.ForEach([&](int id, const FlexValue& value) { m_filterTable->NoteStatus(id, value); });
}

// ---------------------------------------------------------------- capabilities

bool SettingsStatusMapping::ApplyFilters(const std::map<int, FlexValue>& settings,
                                         const std::map<int, FlexValue>& status, std::map<int, IdNums>& result) const {
    result = m_settingOptions;
    for (const auto& [settingId, positions] : m_blacklistingFilters) {
        LOG_TRACE("****Applying filters that potentially blacklist Setting ID %d", settingId);
        LOG_TRACE("****Setting ID %d original options --> ", settingId);
        const IdNums& options = result[settingId];
        if (options.numbers.empty()) {
            continue;
        }
        for (const int position : positions) {
            LOG_TRACE("Options before applying filter %d --> ", position);
            if (options.numbers.empty()) {
                break;
            }
            const FilterItem& filter = *m_filters[static_cast<size_t>(position)];
            if (!filter.Validate(settings, status)) {
                continue;
            }
            for (const auto& entry : filter.blacklist) {
                LOG_TRACE("\tApplying blacklist: ");
                RemoveNumbers(result[entry->id].numbers, entry->numbers);
            }
        }
    }
    return true;
}

bool SettingsStatusMapping::UpdateCapabilities() {
    std::map<int, IdNums> capabilities;
    if (kzUtilGetLogLevel() >= KZ_LOG_TRACE) {
        // Only the plain evaluation logs its steps.
        ApplyFilters(CopyOf(m_settingValues), CopyOf(m_statusValues), capabilities);
        return TagChangedOptions(capabilities);
    }
    if (m_filterTable->IsAttached()) {
        return m_filterTable->Update();
    }
    capabilities = m_filterTable->MakeCapabilities();
    const bool changed = TagChangedOptions(capabilities);
    m_filterTable->Attach(m_capabilities);
    return changed;
}

bool SettingsStatusMapping::TagChangedOptions(std::map<int, IdNums>& capabilities) {
    m_filterTable->Release();
    bool anyChanged = false;
    for (auto& [id, entry] : capabilities) {
        entry.changed = m_capabilities[id].numbers != entry.numbers;
        anyChanged = anyChanged || entry.changed;
    }
    m_capabilities = capabilities;
    return anyChanged;
}

bool SettingsStatusMapping::GetTheseSettingsCapabilityValues(const std::vector<int>& ids,
                                                             std::map<int, IdNums>& result) const {
    if (ids.empty()) {
        for (const auto& [id, entry] : m_capabilities) {
            result.insert_or_assign(id, entry);
        }
    }
    for (const int id : ids) {
        const IdNums* entry = FindCapability(id);
        result.insert_or_assign(id, entry != nullptr ? *entry : IdNums());
    }
    return true;
}

const SettingsStatusMapping::IdNums* SettingsStatusMapping::FindCapability(int id) const {
    const auto found = m_capabilities.find(id);
    return found != m_capabilities.end() ? &found->second : nullptr;
}

void SettingsStatusMapping::GetCapabilityChangedSettingsIds(std::vector<int>& ids) const {
    for (const auto& [id, entry] : m_capabilities) {
        if (entry.changed) {
            LOG_TRACE("Setting capability changed -->:");
            ids.push_back(id);
        }
    }
    std::sort(ids.begin(), ids.end());
}
