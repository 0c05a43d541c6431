// The protobuf queries: one row an action.
#include <algorithm>
#include <cstring>
#include <iterator>
#include <span>
#include <string>
#include <string_view>

#include "bleDevice.h"
#include "cameraCalls.h"
#include "dispatchTable.h"
#include "featureStatus.h"
#include "generic/ResponseGeneric.pb.h"
#include "kzBleServer.h"
#include "littleEndian.h"
#include "presetStatus.h"
#include "protoFields.h"
#include "protobufAnswer.h"
#include "queryKinds.h"
#include "queryMessage.h"
#include "utils.h"
#include "wsdkCommands/WSDK_EnumLiveStreamStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetAssociationState.pb.h"
#include "wsdkCommands/WSDK_RequestGetCAHStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetLiveStreamStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetOTAStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetPresetStatus.pb.h"
#include "wsdkCommands/WSDK_RequestSetShutter.pb.h"
#include "wsdkCommands/WSDK_ResponseGetAssociationState.pb.h"
#include "wsdkCommands/WSDK_ResponseGetCAHSticky.pb.h"
#include "wsdkCommands/WSDK_ResponseGetClientId.pb.h"
#include "wsdkCommands/WSDK_ResponseGetMobileOffloadState.pb.h"

using namespace wsdk_commands;

namespace {

constexpr const char* kLogTag = "bleQueryMessage.cpp";

constexpr int kHeaderSize = 2;
// No answer message is longer; one that reaches it with its header may be refused.
constexpr int kAnswerSizeLimit = 2400;

// What a handler gets. It writes its answer message to the stream, behind the two header bytes.
struct Query {
    const std::vector<uint8_t>& payload;
    BleNotificationClient& client;
    KzBleServer& server;
    MemoryStream& stream;
};

// ---------------------------------------------------------------- registration

struct RegisterKey {
    int enumerator;
    uint8_t csiKey;
};

// Adds, then removes interest in the CSI keys of the lists' entries; entries outside `keys` are ignored.
template <typename Entries>
void ChangeInterest(BleNotificationClient& client, std::span<const RegisterKey> keys, const Entries& added,
                    const Entries& removed) {
    const auto forEachKey = [keys](const Entries& entries, auto&& change) {
        for (int entry : entries) {
            const auto key = std::find_if(keys.begin(), keys.end(),
                                          [entry](const RegisterKey& row) { return row.enumerator == entry; });
            if (key != keys.end()) {
                change(entry, key->csiKey);
            }
        }
    };
    if (!added.empty()) {
        LOG_INFO("Register for Status Notifications");
    }
    forEachKey(added, [&client](int entry, int key) {
        LOG_INFO("register for ID = %d", entry);
        client.AddInterest(NotificationClient::eNotifyCSI, key);
    });
    if (!removed.empty()) {
        LOG_INFO("UnRegister for Status Notifications");
    }
    forEachKey(removed, [&client](int entry, int key) {
        LOG_INFO("unregister for ID = %d", entry);
        client.RemoveInterest(NotificationClient::eNotifyCSI, key);
    });
}

constexpr RegisterKey kCahKeys[] = {
    {WSDK_REGISTER_CAH_STATUS_DEV_MGR, CSI_DEVICE_MGR_STATE},
    {WSDK_REGISTER_CAH_STATUS_WOM, CSI_WOM_STATE},
    {WSDK_REGISTER_CAH_STATUS_CAHA, CSI_CAHA_STATE},
    {WSDK_REGISTER_CAH_STATUS_FEATTURE_ENABLED, CSI_CAH_FEATURE_ENABLE},
    {WSDK_REGISTER_CAH_STATUS_ACTIVE, CSI_CAH_ACTIVE},
    {WSDK_REGISTER_CAH_STATUS_ASSOCIATED, CSI_CAH_ASSOCIATION_STATE},
    {WSDK_REGISTER_CAH_STATUS_AUTHORIZED, CSI_CAH_AUTH_STATE},
};

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

int SetShutter(const Query& query) {
    const auto request = ParseRequest<WSDK_RequestSetShutter>(query.payload);
    const auto shutter = static_cast<uint32_t>(request.shutter());
    LOG_INFO("protobuf shutter=%d", shutter);
    SendCommand(KZCONTROL_COMMAND_SHUTTER, shutter);
    ProtoFieldWriter(query.stream).Int(generic::ResponseGeneric::kResultFieldNumber, RESULT_SUCCESS);
    return KZ_OK;
}

// ---------------------------------------------------------------- presets

int GetPresetStatus(const Query& query) {
    const auto request = ParseRequest<WSDK_RequestGetPresetStatus>(query.payload);
    if (request.register_preset_status_size() > 0) {
        LOG_INFO("register for PRESET_STATUS");
        query.client.AddInterest(NotificationClient::eNotifyCSI, CSI_PRESETS_MODIFIED);
    }
    int error = KZ_OK;
    if (request.unregister_preset_status_size() > 0) {
        LOG_INFO("UnRegister for PRESET_STATUS");
        query.client.RemoveInterest(NotificationClient::eNotifyCSI, CSI_PRESETS_MODIFIED);
    } else {
        uint8_t reply[kPresetReplySize];
        uint32_t replyLength = 0;
        error = kzcontrol_send_command_param_response_ex(KZCONTROL_PRESET_GET_PRESETS, nullptr, 0, reply, sizeof(reply),
                                                         &replyLength);
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

int GetLiveStreamStatus(const Query& query) {
    const auto request = ParseRequest<WSDK_RequestGetLiveStreamStatus>(query.payload);
    ChangeInterest(query.client, kLiveStreamKeys, request.register_live_stream_status(),
                   request.unregister_live_stream_status());

    const KzBleServer& server = query.server;
    const uint32_t wms = server.GetCsiValue(CSI_WMS_STATE);
    const std::optional<int32_t> state = LiveStreamStatusOfWms(wms);
    if (!state) {
        LOG_ERROR("WMS_STATE changed but no valid live stream state-setting idle");
    }
    LiveStreamStatus status;
    status.status = state.value_or(WSDK_LIVE_STREAM_STATE_IDLE);
    status.error = server.GetCsiValue(CSI_LIVE_STREAM_ERROR);
    status.encode = server.GetCsiValue(CSI_LIVE_STREAM_ENCODE) == kLiveStreamEncoding;
    if (status.encode) {
        status.error = LiveStreamErrorWhileEncoding(wms, server.GetCsiValue(CSI_SD_CARD_STATE), status.error);
    }
    status.bitrate = server.GetCsiValue(CSI_LIVE_STREAM_BITRATE);
    status.abilities = LiveStreamAbilitiesOf(server.GetModelNumber());
    LOG_INFO("Notify Live Stream state=%d error=%d encode=%d", status.status, status.error, status.encode);
    query.stream << status;
    return KZ_OK;
}

// ---------------------------------------------------------------- firmware update

int GetOtaStatus(const Query& query) {
    const auto request = ParseRequest<WSDK_RequestGetOTAStatus>(query.payload);
    ChangeInterest(query.client, kOtaKeys, request.register_ota_status(), request.unregister_ota_status());

    OtaStatus status;
    status.percentage = query.server.GetCsiValue(CSI_OTA_PERCENTAGE);
    LOG_INFO("OTA Percentage %d", *status.percentage);
    status.state = query.server.GetCsiValue(CSI_OTA_STATE);
    LOG_INFO("OTA State %d", *status.state);
    status.error = query.server.GetCsiValue(CSI_OTA_ERROR);
    LOG_INFO("OTA Error %d", *status.error);
    query.stream << status;
    return KZ_OK;
}

// ---------------------------------------------------------------- mobile offload

int GetMobileOffloadState(const Query& query) {
    using Response = WSDK_ResponseGetMobileOffloadState;
    const KzBleServer& server = query.server;
    const uint32_t word = server.GetCsiValue(CSI_ST_STATE);
    const auto bit = [word](unsigned index) { return (word >> index & 1) != 0; };
    const bool cameraBusy = bit(4) || server.IsBusy();
    const auto bootCount = [&server](uint8_t key) { return static_cast<int32_t>(server.GetCsiValue(key)); };
    const int32_t bluetooth = bootCount(CSI_BOOT_COUNT_BT);
    const int32_t remotes = bootCount(CSI_BOOT_COUNT_RC);
    const int32_t accessPoint = bootCount(CSI_BOOT_COUNT_AP);
    const auto wakeupReason = static_cast<int32_t>(server.GetCsiValue(CSI_WAKEUP_REASON));
    const auto activity = static_cast<int32_t>(server.GetLastSystemNotifyEvent());

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

// ---------------------------------------------------------------- CSI words

// The number under a key, least significant byte first; none when the service does not give it.
std::optional<uint32_t> ReadCsiWord(uint8_t key) {
    uint8_t bytes[4] = {};
    uint32_t length = 0;
    if (csi_get(key, sizeof(bytes), &length, bytes) != CSI_OK) {
        return std::nullopt;
    }
    return ReadLittleEndian32(bytes);
}

int GetCahSticky(const Query& query) {
    const std::optional<uint32_t> sticky = ReadCsiWord(CSI_CAH_STICKY_ERR);
    const auto value = static_cast<int32_t>(sticky.value_or(0));
    LOG_INFO("CSI_CAH_STICKY_ERR = %d", value);
    ProtoFieldWriter(query.stream)
        .Int(WSDK_ResponseGetCAHSticky::kCahStickyFieldNumber, value)
        .Int(WSDK_ResponseGetCAHSticky::kResultFieldNumber, ResultOf(sticky.has_value()));
    return KZ_OK;
}

int GetCahStatus(const Query& query) {
    const auto request = ParseRequest<WSDK_RequestGetCAHStatus>(query.payload);
    ChangeInterest(query.client, kCahKeys, request.register_cah_status(), request.unregister_cah_status());

    CahStatus status;
    status.deviceManager = ReadCsiWord(CSI_DEVICE_MGR_STATE).value_or(kCsiErrorWord);
    const std::optional<uint32_t> wom = ReadCsiWord(CSI_WOM_STATE);
    status.wom = wom.value_or(kCsiErrorWord);
    if (wom) {
        status.busy = StateByte(*wom, 0) != kWomNotTriggered;
        if (*status.busy) {
            LOG_INFO("CAH_WOM TRIGGERED");
        } else {
            LOG_INFO("CAH_WOM NOT TRIGGERED");
        }
    }
    status.caha = ReadCsiWord(CSI_CAHA_STATE).value_or(kCsiErrorWord);
    status.featureEnabled = ReadCsiWord(CSI_CAH_FEATURE_ENABLE).value_or(0) != 0;
    status.active = ReadCsiWord(CSI_CAH_ACTIVE).value_or(0) != 0;
    status.authState = ReadCsiWord(CSI_CAH_AUTH_STATE).value_or(0);
    status.autoClear = ReadCsiWord(CSI_CAH_AUTO_CLEAR).value_or(0) != 0;
    const KzBleServer::CahUploadProgress& progress = query.server.GetCahUploadProgress();
    status.upload = CahUpload{static_cast<uint32_t>(progress.currentFile), static_cast<uint32_t>(progress.totalFiles),
                              static_cast<uint32_t>(progress.percentage)};

    const auto byte = [](const std::optional<uint32_t>& word, unsigned index) { return StateByte(*word, index); };
    LOG_INFO("dev %d:%d:%d:%d", byte(status.deviceManager, 0), byte(status.deviceManager, 1),
             byte(status.deviceManager, 2), byte(status.deviceManager, 3));
    LOG_INFO("wom %d:%d:%d:%d", byte(status.wom, 0), byte(status.wom, 1), byte(status.wom, 2), byte(status.wom, 3));
    LOG_INFO("dev %d:%d:%d:%d", byte(status.caha, 0), byte(status.caha, 1), byte(status.caha, 2), byte(status.caha, 3));
    LOG_INFO("feat enable: %d", *status.featureEnabled);
    LOG_INFO("cah active: %d", *status.active);
    LOG_INFO("cah current %lu", static_cast<unsigned long>(status.upload->currentFile));
    LOG_INFO("cah total files %lu", static_cast<unsigned long>(status.upload->totalFiles));
    LOG_INFO("cah percentage %lu", static_cast<unsigned long>(status.upload->percentage));
    query.stream << status;
    return KZ_OK;
}

// ---------------------------------------------------------------- CSI texts

// A text under a key, as bytes; the service does not terminate it.
struct CsiText {
    bool read = false;
    uint16_t length = 0;
    char data[kMaxCsiText + 1] = {};  // zero-filled, so terminated
};

void ReadCsiText(uint8_t key, CsiText& text) {
    uint32_t length = 0;
    text.read = csi_get(key, kMaxCsiText, &length, text.data) == CSI_OK;
    text.length = text.read ? static_cast<uint16_t>(std::min<size_t>(length, kMaxCsiText)) : uint16_t{0};
    text.data[text.length] = '\0';
}

WSDK_EnumAssociationState AssociationState(const std::string& userId) {
    CsiText stored;
    ReadCsiText(CSI_CAH_ASSOCIATION_STATE, stored);
    if (!stored.read) {
        LOG_ERROR("Error reading CSI_CAH_ASSOCIATION_STATE");
        return WSDK_ASSOCIATION_STATE_NOT_ASSOCIATED;
    }
    LOG_INFO("current zorvikuser id = %s", stored.data);
    LOG_INFO("userID char[0] = %d", stored.data[0]);
    if (stored.data[0] == '\0') {
        return WSDK_ASSOCIATION_STATE_NOT_ASSOCIATED;
    }
    return std::string_view(stored.data) == userId ? WSDK_ASSOCIATION_STATE_ASSOCIATED
                                                   : WSDK_ASSOCIATION_STATE_ASSOCIATED_ANOTHER_USER;
}

void LogAssociation(WSDK_EnumAssociationState state) {
    switch (state) {
        case WSDK_ASSOCIATION_STATE_NOT_ASSOCIATED:
            LOG_INFO("WSDK_ASSOCIATION_STATE_NOT_ASSOCIATED");
            break;
        case WSDK_ASSOCIATION_STATE_ASSOCIATED:
            LOG_INFO("WSDK_ASSOCIATION_STATE_ASSOCIATED");
            break;
        case WSDK_ASSOCIATION_STATE_ASSOCIATED_ANOTHER_USER:
            LOG_INFO("WSDK_ASSOCIATION_STATE_ASSOCIATED_ANOTHER_USER");
            break;
    }
}

int GetAssociationState(const Query& query) {
    const auto request = ParseRequest<WSDK_RequestGetAssociationState>(query.payload);
    LOG_INFO("WSDK_RequestGetAssociationState zorvik_user_id = %s", request.zorvik_user_id().c_str());
    const WSDK_EnumAssociationState state = AssociationState(request.zorvik_user_id());
    LogAssociation(state);
    ProtoFieldWriter(query.stream)
        .Int(WSDK_ResponseGetAssociationState::kAssociationStateFieldNumber, state)
        .Int(WSDK_ResponseGetAssociationState::kResultFieldNumber, RESULT_SUCCESS);
    return KZ_OK;
}

int GetClientId(const Query& query) {
    CsiText id;
    ReadCsiText(CSI_CLIENT_ID, id);
    if (!id.read) {
        LOG_ERROR("WSDK_ResponseGetClientId error");
    }
    const EnumResultGeneric result = ResultOf(id.read);
    LOG_INFO("responseClientIdMsg.clientId=%s", id.data);
    LOG_INFO("responseClientIdMsg.result=%d", result);
    ProtoFieldWriter(query.stream)
        .Bytes(WSDK_ResponseGetClientId::kClientIdFieldNumber, id.data, id.length)
        .Int(WSDK_ResponseGetClientId::kResultFieldNumber, result);
    return KZ_OK;
}

// ---------------------------------------------------------------- the actions

struct ProtobufQuery {
    uint32_t id;
    int nameLevel;
    const char* name;
    int (*handle)(const Query& query);
    void (*logTooLong)(int size);  // null: the answer's size is not limited
};

void LogCsiTooLong(int size) {
    LOG_ERROR("ResponseGetCSIValue = %d bytes", size);
}
void LogClientIdTooLong(int size) {
    LOG_ERROR("Get Client ID response too long = %d bytes", size);
}

constexpr ProtobufQuery kRows[] = {
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

int BleQueryMessage::ExecuteProtobuf(BleNotificationClient& client, MemoryStream& stream) {
    LOG_INFO("execute pb={%02x %02x %02x %02x %02x}", PayloadByte(m_payload, 0), PayloadByte(m_payload, 1),
             PayloadByte(m_payload, 2), PayloadByte(m_payload, 3), PayloadByte(m_payload, 4));
    const ProtobufQuery* row = kTable.Find(m_actionId);
    if (row == nullptr) {
        LOG_ERROR("Unknown protobuf message type");
        return KZ_ERR_INVALID_PARAM;
    }
    LOG_AT(row->nameLevel, "%s", row->name);
    // Written aside: how long it gets, and whether it fits, is known at its end.
    unsigned char bytes[kHeaderSize + kAnswerSizeLimit];
    MemoryStream answer(bytes, sizeof(bytes));
    answer << kQueryFeatureId << static_cast<unsigned char>(m_actionId | kProtobufAnswerBit);
    const int error = row->handle(Query{m_payload, client, *KzBleServer::GetInstance(), answer});
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
