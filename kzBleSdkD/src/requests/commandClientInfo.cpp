// Command 28: an accessory says what it is, which firmware it runs and why it connected.
#include <algorithm>
#include <string>

#include "accessoryState.h"
#include "cameraCalls.h"
#include "cameraStatus.h"
#include "commandMessage.h"
#include "commandTable.h"
#include "firmwareImages.h"
#include "peer.h"
#include "skylark/bleMessage.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleCommandMessage.cpp";

// The one parameter. Battery level and connect reason may be missing; both are 0 then.
struct ClientInfo {
    uint8_t schema;
    uint8_t deviceType;
    uint8_t firmwareMajor;
    uint8_t firmwareMinor;
    uint8_t firmwareBuild;
    uint8_t batteryLevel;  // percent
    uint8_t connectReason;
};
constexpr int kMinClientInfoSize = 5;

enum : uint8_t {
    kDeviceTypeAlder = 3,
    kDeviceTypeBirch = 4,
    kDeviceTypeMaple = 5,
};

enum : uint8_t {
    kReasonNone = 0,
    kReasonButtonModeShort = 1,
    kReasonButtonModeLong = 2,
    kReasonButtonShutterShort = 3,
    kReasonButtonShutterLong = 4,
};

constexpr uint8_t kMinUpdateBattery = 10;  // percent; with less an accessory could run empty during its update

// `bytes` holds at least kMinClientInfoSize.
ClientInfo ReadClientInfo(const uint8_t* bytes, int length) {
    ClientInfo info = {};
    info.schema = bytes[0];
    info.deviceType = bytes[1];
    info.firmwareMajor = bytes[2];
    info.firmwareMinor = bytes[3];
    info.firmwareBuild = bytes[4];
    info.batteryLevel = length > 5 ? bytes[5] : uint8_t{0};
    info.connectReason = length > 6 ? bytes[6] : uint8_t{kReasonNone};
    return info;
}

bool IsQuickCapture(uint8_t reason) {
    return reason == kReasonButtonShutterShort || reason == kReasonButtonShutterLong;
}

// Whether the accessory is to be updated now.
bool WantsUpdate(const ClientInfo& info, uint8_t callerId, const CameraStatus& camera) {
    if (info.batteryLevel < kMinUpdateBattery) {
        if (callerId == KZ_CALLER_MAPLE) {
            LOG_DEBUG("accessory battery low = %u, skip accessory update check", unsigned{info.batteryLevel});
        } else {
            LOG_DEBUG("larch battery low = %u, skip accessory update check", unsigned{info.batteryLevel});
        }
        return false;
    }
    if (camera.IsForcedUpdate()) {
        LOG_DEBUG("Forced Update, skip accessory update check");
        return false;
    }
    if (IsQuickCapture(info.connectReason)) {
        LOG_DEBUG("Quick capture, skip accessory update check");
        return false;
    }
    std::string path;
    return LarchUpdateCheck(callerId, &path, info.firmwareMajor, info.firmwareMinor, info.firmwareBuild);
}

// Ends the wait for an accessory that was updated, and publishes that it is back.
void EndReconnectWait(uint8_t callerId, CameraStatus& camera) {
    camera.SetWaitingAccReconnect(false);
    EndAccessoryUpdate(callerId, eAccessoryUpdateReconnected);
}

void ReportConnectedAccessory(uint32_t deviceType) {
    SetCsi(CSI_CONNECTED_ACCESSORY, deviceType);
}

void BirchConnected(Peer& client) {
    LOG_DEBUG("BIRCH DEVICE CONNECTED");
    client.m_identity.m_deviceType = KZ_CALLER_BIRCH;
    ReportConnectedAccessory(kDeviceTypeBirch);
}

void MapleConnected(Peer& client, CameraStatus& camera, ClientInfo& info) {
    LOG_DEBUG("MAPLE DEVICE CONNECTED");
    client.m_identity.m_deviceType = KZ_CALLER_MAPLE;
    if (camera.GetWaitingAccReconnect()) {
        LOG_DEBUG("Accessory Connected in Waiting to Connect State");
        EndReconnectWait(KZ_CALLER_MAPLE, camera);
    }
    if (WantsUpdate(info, KZ_CALLER_MAPLE, camera)) {
        LOG_DEBUG("Send Maple ota update request");
        info.connectReason = kReasonNone;
        client.m_identity.m_accessoryUpdatePending = true;
    }
    ReportConnectedAccessory(kDeviceTypeMaple);
}

void AlderConnected(Peer& client, CameraStatus& camera, ClientInfo& info) {
    LOG_DEBUG("ALDER DEVICE CONNECTED");
    if (camera.GetWaitingAccReconnect()) {
        LOG_DEBUG("Larch Connected in Waiting to Connect State");
        EndReconnectWait(KZ_CALLER_ALDER, camera);
    }
    client.m_identity.m_deviceType = KZ_CALLER_ALDER;
    if (WantsUpdate(info, KZ_CALLER_ALDER, camera)) {
        LOG_DEBUG("SEND LARCH REBOOT OTA MODE REQUEST");
        client.m_interests.Remove(NotificationClient::eNotifyLcd, static_cast<int>(client.m_identity.m_connectionId));
        info.connectReason = kReasonNone;
        client.m_identity.m_accessoryUpdatePending = true;
        return;
    }
    if (!client.m_identity.m_accessoryUpdatePending) {
        ReportConnectedAccessory(kDeviceTypeAlder);
    }
}

void AccessoryConnected(Peer& client, CameraStatus& camera, ClientInfo& info) {
    switch (info.deviceType) {
        case kDeviceTypeBirch:
            return BirchConnected(client);
        case kDeviceTypeMaple:
            return MapleConnected(client, camera, info);
        case kDeviceTypeAlder:
            return AlderConnected(client, camera, info);
        default:
            LOG_DEBUG("UNKNOWN DEVICE TYPE");
    }
}

int StartQuickCapture() {
    constexpr uint8_t kStart = 1;
    return SendCommand(KZCONTROL_QUICK_CAPTURE_START, kStart);
}

int ActOnConnectReason(uint8_t reason) {
    switch (reason) {
        case kReasonNone:
            LOG_DEBUG("Connect Reason 0  - no action");
            return KZ_OK;
        case kReasonButtonModeShort:
            LOG_DEBUG("Connect Reason 1 button mode, short press");
            return KZ_OK;
        case kReasonButtonModeLong:
            LOG_DEBUG("Connect Reason 2 button mode, long press");
            return KZ_OK;
        case kReasonButtonShutterShort:
            LOG_DEBUG("Connect Reason 3  button shutter, short press");
            return StartQuickCapture();
        case kReasonButtonShutterLong:
            LOG_DEBUG("Connect Reason 4  button shutter, long press");
            return StartQuickCapture();
        default:
            return KZ_ERR_INVALID_PARAM;
    }
}

}  // namespace

int TakeClientInfo(CommandCall& call) {
    const FlexValue& param = call.message.m_params[0];
    const int length = param.GetDataLength();
    if (length < kMinClientInfoSize) {
        LOG_ERROR("Invalid length = %ld", static_cast<long>(length));
        return KZ_ERR_INVALID_PARAM;
    }
    ClientInfo info = ReadClientInfo(param.GetDataPointer(), length);
    LOG_DEBUG("length = %lu ", static_cast<unsigned long>(length));
    LOG_DEBUG("schema %u", unsigned{info.schema});
    LOG_DEBUG("device type %u", unsigned{info.deviceType});
    LOG_DEBUG("fw maj %u", unsigned{info.firmwareMajor});
    LOG_DEBUG("fw min %u", unsigned{info.firmwareMinor});
    LOG_DEBUG("fw build %u", unsigned{info.firmwareBuild});
    LOG_DEBUG("batt lev = %u", unsigned{info.batteryLevel});

    AccessoryConnected(call.client, call.services.camera, info);

    const uint8_t battery[4] = {info.batteryLevel, call.client.m_identity.m_deviceType, 0, 0};
    SetCsi(CSI_ACCESSORY_BATTERY, battery);
    return ActOnConnectReason(info.connectReason);
}
