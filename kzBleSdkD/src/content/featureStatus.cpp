#include "featureStatus.h"

#include "MemStream.h"
#include "csi/csiKeys.h"
#include "dispatchTable.h"
#include "protoFields.h"
#include "wsdkCommands/WSDK_NotifyCAHStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyLiveStreamStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyOTAStatus.pb.h"

namespace {

using wsdk_commands::WSDK_NotifyCAHStatus;
using wsdk_commands::WSDK_NotifyLiveStreamStatus;
using wsdk_commands::WSDK_NotifyOTAStatus;

// Writes the four bytes of a state word into four consecutive fields, of which `firstField` is the first.
void WriteStateWord(ProtoFieldWriter& writer, int firstField, const std::optional<uint32_t>& word) {
    if (!word) {
        return;
    }
    for (unsigned i = 0; i < sizeof(*word); ++i) {
        writer.Int(firstField + static_cast<int>(i), StateByte(*word, i));
    }
}

void WriteInt(ProtoFieldWriter& writer, int field, const std::optional<uint32_t>& value) {
    if (value) {
        writer.Int(field, static_cast<int32_t>(*value));
    }
}

void WriteBool(ProtoFieldWriter& writer, int field, const std::optional<bool>& value) {
    if (value) {
        writer.Bool(field, *value);
    }
}

constexpr int32_t kLiveStreamMinimumBitrate = 800;
constexpr int32_t kLiveStreamMaximumBitrate = 10000;

constexpr int32_t kFullHdWindows[] = {wsdk_commands::WSDK_WINDOW_SIZE_1080, wsdk_commands::WSDK_WINDOW_SIZE_720};
constexpr int32_t kHdWindows[] = {wsdk_commands::WSDK_WINDOW_SIZE_720};
constexpr int32_t kLenses[] = {wsdk_commands::WSDK_LENS_WIDE, wsdk_commands::WSDK_LENS_LINEAR,
                               wsdk_commands::WSDK_LENS_PANOVA};

struct ModelAbilities {
    uint8_t id;  // model number
    LiveStreamAbilities abilities;
};
constexpr ModelAbilities kModelRows[] = {
    {57, {kFullHdWindows, kLenses, true, true}},
    {58, {kFullHdWindows, kLenses, true, true}},
    {60, {kHdWindows, kLenses, true, true}},
    {61, {kHdWindows, kLenses, true, true}},
};
constexpr DispatchTable kModelAbilities(kModelRows);

struct WmsStatus {
    uint32_t id;  // WMS state
    int32_t status;
};
constexpr WmsStatus kWmsRows[] = {
    {WMS_STATE_IDLE, wsdk_commands::WSDK_LIVE_STREAM_STATE_IDLE},
    {WMS_STATE_CONFIG, wsdk_commands::WSDK_LIVE_STREAM_STATE_CONFIG},
    {WMS_STATE_READY, wsdk_commands::WSDK_LIVE_STREAM_STATE_READY},
    {WMS_STATE_STREAMING, wsdk_commands::WSDK_LIVE_STREAM_STATE_STREAMING},
    {WMS_STATE_COMPLETE_STAY_ON, wsdk_commands::WSDK_LIVE_STREAM_STATE_COMPLETE_STAY_ON},
    {WMS_STATE_FAILED_STAY_ON, wsdk_commands::WSDK_LIVE_STREAM_STATE_FAILED_STAY_ON},
    {WMS_STATE_RECONNECTING, wsdk_commands::WSDK_LIVE_STREAM_STATE_RECONNECTING},
};
constexpr DispatchTable kWmsStatus(kWmsRows);

}  // namespace

MemoryStream& operator<<(MemoryStream& stream, const CahStatus& status) {
    ProtoFieldWriter writer(stream);
    WriteStateWord(writer, WSDK_NotifyCAHStatus::kDeviceMgrStateFieldNumber, status.deviceManager);
    WriteStateWord(writer, WSDK_NotifyCAHStatus::kWomStateFieldNumber, status.wom);
    WriteStateWord(writer, WSDK_NotifyCAHStatus::kCahaStateFieldNumber, status.caha);
    WriteBool(writer, WSDK_NotifyCAHStatus::kCahActiveFieldNumber, status.active);
    WriteBool(writer, WSDK_NotifyCAHStatus::kCahFeatureEnableFieldNumber, status.featureEnabled);
    WriteInt(writer, WSDK_NotifyCAHStatus::kCahAuthStateFieldNumber, status.authState);
    WriteBool(writer, WSDK_NotifyCAHStatus::kCahBusyFieldNumber, status.busy);
    if (status.upload) {
        writer.UInt(WSDK_NotifyCAHStatus::kCahCurrentFileFieldNumber, status.upload->currentFile)
            .UInt(WSDK_NotifyCAHStatus::kCahTotalFilesFieldNumber, status.upload->totalFiles)
            .UInt(WSDK_NotifyCAHStatus::kCahPercentageFieldNumber, status.upload->percentage);
    }
    WriteBool(writer, WSDK_NotifyCAHStatus::kCahAutoClearEnableFieldNumber, status.autoClear);
    return stream;
}

MemoryStream& operator<<(MemoryStream& stream, const OtaStatus& status) {
    ProtoFieldWriter writer(stream);
    WriteInt(writer, WSDK_NotifyOTAStatus::kOtaStateFieldNumber, status.state);
    WriteInt(writer, WSDK_NotifyOTAStatus::kOtaPercentageFieldNumber, status.percentage);
    WriteInt(writer, WSDK_NotifyOTAStatus::kOtaErrorFieldNumber, status.error);
    return stream;
}

bool OtaStateHasError(uint32_t state) {
    switch (state) {
        case wsdk_commands::WSDK_OTA_STATE_DOWNLOAD_FAILED:
        case wsdk_commands::WSDK_OTA_STATE_VERIFY_FAILED:
        case wsdk_commands::WSDK_OTA_STATE_CEDAR_DOWNLOAD_FAILED:
        case wsdk_commands::WSDK_OTA_STATE_CEDAR_VERIFY_FAILED:
            return true;
        default:
            return false;
    }
}

LiveStreamAbilities LiveStreamAbilitiesOf(uint8_t modelNumber) {
    const ModelAbilities* row = kModelAbilities.Find(modelNumber);
    return row != nullptr ? row->abilities : LiveStreamAbilities{};
}

MemoryStream& operator<<(MemoryStream& stream, const LiveStreamStatus& status) {
    ProtoFieldWriter writer(stream);
    writer.Int(WSDK_NotifyLiveStreamStatus::kLiveStreamStatusFieldNumber, status.status)
        .Int(WSDK_NotifyLiveStreamStatus::kLiveStreamErrorFieldNumber, static_cast<int32_t>(status.error))
        .Bool(WSDK_NotifyLiveStreamStatus::kLiveStreamEncodeFieldNumber, status.encode)
        .Int(WSDK_NotifyLiveStreamStatus::kLiveStreamBitrateFieldNumber, static_cast<int32_t>(status.bitrate));
    if (!status.abilities) {
        return stream;
    }
    for (int32_t size : status.abilities->windowSizes) {
        writer.Int(WSDK_NotifyLiveStreamStatus::kLiveStreamWindowSizeSupportedArrayFieldNumber, size);
    }
    writer.Bool(WSDK_NotifyLiveStreamStatus::kLiveStreamEncodeSupportedFieldNumber, status.abilities->encodeSupported)
        .Bool(WSDK_NotifyLiveStreamStatus::kLiveStreamOrbisLensUnsupportedFieldNumber, false)
        .Int(WSDK_NotifyLiveStreamStatus::kLiveStreamMinimumStreamBitrateFieldNumber, kLiveStreamMinimumBitrate)
        .Int(WSDK_NotifyLiveStreamStatus::kLiveStreamMaximumStreamBitrateFieldNumber, kLiveStreamMaximumBitrate);
    if (status.abilities->lensSupported) {
        writer.Bool(WSDK_NotifyLiveStreamStatus::kLiveStreamLensSupportedFieldNumber, true);
    }
    for (int32_t lens : status.abilities->lenses) {
        writer.Int(WSDK_NotifyLiveStreamStatus::kLiveStreamLensSupportedArrayFieldNumber, lens);
    }
    return stream;
}

std::optional<int32_t> LiveStreamStatusOfWms(uint32_t wms) {
    const WmsStatus* row = kWmsStatus.Find(wms);
    return row != nullptr ? std::optional(row->status) : std::nullopt;
}

uint32_t LiveStreamErrorWhileEncoding(uint32_t wms, uint32_t sdCard, uint32_t streamError) {
    if (sdCard == SD_CARD_FULL) {
        return wsdk_commands::WSDK_LIVE_STREAM_ERROR_SD_CARD_FULL;
    }
    const bool writesToCard =
        wms == WMS_STATE_COMPLETE_STAY_ON || wms == WMS_STATE_FAILED_STAY_ON || wms == WMS_STATE_STREAMING;
    if (sdCard == SD_CARD_REMOVED && writesToCard) {
        return wsdk_commands::WSDK_LIVE_STREAM_ERROR_SD_CARD_REMOVED;
    }
    return streamError;
}
