// The camera itself, shared by the roles that speak for it: its settings, its status, the CSI values, what it is doing
// and what it stores. A role changes it here and hears of every change through the three listeners below.
//
// One thread. Results named `int` are the control daemon's codes (utils.h): 0 done, negative refused with nothing
// changed.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>

#include "bytes.h"
#include "cameraClock.h"
#include "catalogue.h"
#include "presetStore.h"

namespace kzsim {

using StatusValue = std::variant<uint64_t, std::string>;

class CameraModel {
  public:
    CameraModel(Catalogue catalogue, uint8_t modelNumber);

    // Takes the values of a state document, in the form of the control daemon's pushes, in place of the ones the
    // catalogue alone gives (first option, 0, empty text). Throws std::runtime_error when it makes no sense.
    void applyState(const std::string& json);

    // Told after each change; never from inside each other.
    std::function<void(uint32_t settingId)> onSetting = [](uint32_t) {};
    std::function<void(uint32_t statusId)> onStatus = [](uint32_t) {};
    std::function<void(uint8_t key)> onCsi = [](uint8_t) {};

    uint8_t modelNumber() const { return m_modelNumber; }
    CameraClock& clock() { return m_clock; }
    const Catalogue& catalogue() const { return m_catalogue; }
    const PresetStore& presets() const { return m_presets; }

    // ------------------------------------------------------------ settings and status

    const std::map<uint32_t, uint32_t>& settings() const { return m_settings; }
    const std::map<uint32_t, StatusValue>& statuses() const { return m_statuses; }
    // Whether the option may be chosen now.
    bool accepts(uint32_t settingId, uint32_t option) const;
    // A user's choice: refused unless accepted. Settings that lose their option by it move to the first one left.
    int chooseSetting(uint32_t settingId, uint32_t option);
    // The first setting values again.
    void resetSettings(const std::vector<uint32_t>& settingIds);
    // Any value at all, as only the camera's insides could set it.
    void forceSetting(uint32_t settingId, uint32_t value);
    uint32_t statusNumber(uint32_t statusId) const;
    void setStatus(uint32_t statusId, StatusValue value);

    // ------------------------------------------------------------ CSI

    // The key's value; nothing when it was never set.
    std::optional<Bytes> csi(uint8_t key) const;
    const std::map<uint8_t, Bytes>& csiValues() const { return m_csi; }
    uint32_t csiNumber(uint8_t key) const;
    void setCsi(uint8_t key, Bytes value);
    void setCsiNumber(uint8_t key, uint32_t value) { setCsi(key, bytesOf(value)); }

    // A former value back in its place. Without one the setting, status or key is as if it had never been set, which
    // nobody is told.
    void restoreSetting(uint32_t settingId, std::optional<uint32_t> value);
    void restoreStatus(uint32_t statusId, std::optional<StatusValue> value);
    void restoreCsi(uint8_t key, std::optional<Bytes> value);

    // ------------------------------------------------------------ what it does

    bool capturing() const { return m_capture != Capture::None; }
    int startCapture();
    int stopCapture();
    // One second of life: counters of a running capture, end of a photo.
    void second();
    int setMode(uint32_t mode);
    int setSubMode(uint32_t subMode);
    int selectGroup(uint32_t groupId);
    int tagMoment();
    int deleteLast();
    int deleteAll();

    void setBattery(uint32_t percent);
    void setExternalPower(bool connected);
    void setCard(uint32_t cardState);  // kCardUsable, kCardFull, kCardRemoved; losing the card ends a capture
    void suspend();
    void resume();
    bool suspended() const;
    // A device of this type connected or went; `connections` remain. Connections of this boot are counted by kind.
    void connectionsChanged(size_t connections, uint8_t deviceType, bool opened);

    // ------------------------------------------------------------ presets

    uint32_t activePreset() const;
    int loadPreset(uint32_t presetId);
    std::optional<uint32_t> createPreset(uint32_t groupId, int32_t flatMode, uint32_t icon, uint32_t title,
                                         uint32_t titleNumber);
    int removePreset(uint32_t presetId);
    int movePreset(uint32_t presetId, uint32_t order);
    int factoryResetPreset(uint32_t presetId);
    int startPresetEdit(uint32_t presetId);
    int cancelPresetEdit();
    int storePresetEdit();
    int retitleActivePreset(uint32_t title, uint32_t icon);

    // ------------------------------------------------------------ records the control daemon hands out

    static constexpr size_t kInfoSize = 434;
    static constexpr size_t kAllStatusSize = 394;
    std::array<uint8_t, kInfoSize> information() const;
    std::array<uint8_t, kAllStatusSize> allStatus() const;

  private:
    enum class Capture { None, Photo, Video, TimeLapse };

    Catalogue::CurrentValue currentValues() const;
    uint32_t firstAccepted(uint32_t settingId) const;
    void storeSetting(uint32_t settingId, uint32_t value);
    void noteInActivePreset(uint32_t settingId);
    void settleDependents(uint32_t settingId);
    void addToStatus(uint32_t statusId, int64_t amount);
    void endCapture();
    void enterMode(uint32_t mode);
    void applyPreset(const Preset& preset);
    int announcePresets(PresetChange change);

    Catalogue m_catalogue;
    uint8_t m_modelNumber;
    CameraClock m_clock;
    PresetStore m_presets;
    std::map<uint32_t, uint32_t> m_settings;
    std::map<uint32_t, uint32_t> m_firstSettings;
    std::map<uint32_t, StatusValue> m_statuses;
    std::map<uint8_t, Bytes> m_csi;
    Capture m_capture = Capture::None;
    uint32_t m_activePreset = 0;
    uint32_t m_presetChanges = 0;
};

}  // namespace kzsim
