// A model for the fuzzers of queries and changes: settings with as many options as their ids can name, texts of any
// length.
#pragma once

#include <cjson/cJSON.h>

#include <string>

#include "bleSDK.h"
#include "settingsStatusMapping.h"

namespace queryFuzz {

// Loads the catalogue, once, and values for its ids.
inline void LoadModel() {
    BleSDK* sdk = BleSDK::GetInstance();
    if (sdk->m_pSettingsMapping != nullptr) {
        return;
    }
    std::string settings;
    std::string values;
    for (int id = 1; id < 60; ++id) {
        std::string options = R"({"id":0,"display_name":"O"})";
        for (int option = 1; option < id * 10; ++option) {
            options += R"(,{"id":)" + std::to_string(option) + R"(,"display_name":"O"})";
        }
        const std::string number = std::to_string(id);
        settings += R"({"id":)" + number + R"(,"display_name":"S","options":[)" + options + "]},";
        values += "\"" + number + "\":" + number + ",";
    }
    settings.pop_back();
    values.pop_back();
    const std::string catalogue = R"({"modes":[],"settings":[)" + settings +
                                  R"(],"status":{"groups":[{"fields":[{"id":8,"name":"B"},{"id":29,"name":"T"}]}]},
        "filters":[{"activated_by":[{"status_id":8,"values":[1]}],"blacklist":[]}]})";
    const std::string push =
        "{\"settings\":{" + values + "},\"status\":{\"8\":1,\"29\":\"" + std::string(400, 't') + "\"}}";

    sdk->m_pSettingsMapping = new SettingsStatusMapping();  // owned by the facade
    cJSON* root = cJSON_Parse(catalogue.c_str());
    sdk->m_pSettingsMapping->ParseSettings(root);
    sdk->m_pSettingsMapping->ParseStatus(root);
    sdk->m_pSettingsMapping->ParseFilters(root);
    cJSON_Delete(root);
    bool capabilitiesChanged = false;
    sdk->m_pSettingsMapping->CurrentSettingsStatusFromJSON(push.c_str(), capabilitiesChanged);
}

}  // namespace queryFuzz
