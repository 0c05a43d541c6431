// The settings interface: plain settings checked against the camera, and the protobuf settings.
#include "handlersFixture.h"
#include "wsdkCommands/WSDK_RequestSetAssociationState.pb.h"
#include "wsdkCommands/WSDK_RequestSetAuthCode.pb.h"

namespace {

class SettingsTest : public HandlersTest<BleSettingsMessage> {
  protected:
    Outcome Send(uint8_t action, const Bytes& payload) { return Run(Bytes{243, action} + payload); }
};

constexpr const char* kKillDeviceManager = "killall -9 kzDeviceManager";
constexpr const char* kStartDeviceManager = "/usr/local/zorvik/bin/kzDeviceManager -p -l 0 &";

Bytes Success(uint8_t action) {
    return {243, static_cast<uint8_t>(action | 0x80), 0x08, 0x01};
}
Bytes Unknown(uint8_t action) {
    return {243, static_cast<uint8_t>(action | 0x80), 0x08, 0x00};
}

Call Check(uint32_t setting, uint32_t option) {
    return {"optionIdExists", setting, Le32({58, setting, option})};
}

Bytes AuthCode(const std::string& code) {
    wsdk_commands::WSDK_RequestSetAuthCode request;
    request.set_auth_code(code);
    return fakes::BytesOf(request.SerializeAsString());
}

Bytes UserId(const std::string& id) {
    wsdk_commands::WSDK_RequestSetAssociationState request;
    request.set_zorvik_user_id(id);
    return fakes::BytesOf(request.SerializeAsString());
}

}  // namespace

TEST_F(SettingsTest, ASettingIsCheckedAndSentWithItsValue) {
    const struct {
        Bytes request;
        uint32_t value;
    } kRows[] = {{{2, 1, 4}, 4}, {{2, 4, 0, 0, 1, 0}, 256}, {{2, 1, 4, 9, 9}, 4}, {{2, 5, 9, 0, 0, 1, 0}, 256}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(testing::PrintToString(row.request));
        const fakes::LogCapture log(KZ_LOG_DEBUG);

        const Outcome outcome = Run(row.request);

        EXPECT_EQ(outcome.answer, (Bytes{2, 0}));
        EXPECT_EQ(CallsAfterReport(), (Calls{Check(2, row.value), Command(30, Le32({2, row.value}))}));
        EXPECT_TRUE(log.Has("Executing Setting: id:2 value:" + std::to_string(row.value), KZ_LOG_DEBUG));
    }
}

TEST_F(SettingsTest, AnOptionThatIsNotAllowedNowIsNotSent) {
    fakes::SetOptionExists([](uint32_t, uint32_t, uint32_t option) { return option != 4; });
    const fakes::LogCapture log(KZ_LOG_INFO);

    const Outcome outcome = Run({2, 1, 4});

    EXPECT_EQ(outcome.answer, (Bytes{2, 2}));
    EXPECT_EQ(fakes::Calls("command"), Calls());
    EXPECT_TRUE(log.Has("Received invalid settingID 2 with value 4", KZ_LOG_INFO));
}

TEST_F(SettingsTest, Setting91IsNeitherCheckedNorLogged) {
    fakes::SetOptionExists([](uint32_t, uint32_t, uint32_t) { return false; });
    const fakes::LogCapture log(KZ_LOG_DEBUG);

    const Outcome outcome = Run({91, 1, 50});

    EXPECT_EQ(outcome.answer, (Bytes{91, 0}));
    EXPECT_EQ(CallsAfterReport(), Calls{Command(30, Le32({91, 50}))});
    EXPECT_EQ(log.Texts(), std::vector<std::string>());
}

TEST_F(SettingsTest, TheControlDaemonsRefusalIsTheAnswer) {
    fakes::OnCommand(KZCONTROL_SET_SETTING_ID, 6);
    EXPECT_EQ(Run({2, 1, 4}).answer, (Bytes{2, 6}));
    fakes::OnCommand(KZCONTROL_SET_SETTING_ID, -17);
    EXPECT_EQ(Run({2, 1, 4}).answer, (Bytes{2, 1}));
}

TEST_F(SettingsTest, WithoutTheModelASettingFails) {
    BleSDK* sdk = BleSDK::GetInstance();
    delete sdk->m_pSettingsMapping;
    sdk->m_pSettingsMapping = nullptr;
    sdk->m_settingsPath = "/nowhere/settings.json";

    EXPECT_EQ(Run({2, 1, 4}).answer, (Bytes{2, 1}));
    EXPECT_EQ(fakes::Calls("command"), Calls());
}

TEST_F(SettingsTest, MessagesWithoutAWholeValueAreParseErrors) {
    EXPECT_EQ(Run({}).answer, (Bytes{0, 2}));
    EXPECT_EQ(Run({5}).answer, (Bytes{5, 2}));
    EXPECT_EQ(Run({5, 0}).answer, (Bytes{5, 2}));
    EXPECT_EQ(Run({5, 2, 1}).answer, (Bytes{5, 2}));
    EXPECT_EQ(Run({243}).answer, (Bytes{0, 2}));
    EXPECT_EQ(fakes::Calls(), Calls());
}

TEST_F(SettingsTest, AThirdPartyIsReportedAsAPhone) {
    m_client.m_deviceType = KZ_CALLER_THIRD_PARTY;
    fakes::OnCsiSet(CSI_ANALYTICS_SOURCE, 4);
    const fakes::LogCapture log(KZ_LOG_ERROR);

    EXPECT_EQ(Run({2, 1, 4}).answer, (Bytes{2, 0}));

    EXPECT_EQ(fakes::Calls()[0], CsiSet(92, {KZ_CALLER_BLE_RC}));
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"csi_set CSI_ANALYTICS_SOURCE failed - status 4"});
}

TEST_F(SettingsTest, EachActionReachesTheCameraAndAnswersARefusalInItsOwnWay) {
    const Calls restart{fakes::System(kKillDeviceManager), fakes::System(kStartDeviceManager)};
    const struct {
        uint8_t action;
        Bytes payload;
        Calls calls;
        bool reportsRefusal;
        const char* name;
        int level = KZ_LOG_DEBUG;
    } kRows[] = {
        {113, {8, 1}, {Command(3, Le32(1))}, false, "Command: eBleCommandProtobufCmd", KZ_LOG_INFO},
        {119, {8, 1}, {Command(97, {1})}, true, "Setting: WSDK_SETTING_ID_REQUEST_SET_CAH_AUTO_CLEAR"},
        {124, {8, 2}, {CsiSet(124, Le32(2))}, true, "Setting: WSDK_SETTING_ID_REQUEST_SET_CAH_SERVER"},
        {125, {8, 1}, {CsiSet(108, Le32(1))}, true, "Setting: WSDK_SETTING_ID_REQUEST_SET_CAH_ENABLE"},
        {126,
         AuthCode("secret; reboot"),
         {restart[0], restart[1], CsiSet(107, fakes::BytesOf("secret; reboot"))},
         true,
         "Command: eBleCommandRequestSetAuthCode"},
        {127,
         UserId("user"),
         {CsiSet(104, fakes::BytesOf("user"))},
         true,
         "Setting: WSDK_SETTING_ID_REQUEST_SET_ASSOCIATION_STATE"},
        {127, {16, 0}, {CsiSet(104, {0})}, true, "setAssociationStateMsg.has_association_state()", KZ_LOG_INFO},
        {127,
         UserId("user") + Bytes{16, 0},
         {CsiSet(104, fakes::BytesOf("user")), CsiSet(104, {0})},
         true,
         "AssociationState ZorvikUserId = user",
         KZ_LOG_INFO},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        fakes::Reset();
        const fakes::LogCapture log(KZ_LOG_INFO);

        EXPECT_EQ(Send(row.action, row.payload).answer, Success(row.action));
        EXPECT_EQ(CallsAfterReport(), row.calls);
        EXPECT_TRUE(log.Has(row.name, row.level));

        const Call& last = row.calls.back();
        if (last.operation == "command") {
            fakes::OnCommand(last.id, 6);
        } else {
            fakes::OnCsiSet(static_cast<uint8_t>(last.id), 6);
        }
        EXPECT_EQ(Send(row.action, row.payload).answer, row.reportsRefusal ? Unknown(row.action) : Success(row.action));
    }
}

TEST_F(SettingsTest, AnAssociationRequestWithNothingToStoreSucceeds) {
    for (const Bytes& payload : {Bytes{}, Bytes{16, 1}, Bytes{16, 2}, Bytes{16, 9}}) {
        const fakes::LogCapture log(KZ_LOG_INFO);
        EXPECT_EQ(Send(127, payload).answer, Success(127));
        EXPECT_EQ(CallsAfterReport(), Calls());
        EXPECT_TRUE(log.Has("status = CSI_OK", KZ_LOG_INFO));
    }
}

TEST_F(SettingsTest, LongTextsAreCutAndStillSucceed) {
    const fakes::LogCapture log(KZ_LOG_ERROR);

    EXPECT_EQ(Send(126, AuthCode(std::string(1500, 'a'))).answer, Success(126));
    EXPECT_EQ(CallsAfterReport().back(), CsiSet(107, Bytes(1400, 'a')));
    EXPECT_EQ(Send(127, UserId(std::string(1401, 'u'))).answer, Success(127));
    EXPECT_EQ(CallsAfterReport().back(), CsiSet(104, Bytes(1400, 'u')));

    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"AuthCode length exceeds limit, truncating!",
                                                     "Zorvik UserID length exceeds limit, truncating!"}));
}

TEST_F(SettingsTest, TextsThatAreNotUtf8ArriveAsTheyAre) {
    Send(126, {10, 3, 0xFF, 0x00, 0x80});
    EXPECT_EQ(CallsAfterReport().back(), CsiSet(107, {0xFF, 0x00, 0x80}));
}

TEST_F(SettingsTest, AShellThatCannotBeStartedIsReportedAndTheCodeIsStored) {
    fakes::SetSystemResult(-1, ENOMEM);
    const fakes::LogCapture log(KZ_LOG_ERROR);

    EXPECT_EQ(Send(126, AuthCode("code")).answer, Success(126));

    const std::string code = std::to_string(ENOMEM);
    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"killall: system errno " + code + " \n",
                                                     "start: system errno " + code + " \n"}));
}

TEST_F(SettingsTest, UnknownActionsAreRefusedUnderSettingIdZero) {
    Run({5, 1, 1});
    for (const uint8_t action : Bytes{0, 112, 114, 123, 128, 200, 255}) {
        const fakes::LogCapture log(KZ_LOG_ERROR);
        EXPECT_EQ(Send(action, {8, 1}).answer, (Bytes{0, 1}));
        EXPECT_EQ(log.Texts(), std::vector<std::string>{"Unknown protobuf message type"});
    }
}

TEST_F(SettingsTest, AnAnswerThatDoesNotFitIsRefused) {
    EXPECT_EQ(Run({243, 125, 8, 1}, 4).answer, Success(125));
    EXPECT_EQ(Run({243, 125, 8, 1}, 3).answer, (Bytes{0, 1}));
    EXPECT_EQ(Run({2, 1, 4}, 1).answer, Bytes());
}
