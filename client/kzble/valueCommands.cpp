// Settings and status values: reading, changing, and what may be chosen now.
#include "commands.h"
#include "values.h"

namespace kzble {

namespace {

using Names = std::vector<std::string>;

// One line an entry.
void readValues(Session& session, ValueKind kind, const Names& names) {
    const auto& catalogue = session.catalogue();
    const QueryHeader header = kind == ValueKind::Setting ? kSettingValues : kStatusValues;
    const Bytes ids = idsOf(kind, names, catalogue);
    const auto entries = askForAll(session, header, header, ids);
    for (const auto& entry : entries) {
        session.print(entryJson(kind, entry, catalogue), std::to_string(entry.id) + "  " +
                                                             idName(kind, entry.id, catalogue) + " = " +
                                                             valueText(kind, entry, catalogue));
    }
    expectNamed(kind, ids, entries);
}

void capabilities(Session& session, const Names& names) {
    const auto& catalogue = session.catalogue();
    const Bytes ids = idsOf(ValueKind::Setting, names, catalogue);
    const auto entries = askForAll(session, kSettingCapabilities, kSettingCapabilities, ids);
    for (const auto& [id, options] : capabilitiesOf(entries)) {
        session.print(capabilityJson(id, options, catalogue),
                      std::to_string(id) + "  " + capabilityText(id, options, catalogue));
    }
    expectNamed(ValueKind::Setting, ids, entries);
}

void names(Session& session, const Names& names) {
    const auto& catalogue = session.catalogue();
    const Bytes ids =
        names.empty() ? allIds(ValueKind::Setting, catalogue) : idsOf(ValueKind::Setting, names, catalogue);
    const auto entries = askForAll(session, kSettingNames, kSettingNames, ids);
    for (const auto& entry : entries) {
        const std::string fromCamera(entry.value.begin(), entry.value.end());
        const std::string name = catalogue.settingName(entry.id);
        session.print({{"id", entry.id}, {"name", name}, {"camera", fromCamera}},
                      std::to_string(entry.id) + "  " + name + "  (camera: " + kzclient::printable(fromCamera) + ")");
    }
    expectNamed(ValueKind::Setting, names.empty() ? Bytes() : ids, entries);
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
void addNamesCommand(const Place& place, const CommandText& text, Work work) {
    auto ids = std::make_shared<Names>();
    CLI::App* command = addCommand(place, text, [&session = place.session, ids, work] { work(session, *ids); });
    command->add_option("ids", *ids, "Ids or names of the catalogue; all when none is given");
}

}  // namespace

void addValueCommands(const Place& place) {
    addNamesCommand(place, {"get", "Print current values of settings", "\"Video Resolution\""},
                    [](Session& s, const Names& ids) { readValues(s, ValueKind::Setting, ids); });
    addNamesCommand(place, {"status", "Print current status values", "busy encoding"},
                    [](Session& s, const Names& ids) { readValues(s, ValueKind::Status, ids); });
    addNamesCommand(place, {"caps", "Print the options that may be chosen now", "\"Frame Rate\""}, capabilities);
    addNamesCommand(place, {"names", "Print names of settings", "2 3"}, names);

    struct Given {
        std::string setting;
        std::string option;
    };
    auto given = std::make_shared<Given>();
    CLI::App* command = addCommand(place, {"set", "Change a setting", "\"Video Resolution\" 1080p"},
                                   [&session = place.session, given] { set(session, given->setting, given->option); });
    command->add_option("setting", given->setting, "Id or name")->required();
    command->add_option("option", given->option, "Option id or name")->required();
}

}  // namespace kzble
