// What the fuzzers of the model's JSON texts check: its lists of ids, and the capabilities that its filters leave.
#pragma once

#include <cjson/cJSON.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "fuzz.h"
#include "jsonText.h"
#include "settingsStatusMapping.h"
#include "utils.h"

using Model = SettingsStatusMapping;

// The ids of one of the model's lists: in ascending order, each once.
inline std::vector<int> Ids(const Model& model, void (Model::*list)(std::vector<int>&) const) {
    std::vector<int> ids;
    (model.*list)(ids);
    Require(std::is_sorted(ids.begin(), ids.end()) && std::adjacent_find(ids.begin(), ids.end()) == ids.end());
    return ids;
}

// The compiled filters give what their plain evaluation gives, which traces its steps at level 6.
inline void CheckCapabilities(Model& model) {
    model.UpdateCapabilities();
    std::map<int, FlexValue> settings;
    std::map<int, FlexValue> status;
    std::map<int, Model::IdNums> plain;
    model.GetTheseSettingsValues({}, settings);
    model.GetTheseStatusValues({}, status);
    model.ApplyFilters(settings, status, plain);
    Require(plain.size() == model.GetCapabilities().size());
    for (const auto& [id, entry] : plain) {
        const Model::IdNums* compiled = model.FindCapability(id);
        Require(compiled != nullptr && compiled->numbers == entry.numbers && compiled->id == entry.id);
    }
}
