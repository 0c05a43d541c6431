// The camera's presets: groups of named sets of settings that a user switches between, edits and adds to.
//
// Plain data with its rules; the camera model (cameraModel.h) applies a preset and announces changes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kzsim {

struct PresetSetting {
    uint32_t id;
    uint32_t value;
    bool isCaption;  // shown under the preset's name
};

struct Preset {
    uint32_t id;
    int32_t flatMode;
    uint32_t title;
    uint32_t titleNumber;  // 0 for the first of a name
    uint32_t icon;
    bool userDefined;
    bool modified;
    std::vector<PresetSetting> settings;
};

struct PresetGroup {
    uint32_t id;
    uint32_t icon;
    std::vector<Preset> presets;
};

// What happened to the presets, as the high byte of CSI key 7 tells it.
enum class PresetChange : uint8_t {
    Loaded = 1,
    Modified = 2,
    Reordered = 3,
    EditStarted = 4,
    EditCancelled = 5,
    EditStored = 6,
    Created = 7,
    Removed = 8,
    FactoryReset = 9,
};

class PresetStore {
  public:
    // The answer to "get presets" must stay below this many bytes; a preset that would reach it is not created.
    static constexpr size_t kStatusSizeLimit = 2400;

    PresetStore();

    const std::vector<PresetGroup>& groups() const { return m_groups; }
    const Preset* find(uint32_t id) const;
    const PresetGroup* group(uint32_t groupId) const;
    // The group that holds the preset.
    const PresetGroup* groupOf(uint32_t presetId) const;
    // Presets of a running live stream exist beside the groups.
    static bool isStreaming(uint32_t presetId);

    // Adds a preset with the settings of the group's first of that flat mode, or of its first. Its id; nothing when the
    // group is unknown or there is no room.
    std::optional<uint32_t> create(uint32_t groupId, int32_t flatMode, uint32_t icon, uint32_t title,
                                   uint32_t titleNumber);
    // Only presets that users made can go.
    bool remove(uint32_t id);
    // Moves the preset to position `order` (from 0) of its group; beyond the last is the last.
    bool move(uint32_t id, uint32_t order);
    // Back to how the camera came; a preset that users made only loses its modified mark.
    bool factoryReset(uint32_t id);
    bool setTitleAndIcon(uint32_t id, uint32_t title, uint32_t icon);

    // One edit at a time: cancel brings the preset back as it was at the start, store keeps what it has become.
    bool startEdit(uint32_t id);
    std::optional<uint32_t> cancelEdit();
    std::optional<uint32_t> storeEdit();
    bool editing() const { return m_beforeEdit.has_value(); }

    // A setting was changed while `presetId` is active. True when that changed the preset.
    bool noteSetting(uint32_t presetId, uint32_t settingId, uint32_t value);

    // All groups as a serialised WSDK_NotifyPresetStatus, fewer than kStatusSizeLimit bytes.
    std::string serialised() const;

  private:
    Preset* edit(uint32_t id);
    std::vector<Preset>* siblingsOf(uint32_t id);

    std::vector<PresetGroup> m_groups;
    std::optional<Preset> m_beforeEdit;
    uint32_t m_nextCustomId;
};

}  // namespace kzsim
