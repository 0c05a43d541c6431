#include "presetStatus.h"

#include <google/protobuf/unknown_field_set.h>

#include "utils.h"
#include "wsdkCommands/WSDK_NotifyPresetStatus.pb.h"

namespace {

using wsdk_commands::WSDK_Preset;
using wsdk_commands::WSDK_PresetGroup;

constexpr const char* kLogTag = "bleDevice.cpp";

constexpr uint32_t kModelWithAllPresets = 51;
// The range of the most significant byte of CSI_PRESETS_MODIFIED, the kind of the change, that concerns every preset.
constexpr uint32_t kModifiedAllFirst = 7;
constexpr uint32_t kModifiedAllLast = 8;

// The number of an enumeration field. One outside the enumeration was put among the unknown fields by the parser.
int EnumNumber(const google::protobuf::Message& message, const google::protobuf::FieldDescriptor* field) {
    const google::protobuf::Reflection* reflection = message.GetReflection();
    if (reflection->HasField(message, field)) {
        return reflection->GetEnumValue(message, field);
    }
    const google::protobuf::UnknownFieldSet& unknown = reflection->GetUnknownFields(message);
    for (int i = unknown.field_count(); i-- > 0;) {
        const google::protobuf::UnknownField& candidate = unknown.field(i);
        if (candidate.number() == field->number() && candidate.type() == google::protobuf::UnknownField::TYPE_VARINT) {
            return static_cast<int>(candidate.varint());
        }
    }
    return reflection->GetEnumValue(message, field);  // absent: the default
}

// Copies the number of an enumeration field of `from` to `to` and returns it.
template <typename Message>
int CopyEnum(const Message& from, Message* to, int fieldNumber) {
    const google::protobuf::FieldDescriptor* field = Message::descriptor()->FindFieldByNumber(fieldNumber);
    const int number = EnumNumber(from, field);
    Message::GetReflection()->SetEnumValue(to, field, number);
    return number;
}

void CopyPresetInFull(const WSDK_Preset& from, WSDK_Preset* to) {
    const int mode = CopyEnum(from, to, WSDK_Preset::kModeFieldNumber);
    LOG_INFO("preset mode=%d", mode);
    const int titleId = CopyEnum(from, to, WSDK_Preset::kTitleIdFieldNumber);
    LOG_INFO("preset title id=%d", titleId);
    if (from.title_number() != 0) {
        LOG_INFO("preset title number=%d", from.title_number());
        to->set_title_number(from.title_number());
    }
    const int icon = CopyEnum(from, to, WSDK_Preset::kIconFieldNumber);
    LOG_INFO("preset icon=%d", icon);
    to->set_user_defined(from.user_defined());
    to->set_is_modified(from.is_modified());
    to->set_is_fixed(from.is_fixed());
    for (const auto& setting : from.setting_array()) {
        auto* copy = to->add_setting_array();
        copy->set_id(setting.id());
        copy->set_value(setting.value());
        copy->set_is_caption(setting.is_caption());
    }
}

}  // namespace

bool AllPresetsInFull(uint32_t presetsModified, uint32_t modelNumber) {
    const uint32_t kind = presetsModified >> 24;
    return modelNumber == kModelWithAllPresets || (kind >= kModifiedAllFirst && kind <= kModifiedAllLast);
}

void CopyPresetStatus(const wsdk_commands::WSDK_NotifyPresetStatus& from, const PresetDetail& detail,
                      wsdk_commands::WSDK_NotifyPresetStatus& to) {
    for (const WSDK_PresetGroup& group : from.preset_group_array()) {
        WSDK_PresetGroup* groupCopy = to.add_preset_group_array();
        const int groupId = CopyEnum(group, groupCopy, WSDK_PresetGroup::kIdFieldNumber);
        LOG_INFO("add group %d", groupId);
        groupCopy->set_can_add_preset(group.can_add_preset());
        CopyEnum(group, groupCopy, WSDK_PresetGroup::kIconFieldNumber);
        for (const WSDK_Preset& preset : group.preset_array()) {
            LOG_INFO("preset id=%d", preset.id());
            WSDK_Preset* presetCopy = groupCopy->add_preset_array();
            presetCopy->set_id(preset.id());
            const bool isCurrent = static_cast<uint32_t>(preset.id()) == detail.currentPresetId;
            if (detail.all || (detail.currentPreset && isCurrent)) {
                CopyPresetInFull(preset, presetCopy);
            }
        }
    }
}
