// What the camera's features are doing, as clients are told of it: the cloud upload (CAH), the firmware update (OTA)
// and the live stream. Plain structs filled from CSI values by the query handler and by the feature notifications, and
// their protobuf form. State words are carried as they are, also outside their enumerations.
//
// Each operator<< writes the struct's set fields as a serialised message (WSDK_Notify*), in the byte form of the
// generated class; the stream must have room for kMaxFeatureStatus bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

class MemoryStream;

constexpr size_t kMaxFeatureStatus = 20 * 12;  // at most 20 fields of at most 12 bytes

// The feature id of the query interface's protobuf messages: first byte of requests, answers and notifications.
constexpr uint8_t kQueryFeatureId = 245;

// Byte `index`, the least significant first, of a state word: 0 state, 1 category, 2 sub-state, 3 error.
constexpr uint8_t StateByte(uint32_t word, unsigned index) {
    return static_cast<uint8_t>(word >> (index * 8));
}

// ---------------------------------------------------------------- cloud upload

constexpr uint32_t kCsiErrorWord = 0x7F7F7F7F;  // every byte 127: the service could not be read
constexpr uint8_t kWomNotTriggered = 5;         // WOM state; in any other the camera is busy with an upload

struct CahUpload {
    uint32_t currentFile = 0;
    uint32_t totalFiles = 0;
    uint32_t percentage = 0;
};

// WSDK_NotifyCAHStatus.
struct CahStatus {
    std::optional<uint32_t> deviceManager;  // state words
    std::optional<uint32_t> wom;
    std::optional<uint32_t> caha;
    std::optional<bool> active;
    std::optional<bool> featureEnabled;
    std::optional<uint32_t> authState;
    std::optional<bool> busy;
    std::optional<CahUpload> upload;
    std::optional<bool> autoClear;
};
MemoryStream& operator<<(MemoryStream& stream, const CahStatus& status);

// ---------------------------------------------------------------- firmware update

// WSDK_NotifyOTAStatus.
struct OtaStatus {
    std::optional<uint32_t> state;
    std::optional<uint32_t> percentage;
    std::optional<uint32_t> error;
};
MemoryStream& operator<<(MemoryStream& stream, const OtaStatus& status);

// Whether an update in this state failed, so that its error says why.
bool OtaStateHasError(uint32_t state);

// ---------------------------------------------------------------- live stream

enum : uint32_t {
    kWmsIdle = 0,
    kWmsCompleteStayOn = 5,
    kWmsFailedStayOn = 7,
    kWmsConfig = 17,
    kWmsReady = 18,
    kWmsStreaming = 19,
    kWmsReconnecting = 21,
};

enum : uint32_t {
    kSdCardFull = 1,
    kSdCardRemoved = 2,
};

constexpr uint32_t kLiveStreamEncoding = 1;  // value of the encode setting

// What one camera model's live stream can do.
struct LiveStreamAbilities {
    std::span<const int32_t> windowSizes;  // WSDK_EnumWindowSize
    std::span<const int32_t> lenses;       // WSDK_EnumLens
    bool encodeSupported = false;
    bool lensSupported = false;  // absent from the message when false
};
LiveStreamAbilities LiveStreamAbilitiesOf(uint8_t modelNumber);

// WSDK_NotifyLiveStreamStatus. The abilities and bitrate limits are in answers only.
struct LiveStreamStatus {
    int32_t status = 0;
    uint32_t error = 0;
    bool encode = false;
    uint32_t bitrate = 0;
    std::optional<LiveStreamAbilities> abilities;
};
MemoryStream& operator<<(MemoryStream& stream, const LiveStreamStatus& status);

// The live_stream_status of a WMS state; none for a state that clients are not told of.
std::optional<int32_t> LiveStreamStatusOfWms(uint32_t wms);
// The live_stream_error while the stream is encoded to the card: what is wrong with the card comes before the stream's
// own error, a removed card only in the states that write to it.
uint32_t LiveStreamErrorWhileEncoding(uint32_t wms, uint32_t sdCard, uint32_t streamError);
