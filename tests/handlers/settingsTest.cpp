// The settings interface: plain settings checked against the camera, and the protobuf settings.
#include "handlersFixture.h"
#include "wsdkCommands/WSDK_RequestSetAuthCode.pb.h"

namespace {

using SettingsTest = HandlersTest<BleSettingsMessage>;

// clang-format off
const Exchange kSettings[] = {
    {"Executing Setting: id:2 value:4", "02 01 04",
     "optionIdExists 2: 3a 00 00 00 02 00 00 00 04 00 00 00, command 30: 02 00 00 00 04 00 00 00", "02 00"},
    {"Executing Setting: id:2 value:256", "02 04 00 00 01 00 09",
     "optionIdExists 2: 3a 00 00 00 02 00 00 00 00 01 00 00, command 30: 02 00 00 00 00 01 00 00", "02 00"},
    {"Executing Setting: id:2 value:256", "02 05 09 00 00 01 00",
     "optionIdExists 2: 3a 00 00 00 02 00 00 00 00 01 00 00, command 30: 02 00 00 00 00 01 00 00", "02 00"},
    {"Received invalid settingID 2 with value 5", "02 01 05",
     "optionIdExists 2: 3a 00 00 00 02 00 00 00 05 00 00 00", "02 02"},
    {"", "5b 01 05", "command 30: 5b 00 00 00 05 00 00 00", "5b 00"},  // setting 91 is not checked

    // Without a whole value it is no setting.
    {"", "", "", "00 02"},
    {"", "05", "", "05 02"},
    {"", "05 02 01", "", "05 02"},
    {"", "f3", "", "00 02"},
};

const Exchange kActions[] = {
    {"Command: eBleCommandProtobufCmd", "f3 71 08 01", "command 3: 01 00 00 00", "f3 f1 08 01"},
    {"Setting: WSDK_SETTING_ID_REQUEST_SET_CAH_AUTO_CLEAR", "f3 77 08 01", "command 97: 01", "f3 f7 08 01"},
    {"Setting: WSDK_SETTING_ID_REQUEST_SET_CAH_SERVER", "f3 7c 08 02", "csi_set 124: 02 00 00 00", "f3 fc 08 01"},
    {"Setting: WSDK_SETTING_ID_REQUEST_SET_CAH_ENABLE", "f3 7d 08 01", "csi_set 108: 01 00 00 00", "f3 fd 08 01"},
    {"AssociationState ZorvikUserId = user", "f3 7f 0a 04 75 73 65 72", "csi_set 104: 75 73 65 72", "f3 ff 08 01"},
    {"setAssociationStateMsg.has_association_state()", "f3 7f 10 00", "csi_set 104: 00", "f3 ff 08 01"},
    {"Setting: WSDK_SETTING_ID_REQUEST_SET_ASSOCIATION_STATE", "f3 7f 0a 01 75 10 00",
     "csi_set 104: 75, csi_set 104: 00", "f3 ff 08 01"},
};
// clang-format on

Bytes AuthCode(const std::string& code) {
    wsdk_commands::WSDK_RequestSetAuthCode request;
    request.set_auth_code(code);
    return Bytes{243, 126} + fakes::BytesOf(request.SerializeAsString());
}

}  // namespace

TEST_F(SettingsTest, ASettingIsCheckedAndSentWithItsValue) {
    fakes::SetOptionExists([](uint32_t, uint32_t, uint32_t option) { return option != 5; });
    PlayAll(kSettings);
}

TEST_F(SettingsTest, TheCamerasRefusalIsTheAnswer) {
    fakes::OnCommand(KZCONTROL_SET_SETTING_ID, 6);
    EXPECT_EQ(Answer("02 01 04"), "02 06");
    fakes::OnCommand(KZCONTROL_SET_SETTING_ID, -17);
    EXPECT_EQ(Answer("02 01 04"), "02 01");

    for (uint8_t id = 0; id < 255; ++id) {
        fakes::OnCommand(id, 6);
        fakes::OnCsiSet(id, 6);
    }
    for (const Exchange& row : kActions) {
        const bool isShutter = row.request.starts_with("f3 71");
        EXPECT_EQ(Answer(row.request), row.answer.substr(0, 9) + (isShutter ? "01" : "00")) << row.request;
    }
}

TEST_F(SettingsTest, EachActionReachesTheCamera) {
    PlayAll(kActions);
    Play({"status = CSI_OK", "f3 7f 10 01", "", "f3 ff 08 01"});  // nothing to store
}

TEST_F(SettingsTest, UnknownActionsAreRefusedUnderSettingIdZero) {
    for (const uint8_t action : Bytes{0, 112, 114, 128}) {
        Play({"Unknown protobuf message type", ToHex({243, action, 8, 1}), "", "00 01"});
    }
}

TEST_F(SettingsTest, ACodeRestartsTheDeviceManagerWithoutReachingTheShell) {
    const std::string restart = "system: " + ToHex(fakes::BytesOf("killall -9 kzDeviceManager")) +
                                ", system: " + ToHex(fakes::BytesOf("/usr/local/zorvik/bin/kzDeviceManager -p -l 0 &"));
    for (const int result : {0, -1}) {  // also when no shell can be started
        fakes::SetSystemResult(result);
        const fakes::LogCapture log(KZ_LOG_ERROR);

        EXPECT_EQ(Run(AuthCode("x; reboot")), (Bytes{243, 254, 8, 1}));

        EXPECT_EQ(CallsAfterReport(), restart + ", csi_set 107: " + ToHex(fakes::BytesOf("x; reboot")));
        EXPECT_EQ(log.Texts().size(), result == 0 ? 0u : 2u);
        EXPECT_EQ(log.Has("killall: system errno 12 \n") && log.Has("start: system errno 12 \n"), result != 0);
    }
    fakes::OnCsiSet(107, 6);
    EXPECT_EQ(Run(AuthCode("x")), (Bytes{243, 254, 8, 0}));
}

TEST_F(SettingsTest, TextsArriveAsTheyAreAndLongOnesCut) {
    const std::string cut = ToHex(Bytes(1400, 'a'));
    const std::string tooLong = " 0a f9 0a " + cut + " 61";
    Play({"", "f3 7f 0a 03 ff 00 80", "csi_set 104: ff 00 80", "f3 ff 08 01"});  // not UTF-8
    Play({"Zorvik UserID length exceeds limit, truncating!", "f3 7f" + tooLong, "csi_set 104: " + cut, "f3 ff 08 01"});
    const fakes::LogCapture log(KZ_LOG_ERROR);
    EXPECT_EQ(Answer("f3 7e" + tooLong), "f3 fe 08 01");
    EXPECT_EQ(fakes::Calls("csi_set").back(), fakes::CsiSet(107, Bytes(1400, 'a')));
    EXPECT_EQ(log.Texts(), Texts{"AuthCode length exceeds limit, truncating!"});
}

TEST_F(SettingsTest, WithoutTheModelOrRoomForItsAnswerASettingFails) {
    EXPECT_EQ(Answer("f3 7d 08 01", 3), "00 01");
    EXPECT_EQ(Answer("02 01 04", 1), "");

    UseModel(nullptr);
    BleSDK::GetInstance()->m_settingsPath = "/nowhere/settings.json";
    EXPECT_EQ(Answer("02 01 04"), "02 01");
    EXPECT_TRUE(fakes::Calls("command").empty());
}
