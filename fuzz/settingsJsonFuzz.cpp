// settings.json as a stranger may write it: whatever it says, the catalogue holds together.
#include "modelJson.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Every message is formatted, those of the plain filters excepted.
    g_logLevel = KZ_LOG_INFO;
    const std::string text(reinterpret_cast<const char*>(data), size);
    // The steps of ParseJsonFile without the file.
    const JsonTree root(cJSON_Parse(text.c_str()));
    Model model;
    if (root == nullptr || !model.ParseSettings(root.get()) || !model.ParseStatus(root.get())) {
        return 0;
    }
    model.ParseFilters(root.get());
    for (const int id : Ids(model, &Model::GetValidSettingsIds)) {
        Require(model.IsValidSettingsId(static_cast<unsigned>(id)) == (id >= 0 && id < model.GetMaxSettingsId()));
    }
    Ids(model, &Model::GetValidStatusIds);
    CheckCapabilities(model);
    bool changed = false;
    for (const char* push : {R"({"settings":{"1":1,"2":1,"3":1},"status":{"1":1,"8":0}})",
                             R"({"settings":{"1":0,"2":7},"status":{"1":2,"8":1,"13":5}})"}) {
        model.CurrentSettingsStatusFromJSON(push, changed);
        CheckCapabilities(model);
    }
    return 0;
}
