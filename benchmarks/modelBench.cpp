// The road of a push through the settings model, the filters alone, and the load of a large settings.json.
#include <cjson/cJSON.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "jsonText.h"
#include "roadTable.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

constexpr int kPushedIds = 60;  // settings 1 to 60 and as many status fields
constexpr int kOptions = 37;

// Status fields with a one-byte value, ascending.
std::vector<int> OneByteStatusIds() {
    std::vector<int> ids;
    for (int id = 0; id < SettingsStatusMapping::kStatusTableSize && ids.size() < kPushedIds; ++id) {
        if (kzStatusWidth(SettingsStatusMapping::kDefaultModelNumber, id) == eValueWidth1Byte) {
            ids.push_back(id);
        }
    }
    return ids;
}
const std::vector<int> kStatusIds = OneByteStatusIds();

// Filters on all pushed ids in turn: a setting and a status field each, on for a few of the pushed values.
std::string Filters(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        const std::string setting = std::to_string(i % kPushedIds + 1);
        const std::string status = std::to_string(kStatusIds[static_cast<size_t>(i * 7 % kPushedIds)]);
        const std::string target = std::to_string(i * 13 % 180 + 1);
        const std::string number = std::to_string(i % 5);
        text += std::string(i == 0 ? "" : ",") + R"({"activated_by":[{"setting_id":)" + setting + R"(,"ids":[)" +
                number + ",9,10,11]},{\"status_id\":" + status + R"(,"values":[)" + number +
                R"(,7,8]}],"blacklist":[{"setting_id":)" + target + R"(,"opt_ids":[1,5,9,13,17,21,25,29,33]}]})";
    }
    return text;
}

std::string Catalogue(int filters) {
    std::string text = R"({"version": 9.1, "modes": [], "settings": [)";
    for (int id = 1; id <= 180; ++id) {
        const std::string name = std::to_string(id);
        text += (id == 1 ? "" : ",\n") + (R"(  {"id": )" + name + R"(, "display_name": "Measured Setting )" + name) +
                R"(", "options": [)";
        for (int option = 0; option < kOptions; ++option) {
            const std::string number = std::to_string(option);
            text += (option == 0 ? "\n" : ",\n") + (R"(    {"id": )" + number + R"(,     "display_name": "Option )") +
                    number + " of setting " + name + "\"}";
        }
        text += "]}";
    }
    text += R"(], "status": {"groups": [{"fields": [)";
    for (const int id : kStatusIds) {
        text += (id == kStatusIds[0] ? "" : ",") + (R"({"id":)" + std::to_string(id) + R"(,"name":"Status"})");
    }
    return text + R"(]}]}, "filters": [)" + Filters(filters) + "]}";
}

// All pushed ids; each value depends on `round`.
std::string PushText(int round) {
    std::string text = R"({"settings":{)";
    for (int i = 0; i < kPushedIds; ++i) {
        text += (i == 0 ? "\"" : ",\"") + std::to_string(i + 1) + "\":" + std::to_string((i + round) % 10);
    }
    text += R"(},"status":{)";
    for (int i = 0; i < kPushedIds; ++i) {
        text += (i == 0 ? "\"" : ",\"") + std::to_string(kStatusIds[static_cast<size_t>(i)]) +
                "\": " + std::to_string((i + round) % 10);
    }
    return text + "}}";
}

void Load(SettingsStatusMapping& model, const std::string& catalogue) {
    const JsonTree root(cJSON_Parse(catalogue.c_str()));
    model.ParseSettings(root.get());
    model.ParseStatus(root.get());
    model.ParseFilters(root.get());
}

FlexValue ByteValue(int number) {
    FlexValue value(eValueWidth1Byte, 0);
    value.SetValue(static_cast<uint8_t>(number));
    return value;
}

// A push beside the bare parse of the same text.
void MeasurePush(RoadTable& table, const std::string& name, const std::vector<std::string>& texts) {
    SettingsStatusMapping model;
    Load(model, Catalogue(300));
    size_t ours = 0;
    size_t floor = 0;
    bool changed = false;
    table.Measure(
        name + ", " + std::to_string(texts[0].size()) + " bytes", 200, 1.5,
        [&] {
            model.CurrentSettingsStatusFromJSON(texts[ours++ % texts.size()].c_str(), changed);
            KeepAlive(changed);
        },
        [&] {
            const JsonTree root(cJSON_Parse(texts[floor++ % texts.size()].c_str()));
            KeepAlive(root);
        });
}

// The capabilities after one trigger has changed, beside clearing and comparing the option bits of all settings.
void MeasureFilters(RoadTable& table, int count) {
    SettingsStatusMapping model;
    Load(model, Catalogue(count));
    bool changed = false;
    model.CurrentSettingsStatusFromJSON(PushText(3).c_str(), changed);
    const std::vector<FlexValue> values = {ByteValue(7), ByteValue(1)};
    uint64_t bits[180] = {};
    uint64_t previous[180] = {};
    size_t round = 0;
    table.Measure(
        "capabilities after one changed trigger, " + std::to_string(count) + " filters", 500, 0,
        [&] {
            model.SetStatusValue(kStatusIds[round % kPushedIds], values[round / kPushedIds % 2]);
            ++round;
            changed = model.UpdateCapabilities();
            KeepAlive(changed);
        },
        [&] {
            std::fill(std::begin(bits), std::end(bits), 0);
            KeepAlive(bits);
            changed = std::equal(std::begin(bits), std::end(bits), std::begin(previous));
            KeepAlive(changed);
        });
}

// The file into a model, beside the bare parse of its text.
void MeasureLoad(RoadTable& table) {
    const std::string catalogue = Catalogue(200);
    const std::string path = "/tmp/kzModelBench." + std::to_string(getpid()) + ".json";
    std::ofstream(path) << catalogue;
    table.Measure(
        "load of settings.json, " + std::to_string(catalogue.size()) + " bytes", 1, 2.5,
        [&] {
            SettingsStatusMapping model;
            const bool loaded = model.ParseJsonFile(path);
            KeepAlive(loaded);
        },
        [&] {
            const JsonTree root(cJSON_Parse(catalogue.c_str()));
            KeepAlive(root);
        });
    std::remove(path.c_str());
}

}  // namespace

int main() {
    g_logLevel = KZ_LOG_OFF;
    RoadTable table;
    std::vector<std::string> changing;
    for (int round = 0; round < 10; ++round) {
        changing.push_back(PushText(round));
    }
    MeasurePush(table, "push of 120 values, none changed, 300 filters", {changing[0]});
    MeasurePush(table, "push of 120 values, all changed, 300 filters", changing);
    for (const int count : {40, 400, 4000}) {
        MeasureFilters(table, count);
    }
    MeasureLoad(table);
    table.Print();
    return 0;
}
