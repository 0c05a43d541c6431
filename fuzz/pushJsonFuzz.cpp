// The control daemon's JSON as a stranger may write it: every number is found again in the text, ids stay in their
// tables, and the model that traces each step ends where the quiet one does.
#include <cjson/cJSON.h>

#include <algorithm>
#include <memory>
#include <string>

#include "fuzz.h"
#include "jsonText.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

constexpr const char* kCatalogue = R"({
    "modes": [],
    "settings": [{"id": 2, "display_name": "a", "options": [{"id": 0, "display_name": "x"}, {"id": 1, "display_name": "y"}]},
                 {"id": 30, "display_name": "b", "options": [{"id": 1000, "display_name": "z"}]}],
    "status": {"groups": []},
    "filters": [
        {"activated_by": [{"setting_id": 2, "ids": [1, 2]}, {"status_id": 8, "values": [0]}],
         "blacklist": [{"setting_id": 30, "opt_ids": [1000]}]},
        {"activated_by": [{"status_id": 54, "values": [0, 1]}], "blacklist": [{"setting_id": 2, "opt_ids": [1]}]},
        {"activated_by": [{"status_id": 29, "values": [97]}], "blacklist": [{"setting_id": 2, "opt_ids": [0]}]}]})";

std::unique_ptr<SettingsStatusMapping> MakeModel() {
    auto model = std::make_unique<SettingsStatusMapping>();
    const JsonTree root(cJSON_Parse(kCatalogue));
    Require(model->ParseSettings(root.get()) && model->ParseFilters(root.get()));
    return model;
}

// The text at `value` starts with this number.
bool StandsFor(const char* value, const cJSON* number) {
    return (*value == '-' || (*value >= '0' && *value <= '9')) && std::strtod(value, nullptr) == number->valuedouble;
}

void CheckNumbers(const char* json, const cJSON* object) {
    ObjectText members(json, object);
    for (const cJSON* member = object->child; member != nullptr; member = member->next) {
        const char* value = members.ValueOf(member);
        if (cJSON_IsNumber(member)) {
            Require(StandsFor(value, member));
        } else if (cJSON_IsObject(member)) {
            Require(*value == '{');
            CheckNumbers(value, member);
        } else if (cJSON_IsString(member)) {
            Require(*value == '"');
        }
    }
}

void CheckIds(const std::vector<int>& ids, int tableSize) {
    Require(std::is_sorted(ids.begin(), ids.end()));
    Require(ids.empty() || (ids.front() >= 0 && ids.back() < tableSize));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (const JsonTree root(cJSON_Parse(text.c_str())); root != nullptr && cJSON_IsObject(root.get())) {
        CheckNumbers(text.c_str(), root.get());
    }
    static const std::unique_ptr<SettingsStatusMapping> quiet = MakeModel();
    static const std::unique_ptr<SettingsStatusMapping> traced = MakeModel();
    bool quietChanged = false;
    bool tracedChanged = false;

    g_logLevel = KZ_LOG_ERROR;
    const uint8_t result = quiet->CurrentSettingsStatusFromJSON(text.c_str(), quietChanged);
    g_logLevel = KZ_LOG_TRACE;
    Require(traced->CurrentSettingsStatusFromJSON(text.c_str(), tracedChanged) == result);
    g_logLevel = KZ_LOG_ERROR;

    Require(quietChanged == tracedChanged && (result & ~3) == 0);
    Require(quiet->GetCapabilities().size() == traced->GetCapabilities().size());
    for (const auto& [id, entry] : traced->GetCapabilities()) {
        const SettingsStatusMapping::IdNums* other = quiet->FindCapability(id);
        Require(other != nullptr && other->numbers == entry.numbers && other->changed == entry.changed);
    }
    std::vector<int> ids;
    quiet->GetChangedSettingsIds(ids);
    CheckIds(ids, quiet->GetMaxSettingsId());
    ids.clear();
    quiet->GetChangedStatusIds(ids);
    CheckIds(ids, quiet->GetMaxStatusId());
    return 0;
}
