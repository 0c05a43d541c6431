// The preset notification: what a client is told when the camera's presets changed.
#pragma once

#include <cstddef>
#include <cstdint>

namespace wsdk_commands {
class WSDK_NotifyPresetStatus;
}

constexpr uint32_t kPresetReplySize = 2400;  // room for the control daemon's answer to KZCONTROL_PRESET_GET_PRESETS

// Which presets a notification carries in full; the others carry only their id.
struct PresetDetail {
    bool all = false;
    bool currentPreset = true;
    uint32_t currentPresetId = 0;
};

// Whether all presets are carried in full, by the cached values of CSI_PRESETS_MODIFIED and CSI_MODEL_NUMBER.
bool AllPresetsInFull(uint32_t presetsModified, uint32_t modelNumber);

// Copies groups and presets of `from` in order. Values outside their enumerations stay as they are.
void CopyPresetStatus(const wsdk_commands::WSDK_NotifyPresetStatus& from, const PresetDetail& detail,
                      wsdk_commands::WSDK_NotifyPresetStatus& to);
