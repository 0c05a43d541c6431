#include "cameraCalls.h"

#include <google/protobuf/message_lite.h>

#include "kzCtrlD/kzCtrlRecords.h"
#include "skylark/bleMessage.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "cameraCalls.cpp";

}  // namespace

bool Encode(const google::protobuf::MessageLite& message, std::string* bytes) {
    return message.SerializePartialToString(bytes);
}

std::optional<int> SendEncodedCommand(uint32_t command, const google::protobuf::MessageLite& argument) {
    std::string bytes;
    if (!Encode(argument, &bytes)) {
        LOG_ERROR("FAILED TO ENCODE");
        return std::nullopt;
    }
    return CallControlEx(command, bytes.data(), static_cast<uint32_t>(bytes.size()), nullptr, 0, nullptr);
}

int SendSetting(uint32_t settingId, uint32_t value) {
    return SendCommand(KZCONTROL_SET_SETTING_ID, kz_setting_t{settingId, value});
}

int SetCsiText(uint8_t key, const std::string& text) {
    return SetCsiBytes(key, text.data(), static_cast<uint32_t>(text.size()));
}

int ReportAnalyticsSource(uint8_t callerId) {
    const uint8_t source = callerId == KZ_CALLER_THIRD_PARTY ? uint8_t{KZ_CALLER_BLE_RC} : callerId;
    return SetCsi(CSI_ANALYTICS_SOURCE, source);
}
