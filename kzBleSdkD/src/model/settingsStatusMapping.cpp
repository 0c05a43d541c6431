// The catalogue: settings.json, its parser, width tables, diagnostic listing.
#include "settingsStatusMapping.h"

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "filterTable.h"
#include "jsonArena.h"
#include "jsonText.h"
#include "kzCtrlD/kzCtrlD.h"
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

// ---------------------------------------------------------------- reading

constexpr int kRequired = 1;

bool ReadInt(const cJSON* item, const char* key, int& value) {
    return Utils::cjson_parse_int(item, key, &value, kRequired) == 0;
}

// A JSON null is no text either.
bool ReadText(const cJSON* item, const char* key, const char*& text) {
    return Utils::cjson_parse_string(item, key, &text, kRequired) == 0 && text != nullptr;
}

const cJSON* FindArray(const cJSON* object, const char* key) {
    const cJSON* found = cJSON_GetObjectItem(object, key);
    return cJSON_IsArray(found) ? found : nullptr;
}

class FileDescriptor {
  public:
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (m_fd >= 0) {
            close(m_fd);
        }
    }
    int Get() const { return m_fd; }

  private:
    int m_fd;
};

// Reads up to `limit` bytes.
std::string ReadUpTo(int fd, size_t limit) {
    std::string text(limit, '\0');
    size_t length = 0;
    while (length < limit) {
        const ssize_t got = read(fd, text.data() + length, limit - length);
        if (got <= 0) {
            break;
        }
        length += static_cast<size_t>(got);
    }
    text.resize(length);
    return text;
}

// The file's text; empty, after a log line, when there is none to parse.
std::string ReadSettingsFile(const std::string& path) {
    // A pipe in the file's place must not block the start.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat info = {};
    const bool isFile = file.Get() >= 0 && fstat(file.Get(), &info) == 0 && S_ISREG(info.st_mode);
    if (isFile && info.st_size > SettingsStatusMapping::kMaxFileSize) {
        LOG_ERROR("Refusing a file of %ld bytes, the limit is %ld", static_cast<long>(info.st_size),
                  static_cast<long>(SettingsStatusMapping::kMaxFileSize));
        return {};
    }
    std::string text = isFile ? ReadUpTo(file.Get(), static_cast<size_t>(info.st_size)) : std::string();
    if (text.empty()) {
        LOG_ERROR("No data read from file \n");
    }
    return text;
}

JsonTree ParseSettingsFile(const std::string& path) {
    const std::string text = ReadSettingsFile(path);
    if (text.empty()) {
        return nullptr;
    }
    JsonTree root(cJSON_Parse(text.c_str()));
    if (root == nullptr) {
        LOG_ERROR("Unable to parse JSON from file \n");
    }
    return root;
}

// Reads one option. False after a log line.
bool ReadOption(const cJSON* item, const char* settingName, int index, SettingsStatusMapping::Option& option) {
    if (cJSON_IsInvalid(item)) {
        LOG_ERROR("Unable to parse item from options array, setting:%s options_index %d", settingName, index);
        return false;
    }
    if (!ReadInt(item, "id", option.id)) {
        LOG_ERROR("Not able to parse option id from %s", PrintJson(item).c_str());
        return false;
    }
    if (!ReadText(item, "display_name", option.display_name)) {
        LOG_ERROR("Not able to parse option name from %s", PrintJson(item).c_str());
        return false;
    }
    return true;
}

// The options of a setting in the order of the file, with names in the JSON tree. Empty, after a log line, when the
// setting is to be dropped.
std::vector<SettingsStatusMapping::Option> ReadOptions(const cJSON* setting, const char* settingName) {
    const cJSON* items = cJSON_GetObjectItem(setting, "options");
    if (items == nullptr) {
        LOG_ERROR("There are no options available for setting %s", settingName);
        return {};
    }
    std::vector<SettingsStatusMapping::Option> options;
    const cJSON* item = cJSON_IsArray(items) ? items->child : nullptr;
    if (item == nullptr) {
        LOG_ERROR("Not able to find any options for setting %s", settingName);
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
        LOG_ERROR("Unable to find -version- tag in json file \n");
        return;
    }
    char text[32];
    std::snprintf(text, sizeof(text), "%.4g", number->valuedouble);
    version = text;
}

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

SettingsStatusMapping::Setting::Setting(int settingId, std::string name, std::vector<Option> givenOptions)
    : id(settingId), display_name(std::move(name)) {
    // The last of several with one id stays: reversed, it is the first, which std::unique keeps.
    std::reverse(givenOptions.begin(), givenOptions.end());
    std::stable_sort(givenOptions.begin(), givenOptions.end(),
                     [](const Option& a, const Option& b) { return a.id < b.id; });
    const auto end = std::unique(givenOptions.begin(), givenOptions.end(),
                                 [](const Option& a, const Option& b) { return a.id == b.id; });
    options.assign(givenOptions.begin(), end);

    size_t namesSize = 0;
    for (const Option& option : options) {
        namesSize += std::strlen(option.display_name) + 1;
    }
    m_names = std::make_unique<char[]>(namesSize);
    char* at = m_names.get();
    for (Option& option : options) {
        const size_t size = std::strlen(option.display_name) + 1;
        std::memcpy(at, option.display_name, size);
        option.display_name = at;
        at += size;
    }
}

bool SettingsStatusMapping::IdNums::FromJSON(const cJSON* item, const char* idKey, const char* numbersKey) {
    tag = idKey;
    if (!ReadInt(item, idKey, id)) {
        return false;
    }
    const cJSON* array = FindArray(item, numbersKey);
    if (array == nullptr) {
        LOG_ERROR("Unable to find array tag %s in item %s", numbersKey, PrintJson(item).c_str());
        return false;
    }
    numbers.clear();
    for (const cJSON* element = array->child; element != nullptr; element = element->next) {
        numbers.push_back(element->valueint);
    }
    if (numbers.empty()) {
        LOG_ERROR("Unable to find any numbers for numberTag: %s in file", numbersKey);
        return false;
    }
    numbers.shrink_to_fit();
    std::sort(numbers.begin(), numbers.end());
    return true;
}

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
    if (kzc_state_get_model_number(&answer) == 0) {
        modelNumber = answer;
    } else {
        LOG_ERROR("Couldn't get model number using default:%lu", static_cast<unsigned long>(modelNumber));
    }
}

SettingsStatusMapping::~SettingsStatusMapping() = default;

// ---------------------------------------------------------------- parser

bool SettingsStatusMapping::ParseJsonFile(const std::string& path) {
    JsonArena arena;
    const JsonArena::Use use(arena);
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

bool SettingsStatusMapping::ParseSettings(const cJSON* root) {
    if (cJSON_GetObjectItem(root, "modes") == nullptr) {
        LOG_ERROR("Unable to find <modes> array in file");
        return false;
    }
    const cJSON* settings = FindArray(root, "settings");
    if (settings == nullptr) {
        LOG_ERROR("Unable to find <settings> array in file");
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
        LOG_ERROR("Unable to item from settings array setting_index %d", index);
        return;
    }
    int id = 0;
    if (!ReadInt(item, "id", id)) {
        LOG_ERROR("Unable to parse <id> from settings array, setting_index %d", index);
        return;
    }
    if (m_settings.contains(id)) {
        LOG_ERROR("A setting with id %d already exists in settings map", id);
        return;
    }
    const char* name = nullptr;
    if (!ReadText(item, "display_name", name)) {
        LOG_ERROR("Unable to parse <display_name> from setting id %d --> %s", id, PrintJson(item).c_str());
        return;
    }
    std::vector<Option> options = ReadOptions(item, name);
    if (options.empty()) {
        return;
    }
    std::vector<int> optionIds;
    optionIds.reserve(options.size());
    for (const Option& option : options) {
        optionIds.push_back(option.id);
    }
    std::sort(optionIds.begin(), optionIds.end());
    m_settings.try_emplace(id, id, name, std::move(options));
    m_settingOptions.try_emplace(id, id, std::move(optionIds));
    m_validSettingIds.push_back(id);
}

bool SettingsStatusMapping::ParseStatus(const cJSON* root) {
    const cJSON* status = cJSON_GetObjectItem(root, "status");
    if (status == nullptr) {
        LOG_ERROR("Unable to find <status> in file");
        return false;
    }
    const cJSON* groups = FindArray(status, "groups");
    if (groups == nullptr) {
        LOG_ERROR("Unable to find <groups> array in file");
        return false;
    }
    int groupIndex = 0;
    for (const cJSON* group = groups->child; group != nullptr; group = group->next, ++groupIndex) {
        const cJSON* fields = FindArray(group, "fields");
        if (fields == nullptr) {
            LOG_ERROR("Unable to find <fields> array in file for group %d", groupIndex);
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
        LOG_ERROR("Unable to get item from status array, groupIndex:%d fieldIndex: %d", groupIndex, fieldIndex);
        return;
    }
    int id = 0;
    if (!ReadInt(item, "id", id)) {
        LOG_ERROR("Unable to <id> from settings array, modeIndex:%d setting_index %d", groupIndex, fieldIndex);
        return;
    }
    const char* name = nullptr;
    if (!ReadText(item, "name", name)) {
        LOG_ERROR("Unable to get <name> from settings array, modeIndex:%d setting_index %d", groupIndex, fieldIndex);
        return;
    }
    if (!m_statusNames.try_emplace(id, name).second) {
        LOG_ERROR("A Status value for key %d already exists in settings map", id);
        return;
    }
    m_validStatusIds.push_back(id);
}

// ---------------------------------------------------------------- questions

bool SettingsStatusMapping::IsValidSettingsId(unsigned int id) const {
    return id < kSettingsTableSize &&
           std::binary_search(m_validSettingIds.begin(), m_validSettingIds.end(), static_cast<int>(id));
}

bool SettingsStatusMapping::IsValidStatusId(unsigned int id) const {
    return id < kStatusTableSize &&
           std::binary_search(m_validStatusIds.begin(), m_validStatusIds.end(), static_cast<int>(id));
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

bool SettingsStatusMapping::IsCurrentlyValidSettingOptionId(unsigned int settingId, unsigned int optionId) {
    return optionIdExists(modelNumber, settingId, optionId);
}

// ---------------------------------------------------------------- listing

void SettingsStatusMapping::Dump() const {
    LOG_INFO("Settings Conversion Map====================================================\n");
    for (const auto& [id, setting] : m_settings) {
        std::printf("%s (id = %d)\n", setting.display_name.c_str(), id);
        for (const Option& option : setting.options) {
            std::printf("\t%s (id = %d)\n", option.display_name, option.id);
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
