#include "presetStore.h"

#include <algorithm>

#include "cameraIds.h"
#include "wsdkCommands/WSDK_NotifyPresetStatus.pb.h"

namespace kzsim {
namespace {

constexpr uint32_t kFirstCustomId = 0x80000;
constexpr size_t kRoomForLargerValues =
    300;  // settings of the presets may grow by some bytes each when they are edited
constexpr uint32_t kStreamingHighBits[] = {6, 7};

// The presets the camera comes with.
std::vector<PresetGroup> factoryGroups() {
    using namespace setting;
    const auto video = [](uint32_t id, int32_t mode, uint32_t title, uint32_t icon, uint32_t resolution, uint32_t rate,
                          uint32_t lens) {
        return Preset{id,
                      mode,
                      title,
                      0,
                      icon,
                      false,
                      false,
                      {{kVideoResolution, resolution, true},
                       {kFrameRate, rate, true},
                       {kVideoLens, lens, true},
                       {kStabilisation, 1, false},
                       {kVideoColour, 0, false}}};
    };
    const auto photo = [](uint32_t id, int32_t mode, uint32_t title, uint32_t icon, std::vector<PresetSetting> own) {
        own.insert(own.begin(), {kPhotoLens, 0, true});
        own.push_back({kPhotoColour, 0, false});
        return Preset{id, mode, title, 0, icon, false, false, std::move(own)};
    };
    return {
        {1000,
         0,
         {video(0x00000, 12, 1, 0, 1, 5, 0), video(0x00001, 12, 0, 1, 4, 1, 0), video(0x00002, 12, 2, 2, 24, 8, 4),
          video(0x00003, 27, 11, 10, 9, 1, 0), video(0x00004, 15, 33, 33, 9, 5, 0)}},
        {1001,
         1,
         {photo(0x10000, 17, 3, 3, {{kPhotoOutput, 0, true}, {kPhotoTimer, 0, false}}),
          photo(0x10001, 19, 5, 5, {{kBurstRate, 30, true}}), photo(0x10002, 18, 6, 6, {{kNightShutter, 0, true}}),
          photo(0x10003, 16, 4, 4, {{kPhotoInterval, 0, false}})}},
        {1002,
         2,
         {photo(0x20000, 13, 8, 8, {{kTimeLapseInterval, 1000, true}}),
          photo(0x20001, 24, 7, 7, {{kVideoBitRate, 1, false}}),
          photo(0x20002, 26, 9, 9, {{kNightInterval, 4000, true}, {kNightShutter, 0, true}})}},
    };
}

void fill(wsdk_commands::WSDK_Preset& message, const Preset& preset) {
    message.set_id(static_cast<int32_t>(preset.id));
    message.set_mode(static_cast<wsdk_commands::WSDK_EnumFlatMode>(preset.flatMode));
    message.set_title_id(static_cast<wsdk_commands::WSDK_EnumPresetTitle>(preset.title));
    if (preset.titleNumber != 0) {
        message.set_title_number(static_cast<int32_t>(preset.titleNumber));
    }
    message.set_user_defined(preset.userDefined);
    message.set_icon(static_cast<wsdk_commands::WSDK_EnumPresetIcon>(preset.icon));
    for (const PresetSetting& one : preset.settings) {
        auto* entry = message.add_setting_array();
        entry->set_id(static_cast<int32_t>(one.id));
        entry->set_value(static_cast<int32_t>(one.value));
        entry->set_is_caption(one.isCaption);
    }
    message.set_is_modified(preset.modified);
    message.set_is_fixed(!preset.userDefined);
}

// Positions in a list of presets or groups, constant or not.
auto findPreset(auto& presets, uint32_t id) {
    return std::find_if(presets.begin(), presets.end(), [id](const Preset& preset) { return preset.id == id; });
}

auto findGroup(auto& groups, uint32_t id) {
    return std::find_if(groups.begin(), groups.end(), [id](const PresetGroup& one) { return one.id == id; });
}

auto findHolder(auto& groups, uint32_t presetId) {
    return std::find_if(groups.begin(), groups.end(), [presetId](const PresetGroup& one) {
        return findPreset(one.presets, presetId) != one.presets.end();
    });
}

bool knownEnumerations(int32_t flatMode, uint32_t icon, uint32_t title) {
    return wsdk_commands::WSDK_EnumFlatMode_IsValid(flatMode) &&
           wsdk_commands::WSDK_EnumPresetIcon_IsValid(static_cast<int>(icon)) &&
           wsdk_commands::WSDK_EnumPresetTitle_IsValid(static_cast<int>(title));
}

}  // namespace

PresetStore::PresetStore() : m_groups(factoryGroups()), m_nextCustomId(kFirstCustomId) {}

const Preset* PresetStore::find(uint32_t id) const {
    const PresetGroup* const holder = groupOf(id);
    return holder == nullptr ? nullptr : &*findPreset(holder->presets, id);
}

Preset* PresetStore::edit(uint32_t id) {
    std::vector<Preset>* const siblings = siblingsOf(id);
    return siblings == nullptr ? nullptr : &*findPreset(*siblings, id);
}

std::vector<Preset>* PresetStore::siblingsOf(uint32_t id) {
    const auto found = findHolder(m_groups, id);
    return found == m_groups.end() ? nullptr : &found->presets;
}

const PresetGroup* PresetStore::group(uint32_t groupId) const {
    const auto found = findGroup(m_groups, groupId);
    return found == m_groups.end() ? nullptr : &*found;
}

const PresetGroup* PresetStore::groupOf(uint32_t presetId) const {
    const auto found = findHolder(m_groups, presetId);
    return found == m_groups.end() ? nullptr : &*found;
}

bool PresetStore::isStreaming(uint32_t presetId) {
    const auto* const end = std::end(kStreamingHighBits);
    return std::find(std::begin(kStreamingHighBits), end, presetId >> 16) != end;
}

std::optional<uint32_t> PresetStore::create(uint32_t groupId, int32_t flatMode, uint32_t icon, uint32_t title,
                                            uint32_t titleNumber) {
    const auto target = findGroup(m_groups, groupId);
    if (target == m_groups.end() || !knownEnumerations(flatMode, icon, title)) {
        return std::nullopt;
    }
    const auto alike = std::find_if(target->presets.begin(), target->presets.end(),
                                    [flatMode](const Preset& preset) { return preset.flatMode == flatMode; });
    Preset created = alike == target->presets.end() ? target->presets.front() : *alike;
    created.id = m_nextCustomId;
    created.flatMode = flatMode;
    created.icon = icon;
    created.title = title;
    created.titleNumber = titleNumber;
    created.userDefined = true;
    created.modified = false;
    target->presets.push_back(created);
    if (serialised().size() + kRoomForLargerValues >= kStatusSizeLimit) {
        target->presets.pop_back();
        return std::nullopt;
    }
    return m_nextCustomId++;
}

bool PresetStore::remove(uint32_t id) {
    const Preset* const preset = find(id);
    if (preset == nullptr || !preset->userDefined) {
        return false;
    }
    std::erase_if(*siblingsOf(id), [id](const Preset& one) { return one.id == id; });
    if (m_beforeEdit.has_value() && m_beforeEdit->id == id) {
        m_beforeEdit.reset();
    }
    return true;
}

bool PresetStore::move(uint32_t id, uint32_t order) {
    std::vector<Preset>* const siblings = siblingsOf(id);
    if (siblings == nullptr) {
        return false;
    }
    const auto from = findPreset(*siblings, id);
    const auto to = siblings->begin() + static_cast<long>(std::min<size_t>(order, siblings->size() - 1));
    if (from < to) {
        std::rotate(from, from + 1, to + 1);
    } else {
        std::rotate(to, from, from + 1);
    }
    return true;
}

bool PresetStore::factoryReset(uint32_t id) {
    Preset* const preset = edit(id);
    if (preset == nullptr) {
        return false;
    }
    preset->modified = false;
    for (const PresetGroup& one : factoryGroups()) {
        for (const Preset& original : one.presets) {
            if (original.id == id) {
                *preset = original;
            }
        }
    }
    return true;
}

bool PresetStore::setTitleAndIcon(uint32_t id, uint32_t title, uint32_t icon) {
    Preset* const preset = edit(id);
    if (preset == nullptr || !preset->userDefined || !knownEnumerations(preset->flatMode, icon, title)) {
        return false;
    }
    preset->title = title;
    preset->icon = icon;
    return true;
}

bool PresetStore::startEdit(uint32_t id) {
    const Preset* const preset = find(id);
    if (preset == nullptr || editing()) {
        return false;
    }
    m_beforeEdit = *preset;
    return true;
}

std::optional<uint32_t> PresetStore::cancelEdit() {
    if (!editing()) {
        return std::nullopt;
    }
    const uint32_t id = m_beforeEdit->id;
    if (Preset* const preset = edit(id); preset != nullptr) {
        *preset = *m_beforeEdit;
    }
    m_beforeEdit.reset();
    return id;
}

std::optional<uint32_t> PresetStore::storeEdit() {
    if (!editing()) {
        return std::nullopt;
    }
    const uint32_t id = m_beforeEdit->id;
    if (Preset* const preset = edit(id); preset != nullptr) {
        preset->modified = false;
    }
    m_beforeEdit.reset();
    return id;
}

bool PresetStore::noteSetting(uint32_t presetId, uint32_t settingId, uint32_t value) {
    Preset* const preset = edit(presetId);
    if (preset == nullptr) {
        return false;
    }
    for (PresetSetting& one : preset->settings) {
        if (one.id == settingId && one.value != value) {
            one.value = value;
            preset->modified = true;
            return true;
        }
    }
    return false;
}

std::string PresetStore::serialised() const {
    wsdk_commands::WSDK_NotifyPresetStatus status;
    for (const PresetGroup& one : m_groups) {
        auto* const message = status.add_preset_group_array();
        message->set_id(static_cast<wsdk_commands::WSDK_EnumPresetGroup>(one.id));
        message->set_can_add_preset(true);
        message->set_icon(static_cast<wsdk_commands::WSDK_EnumPresetGroupIcon>(one.icon));
        for (const Preset& preset : one.presets) {
            fill(*message->add_preset_array(), preset);
        }
    }
    return status.SerializeAsString();
}

}  // namespace kzsim
