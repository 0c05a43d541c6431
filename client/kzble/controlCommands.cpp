// The plain commands of the command interface.
#include <iomanip>
#include <map>
#include <optional>
#include <sstream>

#include "commands.h"
#include "nearest.h"
#include "valueText.h"

namespace kzble {

namespace {

using nlohmann::ordered_json;

enum CommandId : uint8_t {
    kShutter = 1,
    kMode = 2,
    kModeSubMode = 3,
    kLocate = 22,
    kAccessPoint = 23,
    kButton = 27,
    kSettingsVersion = 58,
    kCameraInfo = 60,
    kBleControl = 61,
    kSetMode = 62,
    kApiVersion = 81,
};

// Commands that take nothing, or a parameter that the camera does not look at.
struct Plain {
    const char* name;
    const char* help;
    uint8_t id;
    Bytes parameter;
};

const Plain kPlainCommands[] = {
    {"power-off", "Switch the camera off", 4, {}},
    {"sleep", "Put the camera to sleep", 5, {}},
    {"pair-cancel", "Stop pairing a Wi-Fi remote", 8, {}},
    {"reset-video", "Reset the video settings", 10, {0}},
    {"reset-multishot", "Reset the multi-shot settings", 11, {0}},
    {"reset-photo", "Reset the photo settings", 12, {0}},
    {"tag", "Mark this moment of the recording", 24, {}},
    {"pair", "Pair a Wi-Fi remote", 25, {}},
    {"voice-story", "Voice: edit my story", 26, {}},
    {"voice-photo", "Voice: take a photo", 32, {}},
    {"voice-video-start", "Voice: start a video", 33, {}},
    {"voice-video-stop", "Voice: stop the video", 34, {}},
    {"voice-timelapse-start", "Voice: start a time lapse", 35, {}},
    {"voice-timelapse-stop", "Voice: stop the time lapse", 36, {}},
    {"voice-burst", "Voice: take a burst", 37, {}},
    {"voice-tag", "Voice: mark this moment", 38, {}},
    {"voice-delete-last", "Voice: delete the last file", 39, {}},
    {"reset-settings", "Reset all settings of the modes", 63, {}},
    {"delete-all", "Delete every file", 65, {}},
    {"delete-last", "Delete the last file", 66, {}},
    {"third-party", "Say that we are a third-party client", 80, {}},
};

bool isOn(const std::string& text) {
    return text == "on";
}

std::string text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

void info(Session& session) {
    const auto fields = splitParameters(session.client().command(kCameraInfo));
    static constexpr const char* kNames[] = {"model",  "name",   "board", "firmware",      "serial",     "ap_ssid",
                                             "ap_mac", "extra1", "form",  "forced_update", "extra_text", "extra2"};
    static constexpr bool kTexts[] = {false, true, true, true, true, true, true, false, false, false, true, false};
    if (fields.size() < std::size(kNames)) {
        throw Error("the camera's information is too short");
    }
    ordered_json json;
    std::ostringstream lines;
    for (size_t i = 0; i < std::size(kNames); ++i) {
        json[kNames[i]] = kTexts[i] ? ordered_json(text(fields[i])) : ordered_json(kzclient::bigEndian(fields[i]));
        const auto& value = json[kNames[i]];
        lines << (i == 0 ? "" : "\n") << std::left << std::setw(14) << kNames[i]
              << (value.is_string() ? kzclient::printable(value.get<std::string>()) : value.dump());
    }
    session.print(json, lines.str());
}

void version(Session& session) {
    const auto catalogue = splitParameters(session.client().command(kSettingsVersion));
    const auto api = splitParameters(session.client().command(kApiVersion));
    if (catalogue.size() != 1 || api.size() != 2) {
        throw Error("the camera's version cannot be read");
    }
    const std::string apiText =
        std::to_string(kzclient::bigEndian(api[0])) + "." + std::to_string(kzclient::bigEndian(api[1]));
    session.print({{"catalogue", text(catalogue[0])}, {"api", apiText}},
                  "catalogue " + kzclient::printable(text(catalogue[0])) + ", third-party API " + apiText);
}

// A command whose one parameter is a number of `width` bytes.
void addNumberCommand(const Place& place, const CommandText& text, const char* what, uint8_t id, size_t width,
                      uint32_t most) {
    auto value = std::make_shared<uint32_t>(0);
    CLI::App* command = addCommand(place, text, [&session = place.session, value, id, width] {
        session.client().command(id, {number(*value, width)});
        session.printDone();
    });
    addNumber(*command, what, *value, "0 to " + std::to_string(most), 0, most)->required();
}

// A command whose one parameter is on or off.
void addSwitch(const Place& place, const CommandText& text, uint8_t id, size_t width) {
    auto state = std::make_shared<std::string>();
    CLI::App* command = addCommand(place, text, [&session = place.session, state, id, width] {
        session.client().command(id, {number(isOn(*state) ? 1 : 0, width)});
        session.printDone();
    });
    command->add_option("state", *state, "on or off")->required()->check(CLI::IsMember({"on", "off"}));
}

struct Mode {
    uint32_t mode = 0;
    std::optional<uint32_t> subMode;
};

const std::map<std::string, Mode> kModes = {
    {"video", {0, {}}}, {"photo", {1, {}}}, {"multishot", {2, {}}}, {"burst", {2, 0}}, {"timelapse", {2, 1}},
};

// A mode by name or number.
Mode parseMode(const std::string& text) {
    if (const auto named = kModes.find(text); named != kModes.end()) {
        return named->second;
    }
    if (const std::optional<uint32_t> mode = kzclient::parseNumber(text)) {
        return {*mode, {}};
    }
    std::vector<std::string> names;
    for (const auto& [name, mode] : kModes) {
        names.push_back(name);
    }
    throw WrongUse("no mode is called \"" + text + "\"" + kzclient::didYouMean(text, names) +
                   " (video, photo, multishot, burst, timelapse, or a number)");
}

void addMode(const Place& place) {
    struct Given {
        std::string mode;
        std::optional<uint32_t> subMode;
    };
    auto given = std::make_shared<Given>();
    CLI::App* command = addCommand(
        place, {"mode", "Switch to a mode, with a sub-mode if given", "photo"}, [&session = place.session, given] {
            const Mode mode = parseMode(given->mode);
            const std::optional<uint32_t> subMode = given->subMode ? given->subMode : mode.subMode;
            if (subMode) {
                session.client().command(kModeSubMode, {number(mode.mode, 4), number(*subMode, 4)});
            } else {
                session.client().command(kMode, {number(mode.mode, 4)});
            }
            session.printDone();
        });
    command->add_option("mode", given->mode, "video, photo, multishot, burst, timelapse, or a number")->required();
    addNumber(*command, "sub-mode", given->subMode, "0 to 4294967295", 0, UINT32_MAX);
}

void addButton(const Place& place) {
    struct Given {
        uint8_t type = 0;
        uint8_t state = 0;
    };
    auto given = std::make_shared<Given>();
    CLI::App* command = addCommand(
        place, {"button", "Press or release a button of a remote", "1 1"}, [&session = place.session, given] {
            session.client().command(kButton, {number(static_cast<uint64_t>(given->type << 8 | given->state), 4)});
            session.printDone();
        });
    addNumber(*command, "type", given->type, "0 to 255", 0, UINT8_MAX)->required();
    addNumber(*command, "state", given->state, "0 to 255", 0, UINT8_MAX)->required();
}

}  // namespace

std::vector<Bytes> splitParameters(const Bytes& answer) {
    std::vector<Bytes> result;
    for (size_t at = 0; at < answer.size();) {
        const size_t length = answer[at];
        if (at + 1 + length > answer.size()) {
            throw Error("the camera's answer ends in the middle of a parameter");
        }
        const auto begin = answer.begin() + static_cast<std::ptrdiff_t>(at) + 1;
        result.emplace_back(begin, begin + static_cast<std::ptrdiff_t>(length));
        at += 1 + length;
    }
    return result;
}

void addControlCommands(const Place& place) {
    auto& session = place.session;
    addCommand(place, {"info", "Print what the camera is", ""}, [&session] { info(session); });
    addCommand(place, {"version", "Print the versions of the catalogue and the API", ""},
               [&session] { version(session); });
    addSwitch(place, {"shutter", "Start or stop recording, or take a photo", "on"}, kShutter, 1);
    addMode(place);
    addSwitch(place, {"locate", "Make the camera beep", "on"}, kLocate, 1);
    addSwitch(place, {"ap", "Switch the Wi-Fi access point", "on"}, kAccessPoint, 4);
    addNumberCommand(place, {"ble-control", "Control Bluetooth of the camera", "1"}, "value", kBleControl, 4,
                     UINT32_MAX);
    addNumberCommand(place, {"set-mode", "Switch to a mode by its 16-bit number", "12"}, "mode", kSetMode, 2,
                     UINT16_MAX);
    addButton(place);
    for (const auto& row : kPlainCommands) {
        addCommand(place, {row.name, row.help, ""}, [&session, &row] {
            session.client().command(row.id,
                                     row.parameter.empty() ? std::vector<Bytes>{} : std::vector<Bytes>{row.parameter});
            session.printDone();
        });
    }
}

}  // namespace kzble
