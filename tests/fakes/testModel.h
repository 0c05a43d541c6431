// A settings model for the tests of requests and pushes: any settings; statuses 8, 13, 29 (text) and 97; while status 8
// is 1, option 4 of setting 5 is forbidden.
#pragma once

#include <cjson/cJSON.h>

#include <map>
#include <string>
#include <vector>

#include "bleSDK.h"
#include "jsonText.h"
#include "settingsStatusMapping.h"

namespace fakes {

// From now on the daemon's code works with this model; BleSDK::Destroy ends it. Null: it has none.
inline SettingsStatusMapping* UseModel(SettingsStatusMapping* model) {
    BleSDK* sdk = BleSDK::GetInstance();
    delete sdk->m_pSettingsMapping;
    sdk->m_pSettingsMapping = model;  // owned by the facade
    return model;
}

// The options of each setting; they become known with the first value of status 8.
inline void LoadCatalogue(const std::map<int, std::vector<int>>& settings) {
    std::string text;
    for (const auto& [id, options] : settings) {
        std::string list;
        for (const int option : options) {
            list += (list.empty() ? "" : ",") + (R"({"display_name":"O","id":)" + std::to_string(option) + "}");
        }
        text += (text.empty() ? "" : ",") +
                (R"({"display_name":"S","id":)" + std::to_string(id) + R"(,"options":[)" + list + "]}");
    }
    const JsonTree root(cJSON_Parse((R"({"modes": [], "settings": [)" + text + R"(],
        "status": {"groups": [{"fields": [{"id": 8, "name": "a"}, {"id": 13, "name": "b"}, {"id": 29, "name": "c"},
                                          {"id": 97, "name": "d"}]}]},
        "filters": [{"activated_by": [{"status_id": 8, "values": [1]}],
                     "blacklist": [{"setting_id": 5, "opt_ids": [4]}]}]})")
                                        .c_str()));
    SettingsStatusMapping* model = UseModel(new SettingsStatusMapping());
    model->ParseSettings(root.get());
    model->ParseStatus(root.get());
    model->ParseFilters(root.get());
}

// What the camera says that its values are: the changes are those of this push alone.
inline void PushValues(const std::string& json) {
    SettingsStatusMapping* model = BleSDK::LoadedMapping();
    bool capabilitiesChanged = false;
    model->ResetSettingsHasChanged();
    model->ResetStatusHasChanged();
    model->CurrentSettingsStatusFromJSON(json.c_str(), capabilitiesChanged);
}

}  // namespace fakes
