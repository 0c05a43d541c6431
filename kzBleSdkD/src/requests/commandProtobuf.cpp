// The protobuf commands: feature 240, the shutter, and feature 241, the actions of cloud upload, presets, live stream,
// firmware update and camera state. Each action parses its request, does its work and answers with its result.
#include <type_traits>

#include "cameraCalls.h"
#include "cameraStatus.h"
#include "commandMessage.h"
#include "commandTable.h"
#include "dispatchTable.h"
#include "kzControlCommands/kzControl_presets.pb.h"
#include "kzCtrlD/kzCtrlRecords.h"
#include "liveStream.h"
#include "protobufAnswer.h"
#include "utils.h"
#include "wsdkCommands/WSDK_RequestCreateCustomPreset.pb.h"
#include "wsdkCommands/WSDK_RequestSetBandSelect.pb.h"
#include "wsdkCommands/WSDK_RequestSetCAHStart.pb.h"
#include "wsdkCommands/WSDK_RequestSetCameraControlStatus.pb.h"
#include "wsdkCommands/WSDK_RequestSetInContextualMenu.pb.h"
#include "wsdkCommands/WSDK_RequestSetOTAUpdate.pb.h"
#include "wsdkCommands/WSDK_RequestSetPreset.pb.h"
#include "wsdkCommands/WSDK_RequestSetShutter.pb.h"
#include "wsdkCommands/WSDK_RequestSetSystemNotifyEvent.pb.h"
#include "wsdkCommands/WSDK_RequestSetTurboActive.pb.h"
#include "wsdkCommands/WSDK_RequestSetVeloscanSpeedRamp.pb.h"
#include "wsdkCommands/WSDK_RequestSetVeloscanSpeedRampActive.pb.h"

using namespace kzcontrol::presets;
using namespace wsdk_commands;

namespace {

constexpr const char* kLogTag = "bleCommandMessage.cpp";

using Payload = std::vector<uint8_t>;

// ---------------------------------------------------------------- cloud upload

EnumResultGeneric SetCloudUpload(const Payload& payload) {
    uint32_t enabled = 0;
    uint32_t length = 0;
    if (GetCsi(CSI_CAH_FEATURE_ENABLE, sizeof(enabled), &length, &enabled) != CSI_OK || enabled == 0) {
        return RESULT_UNKNOWN;
    }
    const auto request = ParseRequest<WSDK_RequestSetCAHStart>(payload);
    if (!request.has_cah_upload_start()) {
        return RESULT_UNKNOWN;
    }
    uint8_t wms = WMS_REQUEST_UX_CANCEL;
    if (request.cah_upload_start()) {
        LOG_INFO("START CAH UPLOAD");
        wms = WMS_REQUEST_UPLOAD_START;
    } else {
        LOG_INFO("CANCEL CAH UPLOAD");
    }
    return ResultOf(SetCsi(CSI_WMS_REQUEST, wms) == CSI_OK);
}

// ---------------------------------------------------------------- camera state

EnumResultGeneric SetCameraControlStatus(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetCameraControlStatus>(payload);
    const auto status = static_cast<uint8_t>(request.camera_control_status());
    return ResultOf(SendCommand(KZCONTROL_SET_CAMERA_CONTROL_STATUS, status) == KZ_OK);
}

EnumResultGeneric SetInContextualMenu(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetInContextualMenu>(payload);
    const uint8_t inMenu = request.in_menu() ? 1 : 0;
    return ResultOf(SendCommand(KZCONTROL_SET_IN_CONTEXTUAL_MENU, inMenu) == KZ_OK);
}

EnumResultGeneric SetTurboActive(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetTurboActive>(payload);
    const uint8_t active = request.active() ? 1 : 0;
    const int error = SetCsi(CSI_TURBO_ACTIVE, active);
    LOG_INFO("TURBO ACTIVE = %d, err=%d", active, error);
    return ResultOf(error == CSI_OK);
}

EnumResultGeneric SetSpeedRampActive(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetVeloscanSpeedRampActive>(payload);
    const uint32_t active = request.active() ? 1 : 0;
    const int error = SendCommand(KZCONTROL_VIDEO_VELOSCAN_SPEED_RAMP_ACTIVE_SET, active);
    LOG_INFO("KZCONTROL_VIDEO_VELOSCAN_SPEED_RAMP_ACTIVE_SET: veloscan speed ramp active:%d err=%d",
             static_cast<int>(active), error);
    return ResultOf(error == KZ_OK);
}

EnumResultGeneric SetSpeedRamp(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetVeloscanSpeedRamp>(payload);
    const auto ramp = static_cast<uint32_t>(request.veloscan_speed_ramp());
    const int error = SendCommand(KZCONTROL_VIDEO_VELOSCAN_SPEED_RAMP_SET, ramp);
    LOG_INFO("KZCONTROL_VIDEO_VELOSCAN_SPEED_RAMP_SET: veloscan speed ramp:%d err=%d", static_cast<int>(ramp), error);
    return ResultOf(error == KZ_OK);
}

EnumResultGeneric ResetShortcuts(const Payload&) {
    const int error = SendCommand(KZCONTROL_ONSCREEN_SHORTCUTS_RESET);
    if (error != KZ_OK) {
        LOG_ERROR("KZCONTROL_ONSCREEN_SHORTCUTS_RESET err=%d", error);
    }
    return ResultOf(error == KZ_OK);
}

EnumResultGeneric ReleaseNetwork(const Payload&) {
    const uint8_t wms = WMS_REQUEST_UX_CANCEL;
    const int error = SetCsi(CSI_WMS_REQUEST, wms);
    if (error != CSI_OK) {
        LOG_ERROR("csi_set CSI_WMS_REQUEST WMS_REQUEST_UX_CANCEL Failed");
    }
    return ResultOf(error == CSI_OK);
}

EnumResultGeneric SetFirmwareUpdate(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetOTAUpdate>(payload);
    SetCsi(CSI_WMS_REQUEST, static_cast<uint32_t>(request.ota_cmd()));
    return RESULT_SUCCESS;
}

EnumResultGeneric SelectBand(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetBandSelect>(payload);
    const auto band = static_cast<uint32_t>(request.band_select());
    LOG_DEBUG("WSDK_CMD_ID_REQUEST_SET_BAND_SELECT band=%d", static_cast<int>(band));
    SendCommand(KZCONTROL_WIFI_BAND_SELECT, band);
    return RESULT_SUCCESS;
}

// The request is not parsed, because it has no fields.
EnumResultGeneric ClearNewMediaFlag(const Payload&) {
    SetCsi(CSI_NEW_MEDIA, uint8_t{0});
    return RESULT_SUCCESS;
}

EnumResultGeneric SetSystemNotifyEvent(const Payload& payload, CameraStatus& camera) {
    const auto request = ParseRequest<WSDK_RequestSetSystemNotifyEvent>(payload);
    const auto event = static_cast<uint32_t>(request.notify_event());
    SetCsi(CSI_SYSTEM_NOTIFY_EVENT, event);
    camera.SetLastSystemNotifyEvent(event);
    return RESULT_SUCCESS;
}

EnumResultGeneric ReportClientInfo(const Payload&) {
    constexpr uint8_t kAnalytics[4] = {0x76, 0x10, 0xFF, 0xFF};
    return ResultOf(SetCsi(CSI_CLIENT_ANALYTICS, kAnalytics) == CSI_OK);
}

EnumResultGeneric EnterUploadSetup(const Payload&) {
    return RESULT_SUCCESS;
}

// ---------------------------------------------------------------- presets

EnumResultGeneric RemovePreset(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetPresetRemove>(payload);
    KZC_Preset_Custom_Remove_Req remove;
    remove.set_preset_id(request.preset_id());
    const std::optional<int> sent = SendEncodedCommand(KZCONTROL_PRESET_CUSTOM_REMOVE, remove);
    if (sent == KZ_OK) {
        LOG_ERROR("Success KZCONTROL_PRESET_REMOVE");
    } else if (sent) {
        LOG_ERROR("Failed KZCONTROL_PRESET_REMOVE err=%d", *sent);
    }
    return RESULT_SUCCESS;
}

EnumResultGeneric StartPresetEdit(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetPresetEditStart>(payload);
    KZC_Preset_Edit_Start_Req start;
    start.set_preset_id(request.preset_id());
    const std::optional<int> sent = SendEncodedCommand(KZCONTROL_PRESET_EDIT_START, start);
    if (sent == KZ_OK) {
        LOG_ERROR("Success KZCONTROL_PRESET_EDIT_START");
    } else if (sent) {
        LOG_ERROR("Failed KZCONTROL_PRESET_EDIT_START");
    }
    return ResultOf(sent == KZ_OK);
}

EnumResultGeneric CancelPresetEdit(const Payload&) {
    return ResultOf(SendCommand(KZCONTROL_PRESET_EDIT_CANCEL) == KZ_OK);
}

EnumResultGeneric StorePresetEdit(const Payload&) {
    return ResultOf(SendCommand(KZCONTROL_PRESET_EDIT_STORE) == KZ_OK);
}

EnumResultGeneric ResetPreset(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetPresetFactoryReset>(payload);
    KZC_Preset_Factory_Reset_Req reset;
    reset.set_preset_id(request.preset_id());
    const std::optional<int> sent = SendEncodedCommand(KZCONTROL_PRESET_FACTORY_RESET, reset);
    if (sent == KZ_OK) {
        LOG_ERROR("Success KZCONTROL_PRESET_FACTORY_RESET");
    } else if (sent) {
        LOG_ERROR("Failed KZCONTROL_PRESET_FACTORY_RESET");
    }
    return RESULT_SUCCESS;
}

EnumResultGeneric SetPresetOrder(const Payload& payload) {
    const auto request = ParseRequest<WSDK_RequestSetPresetOrder>(payload);
    KZC_Preset_Set_Order_Req order;
    order.set_preset_id(request.preset_id());
    order.set_order(request.preset_order());
    const std::optional<int> sent = SendEncodedCommand(KZCONTROL_PRESET_SET_ORDER, order);
    if (sent == KZ_OK) {
        LOG_ERROR("Success  KZCONTROL_PRESET_SET_ORDER");
    } else if (sent) {
        LOG_ERROR("WSDK_CMD_ID_REQUEST_PRESET_SET_ORDER err=%d", *sent);
    }
    return RESULT_SUCCESS;
}

int RefusePresetCreation(const ProtobufAnswer& answer) {
    WSDK_ResponseCreateCustomPreset refusal;
    refusal.set_result(RESULT_UNKNOWN);
    return answer.Send(refusal);
}

// The control daemon's reply is the answer, byte for byte.
int CreatePreset(const Payload& payload, CameraStatus&, const ProtobufAnswer& answer) {
    const auto request = ParseRequest<WSDK_RequestCreateCustomPreset>(payload);
    KZC_Preset_Custom_Create_Req create;
    create.set_group_id(static_cast<uint32_t>(request.group_id()));
    create.set_flat_mode(static_cast<uint32_t>(request.mode()));
    create.set_preset_icon(static_cast<uint32_t>(request.icon_id()));
    create.set_preset_name(static_cast<uint32_t>(request.title_id()));
    create.set_preset_name_iterator(static_cast<uint32_t>(request.title_number()));
    std::string bytes;
    if (!Encode(create, &bytes)) {
        LOG_ERROR("Unable to serialize request KZC_Preset_Custom_Create_Req");
        return RefusePresetCreation(answer);
    }
    uint8_t reply[KZ_PRESET_CREATE_REPLY_SIZE];
    uint32_t replyLength = 0;
    const int error = CallControlEx(KZCONTROL_PRESET_CUSTOM_CREATE, bytes.data(), static_cast<uint32_t>(bytes.size()),
                                    reply, sizeof(reply), &replyLength);
    if (error != KZ_OK || replyLength > sizeof(reply)) {
        LOG_ERROR("KZCONTROL_PRESET_CUSTOM_CREATE, err=%d and length=%d\n", error, static_cast<int>(replyLength));
        return RefusePresetCreation(answer);
    }
    LOG_ERROR("KZCONTROL_PRESET_CUSTOM_CREATE success");
    return answer.Send(reply, replyLength);
}

// ---------------------------------------------------------------- the table of feature 241

using Action = int (*)(const Payload& payload, CameraStatus& camera, const ProtobufAnswer& answer);

// Calls `DoWork` and answers a ResponseGeneric with its result. `DoWork` takes the payload, and behind it the camera
// status if it needs it.
template <auto DoWork>
int Generic(const Payload& payload, CameraStatus& camera, const ProtobufAnswer& answer) {
    if constexpr (std::is_invocable_v<decltype(DoWork), const Payload&>) {
        return answer.SendResult(DoWork(payload));
    } else {
        return answer.SendResult(DoWork(payload, camera));
    }
}

struct ActionRow {
    uint8_t id;
    const char* name;  // logged; null for an action whose handler logs it with its argument
    Action handler;
};

// clang-format off
constexpr ActionRow kRows[] = {
    {104, "Command: WSDK_CMD_ID_REQUEST_SET_CAH_COMMAND", Generic<SetCloudUpload>},
    {105, "Command:  WSDK_CMD_ID_REQUEST_SET_CAMERA_CONTROL_STATUS", Generic<SetCameraControlStatus>},
    {106, "Command:  WSDK_CMD_ID_REQUEST_SET_IN_CONTEXTUAL_MENU", Generic<SetInContextualMenu>},
    {107, "Command:  WSDK_CMD_ID_REQUEST_SET_TURBO_ACTIVE", Generic<SetTurboActive>},
    {108, "Command:  WSDK_CMD_ID_REQUEST_SET_VELOSCAN_SPEED_RAMP_ACTIVE", Generic<SetSpeedRampActive>},
    {109, "Command:  WSDK_CMD_ID_REQUEST_SET_VELOSCAN_SPEED_RAMP", Generic<SetSpeedRamp>},
    {110, "Command:  WSDK_CMD_ID_REQUEST_PRESET_REMOVE", Generic<RemovePreset>},
    {111, "Command: WSDK_CMD_ID_REQUEST_SHORTCUTS_RESET", Generic<ResetShortcuts>},
    {114, "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_EDIT_START", Generic<StartPresetEdit>},
    {115, "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_EDIT_CANCEL", Generic<CancelPresetEdit>},
    {116, "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_EDIT_STORE", Generic<StorePresetEdit>},
    {117, "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_FACTORY_RESET", Generic<ResetPreset>},
    {118, "Command: WSDK_CMD_ID_REQUEST_PRESET_CREATE", CreatePreset},
    {119, "Command: WSDK_CMD_ID_REQUEST_PRESET_SET_ORDER", Generic<SetPresetOrder>},
    {120, "Command: WSDK_CMD_ID_REQUEST_RELEASE_NETWORK", Generic<ReleaseNetwork>},
    {121, "Command: WSDK_CMD_ID_REQUEST_SET_LIVE_STREAM", Generic<SetLiveStream>},
    {122, "Command: WSDK_CMD_ID_REQUEST_SET_OTA_CMD", Generic<SetFirmwareUpdate>},
    {123, nullptr, Generic<SelectBand>},
    {124, "Command: WSDK_CMD_ID_REQUEST_CLEAR_MOBILE_OFFLOAD_NEW_MEDIA_FLAG", Generic<ClearNewMediaFlag>},
    {125, "Command: WSDK_CMD_ID_REQUEST_SET_SYSTEM_NOTIFY_EVENT", Generic<SetSystemNotifyEvent>},
    {126, "Command: WSDK_CMD_ID_REQUEST_SET_CLIENT_INFO", Generic<ReportClientInfo>},
    {127, "Command: WSDK_CMD_ID_REQUEST_SET_CAH_SETUP_MODE", Generic<EnterUploadSetup>},
};
// clang-format on

constexpr DispatchTable kActions(kRows);

// ---------------------------------------------------------------- feature 240

constexpr uint8_t kActionShutter = 1;

int SetShutter(const Payload& payload, const ProtobufAnswer& answer) {
    const auto request = ParseRequest<WSDK_RequestSetShutter>(payload);
    const auto shutter = static_cast<uint32_t>(request.shutter());
    LOG_INFO("protobuf shutter=%d", static_cast<int>(shutter));
    SendCommand(KZCONTROL_COMMAND_SHUTTER, shutter);
    return answer.SendResult(RESULT_SUCCESS);
}

// Makes the protobuf answer of a call. The handler writes it itself, in place of a command response.
ProtobufAnswer AnswerTo(CommandCall& call) {
    call.answered = true;
    return {static_cast<uint8_t>(call.message.m_commandId), call.message.m_actionId, call.response,
            call.responseLength};
}

}  // namespace

int ExecuteProtobufLow(CommandCall& call) {
    const Payload& payload = call.message.m_payload;
    LOG_INFO("execute pb={%02x %02x %02x %02x %02x}", PayloadByte(payload, 0), PayloadByte(payload, 1),
             PayloadByte(payload, 2), PayloadByte(payload, 3), PayloadByte(payload, 4));
    if (call.message.m_actionId != kActionShutter) {
        LOG_ERROR("Unknown protobuf cmd_low message type");
        return KZ_ERR_INVALID_PARAM;
    }
    LOG_INFO("Command: eBleCommandProtobufCmd");
    return SetShutter(payload, AnswerTo(call));
}

int ExecuteProtobufHigh(CommandCall& call) {
    const Payload& payload = call.message.m_payload;
    LOG_INFO("execute pb cmd high={%02x %02x %02x %02x %02x}", PayloadByte(payload, 0), PayloadByte(payload, 1),
             PayloadByte(payload, 2), PayloadByte(payload, 3), PayloadByte(payload, 4));
    const ActionRow* row = kActions.Find(call.message.m_actionId);
    if (row == nullptr) {
        LOG_ERROR("Unknown protobuf cmd_high message type");
        return KZ_ERR_INVALID_PARAM;
    }
    if (row->name != nullptr) {
        LOG_DEBUG("%s", row->name);
    }
    return row->handler(payload, call.services.camera, AnswerTo(call));
}
