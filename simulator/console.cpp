#include "console.h"

#include <algorithm>
#include <charconv>

#include "cameraIds.h"
#include "consoleWire.h"
#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "report.h"

namespace kzsim {
namespace {

using Words = std::vector<std::string>;  // the command's own word first
using Answer = ConsoleAnswer;

constexpr size_t kLongestLedBuffer = 18;  // what the BLE daemon's LED buffer takes

Answer done(std::string text = "") {
    return {true, std::move(text)};
}

Answer refused(std::string why) {
    return {false, std::move(why)};
}

// A whole decimal or 0x number, also negative.
std::optional<int64_t> number(const std::string& word) {
    const bool negative = !word.empty() && word[0] == '-';
    const char* first = word.data() + (negative ? 1 : 0);
    const char* const last = word.data() + word.size();
    const bool hexadecimal = last - first > 2 && first[0] == '0' && first[1] == 'x';
    uint64_t value = 0;
    const auto parsed = std::from_chars(hexadecimal ? first + 2 : first, last, value, hexadecimal ? 16 : 10);
    if (parsed.ec != std::errc() || parsed.ptr != last || value > static_cast<uint64_t>(INT64_MAX)) {
        return std::nullopt;
    }
    return negative ? -static_cast<int64_t>(value) : static_cast<int64_t>(value);
}

// The number of a word that must lie in 0 to `highest`.
std::optional<uint32_t> numberUpTo(const std::string& word, uint32_t highest) {
    const auto value = number(word);
    if (!value.has_value() || *value < 0 || *value > highest) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(*value);
}

std::optional<size_t> chosen(const std::string& word, std::initializer_list<const char*> choices) {
    const auto found = std::find(choices.begin(), choices.end(), word);
    return found == choices.end() ? std::nullopt : std::optional<size_t>(found - choices.begin());
}

// ---------------------------------------------------------------- camera

Answer battery(const Roles& roles, const Words& words) {
    const auto percent = numberUpTo(words[1], 100);
    if (!percent.has_value()) {
        return refused("the level is a percentage");
    }
    roles.camera.setBattery(*percent);
    return done();
}

Answer power(const Roles& roles, const Words& words) {
    const auto choice = chosen(words[1], {"off", "on"});
    if (!choice.has_value()) {
        return refused("power is on or off");
    }
    roles.camera.setExternalPower(*choice == 1);
    return done();
}

Answer card(const Roles& roles, const Words& words) {
    const auto choice = chosen(words[1], {"in", "full", "out"});
    if (!choice.has_value()) {
        return refused("the card is in, full or out");
    }
    roles.camera.setCard(static_cast<uint32_t>(*choice));
    return done();
}

Answer record(const Roles& roles, const Words& words) {
    const auto choice = chosen(words[1], {"off", "on"});
    if (!choice.has_value()) {
        return refused("recording is on or off");
    }
    const int result = *choice == 1 ? roles.camera.startCapture() : roles.camera.stopCapture();
    return result == 0 ? done() : refused("the camera refuses with " + std::to_string(result));
}

Answer changeSetting(const Roles& roles, const Words& words) {
    const auto id = numberUpTo(words[1], UINT8_MAX);
    const auto value = numberUpTo(words[2], UINT32_MAX);
    if (!id.has_value() || !value.has_value()) {
        return refused("a setting has an id up to 255 and a 32-bit value");
    }
    roles.camera.forceSetting(*id, *value);
    return done();
}

Answer changeStatus(const Roles& roles, const Words& words) {
    const auto id = numberUpTo(words[1], UINT8_MAX);
    if (!id.has_value()) {
        return refused("a status has an id up to 255");
    }
    const auto& statuses = roles.camera.statuses();
    const auto current = statuses.find(*id);
    const bool isText = current != statuses.end() && std::holds_alternative<std::string>(current->second);
    const auto value = number(words[2]);
    if (!isText && (!value.has_value() || *value < 0)) {
        return refused("the value of status " + words[1] + " is a number");
    }
    roles.camera.setStatus(*id, isText ? StatusValue(words[2]) : StatusValue(static_cast<uint64_t>(*value)));
    return done();
}

Answer suspend(const Roles& roles, const Words&) {
    roles.camera.suspend();
    return done();
}

Answer resume(const Roles& roles, const Words&) {
    roles.camera.resume();
    return done();
}

// ---------------------------------------------------------------- control daemon

std::optional<uint32_t> commandId(const std::string& word) {
    if (const auto id = numberUpTo(word, KZCONTROL_CMD_LAST - 1)) {
        return id;
    }
    const std::string name = word.starts_with("KZCONTROL_") ? word : "KZCONTROL_" + word;
    for (uint32_t id = 0; id < KZCONTROL_CMD_LAST; ++id) {
        if (name == kzControlCommandName(id)) {
            return id;
        }
    }
    return std::nullopt;
}

Answer refuse(const Roles& roles, const Words& words) {
    const auto id = commandId(words[1]);
    const auto code = number(words[2]);
    if (!id.has_value() || !code.has_value() || *code < INT32_MIN || *code > INT32_MAX) {
        return refused("name a control command (number or name) and a code");
    }
    roles.control.refuse(*id, static_cast<int32_t>(*code));
    return done();
}

// ---------------------------------------------------------------- CSI

// csi KEY; csi KEY VALUE; csi KEY hex BYTES; csi KEY text TEXT
Answer csi(const Roles& roles, const Words& words) {
    const auto key = numberUpTo(words[1], UINT8_MAX);
    if (!key.has_value()) {
        return refused("a CSI key is a number up to 255");
    }
    const auto csiKey = static_cast<uint8_t>(*key);
    if (words.size() == 2) {
        const auto value = roles.camera.csi(csiKey);
        return value.has_value() ? done(toHex(*value)) : refused("key " + words[1] + " was never set");
    }
    Bytes bytes;
    if (words.size() == 3) {
        const auto value = numberUpTo(words[2], UINT32_MAX);
        if (!value.has_value()) {
            return refused("the value is a 32-bit number (or use hex or text)");
        }
        bytes = bytesOf(*value);
    } else if (words[2] == "text") {
        bytes = bytesOfText(words[3]);
    } else if (words[2] != "hex" || !fromHex(words[3], bytes)) {
        return refused("the bytes are pairs of hexadecimal digits");
    }
    roles.camera.setCsi(csiKey, std::move(bytes));
    return done();
}

// How the values of a feature's field make a CSI value.
enum class Packing { Number, FourBytes, Colons, Text };

struct Field {
    const char* feature;
    const char* name;
    uint8_t key;
    Packing packing;
    size_t values;
};
constexpr Field kFields[] = {
    {"cah", "progress", CSI_CAH_UPLOAD_PROGRESS, Packing::Colons, 3},
    {"cah", "device", CSI_DEVICE_MGR_STATE, Packing::FourBytes, 4},
    {"cah", "wom", CSI_WOM_STATE, Packing::FourBytes, 4},
    {"cah", "caha", CSI_CAHA_STATE, Packing::FourBytes, 4},
    {"cah", "enabled", CSI_CAH_FEATURE_ENABLE, Packing::Number, 1},
    {"cah", "active", CSI_CAH_ACTIVE, Packing::Number, 1},
    {"cah", "auth", CSI_CAH_AUTH_STATE, Packing::Number, 1},
    {"cah", "auto-clear", CSI_CAH_AUTO_CLEAR, Packing::Number, 1},
    {"cah", "sticky", CSI_CAH_STICKY_ERR, Packing::Number, 1},
    {"cah", "user", CSI_CAH_ASSOCIATION_STATE, Packing::Text, 1},
    {"ota", "state", CSI_OTA_STATE, Packing::Number, 1},
    {"ota", "percent", CSI_OTA_PERCENTAGE, Packing::Number, 1},
    {"ota", "error", CSI_OTA_ERROR, Packing::Number, 1},
    {"live", "state", CSI_WMS_STATE, Packing::Number, 1},
    {"live", "error", CSI_LIVE_STREAM_ERROR, Packing::Number, 1},
    {"live", "encode", CSI_LIVE_STREAM_ENCODE, Packing::Number, 1},
    {"live", "bitrate", CSI_LIVE_STREAM_BITRATE, Packing::Number, 1},
};

// cah|ota|live FIELD VALUE...
Answer feature(const Roles& roles, const Words& words) {
    const auto* const field = std::find_if(std::begin(kFields), std::end(kFields), [&words](const Field& one) {
        return words[0] == one.feature && words[1] == one.name;
    });
    if (field == std::end(kFields)) {
        return refused(words[0] + " has no field " + words[1]);
    }
    if (words.size() != 2 + field->values) {
        return refused(words[1] + " takes " + std::to_string(field->values) + " values");
    }
    if (field->packing == Packing::Text) {
        roles.camera.setCsi(field->key, bytesOfText(words[2]));
        return done();
    }
    Bytes bytes;
    std::string text;
    for (size_t i = 2; i < words.size(); ++i) {
        const uint32_t highest = field->packing == Packing::FourBytes ? UINT8_MAX : UINT32_MAX;
        const auto value = numberUpTo(words[i], highest);
        if (!value.has_value()) {
            return refused(words[i] + " is no number up to " + std::to_string(highest));
        }
        if (field->packing == Packing::FourBytes) {
            bytes.push_back(static_cast<uint8_t>(*value));
        } else {
            append(bytes, *value);
        }
        text += (i == 2 ? "" : ":") + std::to_string(*value);
    }
    roles.camera.setCsi(field->key, field->packing == Packing::Colons ? bytesOfText(text) : bytes);
    return done();
}

// ---------------------------------------------------------------- BLE daemon and radio

Answer buffer(const Roles& roles, const Words& words) {
    const bool forDisplay = words[0] == "lcd";
    Bytes bytes;
    if (!fromHex(words[1], bytes) || bytes.size() < 5) {
        return refused("a buffer is at least five bytes, as pairs of hexadecimal digits");
    }
    if (!forDisplay && bytes.size() > kLongestLedBuffer) {
        return refused("an LED buffer is at most 18 bytes");
    }
    return roles.network.sendBuffer(forDisplay ? "LB" : "AL", bytes)
               ? done()
               : refused("the BLE daemon's queue does not take it");
}

Answer shutdownDaemon(const Roles& roles, const Words&) {
    roles.radio.sendDebug(KZBLE_DEBUG_SHUTDOWN, 0);
    return done();
}

Answer logLevel(const Roles& roles, const Words& words) {
    const auto level = numberUpTo(words[1], UINT32_MAX);
    if (!level.has_value()) {
        return refused("the level is a number");
    }
    roles.radio.sendDebug(KZBLE_SET_LOG_LEVEL, *level);
    return done();
}

Answer dump(const Roles& roles, const Words&) {
    roles.radio.sendDebug(KZBLE_DEBUG_DUMP_STATUS, 0);
    return done();
}

Answer radioSlow(const Roles& roles, const Words& words) {
    const auto rate = words.size() == 3 ? numberUpTo(words[2], 1000) : std::nullopt;
    if (!rate.has_value()) {
        return refused("radio slow takes packets per second, up to 1000 (0: no limit)");
    }
    roles.radio.setRate(*rate);
    return done();
}

Answer radioStop(const Roles& roles, const Words&) {
    roles.radio.stopReading();
    return done();
}

Answer radioGo(const Roles& roles, const Words&) {
    roles.radio.go();
    return done();
}

// radio drop [PACKETS [CONNECTION]]
Answer radioDrop(const Roles& roles, const Words& words) {
    const auto packets = words.size() > 2 ? numberUpTo(words[2], INT32_MAX) : std::optional<uint32_t>(0);
    const auto connection = words.size() > 3 ? numberUpTo(words[3], UINT32_MAX) : std::optional<uint32_t>(0);
    if (!packets.has_value() || !connection.has_value()) {
        return refused("radio drop takes a number of packets and a connection id");
    }
    return roles.radio.dropAfter(*connection, *packets) ? done() : refused("there is no such connection");
}

Answer radioInject(const Roles& roles, const Words& words) {
    Bytes bytes;
    if (words.size() != 3 || !fromHex(words[2], bytes) || bytes.size() > kBleRecordSize) {
        return refused("radio inject takes up to 88 bytes, as pairs of hexadecimal digits");
    }
    bytes.resize(kBleRecordSize);
    roles.radio.inject(numberAt<ble_message_t>(bytes));
    return done();
}

struct RadioRow {
    const char* word;
    Answer (*execute)(const Roles&, const Words&);
};
constexpr RadioRow kRadioRows[] = {
    {"slow", radioSlow}, {"stop", radioStop}, {"go", radioGo}, {"drop", radioDrop}, {"inject", radioInject},
};

Answer radio(const Roles& roles, const Words& words) {
    const auto* const row = std::find_if(std::begin(kRadioRows), std::end(kRadioRows),
                                         [&words](const RadioRow& one) { return words[1] == one.word; });
    return row == std::end(kRadioRows) ? refused("radio does not know " + words[1]) : row->execute(roles, words);
}

Answer state(const Roles& roles, const Words&) {
    const CameraModel& camera = roles.camera;
    auto settings = nlohmann::json::object();
    for (const auto& [id, value] : camera.settings()) {
        settings[std::to_string(id)] = value;
    }
    auto statuses = nlohmann::json::object();
    for (const auto& [id, value] : camera.statuses()) {
        std::visit([&statuses, key = std::to_string(id)](const auto& one) { statuses[key] = one; }, value);
    }
    const nlohmann::json all = {{"model", camera.modelNumber()},
                                {"capturing", camera.capturing()},
                                {"suspended", camera.suspended()},
                                {"activePreset", camera.activePreset()},
                                {"settings", settings},
                                {"status", statuses},
                                {"radio", roles.radio.state()},
                                {"control", roles.control.state()},
                                {"network", roles.network.state()},
                                {"metadata", roles.metadata.state()}};
    return done(all.dump(2, ' ', false, nlohmann::json::error_handler_t::replace));
}

// ---------------------------------------------------------------- the table

struct Row {
    const char* word;
    size_t fewest;  // words behind it
    size_t most;
    Answer (*execute)(const Roles&, const Words&);
};
constexpr Row kRows[] = {
    {"battery", 1, 1, battery},
    {"power", 1, 1, power},
    {"sd", 1, 1, card},
    {"record", 1, 1, record},
    {"setting", 2, 2, changeSetting},
    {"status", 2, 2, changeStatus},
    {"csi", 1, 3, csi},
    {"suspend", 0, 0, suspend},
    {"resume", 0, 0, resume},
    {"refuse", 2, 2, refuse},
    {"lcd", 1, 1, buffer},
    {"led", 1, 1, buffer},
    {"radio", 1, 3, radio},
    {"cah", 2, 5, feature},
    {"ota", 2, 2, feature},
    {"live", 2, 2, feature},
    {"shutdown-daemon", 0, 0, shutdownDaemon},
    {"log-level", 1, 1, logLevel},
    {"dump", 0, 0, dump},
    {"state", 0, 0, state},
};

Words split(ByteView record) {
    Words words;
    std::string word;
    for (const uint8_t byte : record) {
        if (byte == 0) {
            words.push_back(std::exchange(word, {}));
        } else {
            word += static_cast<char>(byte);
        }
    }
    return words;
}

}  // namespace

ConsoleAnswer executeConsoleCommand(const Roles& roles, const Words& words) {
    if (words.empty()) {
        return refused("no command");
    }
    const auto* const row =
        std::find_if(std::begin(kRows), std::end(kRows), [&words](const Row& one) { return words[0] == one.word; });
    if (row == std::end(kRows)) {
        return refused("there is no command " + words[0]);
    }
    if (words.size() - 1 < row->fewest || words.size() - 1 > row->most) {
        return refused(words[0] + " has too few or too many arguments");
    }
    return row->execute(roles, words);
}

Console::Console(EventLoop& loop, const Roles& roles)
    : m_server(loop, kConsoleEndpoint.address(), kConsoleRecordLimit, [roles](ByteView record) {
          const Words words = split(record);
          const ConsoleAnswer answer = executeConsoleCommand(roles, words);
          report("console", "%s: %s", words.empty() ? "" : words[0].c_str(),
                 answer.done ? "done" : answer.text.c_str());
          Bytes reply{static_cast<uint8_t>(answer.done ? 0 : 1)};
          appendBytes(reply, viewOf(answer.text));
          return reply;
      }) {}

}  // namespace kzsim
