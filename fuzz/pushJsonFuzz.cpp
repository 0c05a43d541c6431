// The control daemon's JSON as a stranger may write it: every number is found again in the text, ids stay in their
// tables, and the compiled filters follow the values.
#include "modelJson.h"

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

Model& Loaded() {
    static Model model;
    static const JsonTree root(cJSON_Parse(kCatalogue));
    static const bool loaded = model.ParseSettings(root.get()) && model.ParseFilters(root.get());
    Require(loaded);
    return model;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    if (const JsonTree root(cJSON_Parse(text.c_str())); root != nullptr && cJSON_IsObject(root.get())) {
        CheckNumbers(text.c_str(), root.get());
    }
    Model& model = Loaded();
    bool changed = false;

    g_logLevel = (size % 2 == 0) ? KZ_LOG_ERROR : KZ_LOG_TRACE;  // a traced push takes the plain filters
    Require((model.CurrentSettingsStatusFromJSON(text.c_str(), changed) & ~3) == 0);

    CheckCapabilities(model);
    const std::vector<int> settings = Ids(model, &Model::GetChangedSettingsIds);
    const std::vector<int> status = Ids(model, &Model::GetChangedStatusIds);
    Require(settings.empty() || (settings.front() >= 0 && settings.back() < model.GetMaxSettingsId()));
    Require(status.empty() || (status.front() >= 0 && status.back() < model.GetMaxStatusId()));
    return 0;
}
