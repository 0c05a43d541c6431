// `kzble list` and `kzble describe`: the protocol's names and what they mean. Neither needs a camera; the catalogue,
// where there is one, adds its settings and status fields.
#include <algorithm>
#include <iomanip>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>

#include "commands.h"
#include "nearest.h"
#include "protocolTable.h"

namespace kzble {

namespace {

using nlohmann::ordered_json;

// One line of `list`, or one thing that `describe` knows.
struct Thing {
    std::string kind;
    std::string name;
    std::string code;  // its bytes or number
    std::string does;
    std::string details;
    ordered_json json;  // of `describe`
};

std::string widthText(int width) {
    return width < 0 ? "text" : std::to_string(width) + (width == 1 ? " byte" : " bytes");
}

// A setting or a status field of the catalogue.
Thing valueThing(kzprotocol::ValueKind kind, int id, const std::string& name,
                 const std::map<int, std::string>& options) {
    const std::string word = kind == kzprotocol::ValueKind::kSetting ? "setting" : "status";
    const int width = kzprotocol::valueWidth(kind, static_cast<unsigned>(id)).value_or(0);
    Thing thing{word + "-id", name, std::to_string(id), "", "", {}};
    thing.does = word + " " + thing.code + ", " + widthText(width);
    thing.json = {{"kind", thing.kind}, {"name", name}, {"id", id}, {"width", ordered_json(widthText(width))}};
    std::ostringstream details;
    details << name << ": " << thing.does;
    for (const auto& [option, optionName] : options) {
        details << "\n    " << std::setw(6) << option << "  " << optionName;
        thing.json["options"].push_back({{"id", option}, {"name", optionName}});
    }
    thing.details = details.str();
    return thing;
}

Thing rowThing(const kzprotocol::Row& row) {
    std::ostringstream code;
    for (const int byte : {row.first, row.second}) {
        if (byte >= 0) {
            code << (code.tellp() > 0 ? " " : "") << std::hex << std::setw(2) << std::setfill('0') << byte;
        }
    }
    return {row.kind, row.name, code.str(), row.does, row.details, ordered_json::parse(row.json)};
}

std::vector<Thing> everything(Session& session) {
    std::vector<Thing> things;
    for (const kzprotocol::Row& row : kzprotocol::rows()) {
        things.push_back(rowThing(row));
    }
    for (const auto& [id, setting] : session.catalogue().settings()) {
        things.push_back(valueThing(kzprotocol::ValueKind::kSetting, id, setting.name, setting.options));
    }
    for (const auto& [id, name] : session.catalogue().statuses()) {
        things.push_back(valueThing(kzprotocol::ValueKind::kStatus, id, name, {}));
    }
    return things;
}

std::string normalised(std::string name) {
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(c == '_' || c == ' ' ? '-' : std::tolower(c)); });
    return name;
}

void list(Session& session, const std::string& kind) {
    std::set<std::string> kinds;
    bool found = false;
    for (const Thing& thing : everything(session)) {
        kinds.insert(thing.kind);
        if (!kind.empty() && thing.kind != kind) {
            continue;
        }
        found = true;
        std::ostringstream line;
        line << std::left << std::setw(10) << thing.kind << ' ' << std::setw(6) << thing.code << ' ' << std::setw(28)
             << thing.name << ' ' << thing.does;
        session.print({{"kind", thing.kind}, {"name", thing.name}, {"code", thing.code}, {"does", thing.does}},
                      line.str());
    }
    if (!found) {
        std::string known;
        for (const std::string& name : kinds) {
            known += " " + name;
        }
        throw WrongUse("there is no kind \"" + kind + "\"; kinds are" + known);
    }
}

void describe(Session& session, const std::string& name) {
    std::vector<std::string> known;
    std::string separator;
    for (const Thing& thing : everything(session)) {
        known.push_back(thing.name);
        if (normalised(thing.name) == normalised(name)) {
            session.print(thing.json, separator + thing.details);
            separator = "\n";
        }
    }
    if (separator.empty()) {
        const std::string hint = kzclient::didYouMean(name, known);
        throw WrongUse("the protocol has no \"" + name + "\"" + (hint.empty() ? "; see kzble list" : hint));
    }
}

}  // namespace

void addDescribeCommands(const Place& place) {
    auto& session = place.session;
    const auto kind = std::make_shared<std::string>();
    CLI::App* listing = addCommand(place, {"list", "Print the names of the protocol", "command"},
                                   [&session, kind] { list(session, *kind); });
    listing->add_option("kind", *kind, "Only these, for example command, query, push or setting-id");

    const auto name = std::make_shared<std::string>();
    CLI::App* description =
        addCommand(place, {"describe", "Print what a request or push of the protocol is, with its bytes", "shutter"},
                   [&session, name] { describe(session, *name); });
    description->add_option("name", *name, "As `kzble list` prints it")->required();
}

}  // namespace kzble
