// The plain commands: one row per request with what the camera is asked and what the client is answered.
#include "handlersFixture.h"

namespace {

class CommandTest : public HandlersTest<BleCommandMessage> {};

struct Row {
    const char* name;
    Bytes request;
    Calls calls;
    Bytes answer;
    uint8_t callerId = KZ_CALLER_BLE_RC;
};

// Every command that becomes one command of the control daemon.
const Row kForwarded[] = {
    {"eBleCommandShutter", {1, 1, 1}, {Command(3, {1})}, {1, 0}},
    {"eBleCommandMode", {2, 1, 1}, {Command(4, Le32(1))}, {2, 0}},
    {"eBleCommandMode", {2, 1, 1}, {Command(59, Le32(1))}, {2, 0}, KZ_CALLER_VOICE},
    {"eBleCommandModeSubMode", {3, 1, 2, 2, 1, 0}, {Command(5, Le32({2, 256}))}, {3, 0}},
    {"eBleCommandModeSubMode", {3, 1, 0, 1, 0}, {Command(59, {0})}, {3, 0}, KZ_CALLER_VOICE},
    {"eBleCommandModeSubMode", {3, 1, 1, 1, 0}, {Command(59, {1})}, {3, 0}, KZ_CALLER_VOICE},
    {"eBleCommandModeSubMode", {3, 1, 2, 1, 1}, {Command(59, {2})}, {3, 0}, KZ_CALLER_VOICE},
    {"eBleCommandModeSubMode", {3, 1, 2, 1, 0}, {Command(59, {19})}, {3, 0}, KZ_CALLER_VOICE},
    {"eBleCommandModeSubMode", {3, 1, 3, 1, 0}, {Command(59, {255})}, {3, 0}, KZ_CALLER_VOICE},
    {"eBleCommandPower", {4}, {Command(35)}, {4, 0}},
    {"eBleCommandSleep", {5}, {Command(36)}, {5, 0}},
    {"eBleCommandCancelWifiRemotePair", {8}, {Command(26)}, {8, 0}},
    {"eBleCommandVideoFulgradeReset", {10, 1, 9}, {Command(27)}, {10, 0}},
    {"eBleCommandMultiShotFulgradeReset", {11, 1, 9}, {Command(29)}, {11, 0}},
    {"eBleCommandPhotoFulgradeReset", {12, 1, 9}, {Command(28)}, {12, 0}},
    {"eBleCommandSetDateAndTime",
     {13, 7, 0x07, 0xE8, 2, 29, 23, 59, 58},
     {Command(6, {0xE8, 0x07, 2, 29, 23, 59, 58, 0xFF, 0x7F, 0})},
     {13, 0}},
    {"eBleCommandSetDateAndTimeDST",
     {15, 10, 0x07, 0xE8, 2, 29, 23, 59, 58, 0xFD, 0x30, 1},
     {Command(6, {0xE8, 0x07, 2, 29, 23, 59, 58, 0x30, 0xFD, 1})},
     {15, 0}},
    {"eBleCommandLocate", {22, 1, 1}, {Command(37, {1})}, {22, 0}},
    {"eBleCommandAPControl", {23, 4, 0, 0, 1, 0}, {Command(16, Le32(256))}, {23, 0}},
    {"eBleCommandTagMoment", {24}, {Command(7)}, {24, 0}},
    {"eBleCommandRemotePair", {25}, {Command(25)}, {25, 0}},
    {"eBleCommandiVoiceEditMyStory", {26}, {Command(62)}, {26, 0}},
    {"eBleCommandSetButton",
     {27, 4, 0xAA, 0xBB, 3, 2},
     {CsiSet(92, {KZ_CALLER_BLE_RC}), Command(88, Le32({3, 2}))},
     {27, 0}},
    {"eBleCommandVoicePhotoTake", {32}, {Command(52)}, {32, 0}},
    {"eBleCommandVoiceVideoStart", {33}, {Command(53)}, {33, 0}},
    {"eBleCommandVoiceVideoStop", {34}, {Command(54)}, {34, 0}},
    {"eBleCommandVoiceTimelapseStart", {35}, {Command(55)}, {35, 0}},
    {"eBleCommandVoiceTimelapseStop", {36}, {Command(56)}, {36, 0}},
    {"eBleCommandVoiceBurstTake", {37}, {Command(57)}, {37, 0}},
    {"eBleCommandVoiceTag", {38}, {Command(58)}, {38, 0}},
    {"eBleCommandiVoiceDeleteLast", {39}, {Command(63)}, {39, 0}},
    {"eBleCommandBLEControl", {61, 1, 5}, {Command(65, Le32(5))}, {61, 0}},
    {"eBleCommandBLEControl", {61}, {Command(65, Le32(0))}, {61, 0}},
    {"eBleCommandSetMode", {62, 2, 0x01, 0x02}, {Command(67, {0x02, 0x01})}, {62, 0}},
    {"eBleCommandFulgradeReset", {63}, {Command(68)}, {63, 0}},
    {"eBleCommandSetPreset", {64, 2, 0x01, 0x00}, {Command(76, {0x08, 0x80, 0x02})}, {64, 0}},
    {"eBleCommandSetPreset", {64}, {Command(76, {0x08, 0x00})}, {64, 0}},
    {"eBleCommandSetPreset", {64, 1, 1, 1, 1}, {Command(76, {0x08, 0x00})}, {64, 0}},
    {"eBleCommandDeleteAllFiles", {65}, {Command(12)}, {65, 0}},
    {"eBleCommandDeleteLastFile", {66}, {Command(10)}, {66, 0}},
    {"eBleCommandGetThirdPartyApiVersion", {81}, {}, {81, 0, 1, 2, 1, 0}},
};

const char kNeedOne[] = "Need one parameter for this command, %d provided!";
const char kNeedZero[] = "Need zero parameter for this command, %d provided!";
const char kNeedZeros[] = "Need zero parameters for this command, %d provided!";

std::string WithCount(std::string text, int count) {
    return text.replace(text.find("%d"), 2, std::to_string(count));
}

Bytes Text(std::string_view text) {
    return fakes::BytesOf(text);
}

// The camera's record: texts at their offsets.
Bytes CameraInfo(uint32_t model) {
    Bytes record(434, 0);
    const auto put = [&](size_t offset, const Bytes& bytes) { std::copy(bytes.begin(), bytes.end(), &record[offset]); };
    put(0, Le32(model));
    put(4, Text("NAME"));
    put(69, Text("BOARD"));
    put(134, Text("H1.00"));
    put(199, Text("C123"));
    put(264, Text("SSID"));
    put(297, Text("00:11"));
    put(362, {0x21});
    put(368, Text("EXTRA"));
    put(433, {0x22});
    return record;
}

Bytes Counted(std::string_view text) {
    return Bytes{static_cast<uint8_t>(text.size())} + Text(text);
}

Bytes CameraInfoAnswer(uint8_t model, uint8_t form, uint8_t forced) {
    return Bytes{60, 0, 4, 0, 0, 0, model} + Counted("NAME") + Counted("BOARD") + Counted("H1.00") + Counted("C123") +
           Counted("SSID") + Counted("00:11") + Bytes{1, 0x21, 1, form, 1, forced} + Counted("EXTRA") + Bytes{1, 0x22};
}

}  // namespace

TEST_F(CommandTest, EachCommandReachesTheCameraWithItsArgument) {
    for (const Row& row : kForwarded) {
        SCOPED_TRACE(testing::Message() << row.name << " of caller " << int{row.callerId});
        m_client.m_deviceType = row.callerId;
        const fakes::LogCapture log(KZ_LOG_DEBUG);

        const Outcome outcome = Run(row.request);

        EXPECT_EQ(fakes::Calls()[0], CsiSet(92, {row.callerId}));
        EXPECT_EQ(CallsAfterReport(), row.calls);
        EXPECT_EQ(outcome.code, KZ_OK);
        EXPECT_EQ(outcome.answer, row.answer);
        EXPECT_TRUE(log.Has(row.name, KZ_LOG_DEBUG));
    }
}

TEST_F(CommandTest, TheControlDaemonsRefusalIsTheAnswer) {
    const struct {
        int code;
        uint8_t result;
    } kRefusals[] = {{-1, 1}, {-3, 2}, {-17, 1}, {5, 5}, {14, 14}, {15, 1}, {-101, 1}};
    for (const auto& row : kRefusals) {
        SCOPED_TRACE(row.code);
        fakes::OnCommand(KZCONTROL_COMMAND_SHUTTER, row.code);
        fakes::OnCommand(KZCONTROL_SYSTEM_SLEEP, row.code);

        EXPECT_EQ(Run({1, 1, 1}).answer, (Bytes{1, row.result}));
        EXPECT_EQ(Run({5}).answer, (Bytes{5, row.result}));
    }
}

TEST_F(CommandTest, AWrongNumberOfParametersIsRefusedWithItsText) {
    const struct {
        std::vector<uint8_t> ids;
        int provided;
        const char* text;
    } kRows[] = {
        {{1, 2, 10, 11, 12, 13, 15, 22, 23, 28, 62}, 0, kNeedOne},
        {{1, 2, 10, 11, 12, 13, 15, 22, 23, 28, 62}, 2, kNeedOne},
        {{3}, 1, "Need 2 parameters for this command, %d provided!"},
        {{27}, 2, "Need 1 parameters for this command, %d provided!"},
        {{4, 5, 14, 16, 65, 66, 80, 81}, 1, kNeedZeros},
        {{8, 24, 25, 26, 32, 33, 34, 35, 36, 37, 38, 39, 60, 63}, 1, kNeedZero},
    };
    for (const auto& row : kRows) {
        for (const uint8_t id : row.ids) {
            SCOPED_TRACE(testing::Message() << "command " << int{id} << " with " << row.provided);
            const fakes::LogCapture log(KZ_LOG_ERROR);
            Bytes request{id};
            for (int i = 0; i < row.provided; ++i) {
                request = request + Bytes{1, 1};
            }

            const Outcome outcome = Run(request);

            EXPECT_EQ(outcome.answer, (Bytes{id, 2}));
            EXPECT_EQ(fakes::Calls("command"), Calls());
            EXPECT_EQ(log.Texts(), std::vector<std::string>{WithCount(row.text, row.provided)});
        }
    }
}

TEST_F(CommandTest, OptionalParametersAreOnlyRemarkedUpon) {
    const fakes::LogCapture log(KZ_LOG_DEBUG);

    Run({61, 1, 1, 1, 2});
    Run({64, 1, 1, 1, 2});

    EXPECT_TRUE(log.Has("optional parameter for this command, 2 provided!", KZ_LOG_WARN));
    EXPECT_TRUE(log.Has("optional parameter for this command, 2 provided!", KZ_LOG_ERROR));
    EXPECT_TRUE(log.Has("Success KZCONTROL_PRESET_LOAD ", KZ_LOG_DEBUG));
}

TEST_F(CommandTest, IdsWithoutAHandlerAreRefused) {
    for (int id = 0; id < 256; ++id) {
        const bool known = std::any_of(std::begin(kForwarded), std::end(kForwarded),
                                       [&](const Row& row) { return row.request[0] == id; }) ||
                           id == 14 || id == 16 || id == 28 || (id >= 58 && id <= 60) || id == 80 || id >= 240;
        if (known || id == 0) {
            continue;
        }
        SCOPED_TRACE(id);
        const fakes::LogCapture log(KZ_LOG_WARN);

        const Outcome outcome = Run({static_cast<uint8_t>(id)});

        EXPECT_EQ(outcome.answer, (Bytes{static_cast<uint8_t>(id), 2}));
        const bool silent = id == 6 || id == 7 || (id >= 50 && id <= 57);
        EXPECT_EQ(log.Lines().size(), silent ? 0u : 1u);
        EXPECT_EQ(log.Has("Unrecognized/unhandled command from ble. command_id:" + std::to_string(id), KZ_LOG_WARN),
                  !silent);
    }
}

TEST_F(CommandTest, IdsOutsideTheProtocolAreParseErrors) {
    for (const uint8_t id : Bytes{0, 242, 255}) {
        SCOPED_TRACE(int{id});
        const fakes::LogCapture log(KZ_LOG_INFO);

        const Outcome outcome = Run({id, 1, 1});

        EXPECT_EQ(outcome.answer, (Bytes{id, 2}));
        EXPECT_EQ(fakes::Calls(), Calls());
        EXPECT_TRUE(log.Has("Received invalid ble command:" + std::to_string(id) + " from a device", KZ_LOG_INFO));
    }
}

TEST_F(CommandTest, ParametersThatDoNotFitTheMessageAreParseErrors) {
    EXPECT_EQ(Run({}).answer, (Bytes{0, 2}));
    EXPECT_EQ(Run({1, 0}).answer, (Bytes{1, 2}));
    EXPECT_EQ(Run({1, 2, 1}).answer, (Bytes{1, 2}));
    EXPECT_EQ(Run({1, 1, 1, 3}).answer, (Bytes{1, 2}));
    EXPECT_EQ(Run({241}).answer, (Bytes{241, 2}));
    EXPECT_EQ(fakes::Calls(), Calls());
}

TEST_F(CommandTest, TheAnalyticsSourceNamesAThirdPartyAsAPhone) {
    m_client.m_deviceType = KZ_CALLER_THIRD_PARTY;
    fakes::OnCsiSet(CSI_ANALYTICS_SOURCE, 9);
    const fakes::LogCapture log(KZ_LOG_ERROR);

    const Outcome outcome = Run({27, 2, 1, 1});

    const Calls expected{CsiSet(92, {KZ_CALLER_BLE_RC}), CsiSet(92, {KZ_CALLER_THIRD_PARTY}),
                         Command(88, Le32({1, 1}))};
    EXPECT_EQ(fakes::Calls(), expected) << "a button counts for the client itself";
    EXPECT_EQ(log.Texts(),
              (std::vector<std::string>{"csi_set CSI_ANALYTICS_SOURCE failed - status 9",
                                        "csi_set CSI_ANALYTICS_SOURCE failed for KZ_CALLER_BLE_RC - status 9"}));
    EXPECT_EQ(outcome.answer, (Bytes{27, 0}));
}

TEST_F(CommandTest, AButtonIsIgnoredWhileItsAccessoryIsUpdated) {
    m_client.m_accessoryUpdatePending = true;
    const fakes::LogCapture log(KZ_LOG_ERROR);

    const Outcome outcome = Run({27});

    EXPECT_EQ(outcome.answer, (Bytes{27, 1}));
    EXPECT_EQ(fakes::Calls("command"), Calls());
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"Accessory updateing, ignore button press"});
}

TEST_F(CommandTest, ClockSettingsOfTheWrongSizeOrRangeAreRefused) {
    const auto dst = [](int offset, uint8_t flag) {
        return Bytes{15,  10, 7, 232, 1, 1, 0, 0, 0, static_cast<uint8_t>(offset >> 8), static_cast<uint8_t>(offset),
                     flag};
    };
    const struct {
        Bytes request;
        uint8_t result;
        std::vector<std::string> log;
    } kRows[] = {
        {{13, 6, 7, 232, 1, 1, 0, 0}, 2, {}},
        {{13, 8, 7, 232, 1, 1, 0, 0, 0, 0}, 2, {}},
        {{62, 1, 1}, 2, {}},
        {{62, 3, 1, 1, 1}, 2, {}},
        {{15, 7, 7, 232, 1, 1, 0, 0, 0}, 2, {"Invalid param length, expected 10, got 7"}},
        {dst(-720, 1), 0, {}},
        {dst(840, 0), 0, {}},
        {dst(-721, 0), 2, {"Invalid DST / TZ range"}},
        {dst(841, 0), 2, {"Invalid DST / TZ range"}},
        {dst(0, 2), 2, {"Invalid DST / TZ range"}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(testing::PrintToString(row.request));
        const fakes::LogCapture log(KZ_LOG_WARN);

        const Outcome outcome = Run(row.request);

        EXPECT_EQ(outcome.answer, (Bytes{row.request[0], row.result}));
        EXPECT_EQ(fakes::Calls("command").size(), row.result == 0 ? 1u : 0u);
        EXPECT_EQ(log.Texts(), row.log);
    }
}

TEST_F(CommandTest, TheClockIsAnsweredWithAndWithoutItsZone) {
    fakes::OnCommand(KZCONTROL_GET_DATE_TIME, 0, {0xE8, 0x07, 2, 29, 23, 59, 58, 0x30, 0xFD, 1});
    const fakes::LogCapture log(KZ_LOG_DEBUG);

    const Bytes plain = Run({14}).answer;
    const Bytes withZone = Run({16}).answer;

    EXPECT_EQ(plain, (Bytes{14, 0, 8, 0x07, 0xE8, 2, 29, 23, 59, 58, 0}));
    EXPECT_EQ(withZone, (Bytes{16, 0, 10, 0x07, 0xE8, 2, 29, 23, 59, 58, 0xFD, 0x30, 1}));
    EXPECT_EQ(CallsAfterReport(), Calls{Command(98)});
    EXPECT_TRUE(log.Has("y=2024 m=2 d=29 h=23 m=59 s=58 day=na", KZ_LOG_DEBUG));
    EXPECT_TRUE(log.Has("y=2024 m=2 d=29 h=23 m=59 s=58 dstm=-720 dst_on=1", KZ_LOG_DEBUG));

    fakes::OnCommand(KZCONTROL_GET_DATE_TIME, 4, {0xE8, 0x07});
    EXPECT_EQ(Run({14}).answer, (Bytes{14, 4}));
}

TEST_F(CommandTest, CameraInformationIsAnsweredFieldByField) {
    const struct {
        uint32_t model;
        uint8_t form;
        uint32_t forced;
    } kRows[] = {{58, 1, 0}, {22, 2, 0}, {51, 2, 1}};
    for (const auto& row : kRows) {
        fakes::SetCameraInfo(0, CameraInfo(row.model));
        KzBleServer::GetInstance()->m_csiCache[CSI_FORCED_UPDATE] = row.forced;
        m_client.m_deviceType = KZ_CALLER_UNKNOWN;

        const Outcome outcome = Run({60});

        EXPECT_EQ(outcome.answer,
                  CameraInfoAnswer(static_cast<uint8_t>(row.model), row.form, static_cast<uint8_t>(row.forced)));
        EXPECT_EQ(fakes::Calls()[0], CsiSet(92, {KZ_CALLER_UNKNOWN}));
        EXPECT_EQ(m_client.m_deviceType, KZ_CALLER_BLE_RC);
    }
}

TEST_F(CommandTest, CameraInformationWithoutTerminatorsEndsWithItsFields) {
    fakes::SetCameraInfo(0, Bytes(434, 'x'));

    const Bytes answer = Run({60}).answer;

    EXPECT_EQ(answer.size(), 2u + 5 + 4 * 66 + 34 + 66 + 3 * 2 + 66 + 2);
    EXPECT_EQ(answer[7], 65);
}

TEST_F(CommandTest, CameraInformationIsRefusedWhileTheCameraResumes) {
    KzBleServer::GetInstance()->m_csiCache[CSI_SYSTEM_STATE] = SYS_SUSPENDED_UNSAFE;
    const fakes::LogCapture log(KZ_LOG_ERROR);

    const Outcome outcome = Run({60});

    EXPECT_EQ(outcome.code, KZ_ERR_ACCESS_DENIED);
    EXPECT_EQ(outcome.answer, (Bytes{60, 1}));
    EXPECT_EQ(log.Texts(),
              std::vector<std::string>{"Camera Info command while still resuming, return error, mobile should retry"});
}

TEST_F(CommandTest, TheSettingsVersionIsTheModelsAndFitsAParameter) {
    BleSDK::GetInstance()->m_pSettingsMapping->version = "1.3";
    EXPECT_EQ(Run({58, 1, 1}).answer, (Bytes{58, 0, 3, '1', '.', '3'}));

    BleSDK::GetInstance()->m_pSettingsMapping->version = std::string(300, 'v');
    EXPECT_EQ(Run({58}).answer, (Bytes{58, 0, 255} + Bytes(255, 'v')));
}

TEST_F(CommandTest, ASettingsTransferHasNoAnswerOrIsRefused) {
    const fakes::LogCapture log(KZ_LOG_ERROR);

    const Outcome started = Run({59, 1, 1});
    KzBleServer::GetInstance()->m_fileTransferSlots = 1;
    const Outcome refused = Run({59});

    EXPECT_EQ(started.code, KZ_OK);
    EXPECT_EQ(started.answer, Bytes());
    EXPECT_TRUE(log.Has("Starting file transfer", KZ_LOG_ERROR));
    EXPECT_EQ(refused.answer, (Bytes{59, 1}));
    EXPECT_TRUE(log.Has("No File transfer slot available", KZ_LOG_ERROR));
    m_client.SetTransferringSettingsJSON(false);
}

TEST_F(CommandTest, AThirdPartyIsRememberedAlsoWhenItsCommandIsRefused) {
    EXPECT_EQ(Run({80, 1, 1}).answer, (Bytes{80, 2}));
    EXPECT_EQ(m_client.m_deviceType, KZ_CALLER_THIRD_PARTY);
    EXPECT_EQ(CallsAfterReport(), Calls());

    EXPECT_EQ(Run({80}).answer, (Bytes{80, 0}));
    EXPECT_EQ(CallsAfterReport(), Calls{CsiSet(87, {0x76, 0x01, 0x00, 0x00})});
}

TEST_F(CommandTest, ARefusedPresetIsAPlainFailure) {
    fakes::OnCommand(KZCONTROL_PRESET_LOAD, 7);
    const fakes::LogCapture log(KZ_LOG_ERROR);

    EXPECT_EQ(Run({64, 1, 5}).answer, (Bytes{64, 1}));

    EXPECT_EQ(log.Texts(), std::vector<std::string>{"Failed KZCONTROL_PRESET_LOAD"});
}

TEST_F(CommandTest, AnAnswerLongerThanItsBufferIsRefused) {
    fakes::SetCameraInfo(0, CameraInfo(58));
    const auto whole = static_cast<uint16_t>(Run({60}).answer.size());

    EXPECT_EQ(Run({60}, whole).code, KZ_OK);
    EXPECT_EQ(Run({60}, static_cast<uint16_t>(whole - 1)).answer, (Bytes{60, 1}));
    EXPECT_EQ(Run({5}, 1).answer, Bytes());
}
