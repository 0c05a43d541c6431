// The protobuf queries: one row an action.
#include <algorithm>
#include <optional>

#include "cameraCalls.h"
#include "cameraStatus.h"
#include "dispatchTable.h"
#include "featureStatus.h"
#include "generic/ResponseGeneric.pb.h"
#include "presetStatus.h"
#include "protoFields.h"
#include "protobufAnswer.h"
#include "protobufQuery.h"
#include "queryKinds.h"
#include "queryMessage.h"
#include "utils.h"
#include "wsdkCommands/WSDK_EnumLiveStreamStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetLiveStreamStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetOTAStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetPresetStatus.pb.h"
#include "wsdkCommands/WSDK_RequestSetShutter.pb.h"
#include "wsdkCommands/WSDK_ResponseGetMobileOffloadState.pb.h"

using namespace wsdk_commands;

namespace {

constexpr const char* kLogTag = "bleQueryMessage.cpp";

constexpr int kHeaderSize = 2;
// Most bytes of an answer message. An action that has logTooLong refuses an answer that has as many bytes, header
// included.
constexpr int kAnswerSizeLimit = 2400;

// ---------------------------------------------------------------- registration

constexpr RegisterKey kOtaKeys[] = {
    {WSDK_REGISTER_OTA_STATUS_STATE, CSI_OTA_STATE},
    {WSDK_REGISTER_OTA_STATUS_PERCENTAGE, CSI_OTA_PERCENTAGE},
};

constexpr RegisterKey kLiveStreamKeys[] = {
    {WSDK_REGISTER_LIVE_STREAM_STATUS_STATUS, CSI_WMS_STATE},
    {WSDK_REGISTER_LIVE_STREAM_STATUS_ERROR, CSI_LIVE_STREAM_ERROR},
    {WSDK_REGISTER_LIVE_STREAM_STATUS_MODE, CSI_LIVE_STREAM_ENCODE},
    {WSDK_REGISTER_LIVE_STREAM_STATUS_BITRATE, CSI_LIVE_STREAM_BITRATE},
};

// ---------------------------------------------------------------- shutter

int SetShutter(const ProtobufQuery& query) {
    const auto request = ParseRequest<WSDK_RequestSetShutter>(query.payload);
    const auto shutter = static_cast<uint32_t>(request.shutter());
    LOG_INFO("protobuf shutter=%d", shutter);
    SendCommand(KZCONTROL_COMMAND_SHUTTER, shutter);
    ProtoFieldWriter(query.stream).Int(generic::ResponseGeneric::kResultFieldNumber, RESULT_SUCCESS);
    return KZ_OK;
}

// ---------------------------------------------------------------- presets

int GetPresetStatus(const ProtobufQuery& query) {
    const auto request = ParseRequest<WSDK_RequestGetPresetStatus>(query.payload);
    if (request.register_preset_status_size() > 0) {
        LOG_INFO("register for PRESET_STATUS");
        query.client.m_interests.Add(NotificationClient::eNotifyCSI, CSI_PRESETS_MODIFIED);
    }
    int error = KZ_OK;
    if (request.unregister_preset_status_size() > 0) {
        LOG_INFO("UnRegister for PRESET_STATUS");
        query.client.m_interests.Remove(NotificationClient::eNotifyCSI, CSI_PRESETS_MODIFIED);
    } else {
        uint8_t reply[kPresetReplySize];
        uint32_t replyLength = 0;
        error = CallControlEx(KZCONTROL_PRESET_GET_PRESETS, nullptr, 0, reply, sizeof(reply), &replyLength);
        if (error == KZ_OK && replyLength > sizeof(reply)) {
            LOG_ERROR("Preset status of %u bytes is longer than its buffer", replyLength);
            error = KZ_ERR;
        }
        if (error == KZ_OK) {
            query.stream.writeArray(reply, static_cast<unsigned short>(replyLength));
        }
    }
    LOG_INFO("SENDING RESPONSE err = %d size %d", error, query.stream.getLength());
    return error;
}

// ---------------------------------------------------------------- live stream

int GetLiveStreamStatus(const ProtobufQuery& query) {
    const auto request = ParseRequest<WSDK_RequestGetLiveStreamStatus>(query.payload);
    ChangeInterest(query.client.m_interests, kLiveStreamKeys, Numbers(request.register_live_stream_status()),
                   Numbers(request.unregister_live_stream_status()));

    const CameraStatus& camera = query.camera;
    const uint32_t wms = camera.GetCsiValue(CSI_WMS_STATE);
    const std::optional<int32_t> state = LiveStreamStatusOfWms(wms);
    if (!state) {
        LOG_ERROR("WMS_STATE changed but no valid live stream state-setting idle");
    }
    LiveStreamStatus status;
    status.status = state.value_or(WSDK_LIVE_STREAM_STATE_IDLE);
    status.error = camera.GetCsiValue(CSI_LIVE_STREAM_ERROR);
    status.encode = camera.GetCsiValue(CSI_LIVE_STREAM_ENCODE) == kLiveStreamEncoding;
    if (status.encode) {
        status.error = LiveStreamErrorWhileEncoding(wms, camera.GetCsiValue(CSI_SD_CARD_STATE), status.error);
    }
    status.bitrate = camera.GetCsiValue(CSI_LIVE_STREAM_BITRATE);
    status.abilities = LiveStreamAbilitiesOf(camera.GetModelNumber());
    LOG_INFO("Notify Live Stream state=%d error=%d encode=%d", status.status, status.error, status.encode);
    query.stream << status;
    return KZ_OK;
}

// ---------------------------------------------------------------- firmware update

int GetOtaStatus(const ProtobufQuery& query) {
    const auto request = ParseRequest<WSDK_RequestGetOTAStatus>(query.payload);
    ChangeInterest(query.client.m_interests, kOtaKeys, Numbers(request.register_ota_status()),
                   Numbers(request.unregister_ota_status()));

    OtaStatus status;
    status.percentage = query.camera.GetCsiValue(CSI_OTA_PERCENTAGE);
    LOG_INFO("OTA Percentage %d", *status.percentage);
    status.state = query.camera.GetCsiValue(CSI_OTA_STATE);
    LOG_INFO("OTA State %d", *status.state);
    status.error = query.camera.GetCsiValue(CSI_OTA_ERROR);
    LOG_INFO("OTA Error %d", *status.error);
    query.stream << status;
    return KZ_OK;
}

// ---------------------------------------------------------------- mobile offload

int GetMobileOffloadState(const ProtobufQuery& query) {
    using Response = WSDK_ResponseGetMobileOffloadState;
    const CameraStatus& camera = query.camera;
    const uint32_t word = camera.GetCsiValue(CSI_ST_STATE);
    const auto bit = [word](unsigned index) { return (word >> index & 1) != 0; };
    const bool cameraBusy = bit(4) || camera.IsBusy();
    const auto bootCount = [&camera](uint8_t key) { return static_cast<int32_t>(camera.GetCsiValue(key)); };
    const int32_t bluetooth = bootCount(CSI_BOOT_COUNT_BT);
    const int32_t remotes = bootCount(CSI_BOOT_COUNT_RC);
    const int32_t accessPoint = bootCount(CSI_BOOT_COUNT_AP);
    const auto wakeupReason = static_cast<int32_t>(camera.GetCsiValue(CSI_WAKEUP_REASON));
    const auto activity = static_cast<int32_t>(camera.GetLastSystemNotifyEvent());

    ProtoFieldWriter(query.stream)
        .Int(Response::kResultFieldNumber, RESULT_SUCCESS)
        .Bool(Response::kMobileOffloadStateFieldNumber, bit(0))
        .Bool(Response::kNewMediaAvailableFieldNumber, bit(1))
        .Bool(Response::kBatteryOkFieldNumber, bit(2))
        .Bool(Response::kSdCardOkFieldNumber, bit(3))
        .Bool(Response::kCameraBusyFieldNumber, cameraBusy)
        .Bool(Response::kStPausedFieldNumber, bit(5))
        .Int(Response::kCntThisBootBtFieldNumber, bluetooth)
        .Int(Response::kCntThisBootRcFieldNumber, remotes)
        .Int(Response::kCntThisBootApFieldNumber, accessPoint)
        .Int(Response::kCameraWakeupReasonFieldNumber, wakeupReason)
        .Int(Response::kStActivityFieldNumber, activity);
    LOG_INFO("CSI_ST_STATE = st=%d nm=%d batt=%d sd=%d busy=%d pause=%d", bit(0), bit(1), bit(2), bit(3), cameraBusy,
             bit(5));
    LOG_INFO("bt_cnt=%d rc_cnt=%d ap_cnt=%d wakeup_reason=%d st_activity=%d ", bluetooth, remotes, accessPoint,
             wakeupReason, activity);
    return KZ_OK;
}

// ---------------------------------------------------------------- the actions

struct ActionRow {
    uint32_t id;
    int nameLevel;
    const char* name;
    int (*handle)(const ProtobufQuery& query);
    void (*logTooLong)(int size);  // null: the answer's size is not limited
};

void LogCsiTooLong(int size) {
    LOG_ERROR("ResponseGetCSIValue = %d bytes", size);
}
void LogClientIdTooLong(int size) {
    LOG_ERROR("Get Client ID response too long = %d bytes", size);
}

constexpr ActionRow kRows[] = {
    {112, KZ_LOG_INFO, "Command: eBleCommandProtobufCmd", SetShutter, nullptr},
    {114, KZ_LOG_DEBUG, "Command: eBleCommandRequestGetPresetStatus", GetPresetStatus, nullptr},
    {115, KZ_LOG_DEBUG, "Command: eBleCommandRequestGetPresetStatus", GetPresetStatus, nullptr},
    {116, KZ_LOG_DEBUG, "Command: eBleCommandRequestGetLiveStreamStatus", GetLiveStreamStatus, nullptr},
    {117, KZ_LOG_DEBUG, "Command: eBleCommandRequestGetLiveStreamStatus", GetLiveStreamStatus, nullptr},
    {118, KZ_LOG_DEBUG, "Command: eBleCommandRequestGetOTAStatus", GetOtaStatus, nullptr},
    {119, KZ_LOG_DEBUG, "Command: eBleCommandRequestGetOTAStatus", GetOtaStatus, nullptr},
    {120, KZ_LOG_DEBUG, "Command: eBleQueryRequestGetMobileOffloadState", GetMobileOffloadState, LogCsiTooLong},
    {122, KZ_LOG_DEBUG, "Command: eBleQueryRequestGetCAHSticky", GetCahSticky, LogCsiTooLong},
    {124, KZ_LOG_DEBUG, "Command: eBleCommandRequestGetAssociationState", GetAssociationState, nullptr},
    {125, KZ_LOG_DEBUG, "Command: eBleCommandRequestClientId", GetClientId, LogClientIdTooLong},
    {126, KZ_LOG_DEBUG, "Command: eBleCommandRequestGetCAHStatus", GetCahStatus, nullptr},
};
constexpr DispatchTable kTable(kRows);

}  // namespace

void ChangeInterest(Interests& interests, std::span<const RegisterKey> keys, std::span<const int> added,
                    std::span<const int> removed) {
    const auto keyOf = [keys](int entry) {
        const auto key =
            std::find_if(keys.begin(), keys.end(), [entry](const RegisterKey& row) { return row.enumerator == entry; });
        return key != keys.end() ? &*key : nullptr;
    };
    if (!added.empty()) {
        LOG_INFO("Register for Status Notifications");
    }
    for (const int entry : added) {
        if (const RegisterKey* key = keyOf(entry); key != nullptr) {
            LOG_INFO("register for ID = %d", entry);
            interests.Add(NotificationClient::eNotifyCSI, key->csiKey);
        }
    }
    if (!removed.empty()) {
        LOG_INFO("UnRegister for Status Notifications");
    }
    for (const int entry : removed) {
        if (const RegisterKey* key = keyOf(entry); key != nullptr) {
            LOG_INFO("unregister for ID = %d", entry);
            interests.Remove(NotificationClient::eNotifyCSI, key->csiKey);
        }
    }
}

int BleQueryMessage::ExecuteProtobuf(Peer& client, MemoryStream& stream) {
    LOG_INFO("execute pb={%02x %02x %02x %02x %02x}", PayloadByte(m_payload, 0), PayloadByte(m_payload, 1),
             PayloadByte(m_payload, 2), PayloadByte(m_payload, 3), PayloadByte(m_payload, 4));
    const ActionRow* row = kTable.Find(m_actionId);
    if (row == nullptr) {
        LOG_ERROR("Unknown protobuf message type");
        return KZ_ERR_INVALID_PARAM;
    }
    LOG_AT(row->nameLevel, "%s", row->name);
    // The answer is written into a buffer of its own, because only at its end is it known whether it fits.
    unsigned char bytes[kHeaderSize + kAnswerSizeLimit];
    MemoryStream answer(bytes, sizeof(bytes));
    answer << kQueryFeatureId << static_cast<unsigned char>(m_actionId | kProtobufAnswerBit);
    const int error = row->handle(ProtobufQuery{m_payload, client, services().camera, answer});
    if (error != KZ_OK) {
        return error;
    }
    if (row->logTooLong != nullptr && answer.getLength() >= kAnswerSizeLimit) {
        row->logTooLong(answer.getLength());
        return KZ_ERR;
    }
    if (answer.getLength() > stream.getRemainder()) {
        LOG_ERROR("No room for a protobuf answer of %d bytes in %d", answer.getLength(), stream.getRemainder());
        return KZ_ERR;
    }
    stream.writeArray(bytes, answer.getLength());
    return KZ_OK;
}
