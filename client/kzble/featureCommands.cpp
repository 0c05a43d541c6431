// The camera's protobuf features, one row an action. A row's request message gives the command line its arguments:
// required fields and those named in `positionals` stand in order, every other field is an option; "@FILE" reads a
// value from a file.
#include <google/protobuf/descriptor.h>

#include <algorithm>
#include <sstream>

#include "commands.h"
#include "generic/ResponseGeneric.pb.h"
#include "protobufFields.h"
#include "skylark/bleMessage.h"
#include "wsdkCommands/WSDK_NotifyCAHStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyLiveStreamStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyOTAStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyPresetStatus.pb.h"
#include "wsdkCommands/WSDK_RequestClearNewMediaFlag.pb.h"
#include "wsdkCommands/WSDK_RequestCreateCustomPreset.pb.h"
#include "wsdkCommands/WSDK_RequestGetAssociationState.pb.h"
#include "wsdkCommands/WSDK_RequestSetAssociationState.pb.h"
#include "wsdkCommands/WSDK_RequestSetAuthCode.pb.h"
#include "wsdkCommands/WSDK_RequestSetBandSelect.pb.h"
#include "wsdkCommands/WSDK_RequestSetCAHAutoClear.pb.h"
#include "wsdkCommands/WSDK_RequestSetCAHEnable.pb.h"
#include "wsdkCommands/WSDK_RequestSetCAHServer.pb.h"
#include "wsdkCommands/WSDK_RequestSetCAHStart.pb.h"
#include "wsdkCommands/WSDK_RequestSetCameraControlStatus.pb.h"
#include "wsdkCommands/WSDK_RequestSetInContextualMenu.pb.h"
#include "wsdkCommands/WSDK_RequestSetLiveStreamMode.pb.h"
#include "wsdkCommands/WSDK_RequestSetOTAUpdate.pb.h"
#include "wsdkCommands/WSDK_RequestSetPreset.pb.h"
#include "wsdkCommands/WSDK_RequestSetShutter.pb.h"
#include "wsdkCommands/WSDK_RequestSetSystemNotifyEvent.pb.h"
#include "wsdkCommands/WSDK_RequestSetTurboActive.pb.h"
#include "wsdkCommands/WSDK_RequestSetVeloscanSpeedRamp.pb.h"
#include "wsdkCommands/WSDK_RequestSetVeloscanSpeedRampActive.pb.h"
#include "wsdkCommands/WSDK_ResponseGetAssociationState.pb.h"
#include "wsdkCommands/WSDK_ResponseGetCAHSticky.pb.h"
#include "wsdkCommands/WSDK_ResponseGetClientId.pb.h"
#include "wsdkCommands/WSDK_ResponseGetMobileOffloadState.pb.h"

namespace kzble {

namespace {

using google::protobuf::FieldDescriptor;
using google::protobuf::Message;
using namespace wsdk_commands;

enum Feature : uint8_t {
    kCommandLow = 240,
    kCommandHigh = 241,
    kSettings = 243,
    kQuery = 245,
};

struct Preset {
    const char* field;
    const char* value;
};

struct Action {
    const char* family;  // "" for a command of its own
    const char* name;
    const char* help;
    Feature feature;
    uint8_t action;
    const Message* request;  // null: no payload
    const Message* answer;
    std::vector<const char*> positionals;
    std::vector<Preset> fixed;  // fields the command itself settles
    const char* example = "";   // arguments
};

template <typename T>
const Message* prototype() {
    return &T::default_instance();
}

const Message* generic() {
    return &::generic::ResponseGeneric::default_instance();
}

// clang-format off
const std::vector<Action>& actions() {
    static const std::vector<Action> rows = {
        {"live", "start", "Stream to a URL", kCommandHigh, 121, prototype<WSDK_RequestSetLiveStreamMode>(), generic(), {"url"}, {}, "rtmp://example/stream --window-size 720"},
        {"live", "stop", "End streaming", kCommandHigh, 121, prototype<WSDK_RequestSetLiveStreamMode>(), generic(), {}, {{"url", ""}}},
        {"live", "status", "Print the streaming state", kQuery, 116, nullptr, prototype<WSDK_NotifyLiveStreamStatus>(), {}, {}},
        {"cah", "start", "Start the cloud upload", kCommandHigh, 104, prototype<WSDK_RequestSetCAHStart>(), generic(), {}, {{"cah_upload_start", "on"}}},
        {"cah", "cancel", "Cancel the cloud upload", kCommandHigh, 104, prototype<WSDK_RequestSetCAHStart>(), generic(), {}, {{"cah_upload_start", "off"}}},
        {"cah", "enable", "Switch the cloud upload feature", kSettings, 125, prototype<WSDK_RequestSetCAHEnable>(), generic(), {}, {}, "on"},
        {"cah", "server", "Choose the cloud server", kSettings, 124, prototype<WSDK_RequestSetCAHServer>(), generic(), {}, {}, "1"},
        {"cah", "auto-clear", "Clear media that were uploaded", kSettings, 119, prototype<WSDK_RequestSetCAHAutoClear>(), generic(), {}, {}, "on"},
        {"cah", "status", "Print the cloud upload state", kQuery, 126, nullptr, prototype<WSDK_NotifyCAHStatus>(), {}, {}},
        {"cah", "sticky", "Print the last lasting error", kQuery, 122, nullptr, prototype<WSDK_ResponseGetCAHSticky>(), {}, {}},
        {"cah", "setup-mode", "Enter cloud set-up", kCommandHigh, 127, nullptr, generic(), {}, {}},
        {"ota", "start", "Start a firmware update of the camera", kCommandHigh, 122, prototype<WSDK_RequestSetOTAUpdate>(), generic(), {}, {{"ota_cmd", "WSDK_OTA_START"}}},
        {"ota", "start-forced", "Start it whatever the version", kCommandHigh, 122, prototype<WSDK_RequestSetOTAUpdate>(), generic(), {}, {{"ota_cmd", "WSDK_OTA_START_FORCED"}}},
        {"ota", "cancel", "Cancel the update", kCommandHigh, 122, prototype<WSDK_RequestSetOTAUpdate>(), generic(), {}, {{"ota_cmd", "WSDK_OTA_CANCEL"}}},
        {"ota", "status", "Print the update state", kQuery, 118, nullptr, prototype<WSDK_NotifyOTAStatus>(), {}, {}},
        {"preset", "list", "Print the presets", kQuery, 114, nullptr, prototype<WSDK_NotifyPresetStatus>(), {}, {}},
        {"preset", "create", "Create a preset of our own", kCommandHigh, 118, prototype<WSDK_RequestCreateCustomPreset>(), prototype<WSDK_ResponseCreateCustomPreset>(), {"group_id", "mode"}, {}, "1 12"},
        {"preset", "remove", "Remove a preset", kCommandHigh, 110, prototype<WSDK_RequestSetPresetRemove>(), generic(), {"preset_id"}, {}, "5"},
        {"preset", "order", "Move a preset to a place in its group", kCommandHigh, 119, prototype<WSDK_RequestSetPresetOrder>(), generic(), {"preset_id", "preset_order"}, {}, "2 1"},
        {"preset", "reset", "Bring a preset back to how it was made", kCommandHigh, 117, prototype<WSDK_RequestSetPresetFactoryReset>(), generic(), {"preset_id"}, {}, "2"},
        {"preset", "edit-start", "Begin to edit a preset", kCommandHigh, 114, prototype<WSDK_RequestSetPresetEditStart>(), generic(), {"preset_id"}, {}, "2"},
        {"preset", "edit-cancel", "Drop the edits", kCommandHigh, 115, nullptr, generic(), {}, {}},
        {"preset", "edit-store", "Keep the edits", kCommandHigh, 116, nullptr, generic(), {}, {}},
        {"", "auth", "Hand over an authorisation code", kSettings, 126, prototype<WSDK_RequestSetAuthCode>(), generic(), {}, {}, "a-code"},
        {"associate", "set", "Associate the camera with a user", kSettings, 127, prototype<WSDK_RequestSetAssociationState>(), generic(), {"zorvik_user_id"}, {}, "somebody"},
        {"associate", "clear", "End the association", kSettings, 127, prototype<WSDK_RequestSetAssociationState>(), generic(), {}, {{"association_state", "0"}}},
        {"associate", "status", "Print whether a user is associated", kQuery, 124, prototype<WSDK_RequestGetAssociationState>(), prototype<WSDK_ResponseGetAssociationState>(), {"zorvik_user_id"}, {}, "somebody"},
        {"", "client-id", "Print the camera's client id", kQuery, 125, nullptr, prototype<WSDK_ResponseGetClientId>(), {}, {}},
        {"", "offload", "Print the mobile offload state", kQuery, 120, nullptr, prototype<WSDK_ResponseGetMobileOffloadState>(), {}, {}},
        {"", "notify-event", "Tell the camera what we do", kCommandHigh, 125, prototype<WSDK_RequestSetSystemNotifyEvent>(), generic(), {}, {}, "app_power_up"},
        {"", "band", "Choose the Wi-Fi band", kCommandHigh, 123, prototype<WSDK_RequestSetBandSelect>(), generic(), {}, {}, "5ghz"},
        {"", "turbo", "Switch turbo transfer", kCommandHigh, 107, prototype<WSDK_RequestSetTurboActive>(), generic(), {}, {}, "on"},
        {"", "speed-ramp", "Choose the speed ramp of a veloscan video", kCommandHigh, 109, prototype<WSDK_RequestSetVeloscanSpeedRamp>(), generic(), {}, {}, "1"},
        {"", "speed-ramp-active", "Switch the speed ramp", kCommandHigh, 108, prototype<WSDK_RequestSetVeloscanSpeedRampActive>(), generic(), {}, {}, "on"},
        {"", "camera-control", "Say who controls the camera", kCommandHigh, 105, prototype<WSDK_RequestSetCameraControlStatus>(), generic(), {}, {}, "1"},
        {"", "contextual-menu", "Say that a menu is open", kCommandHigh, 106, prototype<WSDK_RequestSetInContextualMenu>(), generic(), {}, {}, "on"},
        {"", "shortcuts-reset", "Reset the shortcuts on the screen", kCommandHigh, 111, nullptr, generic(), {}, {}},
        {"", "release-network", "Let the camera leave its network", kCommandHigh, 120, nullptr, generic(), {}, {}},
        {"", "clear-new-media", "Clear the new-media mark", kCommandHigh, 124, prototype<WSDK_RequestClearNewMediaFlag>(), generic(), {}, {}},
        {"", "client-hello", "Say that we are a phone app", kCommandHigh, 126, nullptr, generic(), {}, {}},
        {"", "shutter-pb", "Start or stop recording by the protobuf command", kCommandLow, 1, prototype<WSDK_RequestSetShutter>(), generic(), {}, {}, "on"},
    };
    return rows;
}
// clang-format on

uint8_t streamOf(Feature feature) {
    switch (feature) {
        case kSettings:
            return KZ_STR_ID_SETTINGS;
        case kQuery:
            return KZ_STR_ID_QUERY;
        default:
            return KZ_STR_ID_COMMAND;
    }
}

// An answer's `result`, where it has one, must be success.
void expectSuccess(const Message& answer) {
    const FieldDescriptor* field = answer.GetDescriptor()->FindFieldByName("result");
    if (field == nullptr) {
        return;
    }
    const auto* result = answer.GetReflection()->GetEnum(answer, field);
    if (result->number() != RESULT_SUCCESS) {
        throw Refused(result->name(), result->number());
    }
}

std::string presetText(const WSDK_NotifyPresetStatus& status) {
    std::ostringstream text;
    for (const auto& group : status.preset_group_array()) {
        text << (text.tellp() > 0 ? "\n" : "") << WSDK_EnumPresetGroup_Name(group.id());
        for (const auto& preset : group.preset_array()) {
            text << "\n  " << preset.id() << "  " << WSDK_EnumFlatMode_Name(preset.mode());
            if (preset.has_title_id()) {
                text << "  " << WSDK_EnumPresetTitle_Name(preset.title_id());
            }
            text << (preset.user_defined() ? "  custom" : "") << (preset.is_modified() ? "  modified" : "");
        }
    }
    return text.str();
}

void printAnswer(Session& session, const Message& answer) {
    if (answer.GetDescriptor() == ::generic::ResponseGeneric::descriptor()) {
        session.printDone();
        return;
    }
    const auto json = nlohmann::ordered_json::parse(toJson(answer));
    const auto* presets = dynamic_cast<const WSDK_NotifyPresetStatus*>(&answer);
    session.print(json, presets != nullptr ? presetText(*presets) : toText(answer));
}

using Values = std::map<std::string, std::string>;

void run(Session& session, const Action& row, const Values& values) {
    std::unique_ptr<Message> request(row.request == nullptr ? nullptr : row.request->New());
    for (const auto& [field, value] : row.fixed) {
        setField(*request, field, value);
    }
    for (const auto& [field, value] : values) {
        setField(*request, field, value.starts_with('@') ? kzclient::readFile(value.substr(1)) : value);
    }
    const std::unique_ptr<Message> answer(row.answer->New());
    session.client().protobuf(streamOf(row.feature), row.feature, row.action, request.get(), *answer);
    expectSuccess(*answer);
    printAnswer(session, *answer);
}

bool isFixed(const Action& row, const FieldDescriptor& field) {
    return std::any_of(row.fixed.begin(), row.fixed.end(), [&](const Preset& p) { return field.name() == p.field; });
}

bool isPositional(const Action& row, const FieldDescriptor& field) {
    return field.is_required() || std::any_of(row.positionals.begin(), row.positionals.end(),
                                              [&](const char* name) { return field.name() == name; });
}

void addArguments(CLI::App& command, const Action& row, const std::shared_ptr<Values>& values) {
    if (row.request == nullptr || !row.fixed.empty()) {
        return;
    }
    const auto& type = *row.request->GetDescriptor();
    for (int i = 0; i < type.field_count(); ++i) {
        const FieldDescriptor& field = *type.field(i);
        if (field.is_repeated() || isFixed(row, field) || field.name().starts_with("reserved")) {
            continue;
        }
        std::string name = field.name();
        if (!isPositional(row, field)) {
            std::replace(name.begin(), name.end(), '_', '-');
            name = "--" + name;
        }
        auto* option = command.add_option_function<std::string>(
            name, [values, key = field.name()](const std::string& text) { (*values)[key] = text; },
            describeField(field));
        if (isPositional(row, field)) {
            option->required();
        }
    }
}

// Loading a preset is a plain command; it stands with the other preset commands.
void addPresetLoad(const Place& presets) {
    constexpr uint8_t kSetPreset = 64;
    auto id = std::make_shared<uint32_t>(0);
    CLI::App* load = addCommand(presets, {"load", "Switch to a preset", "2"}, [&session = presets.session, id] {
        session.client().command(kSetPreset, {number(*id, 4)});
        session.printDone();
    });
    addNumber(*load, "preset_id", *id, "0 to 4294967295", 0, UINT32_MAX)->required();
}

const std::map<std::string, std::string> kFamilies = {
    {"live", "Live streaming"}, {"cah", "The upload to the cloud"},      {"ota", "The update of the camera's firmware"},
    {"preset", "Presets"},      {"associate", "The user of the camera"},
};

}  // namespace

void addFeatureCommands(const Place& place) {
    for (const auto& row : actions()) {
        auto values = std::make_shared<Values>();
        const std::string family = row.family;
        const Place where = family.empty() ? place : place.family(family, kFamilies.at(family));
        CLI::App* command = addCommand(where, {row.name, row.help, row.example},
                                       [&session = place.session, &row, values] { run(session, row, *values); });
        addArguments(*command, row, values);
    }
    addPresetLoad(place.family("preset", kFamilies.at("preset")));
}

}  // namespace kzble
