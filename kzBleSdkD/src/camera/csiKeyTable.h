// The CSI keys that the daemon subscribes to, one row a key: what a new value does and what clients are notified of.
// Adding a key is adding its row; a client notification with a new field needs its writer in featurePush.cpp as well.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "csi/csiKeys.h"
#include "dispatchTable.h"

// What the daemon itself does when a key's value changes; csiInbox.cpp has the actions. kUploadProgress keeps the
// clients from being notified of a text that cannot be read, kSdCard while the live stream is idle.
enum class CsiAction : uint8_t {
    kNone,
    kBusy,
    kModelNumber,
    kPaused,
    kBattery,
    kExternalPower,
    kSdCard,
    kUploadProgress,
    kSystemState,
    kNewMedia,
};

// The notification that clients get when a key changes; featurePush.cpp builds it.
enum class CsiFeature : uint8_t { kNone, kPresets, kLiveStream, kOta, kCah };

// Special values of CsiKeyRow::field.
constexpr int kNotNotified = -1;  // clients are not notified at all
constexpr int kNoField = 0;       // the notification of the key is built without a field number

struct CsiKeyRow {
    uint8_t id;  // the key
    CsiAction action = CsiAction::kNone;
    CsiFeature feature = CsiFeature::kNone;
    int field = kNoField;  // of the value within its feature's message
};

// In the order of the subscription.
constexpr CsiKeyRow kCsiKeys[] = {
    {4},  // as 39: part of the subscription, but nothing here depends on the value
    {CSI_MODEL_NUMBER, CsiAction::kModelNumber, CsiFeature::kNone, kNotNotified},
    {CSI_DEVICE_MGR_STATE, CsiAction::kNone, CsiFeature::kCah, 1},
    {CSI_WOM_STATE, CsiAction::kNone, CsiFeature::kCah, 5},
    {CSI_CAHA_STATE, CsiAction::kNone, CsiFeature::kCah, 9},
    {CSI_CAH_FEATURE_ENABLE, CsiAction::kNone, CsiFeature::kCah, 14},
    {CSI_CAH_ACTIVE, CsiAction::kNone, CsiFeature::kCah, 13},
    {CSI_CAH_AUTH_STATE, CsiAction::kNone, CsiFeature::kCah, 15},
    {CSI_CAH_UPLOAD_PROGRESS, CsiAction::kUploadProgress, CsiFeature::kCah, 19},
    {CSI_CAMERA_BUSY, CsiAction::kBusy, CsiFeature::kNone, kNotNotified},
    {CSI_NEW_MEDIA, CsiAction::kNewMedia, CsiFeature::kNone, kNotNotified},
    {CSI_SD_CARD_STATE, CsiAction::kSdCard, CsiFeature::kLiveStream, 1},
    {CSI_ST_PAUSED, CsiAction::kPaused, CsiFeature::kNone, kNotNotified},
    {CSI_OTA_ERROR, CsiAction::kNone, CsiFeature::kNone, kNotNotified},
    {CSI_OTA_STATE, CsiAction::kNone, CsiFeature::kOta, 1},
    {CSI_OTA_PERCENTAGE, CsiAction::kNone, CsiFeature::kOta, 2},
    {CSI_FORCED_UPDATE},
    {CSI_WMS_STATE, CsiAction::kNone, CsiFeature::kLiveStream, 1},
    {CSI_LIVE_STREAM_ERROR, CsiAction::kNone, CsiFeature::kLiveStream, 1},
    {CSI_LIVE_STREAM_ENCODE, CsiAction::kNone, CsiFeature::kLiveStream, 1},
    {CSI_LIVE_STREAM_BITRATE, CsiAction::kNone, CsiFeature::kLiveStream, 1},
    {CSI_BATTERY_LEVEL, CsiAction::kBattery, CsiFeature::kNone, kNotNotified},
    {CSI_BATTERY_EXTERNAL_POWER, CsiAction::kExternalPower, CsiFeature::kNone, kNotNotified},
    {CSI_PRESETS_MODIFIED, CsiAction::kNone, CsiFeature::kPresets},
    {39},
    {CSI_BOOT_COUNT_BT},
    {CSI_BOOT_COUNT_RC},
    {CSI_BOOT_COUNT_AP},
    {CSI_WAKEUP_REASON},
    {CSI_SYSTEM_NOTIFY_EVENT},
    {CSI_SYSTEM_STATE, CsiAction::kSystemState, CsiFeature::kNone, kNotNotified},
    {CSI_CAH_AUTO_CLEAR, CsiAction::kNone, CsiFeature::kCah, 20},
};

static_assert(std::size(kCsiKeys) == 32);

inline constexpr DispatchTable kCsiKeyTable(kCsiKeys);

// The keys alone, in the order of the table.
constexpr std::array<uint8_t, std::size(kCsiKeys)> SubscribedCsiKeys() {
    std::array<uint8_t, std::size(kCsiKeys)> keys{};
    std::transform(std::begin(kCsiKeys), std::end(kCsiKeys), keys.begin(), [](const CsiKeyRow& row) { return row.id; });
    return keys;
}
