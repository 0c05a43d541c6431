// What clients are notified of: their interests, how pushes are built, what waits when the radio queue is full, and in
// which order it leaves.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>

#include "kzCtrlD/kzCtrlD.h"
#include "logCapture.h"
#include "serverParts.h"
#include "testModel.h"
#include "utils.h"

namespace {

using fakes::Bytes;
using fakes::FromHex;
using fakes::Le32;
using fakes::PushValues;
using Ints = std::vector<int>;
using Texts = std::vector<std::string>;

constexpr auto kStatus = NotificationClient::eNotifyStatus;
constexpr auto kSettings = NotificationClient::eNotifySettings;
constexpr auto kCapabilities = NotificationClient::eNotifyCapabilities;
constexpr auto kCsi = NotificationClient::eNotifyCSI;
constexpr auto kLcd = NotificationClient::eNotifyLcd;
constexpr auto kLed = NotificationClient::eNotifyLed;

class PushTest : public testing::Test {
  protected:
    PushTest() {
        g_logLevel = KZ_LOG_OFF;
        fakes::Reset();
        fakes::LoadCatalogue({{2, {1, 9}}, {5, {3, 4}}});
        PushValues(R"({"settings": {"2": 9}, "status": {"8": 1, "29": "cam"}})");
    }
    ~PushTest() override { BleSDK::Destroy(); }

    void NotifyCsi(uint8_t key, const Bytes& value) {
        Bytes record = Le32(static_cast<uint32_t>(value.size()));
        record.insert(record.begin(), key);
        record.insert(record.end(), value.begin(), value.end());
        server.inbox.NotifyClientsOfCSIChanges(reinterpret_cast<const csiStruct*>(record.data()));
    }
    const Ints& Interest(NotificationClient::eNotificationType_t type) const { return client.m_interests.Of(type); }
    // Whether there is a push for a change set.
    bool Builds(NotificationClient::eNotificationType_t type, Ints ids) {
        unsigned char buffer[kPushBufferSize];
        unsigned short length = sizeof(buffer);
        int kzErrno = -1;
        return client.ExecutePush(type, ids, buffer, &length, &kzErrno);
    }
    void StorePush(const char* hex) {
        const Bytes push = FromHex(hex);
        client.StorePushResponse(kStatus, push.data(), static_cast<int>(push.size()));
    }

    // What was sent since the last look, each message joined from its packets: "3: 92 00 02 01 09" to client 3.
    static Texts Sent() {
        Texts messages;
        for (const Bytes& bytes : played::Take(kMqToSkylark)) {
            ble_message_t record{};
            std::memcpy(&record, bytes.data(), std::min(bytes.size(), sizeof(record)));
            const bool starts = (record.data[0] & 0x80) == 0;
            const int header = starts && (record.data[0] & 0x20) != 0 ? 2 : 1;
            const std::string part = fakes::ToHex({record.data + header, record.data + record.dataLength});
            if (starts) {
                messages.push_back(std::to_string(record.connectionId) + ":");
            }
            messages.back() += " " + part;
        }
        return messages;
    }

    ServerParts server{100};
    BleNotificationClient& client = server.Connect(3);
};

}  // namespace

// ---------------------------------------------------------------- interests and contents

TEST_F(PushTest, InterestsKeepTheOrderOfSingleIdsAndSortLists) {
    for (auto type : {kStatus, kSettings, kCapabilities, kCsi, kLcd, kLed}) {
        for (int id : {9, 2, 9}) {
            client.AddInterest(type, id);
        }
        EXPECT_EQ(Interest(type), (Ints{9, 2}));
        client.AddInterest(type, Ints{5, 2, 5});
        EXPECT_EQ(Interest(type), (Ints{2, 5, 9}));
        client.RemoveInterest(type, Ints{9, 5, 77});
        EXPECT_EQ(Interest(type), Ints{2});
        client.RemoveInterestAll(type);
        EXPECT_EQ(Interest(type), type == kCsi ? Ints{2} : Ints{});
    }
}

TEST_F(PushTest, WithoutInterestMatchModelOrKnownTypeThereIsNone) {
    const struct {
        NotificationClient::eNotificationType_t type;
        const char* noInterest;
        int noMatchLevel;
    } kRows[] = {{kStatus, "Connection_id:3 has no interest in ANY status push.", KZ_LOG_INFO},
                 {kSettings, "Connection_id:3 has no interest in ANY settings push.", KZ_LOG_TRACE},
                 {kCapabilities, "Connection_id:3 has no interest in ANY capabilities push.", KZ_LOG_TRACE}};
    const fakes::LogCapture log(KZ_LOG_TRACE);
    for (const auto& row : kRows) {
        EXPECT_FALSE(Builds(row.type, {2, 8}));
        EXPECT_TRUE(log.Has(row.noInterest, KZ_LOG_TRACE));
        client.AddInterest(row.type, 5);
        EXPECT_FALSE(Builds(row.type, {2, 8}));
        EXPECT_TRUE(log.Has("This client is has no matching ids in this push", row.noMatchLevel));
    }
    EXPECT_FALSE(Builds(static_cast<NotificationClient::eNotificationType_t>(4), {1}));
    EXPECT_TRUE(log.Has("Unhandled push type"));

    // A feature notification needs a field of its key.
    client.AddInterest(kCsi, 42);
    for (const auto& [key, field] : {std::pair<uint8_t, int>{97, 2}, {41, 3}, {26, 2}}) {
        NotifyCsi(key, Le32(1));
        EXPECT_FALSE(Builds(kCsi, {field}));
    }
    EXPECT_TRUE(log.Has("No CAH Status 2") && log.Has("CSI CAH triggered, but no match of status 2"));
    BleSDK::Destroy();
    EXPECT_FALSE(Builds(kStatus, {8}));
    EXPECT_TRUE(log.Has("No Database"));
}

// ---------------------------------------------------------------- more than the queue takes

TEST_F(PushTest, AWaitingPushLeavesBeforeALaterOne) {
    client.AddInterestAll(kSettings);
    client.AddInterest(kCsi, 42);
    server.SetRadioDepth(0);
    server.fanOut.NotifyClientsOfSettingsChanges();
    NotifyCsi(41, Le32(10));
    EXPECT_FALSE(server.delivery.CheckClientsStoredResponses());
    server.SetRadioDepth(100);

    PushValues(R"({"settings": {"2": 1}})");
    server.fanOut.NotifyClientsOfSettingsChanges();
    NotifyCsi(41, Le32(11));

    EXPECT_EQ(Sent(), (Texts{"3: 92 00 02 01 09", "3: 92 00 02 01 01", "3: f5 f7 10 0a", "3: f5 f7 10 0b"}));
    EXPECT_FALSE(server.delivery.CheckClientsStoredResponses());
}

TEST_F(PushTest, AWaitingPushThatIsOvertakenIsSentLaterFromCurrentValues) {
    client.AddInterestAll(kStatus);
    server.SetRadioDepth(2);
    for (const char* push : {R"({"8": 0})", R"({"8": 1, "29": "twenty-one characters"})", R"({"8": 2})"}) {
        PushValues(std::string(R"({"status": )") + push + "}");
        server.fanOut.NotifyClientsOfStatusChanges();
    }
    EXPECT_EQ(Sent(), (Texts{"3: 93 00 08 01 00", "3: 93 00 08 01 02"}));

    EXPECT_TRUE(server.delivery.CheckClientsStoredResponses());
    EXPECT_EQ(Sent(), Texts{"3: 93 00 08 01 02 1d 15 " + fakes::ToHex(fakes::BytesOf("twenty-one characters"))});
    EXPECT_FALSE(server.delivery.CheckClientsStoredResponses());
}

TEST_F(PushTest, TheNewestUnsentPushOfATypeStaysAndOnlyAnOwedOneComesAgain) {
    client.AddInterestAll(kStatus);
    client.m_pushes.DeferPush(kStatus, {8});
    client.m_pushes.RefillStoredPushes(kPushBufferSize);
    const fakes::LogCapture log(KZ_LOG_ERROR);

    StorePush("93 00 1d 01 62");  // 8 is owed again
    StorePush("93 00 1d 01 63");
    EXPECT_EQ(log.Texts(), Texts{"Status Push Notifications backed up, replacing oldest"});
    while (server.delivery.CheckClientsStoredResponses()) {
    }
    EXPECT_EQ(Sent(), (Texts{"3: 93 00 1d 01 63", "3: 93 00 08 01 01"}));

    const unsigned char push = 1;
    for (const auto& [type, text] : {std::pair{kSettings, "Settings Push Notifications backed up, replacing oldest"},
                                     {kCapabilities, "Capabilities Push Notifications backed up, replacing oldest"},
                                     {kCsi, "Unhandled notification type"}}) {
        client.StorePushResponse(type, &push, 1);
        client.StorePushResponse(type, &push, 1);
        EXPECT_TRUE(log.Has(text));
    }
}

TEST_F(PushTest, OwedIdsWaitForTheGateAndEndWithTheInterest) {
    client.AddInterestAll(kStatus);
    client.SetCCCEnabled(KZ_STR_ID_QUERY_CCC, 0);
    client.m_pushes.DeferPush(kStatus, {8});

    EXPECT_FALSE(server.delivery.CheckClientsStoredResponses());
    client.SetCCCEnabled(KZ_STR_ID_QUERY_CCC, 1);
    client.RemoveInterestAll(kStatus);
    EXPECT_FALSE(server.delivery.CheckClientsStoredResponses());
    client.AddInterestAll(kStatus);
    EXPECT_FALSE(server.delivery.CheckClientsStoredResponses());
}

// Nine settings of 256 options, two of which fit no push together, and one that fits none; a push takes 42 packets. In
// the deeper queue a longer push would have room, but there is none.
TEST_F(PushTest, ChangesOfSeveralPushesAllArriveHoweverFullTheQueueIs) {
    constexpr int kSettingCount = 9;
    std::map<int, Ints> settings = {{kSettingCount + 1, Ints(510, 1)}};
    for (int id = 1; id <= kSettingCount; ++id) {
        settings[id] = Ints(256, id);
    }
    fakes::LoadCatalogue(settings);
    client.AddInterestAll(kCapabilities);
    server.Connect(4).AddInterestAll(kCapabilities);
    PushValues(R"({"status": {"8": 1}})");
    for (const long depth : {45, 100}) {
        SCOPED_TRACE(depth);
        const fakes::LogCapture log(KZ_LOG_ERROR);
        server.SetRadioDepth(depth);
        EXPECT_TRUE(server.fanOut.NotifyClientsOfSettingsCapabilitiesChanges());
        Texts sent;
        for (int tick = 0; tick < 4 * kSettingCount; ++tick) {
            const Texts more = Sent();
            EXPECT_LE(more.size(), static_cast<size_t>(depth / 42));
            sent.insert(sent.end(), more.begin(), more.end());
            server.delivery.CheckClientsStoredResponses();
        }

        Texts expected;
        for (const char* receiver : {"3: a2 00", "4: a2 00"}) {
            for (const char digit : std::string("123456789")) {
                expected.emplace_back(receiver);
                for (int i = 0; i < 256; ++i) {
                    expected.back() += std::string(" 0") + digit + " 01 0" + digit;
                }
            }
        }
        std::sort(sent.begin(), sent.end());
        EXPECT_EQ(sent, expected);
        EXPECT_GE(log.Count("Entries of id:10 do not fit a push of"), 2u);
    }
}

// ---------------------------------------------------------------- the radio port

TEST_F(PushTest, APlaceThatAnotherSenderTakesFirstIsNoRoomForAPacketAndCostsALongerAnswerItsEnd) {
    const ble_message_t record = NewDataRecord(3, KZ_STR_ID_QUERY_RESPONSE);
    const Bytes bytes(30, 7);
    const fakes::LogCapture log(KZ_LOG_ERROR);

    played::SetDepth(kMqToSkylark, 0, 1);
    EXPECT_FALSE(server.radio.PostResponse(record, bytes.data(), 1));
    EXPECT_EQ(log.Texts(), Texts{"GATT Message queue is backed up, buffering response for later attempt"});
    played::SetDepth(kMqToSkylark, 1, 2);
    EXPECT_TRUE(server.radio.PostResponse(record, bytes.data(), 30));
    EXPECT_EQ(played::Take(kMqToSkylark).size(), 1u);
    EXPECT_TRUE(log.Has("Failed to send packet to ble client. Response remainder will be dropped!!"));
}

TEST_F(PushTest, HeldPacketsAreDroppedWhenHoldingEnds) {
    const ble_message_t record = NewDataRecord(4, KZ_STR_ID_QUERY_RESPONSE);
    const Bytes bytes(30, 7);
    const fakes::LogCapture log(KZ_LOG_INFO);
    server.radio.StartPacketTimer();
    server.radio.SetPacketTimer(true);
    EXPECT_TRUE(server.radio.PostPacket(record));
    EXPECT_TRUE(server.radio.PostResponse(record, bytes.data(), 30));
    EXPECT_EQ(Sent(), Texts{});
    EXPECT_TRUE(log.Has("q size = 3"));

    server.radio.SetPacketTimer(false);

    EXPECT_EQ(Sent(), Texts{});
    EXPECT_TRUE(server.radio.PostResponse(record, bytes.data(), 30));
    EXPECT_EQ(Sent(), Texts{"4: " + fakes::ToHex(bytes)});
}

TEST_F(PushTest, ABusyQueueIsReportedOnEveryThirdTick) {
    server.SetRadioDepth(3);
    client.AddInterestAll(kSettings);
    for (uint32_t tick = 1; tick < 10; ++tick) {
        EXPECT_EQ(server.radio.TrackBleQStats(tick), tick > 3 && tick % 3 == 0) << tick;
        if (tick == 3) {
            server.fanOut.NotifyClientsOfSettingsChanges();
            server.fanOut.NotifyClientsOfSettingsChanges();
        }
    }
}
