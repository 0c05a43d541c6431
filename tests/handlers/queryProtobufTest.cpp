// Protobuf queries: request bytes, what the camera is asked, answer bytes. Requests and answers are written out as
// bytes: tag, value, tag, value.
#include "queryFixture.h"
#include "wsdkCommands/WSDK_NotifyLiveStreamStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetAssociationState.pb.h"
#include "wsdkCommands/WSDK_ResponseGetMobileOffloadState.pb.h"

namespace {

constexpr auto kCsi = NotificationClient::eNotifyCSI;

Bytes Protobuf(uint8_t action, const Bytes& payload = {}) {
    return Bytes{0xF5, action} + payload;
}

TEST_F(QueryTest, ShutterQueryMovesTheShutterAndAlwaysSucceeds) {
    for (const int result : {0, -1}) {
        fakes::OnCommand(KZCONTROL_COMMAND_SHUTTER, result);

        const Outcome outcome = Run(Protobuf(112, {8, 1}));

        EXPECT_EQ(outcome.answer, (Bytes{0xF5, 0xF0, 8, 1}));
        EXPECT_EQ(fakes::Calls(), (Calls{Command(KZCONTROL_COMMAND_SHUTTER, Le32(1))}));
    }
}

TEST_F(QueryTest, PayloadsThatDoNotParseGoOnWithWhatWasRead) {
    for (const Bytes& payload : {Bytes{}, Bytes{8}, Bytes{8, 5}, Bytes{0xFF, 0xFF}}) {
        testing::internal::CaptureStderr();

        const Outcome outcome = Run(Protobuf(112, payload));

        EXPECT_EQ(outcome.answer, (Bytes{0xF5, 0xF0, 8, 1}));
        EXPECT_EQ(fakes::Calls(), (Calls{Command(KZCONTROL_COMMAND_SHUTTER, Le32(0))}));
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    }
}

TEST_F(QueryTest, UnknownActionsAreRefusedAndLongPayloadsCarriedWhole) {
    const std::string user(300, 'u');
    wsdk_commands::WSDK_RequestGetAssociationState request;
    request.set_zorvik_user_id(user);
    const std::string payload = request.SerializeAsString();
    fakes::SetCsi(104, Bytes(user.begin(), user.end()));

    EXPECT_EQ(Run(Protobuf(113)).answer, (Bytes{0xF5, 2}));
    EXPECT_EQ(Run(Protobuf(0)).answer, (Bytes{0xF5, 2}));
    EXPECT_EQ(Run(Protobuf(124, Bytes(payload.begin(), payload.end()))).answer, (Bytes{0xF5, 0xFC, 8, 1, 16, 1}));
}

// ---------------------------------------------------------------- presets

TEST_F(QueryTest, PresetAnswerIsWhatTheCameraSays) {
    const Bytes reply = {0x0A, 3, 8, 0xE8, 7};
    fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, 0, reply);

    for (const uint8_t action : {uint8_t{114}, uint8_t{115}}) {
        const Outcome outcome = Run(Protobuf(action));

        EXPECT_EQ(outcome.answer, (Bytes{0xF5, static_cast<uint8_t>(action | 0x80)}) + reply);
        EXPECT_EQ(fakes::Calls(), (Calls{Command(KZCONTROL_PRESET_GET_PRESETS)}));
        EXPECT_EQ(Interest(kCsi), Ints{});
    }
}

TEST_F(QueryTest, PresetQueryRegistersAndUnregisters) {
    Run(Protobuf(114, {8, 1}));
    EXPECT_EQ(Interest(kCsi), Ints{7});

    const Outcome both = Run(Protobuf(114, {8, 2, 16, 1}));

    EXPECT_EQ(Interest(kCsi), Ints{});
    EXPECT_EQ(both.answer, (Bytes{0xF5, 0xF2}));
    EXPECT_EQ(fakes::Calls(), Calls{});
}

TEST_F(QueryTest, RefusedPresetsAreAnError) {
    fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, 5);
    const Outcome positive = Run(Protobuf(114));
    fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, -104);
    const Outcome negative = Run(Protobuf(114));

    EXPECT_EQ(positive.answer, (Bytes{0xF5, 5}));
    EXPECT_EQ(negative.answer, (Bytes{0xF5, 1}));
}

// ---------------------------------------------------------------- registration

struct RegisterCase {
    uint8_t action;
    Ints keys;  // of the enumerators 1, 2, ...
};

class QueryRegistration : public QueryTest, public testing::WithParamInterface<RegisterCase> {};

TEST_P(QueryRegistration, MapsEveryEnumeratorToItsKey) {
    const RegisterCase& test = GetParam();
    for (size_t i = 0; i < test.keys.size(); ++i) {
        const auto enumerator = static_cast<uint8_t>(i + 1);

        Run(Protobuf(test.action, {8, enumerator, 8, 99}));
        EXPECT_EQ(Interest(kCsi), Ints{test.keys[i]});

        Run(Protobuf(test.action, {16, enumerator}));
        EXPECT_EQ(Interest(kCsi), Ints{});
    }
}

INSTANTIATE_TEST_SUITE_P(Protobuf, QueryRegistration,
                         testing::Values(RegisterCase{126, {97, 98, 99, 102, 108, 104, 109}},
                                         RegisterCase{118, {42, 41}}, RegisterCase{119, {42, 41}},
                                         RegisterCase{116, {74, 8, 6, 26}}, RegisterCase{117, {74, 8, 6, 26}}));

TEST_F(QueryTest, RegistrationIsLoggedOncePerListAndOncePerEntry) {
    const fakes::LogCapture log(5);

    Run(Protobuf(126, {8, 1, 8, 6, 16, 2}));

    const std::vector<std::string> texts = log.Texts();
    const std::vector<std::string> expected = {"Register for Status Notifications", "register for ID = 1",
                                               "register for ID = 6", "UnRegister for Status Notifications",
                                               "unregister for ID = 2"};
    const auto first = std::find(texts.begin(), texts.end(), expected.front());
    ASSERT_GE(texts.end() - first, 5);
    EXPECT_EQ(std::vector<std::string>(first, first + 5), expected);
    EXPECT_EQ(Interest(kCsi), (Ints{97, 104}));
}

// ---------------------------------------------------------------- cloud upload

const Calls kCahReads = {CsiGet(97), CsiGet(98), CsiGet(99), CsiGet(102), CsiGet(108), CsiGet(109), CsiGet(157)};

TEST_F(QueryTest, CahAnswerCarriesEveryState) {
    fakes::SetCsi(97, {3, 1, 2, 4});
    fakes::SetCsi(98, {5, 6, 7, 8});
    fakes::SetCsi(99, {5, 0, 1, 2});
    fakes::SetCsi(102, Le32(1));
    fakes::SetCsi(108, Le32(0));
    fakes::SetCsi(109, Le32(2));
    fakes::SetCsi(157, Le32(7));
    NotifyCsi(94, fakes::BytesOf("3:300:45"));

    const Outcome outcome = Run(Protobuf(126));

    EXPECT_EQ(outcome.answer, (Bytes{0xF5, 0xFE, 8,  3,    16, 1, 24,   2, 32,   4, 40,   5, 48,   6,    56,   7,
                                     64,   8,    72, 5,    80, 0, 88,   1, 96,   2, 0x68, 0, 0x70, 1,    0x78, 2,
                                     0x80, 1,    0,  0x88, 1,  3, 0x90, 1, 0xAC, 2, 0x98, 1, 45,   0xA0, 1,    1}));
    EXPECT_EQ(fakes::Calls(), kCahReads);
}

TEST_F(QueryTest, CahAnswerTellsWhatCouldNotBeRead) {
    for (const auto& [operation, key, argument] : kCahReads) {
        fakes::SetCsi(static_cast<uint8_t>(key), Le32(1));
        fakes::OnCsiGet(static_cast<uint8_t>(key), -1);
    }
    NotifyCsi(94, fakes::BytesOf("0:0:0"));

    const Outcome outcome = Run(Protobuf(126));

    Bytes expected = {0xF5, 0xFE};
    for (uint8_t field = 1; field <= 12; ++field) {
        expected = expected + Bytes{static_cast<uint8_t>(field << 3), 127};
    }
    EXPECT_EQ(outcome.answer,
              expected + (Bytes{0x68, 0, 0x70, 0, 0x78, 0, 0x88, 1, 0, 0x90, 1, 0, 0x98, 1, 0, 0xA0, 1, 0}));
    EXPECT_EQ(fakes::Calls(), kCahReads);
}

TEST_F(QueryTest, StickyErrorSaysWhetherItWasRead) {
    fakes::SetCsi(122, Le32(300));
    EXPECT_EQ(Run(Protobuf(122)).answer, (Bytes{0xF5, 0xFA, 8, 0xAC, 2, 16, 1}));
    EXPECT_EQ(fakes::Calls(), (Calls{CsiGet(122)}));

    fakes::OnCsiGet(122, -1);
    EXPECT_EQ(Run(Protobuf(122)).answer, (Bytes{0xF5, 0xFA, 8, 0, 16, 0}));
}

// ---------------------------------------------------------------- firmware update

TEST_F(QueryTest, OtaAnswerCarriesTheKeptStateAlsoOutsideItsEnumeration) {
    SetCsi(CSI_OTA_STATE, 200);
    SetCsi(CSI_OTA_PERCENTAGE, 55);
    SetCsi(CSI_OTA_ERROR, 3);

    const Outcome outcome = Run(Protobuf(119));

    EXPECT_EQ(outcome.answer, (Bytes{0xF5, 0xF7, 8, 0xC8, 1, 16, 55, 24, 3}));
}

// ---------------------------------------------------------------- live stream

struct LiveStreamCase {
    uint32_t wms;
    uint32_t encode;
    uint32_t sdCard;
    uint8_t status;
    uint8_t error;  // the kept error is 6
};

class QueryLiveStream : public QueryTest, public testing::WithParamInterface<LiveStreamCase> {};

TEST_P(QueryLiveStream, AnswersStatusErrorAndEncode) {
    const LiveStreamCase& test = GetParam();
    SetCsi(CSI_WMS_STATE, test.wms);
    SetCsi(CSI_LIVE_STREAM_ENCODE, test.encode);
    SetCsi(CSI_SD_CARD_STATE, test.sdCard);
    SetCsi(CSI_LIVE_STREAM_ERROR, 6);
    SetCsi(CSI_LIVE_STREAM_BITRATE, 800);

    const Outcome outcome = Run(Protobuf(116));

    ASSERT_GT(outcome.answer.size(), 11u);
    EXPECT_EQ(
        Bytes(outcome.answer.begin(), outcome.answer.begin() + 11),
        (Bytes{0xF5, 0xF4, 8, test.status, 16, test.error, 24, static_cast<uint8_t>(test.encode == 1), 32, 0xA0, 6}));
}

INSTANTIATE_TEST_SUITE_P(Protobuf, QueryLiveStream,
                         testing::Values(LiveStreamCase{0, 0, 0, 0, 6}, LiveStreamCase{17, 0, 1, 1, 6},
                                         LiveStreamCase{18, 2, 2, 2, 6}, LiveStreamCase{19, 1, 0, 3, 6},
                                         LiveStreamCase{5, 1, 1, 4, 40}, LiveStreamCase{7, 1, 2, 5, 41},
                                         LiveStreamCase{21, 1, 2, 6, 6}, LiveStreamCase{19, 1, 2, 3, 41},
                                         LiveStreamCase{0, 1, 1, 0, 40}, LiveStreamCase{0, 1, 2, 0, 6},
                                         LiveStreamCase{99, 0, 0, 0, 6}));

TEST_F(QueryTest, LiveStreamAbilitiesDependOnTheModel) {
    const Bytes limits = {0x40, 0xA0, 6, 0x48, 0x90, 0x4E};
    const Bytes lenses = {0x50, 1, 0x58, 0, 0x58, 4, 0x58, 3};
    const Bytes start = {0xF5, 0xF5, 8, 0, 16, 0, 24, 0, 32, 0};
    const struct {
        uint8_t model;
        Bytes abilities;
    } cases[] = {
        {57, Bytes{0x28, 12, 0x28, 7, 0x30, 1, 0x38, 0} + limits + lenses},
        {58, Bytes{0x28, 12, 0x28, 7, 0x30, 1, 0x38, 0} + limits + lenses},
        {60, Bytes{0x28, 7, 0x30, 1, 0x38, 0} + limits + lenses},
        {61, Bytes{0x28, 7, 0x30, 1, 0x38, 0} + limits + lenses},
        {55, Bytes{0x30, 0, 0x38, 0} + limits},
    };
    for (const auto& test : cases) {
        NotifyCsi(CSI_MODEL_NUMBER, Le32(test.model));

        EXPECT_EQ(Run(Protobuf(117)).answer, start + test.abilities) << int{test.model};
    }
    NotifyCsi(CSI_MODEL_NUMBER, Le32(58));
}

// What is written field by field is what the generated class writes.
TEST_F(QueryTest, WrittenFieldsAreThoseOfTheGeneratedClass) {
    SetCsi(CSI_WMS_STATE, 19);
    SetCsi(CSI_LIVE_STREAM_ERROR, 10);
    SetCsi(CSI_LIVE_STREAM_BITRATE, 0xFFFFFFFF);

    const Outcome outcome = Run(Protobuf(116));

    wsdk_commands::WSDK_NotifyLiveStreamStatus message;
    const std::string body(outcome.answer.begin() + 2, outcome.answer.end());
    ASSERT_TRUE(message.ParseFromString(body));
    EXPECT_EQ(message.live_stream_bitrate(), -1);
    EXPECT_EQ(message.live_stream_lens_supported_array_size(), 3);
    EXPECT_EQ(message.SerializeAsString(), body);
}

// ---------------------------------------------------------------- mobile offload

TEST_F(QueryTest, MobileOffloadAnswerIsTheStatusWordInFields) {
    for (unsigned bit = 0; bit < 6; ++bit) {
        SetCsi(CSI_ST_STATE, 1u << bit);

        const Outcome outcome = Run(Protobuf(120));

        Bytes expected = {0xF5, 0xF8, 8, 1};
        for (unsigned field = 0; field < 6; ++field) {
            expected = expected + Bytes{static_cast<uint8_t>((field + 2) << 3), static_cast<uint8_t>(field == bit)};
        }
        EXPECT_EQ(outcome.answer, expected + (Bytes{0x40, 0, 0x48, 0, 0x50, 0, 0x58, 0, 0x60, 0}));
    }
}

TEST_F(QueryTest, MobileOffloadAnswerCarriesCountersReasonAndActivity) {
    SetCsi(CSI_BOOT_COUNT_BT, 1);
    SetCsi(CSI_BOOT_COUNT_RC, 2);
    SetCsi(CSI_BOOT_COUNT_AP, 3);
    SetCsi(CSI_WAKEUP_REASON, 90);  // no reason that the enumeration knows
    KzBleServer::GetInstance()->SetLastSystemNotifyEvent(4);

    const Outcome outcome = Run(Protobuf(120));

    EXPECT_EQ(Bytes(outcome.answer.end() - 10, outcome.answer.end()),
              (Bytes{0x40, 1, 0x48, 2, 0x50, 3, 0x58, 90, 0x60, 4}));
    KzBleServer::GetInstance()->SetLastSystemNotifyEvent(0);
}

TEST_F(QueryTest, TheServersBusyFlagMakesTheCameraBusy) {
    NotifyCsi(CSI_CAMERA_BUSY, Le32(1));

    const Outcome busy = Run(Protobuf(120));

    wsdk_commands::WSDK_ResponseGetMobileOffloadState message;
    ASSERT_TRUE(message.ParseFromArray(busy.answer.data() + 2, static_cast<int>(busy.answer.size()) - 2));
    EXPECT_TRUE(message.camera_busy());
    NotifyCsi(CSI_CAMERA_BUSY, Le32(0));
}

// ---------------------------------------------------------------- association and client id

TEST_F(QueryTest, AssociationComparesTheStoredUser) {
    const Bytes request = Bytes{10, 4} + fakes::BytesOf("anna");
    const struct {
        Bytes stored;
        uint8_t state;
    } cases[] = {
        {fakes::BytesOf("anna"), 1}, {fakes::BytesOf("ann"), 2}, {fakes::BytesOf("annab"), 2}, {{0}, 0}, {{}, 0},
        {Bytes(1400, 'a'), 2},       {Bytes(1401, 'a'), 0},
    };
    for (const auto& test : cases) {
        fakes::SetCsi(104, test.stored);

        const Outcome outcome = Run(Protobuf(124, request));

        EXPECT_EQ(outcome.answer, (Bytes{0xF5, 0xFC, 8, test.state, 16, 1}));
        EXPECT_EQ(fakes::Calls(), (Calls{CsiGet(104)}));
    }
    fakes::OnCsiGet(104, -1);
    EXPECT_EQ(Run(Protobuf(124, request)).answer, (Bytes{0xF5, 0xFC, 8, 0, 16, 1}));
}

TEST_F(QueryTest, AUserIdThatIsNotUtf8IsComparedAsItIs) {
    fakes::SetCsi(104, {0xC3, 0x28, 0xFF});
    testing::internal::CaptureStderr();

    const Outcome outcome = Run(Protobuf(124, {10, 3, 0xC3, 0x28, 0xFF}));

    EXPECT_EQ(outcome.answer, (Bytes{0xF5, 0xFC, 8, 1, 16, 1}));
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST_F(QueryTest, ClientIdIsCarriedAsItIs) {
    for (const Bytes& id : {fakes::BytesOf("abc"), Bytes{}, Bytes{0xFF, 0, 0xC3}, Bytes(1400, 'x')}) {
        fakes::SetCsi(105, id);
        const Bytes length = id.size() < 128 ? Bytes{static_cast<uint8_t>(id.size())} : Bytes{0xF8, 10};

        const Outcome outcome = Run(Protobuf(125));

        EXPECT_EQ(outcome.answer, (Bytes{0xF5, 0xFD, 10} + length + id + Bytes{16, 1}));
        EXPECT_EQ(fakes::Calls(), (Calls{CsiGet(105)}));
    }
    fakes::OnCsiGet(105, -1);
    EXPECT_EQ(Run(Protobuf(125)).answer, (Bytes{0xF5, 0xFD, 10, 0, 16, 0}));
}

TEST_F(QueryTest, UserAndClientIdsStayOutOfTheLogBelowItsInformationLevel) {
    fakes::SetCsi(104, fakes::BytesOf("anna-secret"));
    fakes::SetCsi(105, fakes::BytesOf("anna-secret"));
    const fakes::LogCapture log(4);

    Run(Protobuf(124, Bytes{10, 11} + fakes::BytesOf("anna-secret")));
    Run(Protobuf(125));

    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"Command: eBleCommandRequestGetAssociationState",
                                                     "Command: eBleCommandRequestClientId"}));
}

}  // namespace
