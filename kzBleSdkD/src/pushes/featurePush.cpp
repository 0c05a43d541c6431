#include "featurePush.h"

#include <algorithm>
#include <iterator>

#include "MemStream.h"
#include "cameraCalls.h"
#include "cameraStatus.h"
#include "csi/csiKeys.h"
#include "csiKeyTable.h"
#include "featureStatus.h"
#include "presetStatus.h"
#include "protobufAnswer.h"
#include "queryKinds.h"
#include "settingsStatusMapping.h"
#include "utils.h"
#include "wsdkCommands/WSDK_NotifyPresetStatus.pb.h"

namespace {

constexpr const char* kLogTag = "bleDevice.cpp";

// Appends the message of a status. False, after a line in the log, when the stream has no room for it.
template <typename Status>
bool AppendStatus(const Status& status, MemoryStream& stream) {
    unsigned char bytes[kMaxFeatureStatus];
    MemoryStream message(bytes, sizeof(bytes));
    message << status;
    if (message.getLength() > stream.getRemainder()) {
        LOG_ERROR("Feature notification of %d bytes does not fit a push", message.getLength());
        return false;
    }
    stream.writeArray(bytes, message.getLength());
    return true;
}

// ---------------------------------------------------------------- cloud upload

void FillDeviceManager(const CameraStatus& camera, CahStatus& status) {
    const uint32_t word = camera.GetCsiValue(CSI_DEVICE_MGR_STATE);
    status.deviceManager = word;
    LOG_INFO("dev %d:%d:%d:%d", StateByte(word, 0), StateByte(word, 1), StateByte(word, 2), StateByte(word, 3));
}

void FillWom(const CameraStatus& camera, CahStatus& status) {
    const uint32_t word = camera.GetCsiValue(CSI_WOM_STATE);
    status.wom = word;
    status.busy = StateByte(word, 0) != kWomNotTriggered;
    if (*status.busy) {
        LOG_INFO("CAH_WOM TRIGGERED");
    } else {
        LOG_INFO("CAH_WOM NOT TRIGGERED");
    }
    LOG_INFO("wom %d:%d:%d:%d", StateByte(word, 0), StateByte(word, 1), StateByte(word, 2), StateByte(word, 3));
}

void FillCaha(const CameraStatus& camera, CahStatus& status) {
    const uint32_t word = camera.GetCsiValue(CSI_CAHA_STATE);
    status.caha = word;
    LOG_INFO("dev %d:%d:%d:%d", StateByte(word, 0), StateByte(word, 1), StateByte(word, 2), StateByte(word, 3));
}

void FillActive(const CameraStatus& camera, CahStatus& status) {
    status.active = camera.GetCsiValue(CSI_CAH_ACTIVE) != 0;
    LOG_INFO("cah active: %d", *status.active);
}

void FillFeatureEnabled(const CameraStatus& camera, CahStatus& status) {
    status.featureEnabled = camera.GetCsiValue(CSI_CAH_FEATURE_ENABLE) != 0;
    LOG_INFO("feat enable: %d", *status.featureEnabled);
}

void FillAuthState(const CameraStatus& camera, CahStatus& status) {
    status.authState = camera.GetCsiValue(CSI_CAH_AUTH_STATE);
    LOG_INFO("cah auth_state: %d", static_cast<int>(*status.authState));
}

void FillUpload(const CameraStatus& camera, CahStatus& status) {
    const CameraStatus::CahUploadProgress& progress = camera.GetCahUploadProgress();
    status.upload = CahUpload{static_cast<uint32_t>(progress.currentFile), static_cast<uint32_t>(progress.totalFiles),
                              static_cast<uint32_t>(progress.percentage)};
    LOG_DEBUG("cah current %lu", static_cast<unsigned long>(status.upload->currentFile));
    LOG_DEBUG("cah total files %lu", static_cast<unsigned long>(status.upload->totalFiles));
    LOG_DEBUG("cah percentage %lu", static_cast<unsigned long>(status.upload->percentage));
    LOG_INFO("cah percentage: %d", progress.percentage);
}

void FillAutoClear(const CameraStatus& camera, CahStatus& status) {
    status.autoClear = camera.GetCsiValue(CSI_CAH_AUTO_CLEAR) != 0;
    LOG_INFO("cah auto clear: %d", *status.autoClear);
}

struct CahField {
    uint32_t field;
    void (*fill)(const CameraStatus& camera, CahStatus& status);
};
constexpr CahField kCahFields[] = {
    {1, FillDeviceManager},   {5, FillWom},        {9, FillCaha},    {13, FillActive},
    {14, FillFeatureEnabled}, {15, FillAuthState}, {19, FillUpload}, {20, FillAutoClear},
};

bool BuildCah(const FeatureChange& change, MemoryStream& stream) {
    LOG_INFO("CSI causing notifyCAHStatus message");
    for (const CahField& row : kCahFields) {
        if (row.field == change.field) {
            CahStatus status;
            row.fill(change.camera, status);
            return AppendStatus(status, stream);
        }
    }
    LOG_ERROR("No CAH Status %d", change.field);
    LOG_ERROR("CSI CAH triggered, but no match of status %d", change.field);
    return false;
}

// ---------------------------------------------------------------- firmware update

bool BuildOta(const FeatureChange& change, MemoryStream& stream) {
    constexpr uint32_t kFieldState = 1;
    constexpr uint32_t kFieldPercentage = 2;

    LOG_INFO("CSI triggered NotifyOTAStatus");
    OtaStatus status;
    if (change.field == kFieldState) {
        status.state = change.camera.GetCsiValue(CSI_OTA_STATE);
        const uint32_t error = change.camera.GetCsiValue(CSI_OTA_ERROR);
        if (OtaStateHasError(*status.state)) {
            status.error = error;
            LOG_ERROR("OTA_STATE=%d  OTA_ERROR=%d", *status.state, error);
        }
    } else if (change.field == kFieldPercentage) {
        status.percentage = change.camera.GetCsiValue(CSI_OTA_PERCENTAGE);
    } else {
        LOG_ERROR("No valid OTA state field number");
        return false;
    }
    return AppendStatus(status, stream);
}

// ---------------------------------------------------------------- live stream

void LogWmsState(uint32_t wms) {
    if (wms == WMS_STATE_RECONNECTING) {
        LOG_INFO("csi_wms_state = WSKD_LIVE_STREAM_STATE_RECONNECTING");
    } else {
        LOG_INFO("csi_wms_state = WSDK_LIVE_STREAM_STATE_IDLE");
    }
}

void LogSdCard(uint32_t sdCard) {
    switch (sdCard) {
        case SD_CARD_FULL:
            LOG_INFO("WSDK_LIVE_STREAM_ERROR_SD_CARD_FULL");
            break;
        case SD_CARD_REMOVED:
            LOG_INFO("WSDK_LIVE_STREAM_ERROR_SD_CARD_REMOVED");
            break;
        default:
            LOG_INFO("sd card status ok, value = %d", sdCard);
            break;
    }
}

bool BuildLiveStream(const FeatureChange& change, MemoryStream& stream) {
    constexpr uint32_t kFieldStatus = 1;
    constexpr uint32_t kFieldEncode = 3;

    LOG_INFO("triggered NotifyLiveStreamMsg");
    if (change.field != kFieldStatus && change.field != kFieldEncode) {
        LOG_ERROR("No valid Live Stream Status field number");
        return false;
    }
    const uint32_t wms = change.camera.GetCsiValue(CSI_WMS_STATE);
    const std::optional<int32_t> state = LiveStreamStatusOfWms(wms);
    if (!state) {
        LOG_INFO("csi_wms_state = %d, dont push status", wms);
        return false;
    }
    LogWmsState(wms);

    LiveStreamStatus status;
    status.status = *state;
    status.error = change.camera.GetCsiValue(CSI_LIVE_STREAM_ERROR);
    status.encode = change.camera.GetCsiValue(CSI_LIVE_STREAM_ENCODE) == kLiveStreamEncoding;
    status.bitrate = change.camera.GetCsiValue(CSI_LIVE_STREAM_BITRATE);
    if (status.encode && wms != WMS_STATE_IDLE) {
        const uint32_t sdCard = change.camera.GetCsiValue(CSI_SD_CARD_STATE);
        LogSdCard(sdCard);
        status.error = LiveStreamErrorWhileEncoding(wms, sdCard, status.error);
    }
    LOG_INFO("Notify Live Stream state=%d error=%d encode=%d bitrate=%d", status.status, status.error, status.encode,
             status.bitrate);
    return AppendStatus(status, stream);
}

// ---------------------------------------------------------------- presets

uint32_t StatusNumber(const SettingsStatusMapping& model, int id) {
    const FlexValue* value = model.FindStatusValue(id);
    return value != nullptr && value->GetDataLength() > 0 ? value->GetUI32Value() : 0;
}

// Appends the message. False when the stream has no room for it.
bool AppendMessage(const google::protobuf::Message& message, MemoryStream& stream) {
    const size_t size = message.ByteSizeLong();
    if (size > stream.getRemainder()) {
        return false;
    }
    unsigned char* destination = stream.getBuffer() + stream.getLength();
    message.SerializePartialToArray(destination, static_cast<int>(size));
    stream.m_index = static_cast<unsigned short>(stream.m_index + size);
    return true;
}

// Appends the presets with as much detail as the stream has room for, at most `detail`. False when not even their ids
// fit.
bool AppendPresets(const wsdk_commands::WSDK_NotifyPresetStatus& presets, PresetDetail detail, MemoryStream& stream) {
    for (;;) {
        wsdk_commands::WSDK_NotifyPresetStatus message;
        CopyPresetStatus(presets, detail, message);
        if (AppendMessage(message, stream)) {
            return true;
        }
        LOG_ERROR("Preset notification of %d bytes does not fit a push", static_cast<int>(message.ByteSizeLong()));
        if (detail.all) {
            detail.all = false;
        } else if (detail.currentPreset) {
            detail.currentPreset = false;
        } else {
            return false;
        }
    }
}

bool BuildPresets(const FeatureChange& change, MemoryStream& stream) {
    if (std::find(change.interest.begin(), change.interest.end(), CSI_PRESETS_MODIFIED) == change.interest.end()) {
        return false;
    }
    const uint32_t modified = change.camera.GetCsiValue(CSI_PRESETS_MODIFIED);
    LOG_INFO("CSI_PRESETS_MODIFIED = %x", modified);
    if (modified == 0) {
        return false;
    }
    const uint32_t modelNumber = change.camera.GetCsiValue(CSI_MODEL_NUMBER);
    LOG_INFO("Model Number = %d", modelNumber);

    uint8_t reply[kPresetReplySize];
    uint32_t replyLength = 0;
    const int err = CallControlEx(KZCONTROL_PRESET_GET_PRESETS, nullptr, 0, reply, sizeof(reply), &replyLength);
    if (err != 0) {
        LOG_ERROR("KZCONTROL_PRESET_GET_PRESETS err=%d", err);
        return false;
    }
    wsdk_commands::WSDK_NotifyPresetStatus presets;
    presets.ParsePartialFromArray(reply, static_cast<int>(std::min(replyLength, kPresetReplySize)));

    PresetDetail detail;
    LOG_INFO("CURRENT PRESET GROUP  - %d", StatusNumber(change.model, SettingsStatusMapping::kStatusIdPresetGroup));
    detail.currentPresetId = StatusNumber(change.model, SettingsStatusMapping::kStatusIdPreset);
    LOG_INFO("CURRENT PRESET  - %d", detail.currentPresetId);
    detail.all = AllPresetsInFull(modified, modelNumber);
    return AppendPresets(presets, detail, stream);
}

// ---------------------------------------------------------------- the features

struct FeatureRow {
    CsiFeature feature;
    uint8_t actionId;
    bool (*build)(const FeatureChange& change, MemoryStream& stream);
};

constexpr FeatureRow kFeatures[] = {
    {CsiFeature::kPresets, 0x73 | kProtobufAnswerBit, BuildPresets},
    {CsiFeature::kLiveStream, 0x75 | kProtobufAnswerBit, BuildLiveStream},
    {CsiFeature::kOta, 0x77 | kProtobufAnswerBit, BuildOta},
    {CsiFeature::kCah, 0x7F | kProtobufAnswerBit, BuildCah},
};

}  // namespace

bool BuildFeaturePush(const FeatureChange& change, MemoryStream& stream) {
    LOG_INFO("csi_key=%d", change.key);
    const CsiKeyRow* key = kCsiKeyTable.Find(change.key);
    const CsiFeature feature = key != nullptr ? key->feature : CsiFeature::kNone;
    for (const FeatureRow& row : kFeatures) {
        if (row.feature == feature) {
            stream << kQueryFeatureId << row.actionId;
            return row.build(change, stream);
        }
    }
    LOG_ERROR("CSI notification not found key=%d field=%d ", change.key, change.field);
    return false;
}
