// What the tests of the model share: a model built from JSON texts, with a played control daemon and a captured log.
#pragma once

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "cameraFakes.h"
#include "jsonText.h"
#include "logCapture.h"
#include "settingsStatusMapping.h"
#include "utils.h"

using fakes::Bytes;
using Ints = std::vector<int>;
using Texts = std::vector<std::string>;
using Options = std::map<int, Ints>;  // by setting

inline Bytes BytesOf(const FlexValue& value) {
    const uint8_t* data = nullptr;
    unsigned length = 0;
    value.GetData(data, length);
    return {data, data + length};
}

inline std::string JsonOf(const Ints& numbers, const std::string& before = "", const std::string& after = "") {
    std::string text;
    for (const int number : numbers) {
        text += (text.empty() ? "" : ",") + before + std::to_string(number) + after;
    }
    return "[" + text + "]";
}

// One setting of settings.json.
inline std::string SettingJson(int id, const Ints& options) {
    const std::string number = std::to_string(id);
    return R"({"id":)" + number + R"(,"display_name":"Setting )" + number + R"(","options":)" +
           JsonOf(options, R"({"display_name":"Option","id":)", "}") + "}";
}

// One filter of settings.json.
inline std::string FilterJson(const std::string& criteria, const std::string& blacklist) {
    return R"({"activated_by":[)" + criteria + R"(],"blacklist":[)" + blacklist + "]}";
}

inline JsonTree CatalogueJson(const std::string& settings, const std::string& filters = "") {
    return JsonTree(cJSON_Parse(
        (R"({"modes":[],"settings":[)" + settings + R"(],"status":{"groups":[]},"filters":[)" + filters + "]}")
            .c_str()));
}

inline Options NumbersOf(const std::map<int, SettingsStatusMapping::IdNums>& entries) {
    Options numbers;
    for (const auto& [id, entry] : entries) {
        numbers[id] = entry.numbers;
    }
    return numbers;
}

class ModelTest : public testing::Test {
  protected:
    ModelTest() { fakes::Reset(); }

    void Load(const std::string& settings, const std::string& filters = "") {
        const JsonTree root = CatalogueJson(settings, filters);
        ASSERT_TRUE(root != nullptr && m_model.ParseSettings(root.get()) && m_model.ParseFilters(root.get()));
    }
    uint8_t Push(const std::string& json) {
        return m_model.CurrentSettingsStatusFromJSON(json.c_str(), m_capabilitiesChanged);
    }

    // The ids that one of the model's lists holds.
    Ints Ids(void (SettingsStatusMapping::*list)(Ints&) const) const {
        Ints ids;
        (m_model.*list)(ids);
        return ids;
    }
    Options AllOptions() const {
        std::map<int, SettingsStatusMapping::IdNums> options;
        m_model.ApplyFilters({}, {}, options);
        return NumbersOf(options);
    }
    Options Capabilities() const { return NumbersOf(m_model.GetCapabilities()); }

    fakes::LogCapture m_log{KZ_LOG_ERROR};
    SettingsStatusMapping m_model;
    bool m_capabilitiesChanged = false;
};
