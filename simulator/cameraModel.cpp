// Values and records of the camera; what it does is in cameraLife.cpp.
#include "cameraModel.h"

#include <nlohmann/json.hpp>
#include <stdexcept>

#include "cameraIds.h"
#include "csi/csiKeys.h"
#include "utils.h"

namespace kzsim {
namespace {

using Json = nlohmann::json;

// Status ids whose values are texts, and those that have no value at all.
constexpr uint32_t kTextStatuses[] = {29, 30, 40};
constexpr uint32_t kStatusesWithoutValue[] = {0, 5, 7, 12, 18, 25, 50, 51, 52, 53, 92};
constexpr size_t kLongestText = 255;  // what one length byte on the air can tell

template <size_t N>
bool oneOf(const uint32_t (&ids)[N], uint32_t id) {
    return std::find(std::begin(ids), std::end(ids), id) != std::end(ids);
}

// CSI values a camera has from the start. The rest appear when somebody sets them.
constexpr struct {
    uint8_t key;
    uint32_t value;
} kFirstCsi[] = {
    {CSI_CAMERA_BUSY, 0},
    {CSI_LIVE_STREAM_ENCODE, 0},
    {CSI_PRESETS_MODIFIED, 0},
    {CSI_LIVE_STREAM_ERROR, 0},
    {CSI_CONNECTED_ACCESSORY, 0},
    {CSI_LIVE_STREAM_BITRATE, 0},
    {CSI_LIVE_STREAM_LENS, 0},
    {CSI_SYSTEM_NOTIFY_EVENT, 0},
    {CSI_ST_PAUSED, 0},
    {CSI_OTA_ERROR, 0},
    {CSI_OTA_PERCENTAGE, 0},
    {CSI_OTA_STATE, 0},
    {CSI_BATTERY_LEVEL, 80},
    {CSI_WAKEUP_REASON, 0},
    {CSI_BATTERY_EXTERNAL_POWER, 0},
    {CSI_SD_CARD_STATE, kCardUsable},
    {CSI_WMS_REQUEST, 0},
    {CSI_WMS_STATE, 0},
    {CSI_DEVICE_MGR_STATE, 0},
    {CSI_WOM_STATE, kWomNotTriggered},
    {CSI_CAHA_STATE, 0},
    {CSI_CAH_FEATURE_ENABLE, 1},
    {CSI_CAH_ACTIVE, 0},
    {CSI_CAH_AUTH_STATE, 0},
    {CSI_SYSTEM_STATE, SYS_RESUMED},
    {CSI_CAH_STICKY_ERR, 0},
    {CSI_CAH_SERVER, 0},
    {CSI_NEW_MEDIA, 0},
    {CSI_BOOT_COUNT_BT, 0},
    {CSI_BOOT_COUNT_RC, 0},
    {CSI_BOOT_COUNT_AP, 0},
    {CSI_FORCED_UPDATE, 0},
    {CSI_ACCESSORY_UPDATE, 0},
    {CSI_CAH_AUTO_CLEAR, 0},
};

void putText(std::array<uint8_t, CameraModel::kInfoSize>& record, size_t offset, size_t size, std::string_view text) {
    std::memcpy(record.data() + offset, text.data(), std::min(text.size(), size - 1));
}

}  // namespace

CameraModel::CameraModel(Catalogue catalogue, uint8_t modelNumber)
    : m_catalogue(std::move(catalogue)), m_modelNumber(modelNumber) {
    for (const auto& [id, one] : m_catalogue.settings()) {
        m_settings[id] = one.options.empty() ? 0 : one.options.front();
    }
    m_firstSettings = m_settings;
    for (const auto& [id, name] : m_catalogue.statuses()) {
        if (!oneOf(kStatusesWithoutValue, id)) {
            m_statuses[id] = oneOf(kTextStatuses, id) ? StatusValue(std::string()) : StatusValue(uint64_t{0});
        }
    }
    for (const auto& first : kFirstCsi) {
        m_csi[first.key] = bytesOf(first.value);
    }
    m_csi[CSI_MODEL_NUMBER] = bytesOf(uint32_t{modelNumber});
    m_csi[CSI_CAH_UPLOAD_PROGRESS] = bytesOfText("0:0:0");
    m_csi[CSI_CAH_ASSOCIATION_STATE] = Bytes(1, 0);  // no user
    m_csi[CSI_CLIENT_ID] = bytesOfText("camera-client-0042");
}

void CameraModel::applyState(const std::string& json) {
    try {
        const Json root = Json::parse(json);
        const Json settings = root.value("settings", Json::object());
        for (const auto& [id, value] : settings.items()) {
            m_settings[static_cast<uint32_t>(std::stoul(id))] = value.get<uint32_t>();
        }
        m_firstSettings = m_settings;
        const Json statuses = root.value("status", Json::object());
        for (const auto& [id, value] : statuses.items()) {
            StatusValue& stored = m_statuses[static_cast<uint32_t>(std::stoul(id))];
            if (value.is_string()) {
                stored = value.get<std::string>();
            } else {
                stored = value.get<uint64_t>();
            }
        }
    } catch (const std::exception& error) {
        throw std::runtime_error(std::string("the state document makes no sense: ") + error.what());
    }
    m_activePreset = statusNumber(status::kPreset);
    m_csi[CSI_BATTERY_LEVEL] = bytesOf(statusNumber(status::kBatteryPercent));
    m_csi[CSI_SD_CARD_STATE] = bytesOf(statusNumber(status::kCardState));
}

// ---------------------------------------------------------------- settings and status

Catalogue::CurrentValue CameraModel::currentValues() const {
    return [this](Catalogue::Kind kind, uint32_t id) -> std::optional<uint64_t> {
        if (kind == Catalogue::Kind::Setting) {
            const auto found = m_settings.find(id);
            return found == m_settings.end() ? std::nullopt : std::optional<uint64_t>(found->second);
        }
        const auto found = m_statuses.find(id);
        const auto* const number = found == m_statuses.end() ? nullptr : std::get_if<uint64_t>(&found->second);
        return number == nullptr ? std::nullopt : std::optional<uint64_t>(*number);
    };
}

bool CameraModel::accepts(uint32_t settingId, uint32_t option) const {
    return m_catalogue.accepts(settingId, option, currentValues());
}

uint32_t CameraModel::firstAccepted(uint32_t settingId) const {
    for (const uint32_t option : m_catalogue.settings().at(settingId).options) {
        if (accepts(settingId, option)) {
            return option;
        }
    }
    return m_settings.at(settingId);
}

void CameraModel::storeSetting(uint32_t settingId, uint32_t value) {
    m_settings[settingId] = value;
    onSetting(settingId);
}

void CameraModel::noteInActivePreset(uint32_t settingId) {
    if (m_presets.noteSetting(m_activePreset, settingId, m_settings.at(settingId))) {
        setStatus(status::kModifiedPreset, uint64_t{m_activePreset});
        announcePresets(PresetChange::Modified);
    }
}

void CameraModel::settleDependents(uint32_t settingId) {
    for (const uint32_t dependent : m_catalogue.dependents(settingId)) {
        const auto current = m_settings.find(dependent);
        const bool known = current != m_settings.end() && m_catalogue.settings().count(dependent) != 0;
        if (known && !accepts(dependent, current->second)) {
            storeSetting(dependent, firstAccepted(dependent));
            noteInActivePreset(dependent);
        }
    }
}

int CameraModel::chooseSetting(uint32_t settingId, uint32_t option) {
    if (!accepts(settingId, option)) {
        return KZ_ERR_INVALID_PARAM;
    }
    storeSetting(settingId, option);
    noteInActivePreset(settingId);
    settleDependents(settingId);
    return KZ_OK;
}

void CameraModel::resetSettings(const std::vector<uint32_t>& settingIds) {
    for (const uint32_t id : settingIds) {
        const auto first = m_firstSettings.find(id);
        if (first != m_firstSettings.end() && m_settings[id] != first->second) {
            storeSetting(id, first->second);
            noteInActivePreset(id);
        }
    }
}

void CameraModel::forceSetting(uint32_t settingId, uint32_t value) {
    storeSetting(settingId, value);
}

uint32_t CameraModel::statusNumber(uint32_t statusId) const {
    const auto value = currentValues()(Catalogue::Kind::Status, statusId);
    return static_cast<uint32_t>(value.value_or(0));
}

void CameraModel::setStatus(uint32_t statusId, StatusValue value) {
    if (auto* const text = std::get_if<std::string>(&value); text != nullptr && text->size() > kLongestText) {
        text->resize(kLongestText);
    }
    const auto stored = m_statuses.find(statusId);
    if (stored != m_statuses.end() && stored->second == value) {
        return;
    }
    m_statuses[statusId] = std::move(value);
    onStatus(statusId);
}

void CameraModel::addToStatus(uint32_t statusId, int64_t amount) {
    const auto found = m_statuses.find(statusId);
    const auto* const number = found == m_statuses.end() ? nullptr : std::get_if<uint64_t>(&found->second);
    if (number == nullptr) {
        return;  // this catalogue has no such counter
    }
    const int64_t sum = static_cast<int64_t>(*number) + amount;
    setStatus(statusId, static_cast<uint64_t>(std::max<int64_t>(sum, 0)));
}

// ---------------------------------------------------------------- CSI

std::optional<Bytes> CameraModel::csi(uint8_t key) const {
    const auto found = m_csi.find(key);
    return found == m_csi.end() ? std::nullopt : std::optional<Bytes>(found->second);
}

uint32_t CameraModel::csiNumber(uint8_t key) const {
    return numberAt<uint32_t>(csi(key).value_or(Bytes()));
}

void CameraModel::setCsi(uint8_t key, Bytes value) {
    m_csi[key] = std::move(value);
    onCsi(key);
}

// ---------------------------------------------------------------- former values

void CameraModel::restoreSetting(uint32_t settingId, std::optional<uint32_t> value) {
    value.has_value() ? forceSetting(settingId, *value) : static_cast<void>(m_settings.erase(settingId));
}

void CameraModel::restoreStatus(uint32_t statusId, std::optional<StatusValue> value) {
    value.has_value() ? setStatus(statusId, std::move(*value)) : static_cast<void>(m_statuses.erase(statusId));
}

void CameraModel::restoreCsi(uint8_t key, std::optional<Bytes> value) {
    value.has_value() ? setCsi(key, std::move(*value)) : static_cast<void>(m_csi.erase(key));
}

// ---------------------------------------------------------------- records

std::array<uint8_t, CameraModel::kInfoSize> CameraModel::information() const {
    std::array<uint8_t, kInfoSize> record{};
    const uint32_t model = m_modelNumber;
    std::memcpy(record.data(), &model, sizeof model);
    const char* const name = get_model_name(m_modelNumber);
    putText(record, 4, 65, std::string("Camera ") + (name == nullptr ? "?" : name));
    putText(record, 69, 65, "0x05");
    putText(record, 134, 65, "Z58.01.02.30.00");
    putText(record, 199, 65, "ZV580042000042");
    putText(record, 264, 33, "ZV-58-0042");
    putText(record, 297, 65, "02005e100042");
    record[362] = 1;
    putText(record, 368, 65, "ZV58");
    record[433] = 1;
    return record;
}

// offset width field
//    198     1 battery percent, signed
//    199     1 charging
//    200     1 battery bars
//    209     1 system busy
std::array<uint8_t, CameraModel::kAllStatusSize> CameraModel::allStatus() const {
    std::array<uint8_t, kAllStatusSize> record{};
    record[198] = static_cast<uint8_t>(statusNumber(status::kBatteryPercent));
    record[199] = static_cast<uint8_t>(statusNumber(status::kExternalPower));
    record[200] = static_cast<uint8_t>(statusNumber(status::kBatteryBars));
    record[209] = static_cast<uint8_t>(statusNumber(status::kBusy));
    return record;
}

}  // namespace kzsim
