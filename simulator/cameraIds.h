// The numbers of the sample catalogue (data/58) that the camera's behaviour is written against.
#pragma once

#include <cstdint>

namespace kzsim {

namespace setting {
constexpr uint32_t kVideoResolution = 2;
constexpr uint32_t kFrameRate = 3;
constexpr uint32_t kVideoLens = 4;
constexpr uint32_t kVideoBitRate = 5;
constexpr uint32_t kLoopLength = 8;
constexpr uint32_t kVideoColour = 10;
constexpr uint32_t kVideoWhiteBalance = 11;
constexpr uint32_t kVideoSharpness = 12;
constexpr uint32_t kVideoExposure = 15;
constexpr uint32_t kPhotoLens = 17;
constexpr uint32_t kPhotoOutput = 19;
constexpr uint32_t kPhotoColour = 20;
constexpr uint32_t kPhotoWhiteBalance = 21;
constexpr uint32_t kPhotoExposure = 22;
constexpr uint32_t kPhotoTimer = 23;
constexpr uint32_t kPhotoInterval = 30;
constexpr uint32_t kNightShutter = 31;
constexpr uint32_t kNightInterval = 32;
constexpr uint32_t kBurstRate = 60;
constexpr uint32_t kTimeLapseInterval = 61;
constexpr uint32_t kStatusLights = 91;
constexpr uint32_t kDigitalZoomLock = 111;
constexpr uint32_t kStabilisation = 135;
}  // namespace setting

namespace status {
constexpr uint32_t kBatteryBars = 2;
constexpr uint32_t kExternalPower = 3;
constexpr uint32_t kBusy = 8;
constexpr uint32_t kEncoding = 10;
constexpr uint32_t kSecondsRecorded = 13;
constexpr uint32_t kIntervalsCaptured = 15;
constexpr uint32_t kPairingState = 19;
constexpr uint32_t kClientsConnected = 31;
constexpr uint32_t kCardState = 33;
constexpr uint32_t kPhotosLeft = 34;
constexpr uint32_t kVideoSecondsLeft = 35;
constexpr uint32_t kPhotos = 38;
constexpr uint32_t kVideos = 39;
constexpr uint32_t kCaptureMode = 43;
constexpr uint32_t kCaptureSubMode = 44;
constexpr uint32_t kLocating = 45;
constexpr uint32_t kBytesFree = 54;
constexpr uint32_t kMomentsTagged = 58;
constexpr uint32_t kInContextualMenu = 63;
constexpr uint32_t kAccessPointOn = 69;
constexpr uint32_t kBatteryPercent = 70;
constexpr uint32_t kNetworkBand = 76;
constexpr uint32_t kReady = 82;
constexpr uint32_t kFlatMode = 89;
constexpr uint32_t kPresetGroup = 96;
constexpr uint32_t kPreset = 97;
constexpr uint32_t kModifiedPreset = 98;
constexpr uint32_t kSpeedRamp = 103;
constexpr uint32_t kSpeedRampActive = 104;
constexpr uint32_t kControlOwner = 114;
}  // namespace status

// Values of status kCardState.
enum : uint32_t { kCardUsable = 0, kCardFull = 1, kCardRemoved = 2 };

// Values of CSI key CSI_WOM_STATE: state, category, sub, error, low byte first. The cloud's protocol knows one category
// and one sub only.
constexpr uint32_t kWomNoDetail = 0x007f7f00;
constexpr uint32_t kWomNotTriggered = kWomNoDetail | 5;
constexpr uint32_t kWomUploading = kWomNoDetail | 12;

// Values of status kCaptureMode.
enum : uint32_t { kModeVideo = 0, kModePhoto = 1, kModeTimeLapse = 2, kModeCount = 3 };

}  // namespace kzsim
