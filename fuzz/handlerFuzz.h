// What the fuzzers of the message handlers share: one whole message from a stranger, run the way a client's session
// does it, against a camera that answers or refuses.
//
// Byte 0 of the input is the camera's mood, byte 1 the client's device type, byte 2 the capacity of the answer (255:
// that of the daemon); the message follows.
#pragma once

#include <memory>

#include "bleDevice.h"
#include "bleSDK.h"
#include "cameraFakes.h"
#include "csi/csiKeys.h"
#include "fuzz.h"
#include "kzControlCommands.h"
#include "settingsStatusMapping.h"
#include "testServices.h"
#include "utils.h"

namespace handlerFuzz {

constexpr uint8_t kRefuses = 1;      // the control daemon refuses
constexpr uint8_t kCsiRefuses = 2;   // the status service refuses
constexpr uint8_t kLongReplies = 4;  // replies as long as they may be
constexpr uint8_t kRuns = 8;     // shell commands run if this alone is set, because each is a process and takes long
constexpr uint8_t kLogs = 0xF0;  // messages are formatted when none of these is set; they would flood the terminal

constexpr uint16_t kCapacity = 8188;

inline void SetCamera(uint8_t mood) {
    fakes::Reset();
    fakes::Record(false);
    g_logLevel = (mood & kLogs) == 0 ? KZ_LOG_INFO : KZ_LOG_OFF;
    fakes::SetSystemResult(mood == kRuns ? 0 : -1);
    const int code = (mood & kRefuses) != 0 ? mood : 0;
    const fakes::Bytes reply((mood & kLongReplies) != 0 ? 1500 : 4, mood);
    for (uint32_t command = 0; command < KZCONTROL_CMD_LAST; ++command) {
        fakes::OnCommand(command, code, command == KZCONTROL_PRESET_CUSTOM_CREATE ? reply : fakes::Bytes(4, mood));
    }
    fakes::OnCommand(KZCONTROL_GET_DATE_TIME, code, fakes::Bytes(10, mood));
    fakes::SetCameraInfo(code, fakes::Bytes(434, 'x'));
    fakes::SetCsi(CSI_CAH_FEATURE_ENABLE, {mood});
    if ((mood & kCsiRefuses) != 0) {
        for (unsigned key = 0; key < 256; ++key) {
            fakes::OnCsiSet(static_cast<uint8_t>(key), -1);
        }
    }
}

// Runs the input. `prepare` gets the message before it is run, for what it must not do to this machine.
template <typename Message, typename Prepare>
void Run(const uint8_t* data, size_t size, Prepare prepare) {
    constexpr size_t kPreamble = 3;
    if (size < kPreamble || size - kPreamble > kCapacity) {
        return;
    }
    SetCamera(data[0]);
    BleSDK* sdk = BleSDK::GetInstance();
    if (sdk->m_pSettingsMapping == nullptr) {
        sdk->m_pSettingsMapping = new SettingsStatusMapping();  // owned by the facade
    }
    TestServices services;
    BleNotificationClient client(7, 1, data[1], services.services);
    Message message;
    std::vector<uint8_t> request(data + kPreamble, data + size);  // exact, so that a read past its end is seen
    prepare(request);
    const uint16_t capacity = data[2] == 255 ? kCapacity : data[2];
    const auto response = std::make_unique<uint8_t[]>(capacity);

    message.Reset(static_cast<int>(request.size()));
    message.m_stream.attach(request.data(), static_cast<unsigned short>(request.size()));
    uint16_t length = capacity;
    int code = message.Deserialize() == 0 ? KZ_OK : KZ_ERR_INVALID_PARAM;
    if (code == KZ_OK) {
        message.Dump();
        code = message.Execute(&client, response.get(), &length);
        Require(length <= capacity);
    }
    if (code != KZ_OK) {
        length = capacity;
        Require(message.HandleError(code, response.get(), &length) == 0);
        Require(length == (capacity < 2 ? 0 : 2));
        Require(length == 0 || response[1] != 0);
    }
}

}  // namespace handlerFuzz
