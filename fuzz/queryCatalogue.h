// A model for the fuzzers of queries and changes: settings with as many options as their ids can name, texts of any
// length.
#pragma once

#include <numeric>

#include "testModel.h"

namespace queryFuzz {

// Loads the catalogue, once, and values for its ids.
inline void LoadModel() {
    if (BleSDK::GetInstance()->m_pSettingsMapping != nullptr) {
        return;
    }
    std::map<int, std::vector<int>> settings;
    std::string values;
    for (int id = 1; id < 60; ++id) {
        settings[id].resize(static_cast<size_t>(id) * 10);
        std::iota(settings[id].begin(), settings[id].end(), 0);
        const std::string number = std::to_string(id);
        values += (id == 1 ? "\"" : ",\"") + number + "\":" + number;
    }
    fakes::LoadCatalogue(settings);
    fakes::PushValues("{\"settings\":{" + values + "},\"status\":{\"8\":1,\"29\":\"" + std::string(400, 't') + "\"}}");
}

}  // namespace queryFuzz
