// The protobuf commands: one row per action with its request, the camera calls and the answer.
#include "handlersFixture.h"
#include "wsdkCommands/WSDK_RequestCreateCustomPreset.pb.h"

namespace {

class CommandProtobufTest : public HandlersTest<BleCommandMessage> {};

constexpr uint8_t kHigh = 241;

Bytes Success(uint8_t action) {
    return {kHigh, static_cast<uint8_t>(action | 0x80), 0x08, 0x01};
}
Bytes Unknown(uint8_t action) {
    return {kHigh, static_cast<uint8_t>(action | 0x80), 0x08, 0x00};
}

struct Row {
    uint8_t action;
    Bytes payload;
    Calls calls;
    bool reportsRefusal;  // RESULT_UNKNOWN when the camera refuses the last call, else always RESULT_SUCCESS
    const char* name;
    std::vector<std::string> accepted = {};  // further texts
    std::vector<std::string> refused = {};
};

const Row kActions[] = {
    {105, {8, 2}, {Command(92, {2})}, true, "Command:  WSDK_CMD_ID_REQUEST_SET_CAMERA_CONTROL_STATUS"},
    {106, {8, 1}, {Command(90, {1})}, true, "Command:  WSDK_CMD_ID_REQUEST_SET_IN_CONTEXTUAL_MENU"},
    {107,
     {8, 1},
     {CsiSet(138, {1})},
     true,
     "Command:  WSDK_CMD_ID_REQUEST_SET_TURBO_ACTIVE",
     {"TURBO ACTIVE = 1, err=0"},
     {"TURBO ACTIVE = 1, err=6"}},
    {108,
     {8, 1},
     {Command(86, Le32(1))},
     true,
     "Command:  WSDK_CMD_ID_REQUEST_SET_VELOSCAN_SPEED_RAMP_ACTIVE",
     {"KZCONTROL_VIDEO_VELOSCAN_SPEED_RAMP_ACTIVE_SET: veloscan speed ramp active:1 err=0"}},
    {109,
     {8, 12},
     {Command(85, Le32(12))},
     true,
     "Command:  WSDK_CMD_ID_REQUEST_SET_VELOSCAN_SPEED_RAMP",
     {"KZCONTROL_VIDEO_VELOSCAN_SPEED_RAMP_SET: veloscan speed ramp:12 err=0"}},
    {110,
     {8, 5},
     {Command(74, {8, 5})},
     false,
     "Command:  WSDK_CMD_ID_REQUEST_PRESET_REMOVE",
     {"Success KZCONTROL_PRESET_REMOVE"},
     {"Failed KZCONTROL_PRESET_REMOVE err=6"}},
    {111,
     {},
     {Command(84)},
     true,
     "Command: WSDK_CMD_ID_REQUEST_SHORTCUTS_RESET",
     {},
     {"KZCONTROL_ONSCREEN_SHORTCUTS_RESET err=6"}},
    {114,
     {8, 5},
     {Command(77, {8, 5})},
     true,
     "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_EDIT_START",
     {"Success KZCONTROL_PRESET_EDIT_START"},
     {"Failed KZCONTROL_PRESET_EDIT_START"}},
    {115, {}, {Command(78)}, true, "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_EDIT_CANCEL"},
    {116, {}, {Command(79)}, true, "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_EDIT_STORE"},
    {117,
     {8, 5},
     {Command(80, {8, 5})},
     false,
     "Command: WSDK_CMD_ID_REQUEST_SET_PRESET_FACTORY_RESET",
     {"Success KZCONTROL_PRESET_FACTORY_RESET"},
     {"Failed KZCONTROL_PRESET_FACTORY_RESET"}},
    {119,
     {8, 5, 16, 2},
     {Command(75, {8, 5, 16, 2})},
     false,
     "Command: WSDK_CMD_ID_REQUEST_PRESET_SET_ORDER",
     {"Success  KZCONTROL_PRESET_SET_ORDER"},
     {"WSDK_CMD_ID_REQUEST_PRESET_SET_ORDER err=6"}},
    {120,
     {},
     {CsiSet(73, {2})},
     true,
     "Command: WSDK_CMD_ID_REQUEST_RELEASE_NETWORK",
     {},
     {"csi_set CSI_WMS_REQUEST WMS_REQUEST_UX_CANCEL Failed"}},
    {122, {8, 6}, {CsiSet(73, Le32(6))}, false, "Command: WSDK_CMD_ID_REQUEST_SET_OTA_CMD"},
    {122, {}, {CsiSet(73, Le32(5))}, false, "Command: WSDK_CMD_ID_REQUEST_SET_OTA_CMD"},
    {123, {8, 1}, {Command(18, Le32(1))}, false, "WSDK_CMD_ID_REQUEST_SET_BAND_SELECT band=1"},
    {124, {}, {CsiSet(128, {0})}, false, "Command: WSDK_CMD_ID_REQUEST_CLEAR_MOBILE_OFFLOAD_NEW_MEDIA_FLAG"},
    {125, {8, 3}, {CsiSet(30, Le32(3))}, false, "Command: WSDK_CMD_ID_REQUEST_SET_SYSTEM_NOTIFY_EVENT"},
    {126, {}, {CsiSet(87, {0x76, 0x10, 0xFF, 0xFF})}, true, "Command: WSDK_CMD_ID_REQUEST_SET_CLIENT_INFO"},
    {127, {}, {}, false, "Command: WSDK_CMD_ID_REQUEST_SET_CAH_SETUP_MODE"},
};

void Refuse(const Call& call) {
    if (call.operation == "command") {
        fakes::OnCommand(call.id, 6);
    } else {
        fakes::OnCsiSet(static_cast<uint8_t>(call.id), 6);
    }
}

}  // namespace

TEST_F(CommandProtobufTest, EachActionReachesTheCameraAndIsAnswered) {
    for (const Row& row : kActions) {
        SCOPED_TRACE(row.name);
        fakes::Reset();
        const fakes::LogCapture log(KZ_LOG_INFO);

        const Outcome outcome = Run(Bytes{kHigh, row.action} + row.payload);

        EXPECT_EQ(CallsAfterReport(), row.calls);
        EXPECT_EQ(outcome.answer, Success(row.action));
        EXPECT_TRUE(log.Has(row.name, KZ_LOG_DEBUG));
        for (const std::string& text : row.accepted) {
            EXPECT_TRUE(log.Has(text)) << text;
        }
    }
    EXPECT_EQ(KzBleServer::GetInstance()->GetLastSystemNotifyEvent(), 3u);
}

TEST_F(CommandProtobufTest, EachActionAnswersARefusalInItsOwnWay) {
    for (const Row& row : kActions) {
        if (row.calls.empty()) {
            continue;
        }
        SCOPED_TRACE(row.name);
        fakes::Reset();
        Refuse(row.calls.back());
        const fakes::LogCapture log(KZ_LOG_INFO);

        const Outcome outcome = Run(Bytes{kHigh, row.action} + row.payload);

        EXPECT_EQ(outcome.answer, row.reportsRefusal ? Unknown(row.action) : Success(row.action));
        for (const std::string& text : row.refused) {
            EXPECT_TRUE(log.Has(text)) << text;
        }
    }
}

TEST_F(CommandProtobufTest, TheShutterIsAnsweredWhateverTheCameraSays) {
    for (const int result : {0, 5}) {
        fakes::OnCommand(KZCONTROL_COMMAND_SHUTTER, result);
        const fakes::LogCapture log(KZ_LOG_INFO);

        const Outcome outcome = Run({240, 1, 8, 1});

        EXPECT_EQ(CallsAfterReport(), Calls{Command(3, Le32(1))});
        EXPECT_EQ(outcome.answer, (Bytes{0xF0, 0x81, 0x08, 0x01}));
        EXPECT_TRUE(log.Has("execute pb={08 01 00 00 00}", KZ_LOG_INFO));
        EXPECT_TRUE(log.Has("Command: eBleCommandProtobufCmd", KZ_LOG_INFO));
        EXPECT_TRUE(log.Has("protobuf shutter=1", KZ_LOG_INFO));
    }
    Run({240, 1, 8, 5});
    EXPECT_EQ(CallsAfterReport(), Calls{Command(3, Le32(0))}) << "an unknown enumerator is not in the field";
}

TEST_F(CommandProtobufTest, UnknownActionsAreRefused) {
    for (int action = 0; action < 256; ++action) {
        const auto byte = static_cast<uint8_t>(action);
        if (action < 104 || action == 112 || action == 113 || action > 127) {
            const fakes::LogCapture log(KZ_LOG_ERROR);
            EXPECT_EQ(Run({kHigh, byte, 8, 1}).answer, (Bytes{kHigh, 2}));
            EXPECT_EQ(log.Texts(), std::vector<std::string>{"Unknown protobuf cmd_high message type"}) << action;
        }
        if (action != 1) {
            const fakes::LogCapture log(KZ_LOG_ERROR);
            EXPECT_EQ(Run({240, byte, 8, 1}).answer, (Bytes{240, 2}));
            EXPECT_EQ(log.Texts(), std::vector<std::string>{"Unknown protobuf cmd_low message type"}) << action;
        }
    }
}

TEST_F(CommandProtobufTest, TheDumpShowsZerosBeyondThePayload) {
    const fakes::LogCapture log(KZ_LOG_INFO);
    Run({kHigh, 111, 1, 2, 3, 4, 5, 6});
    EXPECT_TRUE(log.Has("Feature ID=241", KZ_LOG_INFO));
    EXPECT_TRUE(log.Has("Protobuf ID=111 size=6", KZ_LOG_INFO));
    EXPECT_TRUE(log.Has("pb={01 02 03 04 05}", KZ_LOG_INFO));

    Run({kHigh, 111, 9, 8});
    EXPECT_TRUE(log.Has("pb={09 08 00 00 00}", KZ_LOG_INFO));
    EXPECT_TRUE(log.Has("execute pb cmd high={09 08 00 00 00}", KZ_LOG_INFO));

    Run({kHigh, 111});
    EXPECT_TRUE(log.Has("pb={00 00 00 00 00}", KZ_LOG_INFO));
}

TEST_F(CommandProtobufTest, CloudUploadNeedsTheFeatureAndADecision) {
    const struct {
        const char* name;
        Bytes enabled;
        Bytes payload;
        Calls calls;
        Bytes answer;
    } kRows[] = {
        {"start", Le32(1), {8, 1}, {CsiGet(102), CsiSet(73, {1})}, Success(104)},
        {"cancel", Le32(1), {8, 0}, {CsiGet(102), CsiSet(73, {2})}, Success(104)},
        {"a one-byte value", {1}, {8, 1}, {CsiGet(102), CsiSet(73, {1})}, Success(104)},
        {"feature off", Le32(0), {8, 1}, {CsiGet(102)}, Unknown(104)},
        {"no value", {}, {8, 1}, {CsiGet(102)}, Unknown(104)},
        {"no decision", Le32(1), {}, {CsiGet(102)}, Unknown(104)},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        fakes::SetCsi(CSI_CAH_FEATURE_ENABLE, row.enabled);

        const Outcome outcome = Run(Bytes{kHigh, 104} + row.payload);

        EXPECT_EQ(CallsAfterReport(), row.calls);
        EXPECT_EQ(outcome.answer, row.answer);
    }
    fakes::SetCsi(CSI_CAH_FEATURE_ENABLE, Le32(1));
    fakes::OnCsiSet(CSI_WMS_REQUEST, 3);
    EXPECT_EQ(Run({kHigh, 104, 8, 1}).answer, Unknown(104));
    fakes::OnCsiGet(CSI_CAH_FEATURE_ENABLE, 3);
    EXPECT_EQ(Run({kHigh, 104, 8, 1}).answer, Unknown(104));
}

TEST_F(CommandProtobufTest, TheReplyToAPresetCreationIsPassedOnAsItIs) {
    wsdk_commands::WSDK_RequestCreateCustomPreset request;
    request.set_group_id(wsdk_commands::WSDK_PRESET_GROUP_ID_PHOTO);
    request.set_title_id(wsdk_commands::WSDK_PRESET_TITLE_BIKE);
    request.set_title_number(-1);
    const Bytes payload = fakes::BytesOf(request.SerializeAsString());
    fakes::OnCommand(KZCONTROL_PRESET_CUSTOM_CREATE, 0, {1, 2, 3, 0xFF});
    const fakes::LogCapture log(KZ_LOG_ERROR);

    const Outcome outcome = Run(Bytes{kHigh, 118} + payload);

    EXPECT_EQ(outcome.answer, (Bytes{kHigh, 118 | 0x80, 1, 2, 3, 0xFF}));
    const Bytes argument{8, 0xE9, 7, 16, 0xFF, 0xFF, 0xFF, 0xFF, 15, 24, 0, 32, 20, 40, 0xFF, 0xFF, 0xFF, 0xFF, 15};
    EXPECT_EQ(CallsAfterReport(), Calls{Command(73, argument)}) << "all five fields, those absent with their defaults";
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"KZCONTROL_PRESET_CUSTOM_CREATE success"});
}

TEST_F(CommandProtobufTest, APresetCreationThatIsRefusedOrTooLongIsAnswered) {
    fakes::OnCommand(KZCONTROL_PRESET_CUSTOM_CREATE, 6);
    const fakes::LogCapture log(KZ_LOG_ERROR);

    EXPECT_EQ(Run({kHigh, 118}).answer, (Bytes{kHigh, 118 | 0x80, 16, 0}));
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"KZCONTROL_PRESET_CUSTOM_CREATE, err=6 and length=0\n"});

    fakes::OnCommand(KZCONTROL_PRESET_CUSTOM_CREATE, 0, Bytes(1500, 7));
    EXPECT_EQ(Run({kHigh, 118}).answer.size(), 1502u);
    EXPECT_EQ(Run({kHigh, 118}, 1501).answer, (Bytes{kHigh, 1})) << "refused, not cut";
    EXPECT_EQ(Run({kHigh, 111}, 3).answer, (Bytes{kHigh, 1}));
}
