// What the tests of the model share: a model built from JSON texts, with a played control daemon and a captured log.
#pragma once

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "cameraFakes.h"
#include "jsonText.h"
#include "logCapture.h"
#include "settingsStatusMapping.h"
#include "utils.h"

using Ints = std::vector<int>;
using Bytes = std::vector<uint8_t>;

inline Bytes BytesOf(const FlexValue& value) {
    return {value.GetDataPointer(), value.GetDataPointer() + value.GetDataLength()};
}

inline FlexValue ByteValue(uint8_t number) {
    FlexValue value(eValueWidth1Byte, 0);
    value.SetValue(number);
    return value;
}

// One setting of settings.json; `options` are the objects of the list.
inline std::string SettingWith(int id, const std::string& options) {
    return R"({"id":)" + std::to_string(id) + R"(,"display_name":"Setting )" + std::to_string(id) + R"(","options":[)" +
           options + "]}";
}

inline std::string SettingJson(int id, const Ints& options) {
    std::string list;
    for (const int option : options) {
        list += (list.empty() ? "" : ",") + (R"({"id":)" + std::to_string(option) + R"(,"display_name":"Option"})");
    }
    return SettingWith(id, list);
}

// The numbers of each setting.
inline std::map<int, Ints> NumbersOf(const std::map<int, SettingsStatusMapping::IdNums>& entries) {
    std::map<int, Ints> numbers;
    for (const auto& [id, entry] : entries) {
        numbers[id] = entry.numbers;
    }
    return numbers;
}

class ModelTest : public testing::Test {
  protected:
    ModelTest() { fakes::Reset(); }

    void ParseSettings(const std::string& settings) {
        const JsonTree root(cJSON_Parse((R"({"modes":[],"settings":[)" + settings + "]}").c_str()));
        ASSERT_TRUE(m_model.ParseSettings(root.get()));
    }
    void ParseFilters(const std::string& filters) {
        const JsonTree root(cJSON_Parse((R"({"filters":[)" + filters + "]}").c_str()));
        ASSERT_NE(root, nullptr);
        m_model.ParseFilters(root.get());
    }
    uint8_t Push(const std::string& json) {
        return m_model.CurrentSettingsStatusFromJSON(json.c_str(), m_capabilitiesChanged);
    }

    Ints ValidSettings() const {
        Ints ids;
        m_model.GetValidSettingsIds(ids);
        return ids;
    }
    std::map<int, Ints> Capabilities() const { return NumbersOf(m_model.GetCapabilities()); }
    Ints ChangedCapabilities() const {
        Ints ids;
        m_model.GetCapabilityChangedSettingsIds(ids);
        return ids;
    }

    fakes::LogCapture m_log{2};
    SettingsStatusMapping m_model;
    bool m_capabilitiesChanged = false;
};
