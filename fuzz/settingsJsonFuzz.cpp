// settings.json as a stranger may write it: whatever it says, the catalogue holds together, and the compiled filters
// give what their plain evaluation gives.
#include <cjson/cJSON.h>

#include <algorithm>
#include <string>

#include "fuzz.h"
#include "jsonText.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

void CheckCatalogue(const SettingsStatusMapping& model) {
    std::vector<int> ids;
    model.GetValidSettingsIds(ids);
    Require(std::is_sorted(ids.begin(), ids.end()) && std::adjacent_find(ids.begin(), ids.end()) == ids.end());
    for (const int id : ids) {
        Require(model.IsValidSettingsId(static_cast<unsigned>(id)) == (id >= 0 && id < model.GetMaxSettingsId()));
    }
    model.GetValidStatusIds(ids);
    Require(std::is_sorted(ids.begin(), ids.end()) && std::adjacent_find(ids.begin(), ids.end()) == ids.end());
}

void CheckCapabilities(SettingsStatusMapping& model) {
    model.UpdateCapabilities();
    std::map<int, FlexValue> settings;
    std::map<int, FlexValue> status;
    std::map<int, SettingsStatusMapping::IdNums> plain;
    model.GetTheseSettingsValues({}, settings);
    model.GetTheseStatusValues({}, status);
    model.ApplyFilters(settings, status, plain);
    Require(plain.size() == model.GetCapabilities().size());
    for (const auto& [id, entry] : plain) {
        const SettingsStatusMapping::IdNums* compiled = model.FindCapability(id);
        Require(compiled != nullptr && compiled->numbers == entry.numbers && compiled->id == entry.id);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Every message is formatted, those of the plain filters excepted.
    g_logLevel = KZ_LOG_INFO;
    const std::string text(reinterpret_cast<const char*>(data), size);
    // The steps of ParseJsonFile without the file.
    const JsonTree root(cJSON_Parse(text.c_str()));
    if (root == nullptr) {
        return 0;
    }
    SettingsStatusMapping model;
    if (!model.ParseSettings(root.get()) || !model.ParseStatus(root.get())) {
        return 0;
    }
    model.ParseFilters(root.get());
    CheckCatalogue(model);
    CheckCapabilities(model);
    bool changed = false;
    for (const char* push : {R"({"settings":{"1":1,"2":1,"3":1},"status":{"1":1,"8":0}})",
                             R"({"settings":{"1":0,"2":7},"status":{"1":2,"8":1,"13":5}})"}) {
        model.CurrentSettingsStatusFromJSON(push, changed);
        CheckCapabilities(model);
    }
    return 0;
}
