#include "trace.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "bleClient.h"
#include "session.h"
#include "skylark/bleMessage.h"

namespace kzble {

namespace {

using Message = std::span<const uint8_t>;

struct Stream {
    uint8_t id;
    const char* interface;
    const char* raw;  // the meaning of its packets, where they are no messages
};

constexpr Stream kStreams[] = {
    {KZ_STR_ID_COMMAND, "command", nullptr},
    {KZ_STR_ID_COMMAND_RESPONSE, "command", nullptr},
    {KZ_STR_ID_COMMAND_CCC, "command", nullptr},
    {KZ_STR_ID_SETTINGS, "settings", nullptr},
    {KZ_STR_ID_SETTINGS_RESPONSE, "settings", nullptr},
    {KZ_STR_ID_SETTINGS_CCC, "settings", nullptr},
    {KZ_STR_ID_QUERY, "query", nullptr},
    {KZ_STR_ID_QUERY_RESPONSE, "query", nullptr},
    {KZ_STR_ID_QUERY_CCC, "query", nullptr},
    {KZ_STR_ID_SENSOR, "sensor", nullptr},
    {KZ_STR_ID_SENSOR_RESPONSE, "sensor", nullptr},
    {KZ_STR_ID_SENSOR_CCC, "sensor", nullptr},
    {KZ_STR_ID_REBOOT_OTA, "update", "restart into update mode"},
    {KZ_STR_ID_START_OTA, "update", "firmware request"},
    {KZ_STR_ID_OTA_RESPONSE, "update", "firmware reply"},
    {KZ_STR_ID_OTA_DATA, "update", "firmware image"},
};

// A message by its first byte or, under the protobuf features, by the byte behind it.
struct Name {
    uint8_t stream;   // of its requests
    uint8_t feature;  // 0: none
    uint8_t id;
    const char* name;
};

constexpr uint8_t kCommandLow = 240;
constexpr uint8_t kCommandHigh = 241;
constexpr uint8_t kSettingsFeature = 243;
constexpr uint8_t kQueryFeature = 245;
constexpr uint8_t kAnswerBit = 0x80;

// clang-format off
constexpr Name kNames[] = {
    {2, 0, 1, "shutter"}, {2, 0, 2, "mode"}, {2, 0, 3, "submode"}, {2, 0, 4, "power-off"}, {2, 0, 5, "sleep"},
    {2, 0, 8, "pair-cancel"}, {2, 0, 10, "reset-video"}, {2, 0, 11, "reset-multishot"}, {2, 0, 12, "reset-photo"},
    {2, 0, 13, "set-time"}, {2, 0, 14, "get-time"}, {2, 0, 15, "set-local-time"}, {2, 0, 16, "get-local-time"},
    {2, 0, 22, "locate"}, {2, 0, 23, "access-point"}, {2, 0, 24, "tag"}, {2, 0, 25, "pair"}, {2, 0, 26, "voice-story"},
    {2, 0, 27, "button"}, {2, 0, 28, "client-info"}, {2, 0, 32, "voice-photo"}, {2, 0, 33, "voice-video-start"},
    {2, 0, 34, "voice-video-stop"}, {2, 0, 35, "voice-timelapse-start"}, {2, 0, 36, "voice-timelapse-stop"},
    {2, 0, 37, "voice-burst"}, {2, 0, 38, "voice-tag"}, {2, 0, 39, "voice-delete-last"}, {2, 0, 58, "catalogue-version"},
    {2, 0, 59, "fetch-settings"}, {2, 0, 60, "camera-info"}, {2, 0, 61, "ble-control"}, {2, 0, 62, "set-mode"},
    {2, 0, 63, "reset-settings"}, {2, 0, 64, "load-preset"}, {2, 0, 65, "delete-all"}, {2, 0, 66, "delete-last"},
    {2, 0, 80, "third-party"}, {2, 0, 81, "third-party-api-version"},
    {2, kCommandLow, 1, "shutter-pb"}, {2, kCommandHigh, 104, "cah-start"}, {2, kCommandHigh, 105, "camera-control"},
    {2, kCommandHigh, 106, "contextual-menu"}, {2, kCommandHigh, 107, "turbo"}, {2, kCommandHigh, 108, "speed-ramp-active"},
    {2, kCommandHigh, 109, "speed-ramp"}, {2, kCommandHigh, 110, "preset-remove"}, {2, kCommandHigh, 111, "shortcuts-reset"},
    {2, kCommandHigh, 114, "preset-edit-start"}, {2, kCommandHigh, 115, "preset-edit-cancel"},
    {2, kCommandHigh, 116, "preset-edit-store"}, {2, kCommandHigh, 117, "preset-reset"}, {2, kCommandHigh, 118, "preset-create"},
    {2, kCommandHigh, 119, "preset-order"}, {2, kCommandHigh, 120, "release-network"}, {2, kCommandHigh, 121, "live-stream"},
    {2, kCommandHigh, 122, "ota"}, {2, kCommandHigh, 123, "band"}, {2, kCommandHigh, 124, "clear-new-media"},
    {2, kCommandHigh, 125, "notify-event"}, {2, kCommandHigh, 126, "client-hello"}, {2, kCommandHigh, 127, "cah-setup-mode"},
    {7, kSettingsFeature, 113, "shutter-setting"}, {7, kSettingsFeature, 119, "cah-auto-clear"},
    {7, kSettingsFeature, 124, "cah-server"}, {7, kSettingsFeature, 125, "cah-enable"}, {7, kSettingsFeature, 126, "auth"},
    {7, kSettingsFeature, 127, "associate"},
    {12, kQueryFeature, 112, "shutter-query"}, {12, kQueryFeature, 114, "preset-list"}, {12, kQueryFeature, 115, "preset-list"},
    {12, kQueryFeature, 116, "live-status"}, {12, kQueryFeature, 117, "live-status"}, {12, kQueryFeature, 118, "ota-status"},
    {12, kQueryFeature, 119, "ota-status"}, {12, kQueryFeature, 120, "offload"}, {12, kQueryFeature, 122, "cah-sticky"},
    {12, kQueryFeature, 124, "association"}, {12, kQueryFeature, 125, "client-id"}, {12, kQueryFeature, 126, "cah-status"},
    {12, 0, 0x12, "get-settings"}, {12, 0, 0x22, "get-setting-names"}, {12, 0, 0x32, "get-capabilities"},
    {12, 0, 0x42, "get-capabilities-and-names"}, {12, 0, 0x52, "register-settings"}, {12, 0, 0x62, "register-capabilities"},
    {12, 0, 0x72, "unregister-settings"}, {12, 0, 0x82, "unregister-capabilities"}, {12, 0, 0x13, "get-status"},
    {12, 0, 0x53, "register-status"}, {12, 0, 0x73, "unregister-status"},
    {17, 0, 1, "sample"}, {17, 0, 2, "register-device"}, {17, 0, 3, "register-key"}, {17, 0, 80, "display"}, {17, 0, 82, "led"},
};

// What comes unasked, by the stream it comes on; the id of a feature notification stands behind the feature.
constexpr Name kPushes[] = {
    {14, 0, 0x92, "settings-push"}, {14, 0, 0x93, "status-push"}, {14, 0, 0xA2, "capabilities-push"},
    {14, kQueryFeature, 0xFF, "cah-push"}, {14, kQueryFeature, 0xF7, "ota-push"}, {14, kQueryFeature, 0xF5, "live-push"},
    {14, kQueryFeature, 0xF3, "preset-push"},
    {19, 0, 0x51, "display-buffer"}, {19, 0, 0x53, "led-buffer"},
};
// clang-format on

const Stream* findStream(uint8_t id) {
    const auto* row =
        std::find_if(std::begin(kStreams), std::end(kStreams), [&](const Stream& s) { return s.id == id; });
    return row == std::end(kStreams) ? nullptr : row;
}

template <size_t N>
const char* findName(const Name (&names)[N], uint8_t stream, uint8_t feature, uint8_t id) {
    const auto* row = std::find_if(std::begin(names), std::end(names), [&](const Name& name) {
        return name.stream == stream && name.feature == feature && name.id == id;
    });
    return row == std::end(names) ? nullptr : row->name;
}

bool isFeature(uint8_t first) {
    return first == kCommandLow || first == kCommandHigh || first == kSettingsFeature || first == kQueryFeature;
}

// Bytes of the message in its first packet.
Message payloadOf(Message packet) {
    constexpr uint8_t kLengthTypeMask = 0x60;
    const size_t header = 1 + static_cast<size_t>((packet[0] & kLengthTypeMask) >> 5);
    return packet.size() > header ? packet.subspan(header) : Message();
}

std::string unknown(Message message) {
    return "unknown " + kzclient::hex(message.first(1));
}

}  // namespace

void Trace::operator()(const kzclient::LinkEvent& event) {
    const Stream* stream = findStream(event.streamId);
    std::fprintf(stderr, "%s %s %s %-8s %2u  %-32s %s\n", timestamp().c_str(), m_address.c_str(),
                 event.outgoing ? "->" : "<-", stream == nullptr ? "unknown" : stream->interface, event.streamId,
                 meaning(event).c_str(), kzclient::hex(event.bytes).c_str());
}

std::string Trace::meaning(const kzclient::LinkEvent& event) {
    if (event.kind == kzclient::LinkEvent::Kind::Gate) {
        return event.bytes[0] == 1 ? "notifications on" : "notifications off";
    }
    const Stream* stream = findStream(event.streamId);
    const bool restart = event.streamId == KZ_STR_ID_SENSOR_RESPONSE && event.bytes.size() == 1;
    if (restart) {
        return "restart into update mode";
    }
    return stream != nullptr && stream->raw != nullptr ? stream->raw : packetMeaning(event);
}

std::string Trace::packetMeaning(const kzclient::LinkEvent& event) {
    if (event.bytes.empty()) {
        return "empty packet";
    }
    auto& assembler = m_messages[{event.outgoing, event.streamId}];
    const size_t before = assembler.received();
    const size_t announced = assembler.announced();
    const auto result = assembler.add(event.bytes);
    if (result.problem != kzclient::PacketAssembler::Problem::None) {
        return kzclient::describe(result.problem);
    }
    if (announced != 0) {
        const size_t received = result.message ? result.message->size() : assembler.received();
        return "  byte " + std::to_string(before + 1) + " to " + std::to_string(received) + " of " +
               std::to_string(announced);
    }
    return messageMeaning(event.streamId, event.outgoing, payloadOf(event.bytes));
}

std::string Trace::messageMeaning(uint8_t streamId, bool outgoing, Message message) const {
    if (message.empty()) {
        return "empty message";
    }
    const bool feature = isFeature(message[0]) && message.size() > 1;
    const uint8_t featureId = feature ? message[0] : 0;
    const uint8_t id = feature ? message[1] : message[0];
    if (outgoing) {
        const char* name = findName(kNames, streamId, featureId, id);
        return name != nullptr ? name : streamId == KZ_STR_ID_SETTINGS ? "set " + settingMeaning(id) : unknown(message);
    }
    if (const char* push = findName(kPushes, streamId, featureId, id)) {
        return push;
    }
    const auto requestStream = static_cast<uint8_t>(streamId - 2);
    if (feature && (id & kAnswerBit) != 0) {
        const char* name = findName(kNames, requestStream, featureId, static_cast<uint8_t>(id & ~kAnswerBit));
        return (name != nullptr ? name : unknown(message)) + std::string(" answered");
    }
    const std::string result = message.size() > 1 ? kzclient::describeResult(message[1]) : "no result";
    const char* name = findName(kNames, requestStream, 0, message[0]);
    const bool set = streamId == KZ_STR_ID_SETTINGS_RESPONSE && !feature;
    return (name != nullptr ? name : set ? "set " + settingMeaning(message[0]) : unknown(message)) + ": " + result;
}

std::string Trace::settingMeaning(uint8_t id) const {
    try {
        return m_settingName(id);
    } catch (const kzclient::Error&) {
        return "setting " + std::to_string(id);  // a trace does not fail for want of a name
    }
}

}  // namespace kzble
