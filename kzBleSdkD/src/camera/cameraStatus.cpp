#include "cameraStatus.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <string_view>

#include "csi/csiKeys.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

// Reads a decimal number, which blanks and a sign may precede. Returns false and leaves `number` alone when `text` does
// not begin with one.
bool ReadDecimal(std::string_view text, int32_t& number) {
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
    if (text.starts_with('+') && !text.starts_with("+-")) {
        text.remove_prefix(1);
    }
    return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
}

}  // namespace

// ---------------------------------------------------------------- notifications

void CameraStatus::Store(const csiStruct& record) {
    m_lastCsiKey = record.key;
    if (record.key == CSI_CAH_UPLOAD_PROGRESS) {
        return;
    }
    if (record.length > sizeof(m_csiCache[record.key])) {
        LOG_ERROR("size error on csi %d", record.key);
        return;
    }
    std::memcpy(&m_csiCache[record.key], record.value, record.length);
}

bool CameraStatus::StoreCAHUploadProgress(const csiStruct* record) {
    std::string_view text(reinterpret_cast<const char*>(record->value), record->length);
    for (int32_t* number : {&m_cahProgress.currentFile, &m_cahProgress.totalFiles, &m_cahProgress.percentage}) {
        const size_t colon = text.find(':');
        if (!ReadDecimal(text.substr(0, colon), *number)) {
            return false;
        }
        text = colon == std::string_view::npos ? std::string_view() : text.substr(colon + 1);
    }
    return true;
}

void CameraStatus::TakeModelNumber() {
    m_modelNumber = static_cast<uint8_t>(m_csiCache[CSI_MODEL_NUMBER]);
}

void CameraStatus::TakePaused() {
    m_stInputs.paused = static_cast<uint8_t>(m_csiCache[CSI_ST_PAUSED]);
}

void CameraStatus::TakeSdCard() {
    m_stInputs.sdCardGood = SdCardGood(m_csiCache[CSI_SD_CARD_STATE]);
}

void CameraStatus::TakeNewMedia() {
    m_stInputs.newMedia = static_cast<uint8_t>(m_csiCache[CSI_NEW_MEDIA]);
}

// ---------------------------------------------------------------- readers

bool CameraStatus::IsSuspended() const {
    return m_csiCache[CSI_SYSTEM_STATE] == SYS_SUSPENDED_UNSAFE;
}

bool CameraStatus::IsForcedUpdate() const {
    return m_csiCache[CSI_FORCED_UPDATE] == 1;
}

// ---------------------------------------------------------------- the status byte

bool CameraStatus::SetCsiStStatus() {
    m_stInputs.batteryGood = BatteryGood(m_csiCache[CSI_BATTERY_EXTERNAL_POWER], m_csiCache[CSI_BATTERY_LEVEL]);
    m_stInputs.busy = static_cast<uint8_t>(m_csiCache[CSI_CAMERA_BUSY]);
    m_stInputs.st = StReady(m_stInputs);
    const uint8_t state = CsiStState(m_stInputs);
    if (state == m_lastStState) {
        LOG_INFO("st_state not changed");
        return false;
    }
    if (!m_stNotificationReady) {
        LOG_INFO("ST Notifications being setup, don't set CSI_ST");
        return false;
    }
    m_lastStState = state;
    const auto bit = [state](int position) { return state >> position & 1; };
    LOG_INFO("csi_st_state [paused=%d][busy=%d][sdcard=%d][batt=%d][new_media=%d][st=%d]", bit(5), bit(4), bit(3),
             bit(2), bit(1), bit(0));
    if (csi_set_no_rsp(CSI_ST_STATE, &state, sizeof(state)) != 0) {
        LOG_ERROR("Error setting CSI_ST_STATE = %d", state);
    }
    m_csiCache[CSI_ST_STATE] = state;
    return true;
}
