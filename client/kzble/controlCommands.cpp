// The plain commands of the command interface.
#include <chrono>
#include <ctime>
#include <iomanip>
#include <map>
#include <optional>
#include <sstream>

#include "session.h"
#include "skylark/bleMessage.h"

namespace kzble {

namespace {

using nlohmann::ordered_json;

enum CommandId : uint8_t {
    kShutter = 1,
    kMode = 2,
    kModeSubMode = 3,
    kSetDateTimeZone = 15,
    kGetDateTimeZone = 16,
    kSetDateTime = 13,
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

// Splits the parameters of a command's answer.
std::vector<Bytes> parameters(const Bytes& answer) {
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

std::string text(const Bytes& bytes) {
    return {bytes.begin(), bytes.end()};
}

void info(Session& session) {
    const auto fields = parameters(session.client().command(kCameraInfo));
    constexpr size_t kFields = 12;
    if (fields.size() < kFields) {
        throw Error("the camera's information is too short");
    }
    const ordered_json json = {
        {"model", kzclient::bigEndian(fields[0])},
        {"name", text(fields[1])},
        {"board", text(fields[2])},
        {"firmware", text(fields[3])},
        {"serial", text(fields[4])},
        {"ap_ssid", text(fields[5])},
        {"ap_mac", text(fields[6])},
    };
    std::ostringstream lines;
    for (const auto& [key, value] : json.items()) {
        lines << std::left << std::setw(10) << key << (value.is_string() ? value.get<std::string>() : value.dump());
        if (key != "ap_mac") {
            lines << '\n';
        }
    }
    session.print(json, lines.str());
}

void version(Session& session) {
    const auto catalogue = parameters(session.client().command(kSettingsVersion));
    const auto api = parameters(session.client().command(kApiVersion));
    if (catalogue.size() != 1 || api.size() != 2) {
        throw Error("the camera's version cannot be read");
    }
    const std::string apiText =
        std::to_string(kzclient::bigEndian(api[0])) + "." + std::to_string(kzclient::bigEndian(api[1]));
    session.print({{"catalogue", text(catalogue[0])}, {"api", apiText}},
                  "catalogue " + text(catalogue[0]) + ", third-party API " + apiText);
}

struct DateTime {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};

DateTime parseDateTime(const std::string& when) {
    DateTime result;
    char t = 0;
    char rest = 0;
    if (std::sscanf(when.c_str(), "%4d-%2d-%2d%c%2d:%2d:%2d%c", &result.year, &result.month, &result.day, &t,
                    &result.hour, &result.minute, &result.second, &rest) != 7) {
        throw Error("a date and time looks like 2026-11-24T16:30:00, not " + when);
    }
    return result;
}

DateTime localNow(int& zoneMinutes, bool& daylight) {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    daylight = local.tm_isdst > 0;
    // The camera keeps the zone without the daylight hour.
    zoneMinutes = static_cast<int>(local.tm_gmtoff / 60) - (daylight ? 60 : 0);
    return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec};
}

Bytes encode(const DateTime& when) {
    Bytes bytes = number(static_cast<uint64_t>(when.year), 2);
    for (const int field : {when.month, when.day, when.hour, when.minute, when.second}) {
        bytes.push_back(static_cast<uint8_t>(field));
    }
    return bytes;
}

void timeGet(Session& session) {
    const auto fields = parameters(session.client().command(kGetDateTimeZone));
    if (fields.size() != 1 || fields[0].size() != 10) {
        throw Error("the camera's date and time cannot be read");
    }
    const Bytes& b = fields[0];
    const int zone = static_cast<int16_t>(b[7] << 8 | b[8]);
    char when[64];
    std::snprintf(when, sizeof(when), "%04d-%02d-%02dT%02d:%02d:%02d", b[0] << 8 | b[1], b[2], b[3], b[4], b[5], b[6]);
    constexpr int kNoZone = 32767;
    const std::string zoneText = zone == kNoZone ? "zone not given" : "UTC offset " + std::to_string(zone) + " min";
    session.print({{"time", when}, {"utc_offset_minutes", zone}, {"daylight_saving", b[9] != 0}},
                  std::string(when) + ", " + zoneText + (b[9] != 0 ? ", daylight saving" : ""));
}

struct TimeSet {
    std::string when;
    std::optional<int> zone;
    bool daylight = false;
};

void timeSet(Session& session, const TimeSet& given) {
    if (!given.when.empty() && !given.zone) {
        session.client().command(kSetDateTime, {encode(parseDateTime(given.when))});
        session.printDone();
        return;
    }
    int zone = 0;
    bool daylight = false;
    DateTime when = localNow(zone, daylight);
    if (!given.when.empty()) {
        when = parseDateTime(given.when);
        daylight = given.daylight;
    }
    Bytes record = encode(when);
    const Bytes offset = number(static_cast<uint64_t>(given.zone.value_or(zone)), 2);
    record.insert(record.end(), offset.begin(), offset.end());
    record.push_back(daylight ? 1 : 0);
    session.client().command(kSetDateTimeZone, {record});
    session.printDone();
}

void addTime(CLI::App& app, Session& session) {
    CLI::App* time = app.add_subcommand("time", "The camera's clock");
    time->require_subcommand(1);
    addCommand(*time, "get", "Print date, time, zone and daylight saving", [&session] { timeGet(session); });
    auto given = std::make_shared<TimeSet>();
    CLI::App* set = addCommand(*time, "set", "Set the clock; without a time, to ours",
                               [&session, given] { timeSet(session, *given); });
    set->add_option("when", given->when, "Local date and time, for example 2026-11-24T16:30:00");
    set->add_option("--zone", given->zone, "Offset from UTC in minutes, -720 to 840");
    set->add_flag("--dst", given->daylight, "Daylight saving is on");
}

// A command whose one parameter is a number.
void addNumber(CLI::App& app, Session& session, const char* name, const char* help, uint8_t id, size_t width,
               const char* what) {
    auto value = std::make_shared<uint32_t>(0);
    CLI::App* command = addCommand(app, name, help, [&session, value, id, width] {
        session.client().command(id, {number(*value, width)});
        session.printDone();
    });
    command->add_option(what, *value)->required();
}

// A command whose one parameter is on or off.
void addSwitch(CLI::App& app, Session& session, const char* name, const char* help, uint8_t id, size_t width) {
    auto state = std::make_shared<std::string>();
    CLI::App* command = addCommand(app, name, help, [&session, state, id, width] {
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
    throw Error("no mode is called \"" + text + "\"; take video, photo, multishot, burst, timelapse or a number");
}

void addMode(CLI::App& app, Session& session) {
    struct Given {
        std::string mode;
        std::optional<uint32_t> subMode;
    };
    auto given = std::make_shared<Given>();
    CLI::App* command = addCommand(app, "mode", "Switch to a mode, with a sub-mode if given", [&session, given] {
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
    command->add_option("sub-mode", given->subMode);
}

void addButton(CLI::App& app, Session& session) {
    struct Given {
        uint8_t type = 0;
        uint8_t state = 0;
    };
    auto given = std::make_shared<Given>();
    CLI::App* command = addCommand(app, "button", "Press or release a button of a remote", [&session, given] {
        session.client().command(kButton, {number(static_cast<uint64_t>(given->type << 8 | given->state), 4)});
        session.printDone();
    });
    command->add_option("type", given->type)->required();
    command->add_option("state", given->state)->required();
}

void addRaw(CLI::App& app, Session& session) {
    struct Given {
        uint8_t stream = 0;
        std::vector<std::string> message;
    };
    auto given = std::make_shared<Given>();
    CLI::App* command = addCommand(app, "raw", "Send any message and print the bytes of its answer", [&session, given] {
        std::string digits;
        for (const auto& word : given->message) {
            digits += word;
        }
        const Bytes answer = session.client().request(given->stream, parseHex(digits));
        session.print({{"answer", kzclient::hex(answer)}}, kzclient::hex(answer));
    });
    command->add_option("stream", given->stream, "Request stream: 2 command, 7 settings, 12 query, 17 sensor")
        ->required();
    command->add_option("message", given->message, "The message in hexadecimal")->required();
}

void addDebug(CLI::App& app, Session& session) {
    CLI::App* debug = app.add_subcommand("debug", "The daemon's own debugging");
    debug->require_subcommand(1);
    auto level = std::make_shared<uint32_t>(0);
    CLI::App* logLevel = addCommand(*debug, "log-level", "Set the daemon's log level, 0 to 6", [&session, level] {
        session.client().link().sendDebug(KZBLE_SET_LOG_LEVEL, *level);
        session.printDone();
    });
    logLevel->add_option("level", *level)->required()->check(CLI::Range(0, 6));
    addCommand(*debug, "dump", "Have the daemon log its state", [&session] {
        session.client().link().sendDebug(KZBLE_DEBUG_DUMP_STATUS, 0);
        session.printDone();
    });
    addCommand(*debug, "shutdown", "Stop the daemon", [&session] {
        session.client().link().sendDebug(KZBLE_DEBUG_SHUTDOWN, 0);
        session.printDone();
    });
}

}  // namespace

void addControlCommands(CLI::App& app, Session& session) {
    addCommand(app, "info", "Print what the camera is", [&session] { info(session); });
    addCommand(app, "version", "Print the versions of the catalogue and the API", [&session] { version(session); });
    addSwitch(app, session, "shutter", "Start or stop recording, or take a photo", kShutter, 1);
    addMode(app, session);
    addTime(app, session);
    addSwitch(app, session, "locate", "Make the camera beep", kLocate, 1);
    addSwitch(app, session, "ap", "Switch the Wi-Fi access point", kAccessPoint, 4);
    addNumber(app, session, "ble-control", "Control Bluetooth of the camera", kBleControl, 4, "value");
    addNumber(app, session, "set-mode", "Switch to a mode by its 16-bit number", kSetMode, 2, "mode");
    addButton(app, session);
    for (const auto& row : kPlainCommands) {
        addCommand(app, row.name, row.help, [&session, &row] {
            session.client().command(row.id,
                                     row.parameter.empty() ? std::vector<Bytes>{} : std::vector<Bytes>{row.parameter});
            session.printDone();
        });
    }
    addRaw(app, session);
    addDebug(app, session);
}

}  // namespace kzble
