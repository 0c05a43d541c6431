// What the camera's features are doing, in the form that answers and notifications share: the cloud upload (CAH), the
// firmware update (OTA) and the live stream. The query handler and the feature pushes fill plain structs from CSI
// values; numbers go out as the services gave them, also outside their enumerations.
//
// Each operator<< writes the fields that are set as a serialised message (WSDK_Notify*), byte for byte as the generated
// class would. The stream must have room for kMaxFeatureStatus bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

class MemoryStream;

constexpr size_t kMaxFeatureStatus = 20 * 12;  // at most 20 fields of at most 12 bytes

// One byte of a state word. Index 0, the least significant byte, is the state, 1 the category, 2 the sub-state, 3 the
// error.
constexpr uint8_t StateByte(uint32_t word, unsigned index) {
    return static_cast<uint8_t>(word >> (index * 8));
}

// ---------------------------------------------------------------- cloud upload

constexpr uint32_t kCsiErrorWord = 0x7F7F7F7F;  // every byte 127: the service could not be read
constexpr uint8_t kWomNotTriggered = 5;         // the WOM state without an upload; in any other the camera is busy

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

// Whether this state is that of a failed update, of which the error then says why it failed.
bool OtaStateHasError(uint32_t state);

// ---------------------------------------------------------------- live stream

constexpr uint32_t kLiveStreamEncoding = 1;  // value of CSI_LIVE_STREAM_ENCODE: the stream is recorded as well

// What one camera model's live stream can do.
struct LiveStreamAbilities {
    std::span<const int32_t> windowSizes;  // WSDK_EnumWindowSize
    std::span<const int32_t> lenses;       // WSDK_EnumLens
    bool encodeSupported = false;
    bool lensSupported = false;  // the message has the field only when it is true
};
LiveStreamAbilities LiveStreamAbilitiesOf(uint8_t modelNumber);

// WSDK_NotifyLiveStreamStatus. With `abilities`, which only answers have, it carries the bitrate limits too.
struct LiveStreamStatus {
    int32_t status = 0;
    uint32_t error = 0;
    bool encode = false;
    uint32_t bitrate = 0;
    std::optional<LiveStreamAbilities> abilities;
};
MemoryStream& operator<<(MemoryStream& stream, const LiveStreamStatus& status);

// The live_stream_status of a WMS state; nothing for a state that clients are not notified of.
std::optional<int32_t> LiveStreamStatusOfWms(uint32_t wms);
// The live_stream_error while the stream is recorded on the card: a full card counts before the stream's own error, and
// so does a removed card, but only in the states in which the camera writes to it.
uint32_t LiveStreamErrorWhileEncoding(uint32_t wms, uint32_t sdCard, uint32_t streamError);
