// Settings and status values: reading, changing, and what may be chosen now.
#include <set>

#include "session.h"
#include "values.h"

namespace kzble {

namespace {

using nlohmann::ordered_json;

enum QueryHeader : uint8_t {
    kSettingValues = 0x12,
    kSettingNames = 0x22,
    kSettingCapabilities = 0x32,
    kStatusValues = 0x13,
};

using Names = std::vector<std::string>;

Bytes idsOf(ValueKind kind, const Names& names, const kzclient::Catalogue& catalogue) {
    Bytes ids;
    for (const auto& name : names) {
        ids.push_back(kind == ValueKind::Setting ? catalogue.settingId(name) : catalogue.statusId(name));
    }
    return ids;
}

void printValues(Session& session, ValueKind kind, const std::vector<kzclient::Entry>& entries) {
    const auto& catalogue = session.catalogue();
    ordered_json json = ordered_json::array();
    std::string text;
    for (const auto& entry : entries) {
        const std::string name = idName(kind, entry.id, catalogue);
        json.push_back({{"id", entry.id}, {"name", name}, {"value", valueJson(kind, entry)}});
        text += (text.empty() ? "" : "\n") + std::to_string(entry.id) + "  " + name + " = " +
                valueText(kind, entry, catalogue);
    }
    session.print(json, text.empty() ? "no values" : text);
}

void readValues(Session& session, ValueKind kind, const Names& names) {
    const Bytes ids = idsOf(kind, names, session.catalogue());
    const uint8_t header = kind == ValueKind::Setting ? kSettingValues : kStatusValues;
    printValues(session, kind, kzclient::parseEntries(session.client().query(header, ids)));
}

void capabilities(Session& session, const Names& names) {
    const auto& catalogue = session.catalogue();
    const Bytes ids = idsOf(ValueKind::Setting, names, catalogue);
    std::map<uint8_t, std::vector<uint64_t>> options;
    for (const auto& entry : kzclient::parseEntries(session.client().query(kSettingCapabilities, ids))) {
        auto& list = options[entry.id];
        if (!entry.value.empty()) {
            list.push_back(kzclient::bigEndian(entry.value));
        }
    }
    ordered_json json = ordered_json::array();
    std::string text;
    for (const auto& [id, list] : options) {
        json.push_back({{"id", id}, {"name", catalogue.settingName(id)}, {"options", list}});
        text += (text.empty() ? "" : "\n") + std::to_string(id) + "  " + catalogue.settingName(id) + ":";
        for (const auto option : list) {
            text += " " + catalogue.optionName(id, option);
        }
        text += list.empty() ? " nothing may be chosen" : "";
    }
    session.print(json, text.empty() ? "no capabilities" : text);
}

void names(Session& session, const Names& names) {
    const Bytes ids = idsOf(ValueKind::Setting, names, session.catalogue());
    ordered_json json = ordered_json::array();
    std::string text;
    for (const auto& entry : kzclient::parseEntries(session.client().query(kSettingNames, ids))) {
        const std::string fromCamera(entry.value.begin(), entry.value.end());
        json.push_back({{"id", entry.id}, {"name", session.catalogue().settingName(entry.id)}, {"camera", fromCamera}});
        text += (text.empty() ? "" : "\n") + std::to_string(entry.id) + "  " +
                session.catalogue().settingName(entry.id) + "  (camera: " + fromCamera + ")";
    }
    session.print(json, text.empty() ? "no names" : text);
}

void set(Session& session, const std::string& setting, const std::string& option) {
    const auto& catalogue = session.catalogue();
    const uint8_t id = catalogue.settingId(setting);
    const uint32_t value = catalogue.optionId(id, option);
    constexpr uint32_t kOneByte = 0xFF;
    session.client().set(id, number(value, value > kOneByte ? 4 : 1));
    session.printDone();
}

template <typename Work>
void addNamesCommand(CLI::App& app, Session& session, const char* name, const char* help, Work work) {
    auto ids = std::make_shared<Names>();
    CLI::App* command = addCommand(app, name, help, [&session, ids, work] { work(session, *ids); });
    command->add_option("ids", *ids, "Ids or names of the catalogue; all when none is given");
}

}  // namespace

void addValueCommands(CLI::App& app, Session& session) {
    addNamesCommand(app, session, "get", "Print current values of settings",
                    [](Session& s, const Names& ids) { readValues(s, ValueKind::Setting, ids); });
    addNamesCommand(app, session, "status", "Print current status values",
                    [](Session& s, const Names& ids) { readValues(s, ValueKind::Status, ids); });
    addNamesCommand(app, session, "caps", "Print the options that may be chosen now", capabilities);
    addNamesCommand(app, session, "names", "Print names of settings", names);

    struct Given {
        std::string setting;
        std::string option;
    };
    auto given = std::make_shared<Given>();
    CLI::App* command =
        addCommand(app, "set", "Change a setting", [&session, given] { set(session, given->setting, given->option); });
    command->add_option("setting", given->setting, "Id or name")->required();
    command->add_option("option", given->option, "Option id or name")->required();
}

}  // namespace kzble
