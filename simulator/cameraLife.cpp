// What the camera does: captures, power, card, presets.
#include <algorithm>

#include "cameraIds.h"
#include "cameraModel.h"
#include "csi/csiKeys.h"
#include "report.h"
#include "skylark/bleMessage.h"
#include "utils.h"

namespace kzsim {
namespace {

constexpr int64_t kVideoBytesPerSecond = 12500000;
constexpr int64_t kPhotoBytes = 5000000;
constexpr uint32_t kBarsOf[] = {5, 25, 50, 75};  // percent from which a bar more shows

struct Mode {
    uint32_t groupId;
    uint32_t lastPresetStatus;  // where the camera keeps the mode's last preset
};
constexpr Mode kModes[kModeCount] = {{1000, 93}, {1001, 94}, {1002, 95}};

}  // namespace

// ---------------------------------------------------------------- captures

int CameraModel::startCapture() {
    if (capturing()) {
        return KZ_OK;
    }
    const uint32_t card = statusNumber(status::kCardState);
    if (card == kCardRemoved) {
        return KZ_ERR_NO_SDCARD;
    }
    if (card == kCardFull) {
        return KZ_ERR_SDCARD_FULL;
    }
    const uint32_t mode = statusNumber(status::kCaptureMode);
    m_capture = mode == kModePhoto ? Capture::Photo : mode == kModeTimeLapse ? Capture::TimeLapse : Capture::Video;
    report("camera", "capture starts in mode %u", mode);
    setStatus(status::kSecondsRecorded, uint64_t{0});
    setStatus(status::kIntervalsCaptured, uint64_t{0});
    setStatus(status::kBusy, uint64_t{1});
    setStatus(status::kEncoding, uint64_t{1});
    setCsiNumber(CSI_CAMERA_BUSY, 1);
    return KZ_OK;
}

int CameraModel::stopCapture() {
    if (capturing()) {
        endCapture();
    }
    return KZ_OK;
}

void CameraModel::endCapture() {
    report("camera", "capture ends");
    addToStatus(m_capture == Capture::Video ? status::kVideos : status::kPhotos, 1);
    m_capture = Capture::None;
    setStatus(status::kEncoding, uint64_t{0});
    setStatus(status::kBusy, uint64_t{0});
    setCsiNumber(CSI_CAMERA_BUSY, 0);
    setCsiNumber(CSI_NEW_MEDIA, 1);
}

void CameraModel::second() {
    switch (m_capture) {
        case Capture::None:
            return;
        case Capture::Photo:
            addToStatus(status::kPhotosLeft, -1);
            addToStatus(status::kBytesFree, -kPhotoBytes);
            endCapture();
            return;
        case Capture::TimeLapse:
            addToStatus(status::kIntervalsCaptured, 1);
            addToStatus(status::kPhotosLeft, -1);
            addToStatus(status::kBytesFree, -kPhotoBytes);
            return;
        case Capture::Video:
            addToStatus(status::kSecondsRecorded, 1);
            addToStatus(status::kVideoSecondsLeft, -1);
            addToStatus(status::kBytesFree, -kVideoBytesPerSecond);
            if (m_statuses.count(status::kVideoSecondsLeft) != 0 && statusNumber(status::kVideoSecondsLeft) == 0) {
                setCard(kCardFull);
            }
            return;
    }
}

int CameraModel::tagMoment() {
    addToStatus(status::kMomentsTagged, 1);
    return KZ_OK;
}

int CameraModel::deleteLast() {
    if (capturing()) {
        return KZ_ERR;
    }
    const uint32_t kind = statusNumber(status::kVideos) != 0 ? status::kVideos : status::kPhotos;
    if (statusNumber(kind) == 0) {
        return KZ_ERR;
    }
    addToStatus(kind, -1);
    return KZ_OK;
}

int CameraModel::deleteAll() {
    if (capturing()) {
        return KZ_ERR;
    }
    setStatus(status::kVideos, uint64_t{0});
    setStatus(status::kPhotos, uint64_t{0});
    setCsiNumber(CSI_NEW_MEDIA, 0);
    return KZ_OK;
}

// ---------------------------------------------------------------- modes

int CameraModel::setMode(uint32_t mode) {
    if (mode >= kModeCount) {
        return KZ_ERR_INVALID_PARAM;
    }
    return selectGroup(kModes[mode].groupId);
}

int CameraModel::setSubMode(uint32_t subMode) {
    setStatus(status::kCaptureSubMode, uint64_t{subMode & 0xff});
    return KZ_OK;
}

int CameraModel::selectGroup(uint32_t groupId) {
    if (capturing()) {
        return KZ_ERR;
    }
    const PresetGroup* const group = m_presets.group(groupId);
    if (group == nullptr || group->presets.empty()) {
        return KZ_ERR_INVALID_PARAM;
    }
    const auto mode = std::find_if(std::begin(kModes), std::end(kModes),
                                   [groupId](const Mode& one) { return one.groupId == groupId; });
    const uint32_t last = mode == std::end(kModes) ? 0 : statusNumber(mode->lastPresetStatus);
    const PresetGroup* const lastGroup = m_presets.groupOf(last);
    return loadPreset(lastGroup == group ? last : group->presets.front().id);
}

void CameraModel::enterMode(uint32_t mode) {
    setStatus(status::kCaptureMode, uint64_t{mode});
    setStatus(kModes[mode].lastPresetStatus, uint64_t{m_activePreset});
}

// ---------------------------------------------------------------- power and card

void CameraModel::setBattery(uint32_t percent) {
    const uint32_t level = std::min(percent, 100u);
    const auto bars = std::count_if(std::begin(kBarsOf), std::end(kBarsOf),
                                    [level](uint32_t threshold) { return level >= threshold; });
    setStatus(status::kBatteryPercent, uint64_t{level});
    setStatus(status::kBatteryBars, static_cast<uint64_t>(bars));
    setCsiNumber(CSI_BATTERY_LEVEL, level);
}

void CameraModel::setExternalPower(bool connected) {
    setStatus(status::kExternalPower, uint64_t{connected});
    setCsiNumber(CSI_BATTERY_EXTERNAL_POWER, connected ? 1 : 0);
}

void CameraModel::setCard(uint32_t cardState) {
    setStatus(status::kCardState, uint64_t{cardState});
    setCsiNumber(CSI_SD_CARD_STATE, cardState);
    if (cardState != kCardUsable && capturing()) {
        endCapture();
    }
}

void CameraModel::suspend() {
    if (capturing()) {
        endCapture();
    }
    setStatus(status::kReady, uint64_t{0});
    setCsiNumber(CSI_SYSTEM_STATE, SYS_SUSPENDED_UNSAFE);
}

void CameraModel::resume() {
    setStatus(status::kReady, uint64_t{1});
    setCsiNumber(CSI_SYSTEM_STATE, SYS_RESUMED);
}

bool CameraModel::suspended() const {
    return csiNumber(CSI_SYSTEM_STATE) == SYS_SUSPENDED_UNSAFE;
}

void CameraModel::connectionsChanged(size_t connections, uint8_t deviceType, bool opened) {
    setStatus(status::kClientsConnected, static_cast<uint64_t>(connections));
    if (opened) {
        const bool isRemote = deviceType == KZ_CALLER_ALDER || deviceType == KZ_CALLER_MAPLE;
        const uint8_t counter = isRemote ? CSI_BOOT_COUNT_RC : CSI_BOOT_COUNT_BT;
        setCsiNumber(counter, csiNumber(counter) + 1);
    }
}

// ---------------------------------------------------------------- presets

uint32_t CameraModel::activePreset() const {
    return m_activePreset;
}

void CameraModel::applyPreset(const Preset& preset) {
    for (const PresetSetting& one : preset.settings) {
        const auto current = m_settings.find(one.id);
        if (current != m_settings.end() && current->second != one.value) {
            storeSetting(one.id, one.value);
        }
    }
    setStatus(status::kFlatMode, static_cast<uint64_t>(preset.flatMode));
}

int CameraModel::loadPreset(uint32_t presetId) {
    if (capturing()) {
        return KZ_ERR;
    }
    if (PresetStore::isStreaming(presetId)) {
        m_activePreset = presetId;
        setStatus(status::kPreset, uint64_t{presetId});
        return announcePresets(PresetChange::Loaded);
    }
    const Preset* const preset = m_presets.find(presetId);
    if (preset == nullptr) {
        return KZ_ERR_INVALID_PARAM;
    }
    const uint32_t groupId = m_presets.groupOf(presetId)->id;
    m_activePreset = presetId;
    applyPreset(*preset);
    for (uint32_t mode = 0; mode < kModeCount; ++mode) {
        if (kModes[mode].groupId == groupId) {
            enterMode(mode);
        }
    }
    setStatus(status::kPresetGroup, uint64_t{groupId});
    setStatus(status::kPreset, uint64_t{presetId});
    return announcePresets(PresetChange::Loaded);
}

std::optional<uint32_t> CameraModel::createPreset(uint32_t groupId, int32_t flatMode, uint32_t icon, uint32_t title,
                                                  uint32_t titleNumber) {
    const auto created = m_presets.create(groupId, flatMode, icon, title, titleNumber);
    if (created.has_value()) {
        announcePresets(PresetChange::Created);
    }
    return created;
}

int CameraModel::removePreset(uint32_t presetId) {
    const PresetGroup* const group = m_presets.groupOf(presetId);
    if (!m_presets.remove(presetId)) {
        return KZ_ERR_INVALID_PARAM;
    }
    if (presetId == m_activePreset) {
        loadPreset(group->presets.front().id);
    }
    return announcePresets(PresetChange::Removed);
}

int CameraModel::movePreset(uint32_t presetId, uint32_t order) {
    return m_presets.move(presetId, order) ? announcePresets(PresetChange::Reordered) : int{KZ_ERR_INVALID_PARAM};
}

int CameraModel::factoryResetPreset(uint32_t presetId) {
    if (!m_presets.factoryReset(presetId)) {
        return KZ_ERR_INVALID_PARAM;
    }
    if (presetId == m_activePreset) {
        applyPreset(*m_presets.find(presetId));
    }
    return announcePresets(PresetChange::FactoryReset);
}

int CameraModel::startPresetEdit(uint32_t presetId) {
    if (capturing() || !m_presets.startEdit(presetId)) {
        return KZ_ERR_INVALID_PARAM;
    }
    loadPreset(presetId);
    return announcePresets(PresetChange::EditStarted);
}

int CameraModel::cancelPresetEdit() {
    const auto preset = m_presets.cancelEdit();
    if (!preset.has_value()) {
        return KZ_ERR;
    }
    if (*preset == m_activePreset) {
        applyPreset(*m_presets.find(*preset));
    }
    return announcePresets(PresetChange::EditCancelled);
}

int CameraModel::storePresetEdit() {
    return m_presets.storeEdit().has_value() ? announcePresets(PresetChange::EditStored) : int{KZ_ERR};
}

int CameraModel::retitleActivePreset(uint32_t title, uint32_t icon) {
    return m_presets.setTitleAndIcon(m_activePreset, title, icon) ? announcePresets(PresetChange::EditStored)
                                                                  : int{KZ_ERR_INVALID_PARAM};
}

// Key 7 is never 0 after the first change: the high byte says what happened, the rest counts.
int CameraModel::announcePresets(PresetChange change) {
    m_presetChanges = (m_presetChanges + 1) & 0xffffff;
    setCsiNumber(CSI_PRESETS_MODIFIED, static_cast<uint32_t>(change) << 24 | m_presetChanges);
    return KZ_OK;
}

}  // namespace kzsim
