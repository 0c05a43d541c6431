// The presets of the camera as clients are notified of them and as they get them for an answer.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kzCtrlD/kzCtrlRecords.h"

namespace wsdk_commands {
class WSDK_NotifyPresetStatus;
}

constexpr uint32_t kPresetReplySize =
    KZ_PRESETS_REPLY_SIZE;  // room for the control daemon's answer to KZCONTROL_PRESET_GET_PRESETS

// Which presets a notification carries in full. Of the others it carries only the id.
struct PresetDetail {
    bool all = false;
    bool currentPreset = true;  // the preset with currentPresetId
    uint32_t currentPresetId = 0;
};

// Whether the cached values of CSI_PRESETS_MODIFIED and CSI_MODEL_NUMBER ask for all presets in full.
bool AllPresetsInFull(uint32_t presetsModified, uint32_t modelNumber);

// Appends the groups of `from` with their presets to `to`, in their order. Numbers outside their enumerations stay as
// they are.
void CopyPresetStatus(const wsdk_commands::WSDK_NotifyPresetStatus& from, const PresetDetail& detail,
                      wsdk_commands::WSDK_NotifyPresetStatus& to);
