// The plain commands and the table that finds them.

#include "bleSDK.h"
#include "cameraCalls.h"
#include "commandAnswers.h"
#include "commandMessage.h"
#include "commandTable.h"
#include "dispatchTable.h"
#include "kzControlCommands/kzControl_presets.pb.h"
#include "peer.h"
#include "settingsStatusMapping.h"
#include "skylark/bleMessage.h"
#include "transferSlot.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleCommandMessage.cpp";

const FlexValue& Param(const CommandCall& call, size_t index) {
    return call.message.m_params[index];
}

// ---------------------------------------------------------------- commands handed on as they are

template <kzControlCommand Command>
int Forward(CommandCall&) {
    LOG_INFO("Sending %s", kzControlCommandName(Command));
    return SendCommand(Command);
}

template <kzControlCommand Command>
int ForwardByte(CommandCall& call) {
    const uint8_t value = Param(call, 0).GetUI8Value();
    LOG_INFO("Sending %s with value:%d", kzControlCommandName(Command), value);
    return SendCommand(Command, value);
}

template <kzControlCommand Command>
int ForwardNumber(CommandCall& call) {
    const uint32_t value = call.message.m_params.size() == 1 ? Param(call, 0).GetUI32Value() : 0;
    LOG_INFO("Sending %s with value:%d", kzControlCommandName(Command), static_cast<int>(value));
    return SendCommand(Command, value);
}

// ---------------------------------------------------------------- modes

bool IsVoiceClient(const CommandCall& call) {
    return call.client.m_identity.m_deviceType == KZ_CALLER_VOICE;
}

int SetModeAlone(CommandCall& call) {
    const uint32_t mode = Param(call, 0).GetUI32Value();
    LOG_INFO("Sending mode command with value:%d", static_cast<int>(mode));
    if (IsVoiceClient(call)) {
        LOG_INFO("KZCONTROL_VOICE_MODE %d", static_cast<int>(mode));
        return SendCommand(KZCONTROL_VOICE_MODE, mode);
    }
    LOG_INFO("KZCONTROL_MODE %d", static_cast<int>(mode));
    return SendCommand(KZCONTROL_MODE, mode);
}

// Argument of KZCONTROL_MODE_SUB_MODE.
struct ModeSubMode {
    uint32_t mode;
    uint32_t subMode;
};
static_assert(sizeof(ModeSubMode) == 8);

// The number by which KZCONTROL_VOICE_MODE knows a mode with its sub-mode.
struct VoiceMode {
    uint32_t mode;
    uint32_t subMode;
    uint8_t voiceMode;
    const char* name;
};
constexpr VoiceMode kVoiceModes[] = {
    {0, 0, 0, "VOICE_MODE_VIDEO"},
    {1, 0, 1, "VOICE_MODE_PHOTO"},
    {2, 1, 2, "VOICE_MODE_TIMELAPSE"},
    {2, 0, 19, "VOICE_MODE_BURST"},
};
constexpr uint8_t kVoiceModeUnknown = 255;

uint8_t VoiceModeOf(const ModeSubMode& value) {
    for (const VoiceMode& row : kVoiceModes) {
        if (row.mode == value.mode && row.subMode == value.subMode) {
            LOG_INFO("%s", row.name);
            return row.voiceMode;
        }
    }
    return kVoiceModeUnknown;
}

int SetModeAndSubMode(CommandCall& call) {
    const ModeSubMode value{Param(call, 0).GetUI32Value(), Param(call, 1).GetUI32Value()};
    LOG_INFO("modeValue.value1 = %d modeValue.value2 = %d", static_cast<int>(value.mode),
             static_cast<int>(value.subMode));
    if (IsVoiceClient(call)) {
        return SendCommand(KZCONTROL_VOICE_MODE, VoiceModeOf(value));
    }
    LOG_INFO("Sending mode command with value:%d,%d", static_cast<int>(value.mode), static_cast<int>(value.subMode));
    return SendCommand(KZCONTROL_MODE_SUB_MODE, value);
}

int SetFlatMode(CommandCall& call) {
    if (Param(call, 0).GetDataLength() != 2) {
        return KZ_ERR_INVALID_PARAM;
    }
    const auto mode = static_cast<uint16_t>(Param(call, 0).GetUI32Value());
    LOG_INFO("Sending KZCONTROL_MODE_SET_MODE with value:%d", mode);
    return SendCommand(KZCONTROL_MODE_SET_MODE, mode);
}

// ---------------------------------------------------------------- button of a remote

// Reports the client by its own device type as the one that drives the camera, also a third party client, which
// elsewhere counts as a phone. Refuses the button of an accessory whose own firmware is about to be replaced.
int AcceptButton(CommandCall& call) {
    const int status = SetCsi(CSI_ANALYTICS_SOURCE, call.client.m_identity.m_deviceType);
    if (status != CSI_OK) {
        LOG_ERROR("csi_set CSI_ANALYTICS_SOURCE failed for KZ_CALLER_BLE_RC - status %d", status);
    }
    if (call.client.m_identity.m_accessoryUpdatePending) {
        LOG_ERROR("Accessory updateing, ignore button press");
        return KZ_ERR;
    }
    return KZ_OK;
}

// Argument of KZCONTROL_SYSTEM_BUTTON_SET.
struct ButtonArgument {
    uint32_t type;
    uint32_t state;
};
static_assert(sizeof(ButtonArgument) == 8);

int SetButton(CommandCall& call) {
    const uint32_t press = Param(call, 0).GetUI32Value();
    const ButtonArgument button{(press >> 8) & 0xFF, press & 0xFF};
    LOG_DEBUG("eBleCommandSetButton: buttonPress=0x%08X button_type=%d button_state=%d", press,
              static_cast<int>(button.type), static_cast<int>(button.state));
    return SendCommand(KZCONTROL_SYSTEM_BUTTON_SET, button);
}

// ---------------------------------------------------------------- settings description

int GetSettingsVersion(CommandCall& call) {
    const SettingsStatusMapping* mapping = BleSDK::LoadedMapping();
    if (mapping == nullptr) {
        return KZ_ERR;
    }
    AnswerText(call, mapping->version);
    return KZ_OK;
}

// Starts the transfer and answers nothing: the message with the file begins with command id and result, so it is the
// answer. A start that fails after the slot was found free is not answered either.
int StartSettingsTransfer(CommandCall& call) {
    if (!call.services.transferSlot.IsFileTransferSlotAvailable()) {
        LOG_ERROR("No File transfer slot available");
        return KZ_ERR;
    }
    LOG_ERROR("Starting file transfer");
    call.services.transferSlot.StartSettingsJSONFileTransfer(call.client.m_file);
    *call.responseLength = 0;
    call.answered = true;
    return KZ_OK;
}

// ---------------------------------------------------------------- presets

int LoadPreset(CommandCall& call) {
    uint32_t presetId = 0;
    if (call.message.m_params.size() == 1) {
        presetId = Param(call, 0).GetUI32Value();
        LOG_DEBUG("Set Preset value = %d %02x", static_cast<int>(presetId), presetId);
    }
    kzcontrol::presets::KZC_Preset_Load_Req request;
    request.set_preset_id(presetId);
    const std::optional<int> sent = SendEncodedCommand(KZCONTROL_PRESET_LOAD, request);
    if (!sent) {
        return KZ_ERR;
    }
    if (*sent != KZ_OK) {
        LOG_ERROR("Failed KZCONTROL_PRESET_LOAD");
        return KZ_ERR;
    }
    LOG_DEBUG("Success KZCONTROL_PRESET_LOAD ");
    return KZ_OK;
}

// ---------------------------------------------------------------- third party clients

// Analytics record of a third party client.
constexpr uint8_t kThirdPartyAnalytics[4] = {0x76, 0x01, 0x00, 0x00};

constexpr uint8_t kThirdPartyApiMajor = 2;
constexpr uint8_t kThirdPartyApiMinor = 0;

int BecomeThirdParty(CommandCall& call) {
    call.client.m_identity.m_deviceType = KZ_CALLER_THIRD_PARTY;
    return KZ_OK;
}

int ReportThirdParty(CommandCall&) {
    LOG_INFO("Setting third party client info");
    SetCsi(CSI_CLIENT_ANALYTICS, kThirdPartyAnalytics);
    return KZ_OK;
}

int GetThirdPartyApiVersion(CommandCall& call) {
    LOG_INFO("Sending third party api version %d.%d", kThirdPartyApiMajor, kThirdPartyApiMinor);
    AnswerByte(call, kThirdPartyApiMajor);
    AnswerByte(call, kThirdPartyApiMinor);
    return KZ_OK;
}

// ---------------------------------------------------------------- the table

constexpr ParameterRule kAnyParameters;
constexpr ParameterRule kNoParameters{
    0, [](int provided) { LOG_ERROR("Need zero parameters for this command, %d provided!", provided); }};
constexpr ParameterRule kNoParameter{
    0, [](int provided) { LOG_ERROR("Need zero parameter for this command, %d provided!", provided); }};
constexpr ParameterRule kOneParameter{
    1, [](int provided) { LOG_ERROR("Need one parameter for this command, %d provided!", provided); }};
constexpr ParameterRule kOneButtonParameter{
    1, [](int provided) { LOG_ERROR("Need 1 parameters for this command, %d provided!", provided); }};
constexpr ParameterRule kTwoParameters{
    2, [](int provided) { LOG_ERROR("Need 2 parameters for this command, %d provided!", provided); }};
constexpr ParameterRule kOptionalControlParameter{
    1, [](int provided) { LOG_WARN("optional parameter for this command, %d provided!", provided); }, true};
constexpr ParameterRule kOptionalPresetParameter{
    1, [](int provided) { LOG_ERROR("optional parameter for this command, %d provided!", provided); }, true};

// clang-format off
constexpr CommandRow kRows[] = {
    {eBleCommandShutter, "eBleCommandShutter", kOneParameter, nullptr, ForwardByte<KZCONTROL_COMMAND_SHUTTER>},
    {eBleCommandMode, "eBleCommandMode", kOneParameter, nullptr, SetModeAlone},
    {eBleCommandModeSubMode, "eBleCommandModeSubMode", kTwoParameters, nullptr, SetModeAndSubMode},
    {eBleCommandPower, "eBleCommandPower", kNoParameters, nullptr, Forward<KZCONTROL_SYSTEM_SHUTDOWN>},
    {eBleCommandSleep, "eBleCommandSleep", kNoParameters, nullptr, Forward<KZCONTROL_SYSTEM_SLEEP>},
    {eBleCommandCancelWifiRemotePair, "eBleCommandCancelWifiRemotePair", kNoParameter, nullptr, Forward<KZCONTROL_RC_PAIR_CANCEL>},
    {eBleCommandVideoFulgradeReset, "eBleCommandVideoFulgradeReset", kOneParameter, nullptr, Forward<KZCONTROL_VIDEO_FULGRADE_RESET>},
    {eBleCommandMultiShotFulgradeReset, "eBleCommandMultiShotFulgradeReset", kOneParameter, nullptr, Forward<KZCONTROL_MULTI_FULGRADE_RESET>},
    {eBleCommandPhotoFulgradeReset, "eBleCommandPhotoFulgradeReset", kOneParameter, nullptr, Forward<KZCONTROL_PHOTO_FULGRADE_RESET>},
    {eBleCommandSetDateAndTime, "eBleCommandSetDateAndTime", kOneParameter, nullptr, SetDateAndTime},
    {eBleCommandGetDateAndTime, "eBleCommandGetDateAndTime", kNoParameters, nullptr, GetDateAndTime},
    {eBleCommandSetDateAndTimeDST, "eBleCommandSetDateAndTimeDST", kOneParameter, nullptr, SetDateAndTimeDST},
    {eBleCommandGetDateAndTimeDST, "eBleCommandGetDateAndTimeDST", kNoParameters, nullptr, GetDateAndTimeDST},
    {eBleCommandLocate, "eBleCommandLocate", kOneParameter, nullptr, ForwardByte<KZCONTROL_LOCATE>},
    {eBleCommandAPControl, "eBleCommandAPControl", kOneParameter, nullptr, ForwardNumber<KZCONTROL_WIFI_AP_CONTROL>},
    {eBleCommandTagMoment, "eBleCommandTagMoment", kNoParameter, nullptr, Forward<KZCONTROL_PINMARK_TAG_RECORDING>},
    {eBleCommandRemotePair, "eBleCommandRemotePair", kNoParameter, nullptr, Forward<KZCONTROL_RC_PAIR>},
    {eBleCommandiVoiceEditMyStory, "eBleCommandiVoiceEditMyStory", kNoParameter, nullptr, Forward<KZCONTROL_VOICE_EDIT_MY_STORY>},
    {eBleCommandSetButton, "eBleCommandSetButton", kOneButtonParameter, AcceptButton, SetButton},
    {eBleCommandClientInfo, "eBleCommandClientInfo", kOneParameter, nullptr, TakeClientInfo},
    {eBleCommandVoicePhotoTake, "eBleCommandVoicePhotoTake", kNoParameter, nullptr, Forward<KZCONTROL_VOICE_PHOTO_TAKE>},
    {eBleCommandVoiceVideoStart, "eBleCommandVoiceVideoStart", kNoParameter, nullptr, Forward<KZCONTROL_VOICE_VIDEO_START>},
    {eBleCommandVoiceVideoStop, "eBleCommandVoiceVideoStop", kNoParameter, nullptr, Forward<KZCONTROL_VOICE_VIDEO_STOP>},
    {eBleCommandVoiceTimelapseStart, "eBleCommandVoiceTimelapseStart", kNoParameter, nullptr, Forward<KZCONTROL_VOICE_TIMELAPSE_START>},
    {eBleCommandVoiceTimelapseStop, "eBleCommandVoiceTimelapseStop", kNoParameter, nullptr, Forward<KZCONTROL_VOICE_TIMELAPSE_STOP>},
    {eBleCommandVoiceBurstTake, "eBleCommandVoiceBurstTake", kNoParameter, nullptr, Forward<KZCONTROL_VOICE_BURST_TAKE>},
    {eBleCommandVoiceTag, "eBleCommandVoiceTag", kNoParameter, nullptr, Forward<KZCONTROL_VOICE_TAG>},
    {eBleCommandiVoiceDeleteLast, "eBleCommandiVoiceDeleteLast", kNoParameter, nullptr, Forward<KZCONTROL_VOICE_DELETE_LAST>},
    {eBleCommandSettingsJSONVersion, "eBleCommandSettingsJSONVersion", kAnyParameters, nullptr, GetSettingsVersion},
    {eBleCommandSettingsJSON, "eBleCommandSettingsJSON", kAnyParameters, nullptr, StartSettingsTransfer},
    {eBleCommandCameraInfo, "eBleCommandCameraInfo", kNoParameter, RefuseWhileResuming, GetCameraInfo},
    {eBleCommandBLEControl, "eBleCommandBLEControl", kOptionalControlParameter, nullptr, ForwardNumber<KZCONTROL_BLE_CONTROL>},
    {eBleCommandSetMode, "eBleCommandSetMode", kOneParameter, nullptr, SetFlatMode},
    {eBleCommandFulgradeReset, "eBleCommandFulgradeReset", kNoParameter, nullptr, Forward<KZCONTROL_FULGRADE_RESET>},
    {eBleCommandSetPreset, "eBleCommandSetPreset", kOptionalPresetParameter, nullptr, LoadPreset},
    {eBleCommandDeleteAllFiles, "eBleCommandDeleteAllFiles", kNoParameters, nullptr, Forward<KZCONTROL_DELETE_ALL>},
    {eBleCommandDeleteLastFile, "eBleCommandDeleteLastFile", kNoParameters, nullptr, Forward<KZCONTROL_DELETE_LAST>},
    {eBleCommandSetThirdPartyClientInfo, "eBleCommandSetThirdPartyClientInfo", kNoParameters, BecomeThirdParty, ReportThirdParty},
    {eBleCommandGetThirdPartyApiVersion, "eBleCommandGetThirdPartyApiVersion", kNoParameters, nullptr, GetThirdPartyApiVersion},
    {eBleCommandProtobufCmd, "eBleCommandProtobufCmd", kAnyParameters, nullptr, ExecuteProtobufLow},
    {eBleCommandProtobufCmdHigh, nullptr, kAnyParameters, nullptr, ExecuteProtobufHigh},
};
// clang-format on

constexpr DispatchTable kCommands(kRows);

}  // namespace

const CommandRow* FindCommand(uint32_t commandId) {
    return kCommands.Find(commandId);
}
