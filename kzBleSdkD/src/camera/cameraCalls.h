// The camera's services as the daemon asks them: the calls of the client libraries, each under its service's guard, and
// with arguments as typed values in host order. Nothing calls the libraries past these.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>

#include "csi/csi.h"
#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlD.h"
#include "serviceGuard.h"

namespace google::protobuf {
class MessageLite;
}

// Longest text written to a CSI key.
constexpr size_t kMaxCsiText = 1400;

// ---- control daemon; kzCtrlD.h says what the calls do

inline int CallControl(uint32_t command, const void* argument, uint32_t length, void* reply, uint32_t replySize) {
    return guards::control.Ask(
        [&] { return kzcontrol_send_command_param_response(command, argument, length, reply, replySize); });
}
inline int CallControlEx(uint32_t command, const void* argument, uint32_t length, void* reply, uint32_t replySize,
                         uint32_t* replyLength) {
    return guards::control.Ask([&] {
        return kzcontrol_send_command_param_response_ex(command, argument, length, reply, replySize, replyLength);
    });
}
inline int ReadCameraInfo(void* record) {
    return guards::control.Ask([&] { return kzcontrol_get_camera_info(record); });
}

// Sends a command without argument. Returns the daemon's result, 0 for success.
inline int SendCommand(uint32_t command) {
    return CallControl(command, nullptr, 0, nullptr, 0);
}

// Sends a command whose argument is the bytes of `argument`.
template <typename Argument>
int SendCommand(uint32_t command, const Argument& argument) {
    static_assert(std::has_unique_object_representations_v<Argument>, "an argument with holes would leak memory");
    return CallControl(command, &argument, sizeof(argument), nullptr, 0);
}

// Sends a serialised message to the control daemon. Returns the daemon's result; nothing, after a line in the log, when
// the message cannot be encoded.
std::optional<int> SendEncodedCommand(uint32_t command, const google::protobuf::MessageLite& argument);

// Serialises `message` into `bytes`. False when it cannot be encoded.
bool Encode(const google::protobuf::MessageLite& message, std::string* bytes);

// Asks the control daemon to change one setting. Returns the daemon's result, 0 for success.
int SendSetting(uint32_t settingId, uint32_t value);

// ---- CSI service; csi.h says what the calls do

inline int GetCsi(uint8_t key, uint32_t bufferSize, uint32_t* length, void* buffer) {
    return guards::csi.Ask([&] { return csi_get(key, bufferSize, length, buffer); });
}
inline int SetCsiBytes(uint8_t key, const void* value, uint32_t length) {
    return guards::csi.Ask([&] { return csi_set(key, value, length); });
}

// Stores the bytes of `value` under `key`. Returns CSI_OK or the service's error.
template <typename Value>
int SetCsi(uint8_t key, const Value& value) {
    static_assert(std::has_unique_object_representations_v<Value>, "a value with holes would leak memory");
    return SetCsiBytes(key, &value, sizeof(value));
}

// Stores a text without its terminator. Returns as SetCsi does.
int SetCsiText(uint8_t key, const std::string& text);

// Reports to the camera which kind of client drives it, by the client's caller id; a third party client counts as a
// phone. Returns as SetCsi does.
int ReportAnalyticsSource(uint8_t callerId);
