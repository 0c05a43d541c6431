// The parser of settings.json. A broken entry is logged and left out; a missing part ends the parse.
#include <cjson/cJSON.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstdio>

#include "fileHandle.h"
#include "filterTable.h"
#include "jsonText.h"
#include "parseProblems.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "settingsStatusMapping.cpp";

constexpr int kRequired = 1;

bool ReadInt(const cJSON* item, const char* key, int& value) {
    return Utils::cjson_parse_int(item, key, &value, kRequired) == 0;
}

// Returns false for a JSON null too: a name is needed.
bool ReadText(const cJSON* item, const char* key, const char*& text) {
    return Utils::cjson_parse_string(item, key, &text, kRequired) == 0 && text != nullptr;
}

const cJSON* FindArray(const cJSON* object, const char* key) {
    const cJSON* found = cJSON_GetObjectItem(object, key);
    return cJSON_IsArray(found) ? found : nullptr;
}

// The file's text; empty, after a log line, when there is none to parse.
std::string ReadSettingsFile(const std::string& path) {
    const FileHandle file = OpenRegularFile(path.c_str());
    struct stat info = {};
    const bool isReadable = file != nullptr && fstat(fileno(file.get()), &info) == 0;
    if (isReadable && info.st_size > SettingsStatusMapping::kMaxFileSize) {
        LOG_ERROR("Refusing a file of %ld bytes, the limit is %ld", static_cast<long>(info.st_size),
                  static_cast<long>(SettingsStatusMapping::kMaxFileSize));
        return {};
    }
    std::string text(isReadable ? static_cast<size_t>(info.st_size) : 0, '\0');
    text.resize(text.empty() ? 0 : std::fread(text.data(), 1, text.size(), file.get()));
    if (text.empty()) {
        LOG_ERROR("No data read from file \n");
    }
    return text;
}

// An upper bound of the bytes that the tree of this text takes: a node for what stands before each comma and in each
// bracket, and the strings, which are no longer than the text.
int64_t TreeSize(const std::string& text) {
    constexpr int64_t kNodeSize = sizeof(cJSON) + 2 * 8;  // with what rounding adds to its name and its string
    const auto nodes = std::count_if(text.begin(), text.end(), [](char c) { return c == ',' || c == '[' || c == '{'; });
    return (nodes + 1) * kNodeSize + static_cast<int64_t>(text.size());
}

JsonTree ParseSettingsFile(const std::string& path) {
    const std::string text = ReadSettingsFile(path);
    if (text.empty()) {
        return nullptr;
    }
    const int64_t size = static_cast<int64_t>(text.size()) + TreeSize(text);
    if (size > SettingsStatusMapping::kMaxParseSize) {
        LOG_ERROR("Refusing a file that would take %ld bytes, the limit is %ld", static_cast<long>(size),
                  static_cast<long>(SettingsStatusMapping::kMaxParseSize));
        return nullptr;
    }
    JsonTree root(cJSON_Parse(text.c_str()));
    if (root == nullptr) {
        LOG_ERROR("Unable to parse JSON from file \n");
    }
    return root;
}

// Reads one option, whose name stays in the JSON tree. Returns false, after a log line, when it is broken.
bool ReadOption(const cJSON* item, const char* settingName, int index, PackedSetting::Option& option) {
    if (cJSON_IsInvalid(item)) {
        LOG_PROBLEM("Unable to parse item from options array, setting:%s options_index %d", settingName, index);
        return false;
    }
    if (!ReadInt(item, "id", option.id)) {
        LOG_PROBLEM("Not able to parse option id from %s", PrintJson(item).c_str());
        return false;
    }
    if (!ReadText(item, "display_name", option.name)) {
        LOG_PROBLEM("Not able to parse option name from %s", PrintJson(item).c_str());
        return false;
    }
    return true;
}

// The options of a setting in the order of the file, with their names in the JSON tree. Returns none, after a log line,
// when one of them is broken or there are none: then the setting is dropped.
std::vector<PackedSetting::Option> ReadOptions(const cJSON* setting, const char* settingName) {
    const cJSON* items = cJSON_GetObjectItem(setting, "options");
    if (items == nullptr) {
        LOG_PROBLEM("There are no options available for setting %s", settingName);
        return {};
    }
    std::vector<PackedSetting::Option> options;
    const cJSON* item = cJSON_IsArray(items) ? items->child : nullptr;
    if (item == nullptr) {
        LOG_PROBLEM("Not able to find any options for setting %s", settingName);
        return {};
    }
    for (int index = 0; item != nullptr; item = item->next, ++index) {
        if (!ReadOption(item, settingName, index, options.emplace_back())) {
            return {};
        }
    }
    return options;
}

void ReadVersion(const cJSON* root, std::string& version) {
    const cJSON* number = cJSON_GetObjectItem(root, "version");
    if (!cJSON_IsNumber(number)) {
        LOG_PROBLEM("Unable to find -version- tag in json file \n");
        return;
    }
    char text[32];
    std::snprintf(text, sizeof(text), "%.4g", number->valuedouble);
    version = text;
}

}  // namespace

// ---------------------------------------------------------------- file

bool SettingsStatusMapping::ParseJsonFile(const std::string& path) {
    JsonArena arena;
    const JsonArena::Use use(arena);
    const ParseProblems problems;
    bool complete = false;
    if (const JsonTree root = ParseSettingsFile(path); root != nullptr) {
        ReadVersion(root.get(), version);
        complete = ParseSettings(root.get()) && ParseStatus(root.get());
        if (complete) {
            ParseFilters(root.get());
        }
    }
    return complete;
}

// ---------------------------------------------------------------- settings

bool SettingsStatusMapping::ParseSettings(const cJSON* root) {
    if (cJSON_GetObjectItem(root, "modes") == nullptr) {
        LOG_PROBLEM("Unable to find <modes> array in file");
        return false;
    }
    const cJSON* settings = FindArray(root, "settings");
    if (settings == nullptr) {
        LOG_PROBLEM("Unable to find <settings> array in file");
        return false;
    }
    int index = 0;
    for (const cJSON* item = settings->child; item != nullptr; item = item->next, ++index) {
        AddSetting(item, index);
    }
    std::sort(m_validSettingIds.begin(), m_validSettingIds.end());
    BuildFilterTable();
    return true;
}

void SettingsStatusMapping::AddSetting(const cJSON* item, int index) {
    if (cJSON_IsInvalid(item)) {
        LOG_PROBLEM("Unable to item from settings array setting_index %d", index);
        return;
    }
    int id = 0;
    if (!ReadInt(item, "id", id)) {
        LOG_PROBLEM("Unable to parse <id> from settings array, setting_index %d", index);
        return;
    }
    if (m_settings.contains(id)) {
        LOG_PROBLEM("A setting with id %d already exists in settings map", id);
        return;
    }
    const char* name = nullptr;
    if (!ReadText(item, "display_name", name)) {
        LOG_PROBLEM("Unable to parse <display_name> from setting id %d --> %s", id, PrintJson(item).c_str());
        return;
    }
    std::vector<PackedSetting::Option> options = ReadOptions(item, name);
    if (options.empty()) {
        return;
    }
    std::vector<int> optionIds;
    optionIds.reserve(options.size());
    for (const PackedSetting::Option& option : options) {
        optionIds.push_back(option.id);
    }
    std::sort(optionIds.begin(), optionIds.end());
    m_settings.try_emplace(id, name, std::move(options));
    m_settingOptions.try_emplace(id, id, std::move(optionIds));
    m_validSettingIds.push_back(id);
    m_tableSettingIds.Add(id);
}

// ---------------------------------------------------------------- status fields

bool SettingsStatusMapping::ParseStatus(const cJSON* root) {
    const cJSON* status = cJSON_GetObjectItem(root, "status");
    if (status == nullptr) {
        LOG_PROBLEM("Unable to find <status> in file");
        return false;
    }
    const cJSON* groups = FindArray(status, "groups");
    if (groups == nullptr) {
        LOG_PROBLEM("Unable to find <groups> array in file");
        return false;
    }
    int groupIndex = 0;
    for (const cJSON* group = groups->child; group != nullptr; group = group->next, ++groupIndex) {
        const cJSON* fields = FindArray(group, "fields");
        if (fields == nullptr) {
            LOG_PROBLEM("Unable to find <fields> array in file for group %d", groupIndex);
            return false;
        }
        int fieldIndex = 0;
        for (const cJSON* item = fields->child; item != nullptr; item = item->next, ++fieldIndex) {
            AddStatusField(item, groupIndex, fieldIndex);
        }
    }
    std::sort(m_validStatusIds.begin(), m_validStatusIds.end());
    return true;
}

void SettingsStatusMapping::AddStatusField(const cJSON* item, int groupIndex, int fieldIndex) {
    if (cJSON_IsInvalid(item)) {
        LOG_PROBLEM("Unable to get item from status array, groupIndex:%d fieldIndex: %d", groupIndex, fieldIndex);
        return;
    }
    int id = 0;
    if (!ReadInt(item, "id", id)) {
        LOG_PROBLEM("Unable to <id> from settings array, modeIndex:%d setting_index %d", groupIndex, fieldIndex);
        return;
    }
    const char* name = nullptr;
    if (!ReadText(item, "name", name)) {
        LOG_PROBLEM("Unable to get <name> from settings array, modeIndex:%d setting_index %d", groupIndex, fieldIndex);
        return;
    }
    if (!m_statusNames.try_emplace(id, name).second) {
        LOG_PROBLEM("A Status value for key %d already exists in settings map", id);
        return;
    }
    m_validStatusIds.push_back(id);
    m_tableStatusIds.Add(id);
}

// ---------------------------------------------------------------- ids with numbers

bool SettingsStatusMapping::IdNums::FromJSON(const cJSON* item, const char* idKey, const char* numbersKey) {
    tag = idKey;
    if (!ReadInt(item, idKey, id)) {
        return false;
    }
    const cJSON* array = FindArray(item, numbersKey);
    if (array == nullptr) {
        LOG_PROBLEM("Unable to find array tag %s in item %s", numbersKey, PrintJson(item).c_str());
        return false;
    }
    numbers.clear();
    for (const cJSON* element = array->child; element != nullptr; element = element->next) {
        numbers.push_back(element->valueint);
    }
    if (numbers.empty()) {
        LOG_PROBLEM("Unable to find any numbers for numberTag: %s in file", numbersKey);
        return false;
    }
    numbers.shrink_to_fit();
    std::sort(numbers.begin(), numbers.end());
    return true;
}
