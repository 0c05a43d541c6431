#include "controlCommands.h"

#include <algorithm>
#include <cstdint>

#include "cameraIds.h"
#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "kzControlCommands/kzControl_presets.pb.h"
#include "utils.h"
#include "wsdkCommands/WSDK_RequestCreateCustomPreset.pb.h"

namespace kzsim {
namespace {

namespace requests = kzcontrol::presets;

constexpr size_t kAnyLength = SIZE_MAX;

// Settings that make the look of each kind of capture, for the three resets.
const std::vector<uint32_t> kVideoLook = {setting::kVideoColour, setting::kVideoWhiteBalance, setting::kVideoSharpness,
                                          setting::kVideoExposure};
const std::vector<uint32_t> kPhotoLook = {setting::kPhotoOutput, setting::kPhotoColour, setting::kPhotoWhiteBalance,
                                          setting::kPhotoExposure};
const std::vector<uint32_t> kTimeLapseLook = {setting::kTimeLapseInterval, setting::kNightShutter,
                                              setting::kNightInterval, setting::kBurstRate};
const std::vector<uint32_t> kShortcuts = {setting::kDigitalZoomLock};

// Of the two numbers a button press carries.
constexpr uint32_t kShutterButton = 1;
constexpr uint32_t kButtonPressed = 1;

int32_t reset(CameraModel& camera, const std::vector<uint32_t>& settingIds) {
    camera.resetSettings(settingIds);
    return KZ_OK;
}

int32_t setNumber(CameraModel& camera, uint32_t statusId, uint32_t value) {
    camera.setStatus(statusId, uint64_t{value});
    return KZ_OK;
}

int32_t shutter(CameraModel& camera, ByteView parameter, Bytes&) {
    return numberAt<uint8_t>(parameter) != 0 ? camera.startCapture() : camera.stopCapture();
}

int32_t captureIn(CameraModel& camera, uint32_t mode) {
    const int result = camera.setMode(mode);
    return result == KZ_OK ? camera.startCapture() : result;
}

int32_t modeSubMode(CameraModel& camera, ByteView parameter, Bytes&) {
    const int result = camera.setMode(numberAt<uint32_t>(parameter));
    return result == KZ_OK ? camera.setSubMode(numberAt<uint32_t>(parameter, 4)) : result;
}

// Voice modes that a microphone user can name; the numbers of the voice command.
int32_t voiceMode(CameraModel& camera, ByteView parameter, Bytes&) {
    constexpr uint32_t kVoiceBurst = 19;
    const auto mode = numberAt<uint32_t>(parameter);
    return camera.setMode(mode == kVoiceBurst ? kModePhoto : mode);
}

int32_t setDateTime(CameraModel& camera, ByteView parameter, Bytes&) {
    return camera.clock().set(numberAt<DateTime>(parameter)) ? KZ_OK : KZ_ERR_INVALID_PARAM;
}

int32_t getDateTime(CameraModel& camera, ByteView, Bytes& reply) {
    append(reply, camera.clock().now());
    return KZ_OK;
}

int32_t setSetting(CameraModel& camera, ByteView parameter, Bytes&) {
    return camera.chooseSetting(numberAt<uint32_t>(parameter), numberAt<uint32_t>(parameter, 4));
}

int32_t getSetting(CameraModel& camera, ByteView parameter, Bytes& reply) {
    const auto found = camera.settings().find(numberAt<uint32_t>(parameter));
    if (found == camera.settings().end()) {
        return KZ_ERR_INVALID_PARAM;
    }
    append(reply, found->second);
    return KZ_OK;
}

int32_t button(CameraModel& camera, ByteView parameter, Bytes&) {
    const bool shutterPressed =
        numberAt<uint32_t>(parameter) == kShutterButton && numberAt<uint32_t>(parameter, 4) == kButtonPressed;
    if (!shutterPressed) {
        return KZ_OK;
    }
    return camera.capturing() ? camera.stopCapture() : camera.startCapture();
}

int32_t powerDown(CameraModel& camera, ByteView, Bytes&) {
    camera.suspend();
    return KZ_OK;
}

// ---------------------------------------------------------------- presets

template <typename Request>
bool parse(ByteView parameter, Request& request) {
    return request.ParseFromArray(parameter.data(), static_cast<int>(parameter.size()));
}

// A request that names a preset, handed to one operation of the camera.
template <typename Request, int (CameraModel::*operation)(uint32_t)>
int32_t onPreset(CameraModel& camera, ByteView parameter, Bytes&) {
    Request request;
    return parse(parameter, request) ? (camera.*operation)(request.preset_id()) : int{KZ_ERR_INVALID_PARAM};
}

int32_t createPreset(CameraModel& camera, ByteView parameter, Bytes& reply) {
    requests::KZC_Preset_Custom_Create_Req request;
    if (!parse(parameter, request)) {
        return KZ_ERR_INVALID_PARAM;
    }
    const auto created =
        camera.createPreset(request.group_id(), static_cast<int32_t>(request.flat_mode()), request.preset_icon(),
                            request.preset_name(), request.preset_name_iterator());
    if (!created.has_value()) {
        return KZ_ERR_INVALID_PARAM;
    }
    wsdk_commands::WSDK_ResponseCreateCustomPreset response;
    response.set_preset_id(static_cast<int32_t>(*created));
    response.set_result(RESULT_SUCCESS);
    reply = bytesOfText(response.SerializeAsString());
    return KZ_OK;
}

int32_t orderPreset(CameraModel& camera, ByteView parameter, Bytes&) {
    requests::KZC_Preset_Set_Order_Req request;
    return parse(parameter, request) ? camera.movePreset(request.preset_id(), request.order())
                                     : int{KZ_ERR_INVALID_PARAM};
}

int32_t retitlePreset(CameraModel& camera, ByteView parameter, Bytes&) {
    requests::KZC_Preset_Set_Title_Icon_Req request;
    return parse(parameter, request) ? camera.retitleActivePreset(request.preset_name(), request.preset_icon())
                                     : int{KZ_ERR_INVALID_PARAM};
}

int32_t getPresets(CameraModel& camera, ByteView, Bytes& reply) {
    reply = bytesOfText(camera.presets().serialised());
    return KZ_OK;
}

int32_t getActivePreset(CameraModel& camera, ByteView, Bytes& reply) {
    append(reply, camera.activePreset());
    return KZ_OK;
}

int32_t getActiveGroup(CameraModel& camera, ByteView, Bytes& reply) {
    append(reply, camera.statusNumber(status::kPresetGroup));
    return KZ_OK;
}

// ---------------------------------------------------------------- the table

struct Row {
    uint32_t id;
    size_t shortest;  // bytes of the parameter
    size_t longest;
    int32_t (*execute)(CameraModel&, ByteView, Bytes&);
};

int32_t nothingToDo(CameraModel&, ByteView, Bytes&) {
    return KZ_OK;
}

using Camera = CameraModel;
using In = ByteView;
using Out = Bytes;

constexpr Row kRows[] = {
    {KZCONTROL_COMMAND_SHUTTER, 1, 4, shutter},
    {KZCONTROL_MODE, 4, 4, [](Camera& camera, In in, Out&) { return camera.setMode(numberAt<uint32_t>(in)); }},
    {KZCONTROL_MODE_SUB_MODE, 8, 8, modeSubMode},
    {KZCONTROL_MODE_SET_MODE, 2, 2,
     [](Camera& camera, In in, Out&) { return camera.selectGroup(numberAt<uint16_t>(in)); }},
    {KZCONTROL_SET_DATE_TIME, sizeof(DateTime), sizeof(DateTime), setDateTime},
    {KZCONTROL_GET_DATE_TIME, 0, 0, getDateTime},
    {KZCONTROL_PINMARK_TAG_RECORDING, 0, 0, [](Camera& camera, In, Out&) { return camera.tagMoment(); }},
    {KZCONTROL_DELETE_LAST, 0, 0, [](Camera& camera, In, Out&) { return camera.deleteLast(); }},
    {KZCONTROL_DELETE_ALL, 0, 0, [](Camera& camera, In, Out&) { return camera.deleteAll(); }},
    {KZCONTROL_WIFI_AP_CONTROL, 4, 4,
     [](Camera& camera, In in, Out&) { return setNumber(camera, status::kAccessPointOn, numberAt<uint8_t>(in)); }},
    {KZCONTROL_WIFI_BAND_SELECT, 4, 4,
     [](Camera& camera, In in, Out&) { return setNumber(camera, status::kNetworkBand, numberAt<uint8_t>(in)); }},
    {KZCONTROL_RC_PAIR, 0, 0, [](Camera& camera, In, Out&) { return setNumber(camera, status::kPairingState, 1); }},
    {KZCONTROL_RC_PAIR_CANCEL, 0, 0,
     [](Camera& camera, In, Out&) { return setNumber(camera, status::kPairingState, 0); }},
    {KZCONTROL_VIDEO_FULGRADE_RESET, 0, 0, [](Camera& camera, In, Out&) { return reset(camera, kVideoLook); }},
    {KZCONTROL_PHOTO_FULGRADE_RESET, 0, 0, [](Camera& camera, In, Out&) { return reset(camera, kPhotoLook); }},
    {KZCONTROL_MULTI_FULGRADE_RESET, 0, 0, [](Camera& camera, In, Out&) { return reset(camera, kTimeLapseLook); }},
    {KZCONTROL_FULGRADE_RESET, 0, 0,
     [](Camera& camera, In, Out&) {
         return reset(camera, kVideoLook) | reset(camera, kPhotoLook) | reset(camera, kTimeLapseLook);
     }},
    {KZCONTROL_ONSCREEN_SHORTCUTS_RESET, 0, 0, [](Camera& camera, In, Out&) { return reset(camera, kShortcuts); }},
    {KZCONTROL_SET_SETTING_ID, 8, 8, setSetting},
    {KZCONTROL_GET_SETTING_ID, 4, 4, getSetting},
    {KZCONTROL_GET_ALL_STATUS, 0, 0,
     [](Camera& camera, In, Out& out) {
         const auto record = camera.allStatus();
         out.assign(record.begin(), record.end());
         return int32_t{KZ_OK};
     }},
    {KZCONTROL_SYSTEM_SHUTDOWN, 0, 0, powerDown},
    {KZCONTROL_SYSTEM_SLEEP, 0, 0, powerDown},
    {KZCONTROL_LOCATE, 1, 1,
     [](Camera& camera, In in, Out&) { return setNumber(camera, status::kLocating, numberAt<uint8_t>(in)); }},
    {KZCONTROL_VOICE_PHOTO_TAKE, 0, 0, [](Camera& camera, In, Out&) { return captureIn(camera, kModePhoto); }},
    {KZCONTROL_VOICE_VIDEO_START, 0, 0, [](Camera& camera, In, Out&) { return captureIn(camera, kModeVideo); }},
    {KZCONTROL_VOICE_VIDEO_STOP, 0, 0, [](Camera& camera, In, Out&) { return camera.stopCapture(); }},
    {KZCONTROL_VOICE_TIMELAPSE_START, 0, 0, [](Camera& camera, In, Out&) { return captureIn(camera, kModeTimeLapse); }},
    {KZCONTROL_VOICE_TIMELAPSE_STOP, 0, 0, [](Camera& camera, In, Out&) { return camera.stopCapture(); }},
    {KZCONTROL_VOICE_BURST_TAKE, 0, 0, [](Camera& camera, In, Out&) { return captureIn(camera, kModePhoto); }},
    {KZCONTROL_VOICE_TAG, 0, 0, [](Camera& camera, In, Out&) { return camera.tagMoment(); }},
    {KZCONTROL_VOICE_MODE, 1, 4, voiceMode},
    {KZCONTROL_VOICE_EDIT_MY_STORY, 0, 0, nothingToDo},
    {KZCONTROL_VOICE_DELETE_LAST, 0, 0, [](Camera& camera, In, Out&) { return camera.deleteLast(); }},
    {KZCONTROL_BLE_CONTROL, 4, 4, nothingToDo},
    {KZCONTROL_VIDEO_VELOSCAN_SPEED_RAMP_SET, 4, 4,
     [](Camera& camera, In in, Out&) { return setNumber(camera, status::kSpeedRamp, numberAt<uint8_t>(in)); }},
    {KZCONTROL_VIDEO_VELOSCAN_SPEED_RAMP_ACTIVE_SET, 4, 4,
     [](Camera& camera, In in, Out&) { return setNumber(camera, status::kSpeedRampActive, numberAt<uint8_t>(in)); }},
    {KZCONTROL_SYSTEM_BUTTON_SET, 8, 8, button},
    {KZCONTROL_SET_IN_CONTEXTUAL_MENU, 1, 1,
     [](Camera& camera, In in, Out&) { return setNumber(camera, status::kInContextualMenu, numberAt<uint8_t>(in)); }},
    {KZCONTROL_SET_CAMERA_CONTROL_STATUS, 1, 1,
     [](Camera& camera, In in, Out&) { return setNumber(camera, status::kControlOwner, numberAt<uint8_t>(in)); }},
    {KZCONTROL_SET_CAH_AUTO_CLEAR, 1, 1,
     [](Camera& camera, In in, Out&) {
         camera.setCsiNumber(CSI_CAH_AUTO_CLEAR, numberAt<uint8_t>(in));
         return int32_t{KZ_OK};
     }},
    {KZCONTROL_QUICK_CAPTURE_START, 1, 1, [](Camera& camera, In, Out&) { return camera.startCapture(); }},
    {KZCONTROL_PRESET_CUSTOM_CREATE, 0, kAnyLength, createPreset},
    {KZCONTROL_PRESET_CUSTOM_REMOVE, 0, kAnyLength,
     onPreset<requests::KZC_Preset_Custom_Remove_Req, &Camera::removePreset>},
    {KZCONTROL_PRESET_SET_ORDER, 0, kAnyLength, orderPreset},
    {KZCONTROL_PRESET_LOAD, 0, kAnyLength, onPreset<requests::KZC_Preset_Load_Req, &Camera::loadPreset>},
    {KZCONTROL_PRESET_EDIT_START, 0, kAnyLength,
     onPreset<requests::KZC_Preset_Edit_Start_Req, &Camera::startPresetEdit>},
    {KZCONTROL_PRESET_EDIT_CANCEL, 0, 0, [](Camera& camera, In, Out&) { return camera.cancelPresetEdit(); }},
    {KZCONTROL_PRESET_EDIT_STORE, 0, 0, [](Camera& camera, In, Out&) { return camera.storePresetEdit(); }},
    {KZCONTROL_PRESET_FACTORY_RESET, 0, kAnyLength,
     onPreset<requests::KZC_Preset_Factory_Reset_Req, &Camera::factoryResetPreset>},
    {KZCONTROL_PRESET_GET_PRESETS, 0, 0, getPresets},
    {KZCONTROL_PRESET_SET_TITLE_AND_ICON, 0, kAnyLength, retitlePreset},
    {KZCONTROL_PRESET_GET_ACTIVE_PRESET, 0, 0, getActivePreset},
    {KZCONTROL_PRESET_GET_ACTIVE_GROUP, 0, 0, getActiveGroup},
};

}  // namespace

int32_t executeControlCommand(CameraModel& camera, uint32_t id, ByteView parameter, Bytes& reply) {
    const auto row = std::find_if(std::begin(kRows), std::end(kRows), [id](const Row& one) { return one.id == id; });
    if (row == std::end(kRows)) {
        return KZ_ERR_NOT_SUPPORTED;
    }
    if (parameter.size() < row->shortest || parameter.size() > row->longest) {
        return KZ_ERR_INVALID_PARAM;
    }
    return row->execute(camera, parameter, reply);
}

}  // namespace kzsim
