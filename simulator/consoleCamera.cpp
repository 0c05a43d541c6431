// Settings, status, CSI values, power, card and capture.
#include <algorithm>

#include "consoleCommand.h"
#include "csi/csiKeys.h"
#include "protocolTable.h"

namespace kzsim {
namespace {

constexpr const char* kForce = "force";  // a last word that lets values in that the catalogue does not have

std::optional<size_t> chosen(const std::string& word, std::initializer_list<const char*> choices) {
    const auto found = std::find(choices.begin(), choices.end(), word);
    return found == choices.end() ? std::nullopt : std::optional<size_t>(found - choices.begin());
}

// With `force` the number in `word`, in the catalogue or not; else, or when it is no number, nothing.
std::optional<uint32_t> forced(const Words& words, size_t word, uint32_t highest) {
    return words.size() == 4 && words[3] == kForce ? numberUpTo(words[word], highest) : std::nullopt;
}

// Whether `value` fits the bytes in which clients see it.
bool fits(kzprotocol::ValueKind kind, uint32_t id, uint64_t value) {
    const auto width = kzprotocol::valueWidth(kind, id);
    return !width || *width < 1 || *width >= 8 || value >> (8 * *width) == 0;
}

// The answer to a text that names nothing of the catalogue: an id is refused, anything else is a mistake of the user.
// `what` goes before the text.
ConsoleAnswer notInCatalogue(const std::string& what, const std::string& text, uint32_t highestId,
                             const std::string& hint = "") {
    return numberUpTo(text, highestId).has_value() ? refused(what + " " + text + hint)
                                                   : wrongUse(what + " called \"" + text + "\"" + hint);
}

std::string optionNames(const Catalogue::Setting& setting) {
    std::string names;
    for (const uint32_t option : setting.options) {
        names += (names.empty() ? "" : ", ") + setting.optionNames.at(option);
    }
    return names;
}

// ---------------------------------------------------------------- camera

ConsoleAnswer battery(const Roles& roles, const Words& words) {
    const auto percent = numberUpTo(words[1], 100);
    if (!percent.has_value()) {
        return wrongUse("the level is a percentage");
    }
    roles.camera.setBattery(*percent);
    return done();
}

ConsoleAnswer power(const Roles& roles, const Words& words) {
    const auto choice = chosen(words[1], {"off", "on"});
    if (!choice.has_value()) {
        return wrongUse("power is on or off");
    }
    roles.camera.setExternalPower(*choice == 1);
    return done();
}

ConsoleAnswer card(const Roles& roles, const Words& words) {
    const auto choice = chosen(words[1], {"in", "full", "out"});
    if (!choice.has_value()) {
        return wrongUse("the card is in, full or out");
    }
    roles.camera.setCard(static_cast<uint32_t>(*choice));
    return done();
}

ConsoleAnswer record(const Roles& roles, const Words& words) {
    const auto choice = chosen(words[1], {"off", "on"});
    if (!choice.has_value()) {
        return wrongUse("recording is on or off");
    }
    const int result = *choice == 1 ? roles.camera.startCapture() : roles.camera.stopCapture();
    return result == 0 ? done() : refused("the camera refuses with " + std::to_string(result));
}

// setting SETTING OPTION [force]
ConsoleAnswer changeSetting(const Roles& roles, const Words& words) {
    const Catalogue& catalogue = roles.camera.catalogue();
    auto setting = forced(words, 1, UINT8_MAX);
    if (!setting.has_value() && !(setting = catalogue.settingCalled(words[1]))) {
        return notInCatalogue("the catalogue has no setting", words[1], UINT8_MAX);
    }
    auto option = forced(words, 2, UINT32_MAX);
    if (!option.has_value() && !(option = catalogue.optionCalled(*setting, words[2]))) {
        const auto known = catalogue.settings().find(*setting);
        return notInCatalogue("setting " + words[1] + " has no option", words[2], UINT32_MAX,
                              known == catalogue.settings().end() ? "" : "; it has " + optionNames(known->second));
    }
    if (!fits(kzprotocol::ValueKind::kSetting, *setting, *option)) {
        return wrongUse("the option " + words[2] + " is too large for setting " + words[1]);
    }
    roles.camera.forceSetting(*setting, *option);
    return done();
}

// status STATUS VALUE [force]
ConsoleAnswer changeStatus(const Roles& roles, const Words& words) {
    auto id = forced(words, 1, UINT8_MAX);
    if (!id.has_value() && !(id = roles.camera.catalogue().statusCalled(words[1]))) {
        return notInCatalogue("the catalogue has no status", words[1], UINT8_MAX);
    }
    const auto& statuses = roles.camera.statuses();
    const auto current = statuses.find(*id);
    const bool isText = current != statuses.end() && std::holds_alternative<std::string>(current->second);
    const auto value = number(words[2]);
    if (!isText && (!value.has_value() || *value < 0)) {
        return wrongUse("the value of status " + words[1] + " is a number");
    }
    if (!isText && !fits(kzprotocol::ValueKind::kStatus, *id, static_cast<uint64_t>(*value))) {
        return wrongUse("the value " + words[2] + " is too large for status " + words[1]);
    }
    roles.camera.setStatus(*id, isText ? StatusValue(words[2]) : StatusValue(static_cast<uint64_t>(*value)));
    return done();
}

ConsoleAnswer suspend(const Roles& roles, const Words&) {
    roles.camera.suspend();
    return done();
}

ConsoleAnswer resume(const Roles& roles, const Words&) {
    roles.camera.resume();
    return done();
}

// ---------------------------------------------------------------- CSI

// csi KEY; csi KEY VALUE; csi KEY hex BYTES; csi KEY text TEXT
ConsoleAnswer csi(const Roles& roles, const Words& words) {
    const auto key = numberUpTo(words[1], UINT8_MAX);
    if (!key.has_value()) {
        return wrongUse("a CSI key is a number up to 255");
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
            return wrongUse("the value is a 32-bit number (or use hex or text)");
        }
        bytes = bytesOf(*value);
    } else if (words[2] == "text") {
        bytes = bytesOfText(words[3]);
    } else if (words[2] != "hex" || !fromHex(words[3], bytes)) {
        return wrongUse("the bytes are pairs of hexadecimal digits");
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
ConsoleAnswer feature(const Roles& roles, const Words& words) {
    const auto* const field = std::find_if(std::begin(kFields), std::end(kFields), [&words](const Field& one) {
        return words[0] == one.feature && words[1] == one.name;
    });
    if (field == std::end(kFields)) {
        return wrongUse(words[0] + " has no field " + words[1]);
    }
    if (words.size() != 2 + field->values) {
        return wrongUse(words[1] + " takes " + std::to_string(field->values) + " values");
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
            return wrongUse(words[i] + " is no number up to " + std::to_string(highest));
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

constexpr ConsoleRow kRows[] = {
    {"battery", 1, 1, battery}, {"power", 1, 1, power},           {"sd", 1, 1, card},
    {"record", 1, 1, record},   {"setting", 2, 3, changeSetting}, {"status", 2, 3, changeStatus},
    {"csi", 1, 3, csi},         {"suspend", 0, 0, suspend},       {"resume", 0, 0, resume},
    {"cah", 2, 5, feature},     {"ota", 2, 2, feature},           {"live", 2, 2, feature},
};

}  // namespace

std::span<const ConsoleRow> cameraRows() {
    return kRows;
}

}  // namespace kzsim
