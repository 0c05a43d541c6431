// Calls of the camera's libraries with typed arguments, which are sent in host byte order. Each waits for its answer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>

#include "csi/csi.h"
#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlD.h"

namespace google::protobuf {
class MessageLite;
}

// Longest text written to a CSI key.
constexpr size_t kMaxCsiText = 1400;

// Sends a control daemon command without argument. Returns the daemon's result, 0 for success.
inline int SendCommand(uint32_t command) {
    return kzcontrol_send_command_param_response(command, nullptr, 0, nullptr, 0);
}

// Sends a command whose argument is the bytes of `argument`.
template <typename Argument>
int SendCommand(uint32_t command, const Argument& argument) {
    static_assert(std::has_unique_object_representations_v<Argument>, "an argument with holes would leak memory");
    return kzcontrol_send_command_param_response(command, &argument, sizeof(argument), nullptr, 0);
}

// Sends a serialised message to the control daemon. Returns the daemon's result; nothing, after a line in the log, when
// the message cannot be encoded.
std::optional<int> SendEncodedCommand(uint32_t command, const google::protobuf::MessageLite& argument);

// Serialises `message` into `bytes`. False when it cannot be encoded.
bool Encode(const google::protobuf::MessageLite& message, std::string* bytes);

// Asks the control daemon to change one setting. Returns the daemon's result, 0 for success.
int SendSetting(uint32_t settingId, uint32_t value);

// Stores the bytes of `value` under `key`. Returns CSI_OK or the service's error.
template <typename Value>
int SetCsi(uint8_t key, const Value& value) {
    static_assert(std::has_unique_object_representations_v<Value>, "a value with holes would leak memory");
    return csi_set(key, &value, sizeof(value));
}

// Stores a text without its terminator. Returns as SetCsi does.
int SetCsiText(uint8_t key, const std::string& text);

// Reports to the camera which kind of client drives it, by the client's caller id; a third party client counts as a
// phone. Returns as SetCsi does.
int ReportAnalyticsSource(uint8_t callerId);
