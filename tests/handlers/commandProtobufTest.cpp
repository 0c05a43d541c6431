// The protobuf commands: one row per action with its request, the camera calls and the answer.
#include "handlersFixture.h"

namespace {

using CommandProtobufTest = HandlersTest<BleCommandMessage>;

enum class Refusal { kTold, kNotTold };  // whether the camera's refusal makes the answer RESULT_UNKNOWN
using enum Refusal;

struct Row {
    uint8_t action;
    std::string payload;
    std::string calls;
    Refusal refusal;
    std::string name;
};

// clang-format off
const Row kActions[] = {
    {105, " 08 02", "command 92: 02", kTold, "Command:  WSDK_CMD_ID_REQUEST_SET_CAMERA_CONTROL_STATUS"},
    {106, " 08 01", "command 90: 01", kTold, "Command:  WSDK_CMD_ID_REQUEST_SET_IN_CONTEXTUAL_MENU"},
    {107, " 08 01", "csi_set 138: 01", kTold, "Command:  WSDK_CMD_ID_REQUEST_SET_TURBO_ACTIVE"},
    {108, " 08 01", "command 86: 01 00 00 00", kTold, "Command:  WSDK_CMD_ID_REQUEST_SET_VELOSCAN_SPEED_RAMP_ACTIVE"},
    {109, " 08 0c", "command 85: 0c 00 00 00", kTold, "Command:  WSDK_CMD_ID_REQUEST_SET_VELOSCAN_SPEED_RAMP"},
    {110, " 08 05", "command 74: 08 05", kNotTold, "Command:  WSDK_CMD_ID_REQUEST_PRESET_REMOVE"},
    {111, "", "command 84", kTold, "Command: WSDK_CMD_ID_REQUEST_SHORTCUTS_RESET"},
    {114, " 08 05", "command 77: 08 05", kTold, "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_EDIT_START"},
    {115, "", "command 78", kTold, "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_EDIT_CANCEL"},
    {116, "", "command 79", kTold, "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_EDIT_STORE"},
    {117, " 08 05", "command 80: 08 05", kNotTold, "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_FACTORY_RESET"},
    {119, " 08 05 10 02", "command 75: 08 05 10 02", kNotTold, "Command: WSDK_CMD_ID_REQUEST_PRESET_SET_ORDER"},
    {120, "", "csi_set 73: 02", kTold, "Command: WSDK_CMD_ID_REQUEST_RELEASE_NETWORK"},
    {122, " 08 06", "csi_set 73: 06 00 00 00", kNotTold, "Command: WSDK_CMD_ID_REQUEST_SET_OTA_CMD"},
    {122, "", "csi_set 73: 05 00 00 00", kNotTold, "Command: WSDK_CMD_ID_REQUEST_SET_OTA_CMD"},
    {123, " 08 01", "command 18: 01 00 00 00", kNotTold, "WSDK_CMD_ID_REQUEST_SET_BAND_SELECT band=1"},
    {124, "", "csi_set 128: 00", kNotTold, "Command: WSDK_CMD_ID_REQUEST_CLEAR_MOBILE_OFFLOAD_NEW_MEDIA_FLAG"},
    {125, " 08 03", "csi_set 30: 03 00 00 00", kNotTold, "Command: WSDK_CMD_ID_REQUEST_SET_SYSTEM_NOTIFY_EVENT"},
    {126, "", "csi_set 87: 76 10 ff ff", kTold, "Command: WSDK_CMD_ID_REQUEST_SET_CLIENT_INFO"},
    {127, "", "", kNotTold, "Command: WSDK_CMD_ID_REQUEST_SET_CAH_SETUP_MODE"},
};
// clang-format on

std::string Generic(uint8_t action, bool success) {
    return ToHex({241, static_cast<uint8_t>(action | 0x80)}) + (success ? " 08 01" : " 08 00");
}

}  // namespace

TEST_F(CommandProtobufTest, EachActionReachesTheCameraAndAnswersARefusalInItsOwnWay) {
    for (const bool refuses : {false, true}) {
        for (uint8_t id = 0; refuses && id < 255; ++id) {
            fakes::OnCommand(id, 6);
            fakes::OnCsiSet(id, 6);
        }
        for (const Row& row : kActions) {
            const std::string request = ToHex({241, row.action}) + row.payload;
            const std::string answer = Generic(row.action, !refuses || row.refusal == kNotTold);
            Play({row.name, request, row.calls, answer});
        }
    }
    EXPECT_EQ(m_camera.GetLastSystemNotifyEvent(), 3u);
}

TEST_F(CommandProtobufTest, TheShutterIsAnsweredWhateverTheCameraSays) {
    fakes::OnCommand(KZCONTROL_COMMAND_SHUTTER, 5);
    Play({"protobuf shutter=1", "f0 01 08 01", "command 3: 01 00 00 00", "f0 81 08 01"});
    // An unknown enumerator is not in the field. The dump shows five bytes, with zeros beyond the message.
    Play({"execute pb={08 05 00 00 00}", "f0 01 08 05", "command 3: 00 00 00 00", "f0 81 08 01"});
    Play({"execute pb cmd high={01 02 03 04 05}", "f1 6f 01 02 03 04 05 06", "command 84", "f1 ef 08 01"});
}

TEST_F(CommandProtobufTest, UnknownActionsAreRefused) {
    for (const uint8_t action : Bytes{0, 103, 112, 128, 255}) {
        Play({"Unknown protobuf cmd_high message type", ToHex({241, action, 8, 1}), "", "f1 02"});
    }
    for (const uint8_t action : Bytes{0, 2, 105, 255}) {
        Play({"Unknown protobuf cmd_low message type", ToHex({240, action, 8, 1}), "", "f0 02"});
    }
}

TEST_F(CommandProtobufTest, CloudUploadNeedsTheFeatureAndADecision) {
    const std::string start = "csi_get 102, csi_set 73: 01";
    fakes::SetCsi(CSI_CAH_FEATURE_ENABLE, Le32(0));
    Play({"", "f1 68 08 01", "csi_get 102", "f1 e8 08 00"});
    for (const Bytes& enabled : {Bytes{1}, Le32(1)}) {
        fakes::SetCsi(CSI_CAH_FEATURE_ENABLE, enabled);
        Play({"START CAH UPLOAD", "f1 68 08 01", start, "f1 e8 08 01"});
        Play({"CANCEL CAH UPLOAD", "f1 68 08 00", "csi_get 102, csi_set 73: 02", "f1 e8 08 01"});
        Play({"", "f1 68", "csi_get 102", "f1 e8 08 00"});
    }
    fakes::OnCsiSet(CSI_WMS_REQUEST, 3);
    Play({"", "f1 68 08 01", start, "f1 e8 08 00"});
    fakes::OnCsiGet(CSI_CAH_FEATURE_ENABLE, 3);
    Play({"", "f1 68 08 01", "csi_get 102", "f1 e8 08 00"});
}

TEST_F(CommandProtobufTest, TheReplyToAPresetCreationIsPassedOnWholeOrRefused) {
    // Photo group, title Bike, title number -1; the camera gets all five fields, those absent with their defaults.
    const std::string request = "f1 76 08 e9 07 20 14 28 ff ff ff ff ff ff ff ff ff 01";
    const std::string call = "command 73: 08 e9 07 10 ff ff ff ff 0f 18 00 20 14 28 ff ff ff ff 0f";
    fakes::OnCommand(KZCONTROL_PRESET_CUSTOM_CREATE, 0, {1, 2, 3, 0xFF});
    Play({"KZCONTROL_PRESET_CUSTOM_CREATE success", request, call, "f1 f6 01 02 03 ff"});

    fakes::OnCommand(KZCONTROL_PRESET_CUSTOM_CREATE, 6);
    Play({"KZCONTROL_PRESET_CUSTOM_CREATE, err=6 and length=0\n", request, call, "f1 f6 10 00"});

    fakes::OnCommand(KZCONTROL_PRESET_CUSTOM_CREATE, 0, Bytes(1500, 7));
    EXPECT_EQ(Run({241, 118}), (Bytes{241, 246} + Bytes(1500, 7)));
    EXPECT_EQ(Run({241, 118}, 1501), (Bytes{241, 1})) << "not cut";
    EXPECT_EQ(Run({241, 111}, 3), (Bytes{241, 1}));
}
