// Messages of the CSI service and the network daemon, from their bytes to what clients and the camera are told.
#include <random>

#include "changesFixture.h"
#include "kzTlv.h"

namespace changes_test {
namespace {

constexpr const char* kSender = "/from_kznet";

class CsiTest : public ChangesTest {
  protected:
    CsiTest() { played::SetDepth(kSender, 40); }

    static Bytes Element(uint8_t type, const Bytes& data) {
        return Bytes{0, static_cast<uint8_t>(data.size() >> 8), static_cast<uint8_t>(data.size()), type} + data;
    }
    static Bytes Message(uint8_t category, const std::vector<Bytes>& elements) {
        Bytes body;
        for (const Bytes& element : elements) {
            body = body + element;
        }
        const size_t length = body.size() + 4;
        return Bytes{static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length), 0, category} + body;
    }
    static Bytes Text(uint8_t type, std::string_view text) { return Element(type, fakes::BytesOf(text)); }
    static Bytes Record(uint8_t key, const Bytes& value) {
        return Bytes{key} + Le32(static_cast<uint32_t>(value.size())) + value;
    }
    // A state event as the service sends it.
    static Bytes Event(std::string_view command, const Bytes& records, std::string_view source = kSender) {
        return Message(CAT_KZNET_CMD, {Text(TLV_CMD, command), Element(TLV_CMDARG, records), Text(TLV_SRC, source),
                                       Text(TLV_DST, kMqCsi), Element(TLV_END, {})});
    }
    static Bytes BufferMessage(std::string_view command, const Bytes& data) {
        return Message(CAT_RTOS_CMD, {Text(TLV_CMD, command), Element(TLV_CMDARG, data), Text(TLV_SRC, kSender),
                                      Text(TLV_DST, kMqCsi), Element(TLV_END, {})});
    }
    // The acknowledgement of an event.
    static Bytes Acknowledgement(std::string_view command, const Bytes& records) {
        return Message(19, {Text(TLV_CMD, command), Element(TLV_CMDARG, records), Text(TLV_DST, kSender),
                            Text(TLV_SRC, kMqCsi), Element(TLV_RSPARG, {0}), Element(TLV_END, {})});
    }

    // Hands a message over in a buffer of exactly the size that is asked for.
    static bool Handle(const Bytes& message) {
        const size_t size = message.size() + kCsiAnswerRoom;
        const auto buffer = std::make_unique<unsigned char[]>(size);
        std::copy(message.begin(), message.end(), buffer.get());
        return Server().HandleCsiMessage({buffer.get(), size}, static_cast<uint32_t>(message.size()));
    }

    // A set message to the network daemon.
    static Bytes SetMessage(uint8_t key, const Bytes& value) {
        return Message(CAT_KZNET_CMD, {Text(TLV_CMD, "CI"), Element(TLV_CMDARG, Record(key, value)),
                                       Text(TLV_SRC, kMqKzNet), Text(TLV_DST, kMqKzNet), Element(TLV_END, {})});
    }
};

// ---------------------------------------------------------------- state events

TEST_F(CsiTest, AnEventIsCachedToldAndAcknowledged) {
    Connect(5).AddInterest(kCsi, 42);
    const Bytes record = Record(41, Le32(33));

    EXPECT_TRUE(Handle(Event("CN", record)));

    EXPECT_EQ(Server().GetCsiValue(41), 33u);
    EXPECT_EQ(Server().GetLastCsiKey(), 41u);
    EXPECT_EQ(TakeTold(), (std::vector<Told>{{5, {0xF5, 0xF7, 16, 33}}}));
    EXPECT_EQ(played::Take(kSender), (played::Messages{Acknowledgement("CN", record)}));
}

TEST_F(CsiTest, SeveralRecordsAreSeveralFanOutsAndOneAcknowledgement) {
    Connect(5).AddInterest(kCsi, 42);
    const Bytes records = Record(41, Le32(1)) + Record(3, Le32(0)) + Record(41, {2});

    EXPECT_TRUE(Handle(Event("CU", records)));

    EXPECT_EQ(TakeTold(), (std::vector<Told>{{5, {0xF5, 0xF7, 16, 1}}, {5, {0xF5, 0xF7, 16, 2}}}));
    EXPECT_EQ(played::Take(kSender), (played::Messages{Acknowledgement("CU", records)}));
}

TEST_F(CsiTest, ARecordThatIsNotWholeEndsTheMessageButNotItsAcknowledgement) {
    for (const Bytes& broken : {Bytes{41, 4, 0, 0}, Record(41, Le32(9)) + Bytes{0}, Bytes{41, 255, 255, 255, 255, 1}}) {
        const bool cutShort = broken.size() != 10;
        const Bytes records = Record(42, Le32(7)) + broken + (cutShort ? Bytes{} : Bytes{1});
        const fakes::LogCapture log(2);

        EXPECT_TRUE(Handle(Event("CU", records)));

        EXPECT_EQ(Server().GetCsiValue(42), 7u);
        EXPECT_EQ(Server().GetCsiValue(41), cutShort ? 0u : 9u);
        EXPECT_EQ(log.Lines().size(), 1u);
        EXPECT_EQ(played::Take(kSender), (played::Messages{Acknowledgement("CU", records)}));
        NotifyCsi(41, Le32(0));
        NotifyCsi(42, Le32(0));
    }
}

TEST_F(CsiTest, MalformedEventsAreDroppedWithTheirText) {
    const Bytes record = Record(41, Le32(9));
    const Bytes source = Text(TLV_SRC, kSender);
    const Bytes end = Element(TLV_END, {});
    const struct {
        Bytes message;
        bool result;
        const char* text;
    } cases[] = {
        {Message(18, {Element(TLV_CMDARG, record), source, end}), false,
         "Failed to find TLV_CMD in message from kzNet"},
        {Message(18, {Text(TLV_CMD, "CN"), source, end}), false, "Failed to find TLV_CMDARG in message from kzNet"},
        {Event("CX", record), false, "Unexpected Response type on CSI notification [CX]"},
        {Event("CNN", record), false, "Unexpected Response type on CSI notification [CNN]"},
        {Message(17, {Text(TLV_CMD, "CX"), end}), false, "Unexpected Response type on CSI subscribe response [CX]"},
        {Message(17, {Text(TLV_CMD, "CR"), end}), false, "Failed to find TLV_CMDARG in message from kzNet"},
        {Message(17, {Text(TLV_CMD, "CR"), Element(TLV_RSPARG, {}), end}), false,
         "Failed to find TLV_CMDARG in message from kzNet"},
        {Message(17, {Text(TLV_CMD, "CR"), Element(TLV_RSPARG, {1}), end}), false, "CSI Subscribe/unsubscribe failed"},
        {Message(17, {Text(TLV_CMD, "CR"), Element(TLV_RSPARG, {0}), end}), false, nullptr},
        {BufferMessage("XX", Bytes(8, 1)), false, "Unexpected Response type on CSI notification [XX]"},
        {Message(10, {Text(TLV_CMD, "AL"), end}), false, "Failed to find TLV_CMDARG in message from kzNet"},
        {BufferMessage("LB", Bytes(4, 1)), false, "CAT RTOS TLV arg length <= TLV_ELEM_HDR_SIZE"},
        {BufferMessage("AL", Bytes(19, 1)), false, "Accessory buffer of 19 bytes is longer than 18"},
        {Message(19, {Text(TLV_CMD, "CN"), Element(TLV_CMDARG, record), end}), true, nullptr},
        {{0xFF, 0xFF, 0, 18, 0, 0, 0, 0}, false, "CSI message of 8 bytes does not hold the length it announces"},
        {{0, 3, 0, 18}, false, "CSI message of 4 bytes does not hold the length it announces"},
        {{0, 4, 0}, false, "CSI message of 3 bytes does not hold the length it announces"},
        {{}, false, "CSI message of 0 bytes does not hold the length it announces"},
    };
    for (const auto& test : cases) {
        const fakes::LogCapture log(2);

        EXPECT_EQ(Handle(test.message), test.result);

        EXPECT_EQ(log.Texts(), test.text != nullptr ? Texts{test.text} : Texts{});
        EXPECT_EQ(Server().GetCsiValue(41), 0u);
        EXPECT_EQ(played::Take(kSender), played::Messages{});
    }
}

TEST_F(CsiTest, AcknowledgementsGoOnlyToQueuesThatAreThere) {
    const Bytes record = Record(41, Le32(9));
    const std::string longName = "/" + std::string(255, 'q');
    for (const std::string_view source : {"/nobody", "relative", "/a/b", "/", longName.c_str()}) {
        const fakes::LogCapture log(2);

        EXPECT_TRUE(Handle(Event("CN", record, source)));

        EXPECT_EQ(log.Lines().size(), 1u) << source;
        EXPECT_EQ(Server().GetCsiValue(41), 9u);
    }
}

TEST_F(CsiTest, AFullSenderCostsOneLine) {
    played::SetDepth(kSender, 0);
    const fakes::LogCapture log(2);

    EXPECT_TRUE(Handle(Event("CN", Record(41, Le32(9)))));

    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST_F(CsiTest, AnAcknowledgementThatWouldBeInvalidIsNotSent) {
    const Bytes record = Record(41, Le32(9));
    const Bytes noDestination =
        Message(18, {Text(TLV_CMD, "CN"), Element(TLV_CMDARG, record), Text(TLV_SRC, kSender), Element(TLV_END, {})});
    // The whole 1500 bytes: the result byte has no room.
    const Bytes full = Event("CN", record + Bytes(1500 - Event("CN", record).size(), 0));
    ASSERT_EQ(full.size(), 1500u);
    for (const Bytes& message : {noDestination, full}) {
        const fakes::LogCapture log(2);

        EXPECT_TRUE(Handle(message));

        EXPECT_TRUE(log.Has("tlv_validate failed", 2));
        EXPECT_EQ(played::Take(kSender), played::Messages{});
    }
}

// ---------------------------------------------------------------- keys

struct KeyCase {
    uint8_t key;
    Bytes told;  // empty: nothing
};

class CsiKeys : public CsiTest, public testing::WithParamInterface<KeyCase> {};

TEST_P(CsiKeys, TellTheirFieldOrNothing) {
    BleNotificationClient& client = Connect(5);
    client.AddInterest(kCsi, 42);
    client.AddInterest(kCsi, 7);

    const bool told = NotifyCsi(GetParam().key, {1});

    EXPECT_EQ(told, !GetParam().told.empty());
    EXPECT_EQ(TakeTold(), GetParam().told.empty() ? std::vector<Told>{} : (std::vector<Told>{{5, GetParam().told}}));
    EXPECT_EQ(Server().GetCsiValue(GetParam().key), 1u);
}

const Bytes kIdleStream = {0xF5, 0xF5, 8, 0, 16, 0, 24, 0, 32, 0};

INSTANTIATE_TEST_SUITE_P(Rows, CsiKeys,
                         testing::Values(KeyCase{3, {}}, KeyCase{6, {0xF5, 0xF5, 8, 0, 16, 0, 24, 1, 32, 0}},
                                         KeyCase{7, {0xF5, 0xF3}}, KeyCase{8, {0xF5, 0xF5, 8, 0, 16, 1, 24, 0, 32, 0}},
                                         KeyCase{20, {}}, KeyCase{26, {0xF5, 0xF5, 8, 0, 16, 0, 24, 0, 32, 1}},
                                         KeyCase{38, {}}, KeyCase{40, {}}, KeyCase{41, {0xF5, 0xF7, 16, 1}},
                                         KeyCase{42, {0xF5, 0xF7, 8, 1}}, KeyCase{43, {}}, KeyCase{61, {}},
                                         KeyCase{62, {}}, KeyCase{97, {0xF5, 0xFF, 8, 1, 16, 0, 24, 0, 32, 0}},
                                         KeyCase{98, {0xF5, 0xFF, 40, 1, 48, 0, 56, 0, 64, 0, 0x80, 1, 1}},
                                         KeyCase{99, {0xF5, 0xFF, 72, 1, 80, 0, 88, 0, 96, 0}},
                                         KeyCase{102, {0xF5, 0xFF, 0x70, 1}}, KeyCase{108, {0xF5, 0xFF, 0x68, 1}},
                                         KeyCase{109, {0xF5, 0xFF, 0x78, 1}}, KeyCase{111, {}}, KeyCase{128, {}},
                                         KeyCase{157, {0xF5, 0xFF, 0xA0, 1, 1}}, KeyCase{74, {}}, KeyCase{104, {}},
                                         KeyCase{47, {}}));

TEST_F(CsiTest, ShortValuesKeepTheOtherBytesOfTheSlotAndLongOnesAreRefused) {
    NotifyCsi(130, {1, 2, 3, 4});
    NotifyCsi(130, {9});
    EXPECT_EQ(Server().GetCsiValue(130), 0x04030209u);
    NotifyCsi(130, {});
    const fakes::LogCapture log(2);
    NotifyCsi(130, {1, 1, 1, 1, 1});

    EXPECT_EQ(Server().GetCsiValue(130), 0x04030209u);
    EXPECT_EQ(log.Texts(), Texts{"size error on csi 130"});
}

TEST_F(CsiTest, TheCardIsToldOnlyWhileStreaming) {
    Connect(5).AddInterest(kCsi, 42);
    NotifyCsi(62, Le32(1));
    EXPECT_EQ(KzBleServerTestAccess::SdCardGood(), 1);
    EXPECT_EQ(TakeTold(), std::vector<Told>{});

    NotifyCsi(74, Le32(19));
    TakeTold();
    EXPECT_TRUE(NotifyCsi(62, Le32(2)));

    EXPECT_EQ(KzBleServerTestAccess::SdCardGood(), 0);
    EXPECT_EQ(TakeTold(), (std::vector<Told>{{5, {0xF5, 0xF5, 8, 3, 16, 0, 24, 0, 32, 0}}}));
}

TEST_F(CsiTest, TheFirstPowerNoticeLetsTheStatusByteOut) {
    NotifyCsi(62, Le32(0));
    NotifyCsi(43, Le32(20));
    EXPECT_FALSE(KzBleServerTestAccess::StReady());
    EXPECT_EQ(played::Take(kMqKzNet), played::Messages{});

    NotifyCsi(61, Le32(0));
    EXPECT_TRUE(KzBleServerTestAccess::StReady());
    NotifyCsi(3, Le32(1));
    NotifyCsi(38, Le32(1));

    EXPECT_EQ(played::Take(kMqKzNet),
              (played::Messages{SetMessage(34, {0x0C}), SetMessage(34, {0x1C}), SetMessage(34, {0x3C})}));
    EXPECT_EQ(KzBleServerTestAccess::Paused(), 1);
}

TEST_F(CsiTest, NewMediaEndsThePauseExceptOnTwoModels) {
    for (const uint8_t model : Bytes{22, 23}) {
        NotifyCsi(20, {model, 1, 0, 0});
        NotifyCsi(128, Le32(1));
        EXPECT_EQ(Server().GetModelNumber(), model);
        EXPECT_EQ(KzBleServerTestAccess::NewMedia(), 0);
    }
    EXPECT_EQ(played::Take(kMqKzNet), played::Messages{});

    NotifyCsi(20, Le32(58));
    NotifyCsi(128, Le32(1));

    EXPECT_EQ(KzBleServerTestAccess::NewMedia(), 1);
    EXPECT_EQ(played::Take(kMqKzNet), (played::Messages{SetMessage(38, Le32(0))}));
    played::SetDepth(kMqKzNet, 0);
    const fakes::LogCapture log(5);
    NotifyCsi(128, Le32(0));
    EXPECT_TRUE(log.Has("CSI_ST_PAUSED set to 0 failed", 5));
}

TEST_F(CsiTest, ResumingRegistersForPushesWhileClientsExist) {
    NotifyCsi(111, Le32(0));
    EXPECT_EQ(fakes::Calls(), std::vector<Call>{});
    Connect(5);
    NotifyCsi(111, Le32(1));
    EXPECT_EQ(fakes::Calls(), std::vector<Call>{});

    NotifyCsi(111, Le32(0));
    NotifyCsi(111, Le32(0));

    const std::vector<Call> calls = fakes::Calls();
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].id, uint32_t{KZCONTROL_EVENT_REGISTER_MQUEUE});
    EXPECT_EQ(played::Take(kMqKzNet), played::Messages{});
}

TEST_F(CsiTest, ResumingEndsTheWaitForAnUpdatedAccessory) {
    Server().SetWaitingAccReconnect(true);
    NotifyCsi(111, Le32(1));
    EXPECT_TRUE(Server().GetWaitingAccReconnect());

    NotifyCsi(111, Le32(0));

    EXPECT_FALSE(Server().GetWaitingAccReconnect());
    EXPECT_EQ(played::Take(kMqKzNet), (played::Messages{SetMessage(150, Le32(0))}));
}

TEST_F(CsiTest, UploadProgressIsThreeNumbersBetweenColons) {
    Connect(5).AddInterest(kCsi, 42);
    const struct {
        Bytes text;
        bool told;
        int current, total, percentage;
    } cases[] = {
        {fakes::BytesOf("3:300:45"), true, 3, 300, 45},
        {fakes::BytesOf("4: 301 :46%") + Bytes{0}, true, 4, 301, 46},
        {fakes::BytesOf("5:302"), false, 5, 302, 46},
        {fakes::BytesOf("6::47"), false, 6, 302, 46},
        {fakes::BytesOf("x:1:2"), false, 6, 302, 46},
        {fakes::BytesOf("99999999999:1:2"), false, 6, 302, 46},
        {{}, false, 6, 302, 46},
        {fakes::BytesOf("7:303:48:1"), true, 7, 303, 48},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(NotifyCsi(94, test.text), test.told);

        EXPECT_EQ(TakeTold().size(), test.told ? 1u : 0u);
        EXPECT_EQ(Server().GetCahUploadProgress().currentFile, test.current);
        EXPECT_EQ(Server().GetCahUploadProgress().totalFiles, test.total);
        EXPECT_EQ(Server().GetCahUploadProgress().percentage, test.percentage);
        EXPECT_EQ(Server().GetCsiValue(94), 0u);
    }
}

TEST_F(CsiTest, SetMessagesHoldWhatAMessageHolds) {
    EXPECT_EQ(Server().csi_set_no_rsp(73, "\x02", 1), 0);
    EXPECT_EQ(played::Take(kMqKzNet), (played::Messages{SetMessage(73, {2})}));

    const Bytes value(1500, 1);
    EXPECT_EQ(Server().csi_set_no_rsp(73, value.data(), 1450), 0);
    EXPECT_EQ(Server().csi_set_no_rsp(73, value.data(), 1490), -1);
    EXPECT_EQ(Server().csi_set_no_rsp(73, value.data(), 1500), -1);
    EXPECT_EQ(Server().csi_set_no_rsp(73, nullptr, 0), 0);
    EXPECT_EQ(played::Take(kMqKzNet).size(), 2u);
}

// ---------------------------------------------------------------- accessory buffers

TEST_F(CsiTest, ALedBufferGoesToOneClientAndStays) {
    Connect(1);
    Connect(2).AddInterest(NotificationClient::eNotifyLed, 2);
    Connect(3).AddInterest(NotificationClient::eNotifyLed, 3);
    const Bytes lights(18, 7);

    EXPECT_TRUE(Handle(BufferMessage("AL", lights)));
    EXPECT_EQ(TakeTold(KZ_STR_ID_SENSOR_RESPONSE), (std::vector<Told>{{2, Bytes{0x53} + lights}}));
    EXPECT_TRUE(Handle(BufferMessage("AL", Bytes(5, 1))));
    EXPECT_EQ(TakeTold(KZ_STR_ID_SENSOR_RESPONSE), (std::vector<Told>{{2, Bytes{0x53} + Bytes(5, 1)}}));
    EXPECT_FALSE(Handle(BufferMessage("AL", Bytes(19, 9))));

    EXPECT_EQ(KzBleServerTestAccess::LedBuffer(), Bytes{0x53} + Bytes(5, 1));
    EXPECT_EQ(TakeTold(KZ_STR_ID_SENSOR_RESPONSE), std::vector<Told>{});
}

TEST_F(CsiTest, AnAccessoryBeingUpdatedKeepsTheLightsFromThoseBehindIt) {
    Connect(1).m_transferringLarch = true;
    Connect(2).AddInterest(NotificationClient::eNotifyLed, 2);
    Connect(3).AddInterest(NotificationClient::eNotifyLcd, 3);

    EXPECT_TRUE(Handle(BufferMessage("AL", Bytes(5, 1))));
    EXPECT_EQ(TakeTold(), std::vector<Told>{});
    EXPECT_TRUE(Handle(BufferMessage("LB", Bytes(40, 2))));

    EXPECT_EQ(TakeTold(KZ_STR_ID_SENSOR_RESPONSE), (std::vector<Told>{{3, Bytes{0x51} + Bytes(40, 2)}}));
}

// ---------------------------------------------------------------- any bytes

// One byte of a good message changed, or its end missing: nothing worse than a refusal.
TEST_F(CsiTest, NoDamageToAMessageIsMoreThanARefusal) {
    Connect(5).AddInterest(kCsi, 42);
    const Bytes good = Event("CU", Record(97, Le32(0x01020304)) + Record(94, fakes::BytesOf("1:2:3")));
    std::mt19937 random(1);
    g_logLevel = KZ_LOG_OFF;
    for (size_t i = 0; i < good.size(); ++i) {
        for (int round = 0; round < 16; ++round) {
            Bytes bad = good;
            bad[i] = static_cast<uint8_t>(random());
            Handle(bad);
        }
        Handle(Bytes(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(i)));
    }
    played::Take(kMqToSkylark);
    EXPECT_TRUE(Handle(good));
}

}  // namespace
}  // namespace changes_test
