// What a client is told: its interests, the pushes of values and buffers, and what waits when the radio is full.
#include <numeric>

#include "queryFixture.h"

namespace {

constexpr auto kStatus = NotificationClient::eNotifyStatus;
constexpr auto kSettings = NotificationClient::eNotifySettings;
constexpr auto kCapabilities = NotificationClient::eNotifyCapabilities;
constexpr auto kCsi = NotificationClient::eNotifyCSI;
constexpr auto kLcd = NotificationClient::eNotifyLcd;
constexpr auto kLed = NotificationClient::eNotifyLed;

class PushTest : public QueryTest {
  protected:
    // The push for a change set, in a buffer of exactly `capacity` bytes; empty when there is none.
    Bytes PushOf(NotificationClient::eNotificationType_t type, Ints ids, size_t capacity = kPushBufferSize) {
        const auto buffer = std::make_unique<uint8_t[]>(capacity);
        auto length = static_cast<unsigned short>(capacity);
        int kzErrno = -1;
        const bool built = m_client.ExecutePush(type, ids, buffer.get(), &length, &kzErrno);
        EXPECT_EQ(kzErrno, 0);
        return built ? Bytes(buffer.get(), buffer.get() + length) : Bytes{};
    }

    Bytes Stored(NotificationClient::eNotificationType_t type) {
        const BleNotificationClient::StoredResponse& entry = *m_client.StoredPush(type);
        return entry.m_length > 0 ? Bytes(entry.m_data.get(), entry.m_data.get() + entry.m_length) : Bytes{};
    }

    void StorePush(NotificationClient::eNotificationType_t type, const Bytes& push) {
        m_client.StorePushResponse(type, push.data(), static_cast<int>(push.size()));
    }
};

// ---------------------------------------------------------------- interests

TEST_F(PushTest, SingleIdsKeepTheirOrderAndListsAreSorted) {
    for (auto type : {kStatus, kSettings, kCapabilities, kCsi, kLcd, kLed}) {
        for (int id : {9, 2, 9}) {
            EXPECT_TRUE(m_client.AddInterest(type, id));
        }
        EXPECT_EQ(Interest(type), (Ints{9, 2}));

        EXPECT_TRUE(m_client.AddInterest(type, Ints{5, 2, 5}));
        EXPECT_EQ(Interest(type), (Ints{2, 5, 9}));

        EXPECT_TRUE(m_client.RemoveInterest(type, 5));
        EXPECT_TRUE(m_client.RemoveInterest(type, 5));
        EXPECT_EQ(Interest(type), (Ints{2, 9}));

        m_client.AddInterest(type, 1);
        EXPECT_TRUE(m_client.RemoveInterest(type, Ints{9, 77}));
        EXPECT_EQ(Interest(type), (Ints{1, 2}));

        EXPECT_TRUE(m_client.RemoveInterestAll(type));
        EXPECT_EQ(Interest(type), type == kCsi ? (Ints{1, 2}) : Ints{});
    }
}

TEST_F(PushTest, AllOfATypeIsTheCatalogue) {
    for (auto type : {kStatus, kSettings, kCapabilities, kCsi, kLcd, kLed}) {
        m_client.AddInterest(type, 77);
        EXPECT_TRUE(m_client.AddInterestAll(type));
    }

    EXPECT_EQ(Interest(kStatus), (Ints{8, 13, 29, 33, 96, 97}));
    EXPECT_EQ(Interest(kSettings), (Ints{2, 5, 30, 59}));
    EXPECT_EQ(Interest(kCapabilities), (Ints{2, 5, 30, 59}));
    EXPECT_EQ(Interest(kCsi), Ints{77});
    EXPECT_EQ(Interest(kLcd), Ints{});
    EXPECT_EQ(Interest(kLed), Ints{});
}

// ---------------------------------------------------------------- pushes of values

TEST_F(PushTest, CarryTheMatchingIdsInAscendingOrder) {
    m_client.AddInterest(kStatus, 29);
    m_client.AddInterest(kStatus, 8);
    m_client.AddInterest(kSettings, Ints{30, 2, 5});
    m_client.AddInterest(kCapabilities, Ints{5, 59});

    EXPECT_EQ(PushOf(kStatus, {8, 13, 29}), (Bytes{0x93, 0, 8, 1, 1, 29, 3, 'c', 'a', 'm'}));
    EXPECT_EQ(PushOf(kSettings, {5, 30, 59}), (Bytes{0x92, 0, 5, 1, 4, 30, 4, 0, 0, 0x03, 0xE8}));
    EXPECT_EQ(PushOf(kCapabilities, {2, 5, 30}), (Bytes{0xA2, 0, 5, 1, 3}));
    EXPECT_EQ(m_client.PushRemainder(), Ints{});
}

TEST_F(PushTest, WithoutAMatchThereIsNone) {
    const struct {
        NotificationClient::eNotificationType_t type;
        const char* noInterest;
        int noMatchLevel;
    } cases[] = {
        {kStatus, "Connection_id:7 has no interest in ANY status push.", 5},
        {kSettings, "Connection_id:7 has no interest in ANY settings push.", 6},
        {kCapabilities, "Connection_id:7 has no interest in ANY capabilities push.", 6},
    };
    for (const auto& test : cases) {
        const fakes::LogCapture log(6);

        EXPECT_EQ(PushOf(test.type, {2, 8}), Bytes{});
        EXPECT_TRUE(log.Has(test.noInterest, 6));

        m_client.AddInterest(test.type, 5);
        EXPECT_EQ(PushOf(test.type, {2, 8}), Bytes{});
        EXPECT_TRUE(log.Has("This client is has no matching ids in this push", test.noMatchLevel));
    }
}

TEST_F(PushTest, NeedTheModelAndAKnownType) {
    const fakes::LogCapture log(2);
    const auto unknown = static_cast<NotificationClient::eNotificationType_t>(4);

    EXPECT_EQ(PushOf(unknown, {1}), Bytes{});
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"Unhandled push type"});

    BleSDK::Destroy();
    EXPECT_EQ(PushOf(kStatus, {8}), Bytes{});
    EXPECT_TRUE(log.Has("No Database", 2));
}

TEST_F(PushTest, BuffersGoToClientsThatAskedByConnection) {
    uint8_t buffer[] = {0, 'a', 'b'};
    const struct {
        NotificationClient::eNotificationType_t type;
        uint8_t marker;
        const char* noInterest;
    } cases[] = {{kLcd, 0x51, "Failed to find a client interested in RCs"},
                 {kLed, 0x53, "Failed to find a client interested in Birchs"}};
    for (const auto& test : cases) {
        const fakes::LogCapture log(4);
        Ints ids = {7};
        unsigned short length = sizeof(buffer);
        int kzErrno = -1;
        buffer[0] = 0;

        EXPECT_FALSE(m_client.ExecutePush(test.type, ids, buffer, &length, &kzErrno));
        EXPECT_TRUE(log.Has(test.noInterest, 4));
        m_client.AddInterest(test.type, 8);
        EXPECT_FALSE(m_client.ExecutePush(test.type, ids, buffer, &length, &kzErrno));
        EXPECT_EQ(buffer[0], 0);
        m_client.AddInterest(test.type, 7);
        EXPECT_TRUE(m_client.ExecutePush(test.type, ids, buffer, &length, &kzErrno));
        EXPECT_EQ(buffer[0], test.marker);
        EXPECT_EQ(length, sizeof(buffer));
    }
}

// ---------------------------------------------------------------- more than one push holds

// Every setting but the 4-byte ones offers 256 options: 768 bytes of entries.
class LargePushTest : public PushTest {
  protected:
    static constexpr int kSettingCount = 9;

    LargePushTest() {
        std::string settings;
        for (int id = 1; id <= kSettingCount; ++id) {
            settings += (id == 1 ? "" : ",") + SettingOf(id, 256);
        }
        LoadSettings(settings);
        m_client.AddInterestAll(kCapabilities);
        m_client.SetCCCEnabled(KZ_STR_ID_QUERY_CCC, 1);
    }

    static std::string SettingOf(int id, int optionCount) {
        std::string options;
        for (int option = 0; option < optionCount; ++option) {
            options += (option == 0 ? "" : ",") + (R"({"id":)" + std::to_string(option) + R"(,"display_name":"O"})");
        }
        return R"({"id":)" + std::to_string(id) + R"(,"display_name":"S","options":[)" + options + "]}";
    }

    static void LoadSettings(const std::string& settings) {
        Load(R"({"modes":[],"settings":[)" + settings + R"(],"status":{"groups":[{"fields":[{"id":8,"name":"B"}]}]},
            "filters":[{"activated_by":[{"status_id":8,"values":[1]}],"blacklist":[]}]})");
        Push(R"({"status":{"8":1}})");
    }

    static Ints Ids(int first, int last) {
        Ints ids(static_cast<size_t>(last - first + 1));
        std::iota(ids.begin(), ids.end(), first);
        return ids;
    }
};

TEST_F(LargePushTest, GoesOutAsSeveralWholePushes) {
    Ints todo = Ids(1, kSettingCount);
    for (int id = 1; id <= kSettingCount; ++id) {
        const Bytes push = PushOf(kCapabilities, todo);

        ASSERT_EQ(push.size(), 2u + 768);
        EXPECT_EQ(push[2], id);
        EXPECT_EQ(push[push.size() - 3], id);
        todo = m_client.PushRemainder();
    }
    EXPECT_EQ(todo, Ints{});
}

TEST_F(LargePushTest, ASettingThatFitsNoPushIsLeftOutAndTheOthersAreTold) {
    LoadSettings(SettingOf(1, 500) + "," + SettingOf(2, 2) + "," + SettingOf(3, 500));
    m_client.AddInterestAll(kCapabilities);
    const fakes::LogCapture log(2);

    EXPECT_EQ(PushOf(kCapabilities, {1, 2, 3}), (Bytes{0xA2, 0, 2, 1, 0, 2, 1, 1}));
    EXPECT_EQ(m_client.PushRemainder(), Ints{3});
    EXPECT_EQ(PushOf(kCapabilities, {3}), Bytes{});
    EXPECT_EQ(log.Lines().size(), 2u);
}

TEST_F(LargePushTest, OwedIdsAreToldOneWholePushATime) {
    m_client.DeferPush(kCapabilities, {3, 1});
    m_client.DeferPush(kCapabilities, {1, 2});

    for (int id = 1; id <= 3; ++id) {
        BleNotificationClient::StoredResponse* entry = m_client.GetHighestPriorityStoredResponse();
        ASSERT_EQ(entry, m_client.StoredPush(kCapabilities));
        EXPECT_EQ(Stored(kCapabilities), PushOf(kCapabilities, {id}));
        EXPECT_EQ(m_client.GetHighestPriorityStoredResponse(), entry);  // not sent yet: still the same
        entry->Clear();
    }
    EXPECT_EQ(m_client.GetHighestPriorityStoredResponse(), nullptr);
}

TEST_F(LargePushTest, AnOwedPushIsNotReplacedByANewOne) {
    m_client.DeferPush(kCapabilities, {1, 2});
    m_client.GetHighestPriorityStoredResponse();
    const fakes::LogCapture log(2);
    const Bytes newer = PushOf(kCapabilities, {5});

    StorePush(kCapabilities, newer);

    EXPECT_EQ(log.Texts(), std::vector<std::string>{});
    for (int id : {5, 1, 2}) {
        ASSERT_NE(m_client.GetHighestPriorityStoredResponse(), nullptr);
        EXPECT_EQ(Stored(kCapabilities), PushOf(kCapabilities, {id}));
        m_client.StoredPush(kCapabilities)->Clear();
    }
}

// ---------------------------------------------------------------- pushes that wait

TEST_F(PushTest, TheNewestUnsentPushOfATypeStays) {
    const struct {
        NotificationClient::eNotificationType_t type;
        const char* text;
    } cases[] = {
        {kSettings, "Settings Push Notifications backed up, replacing oldest"},
        {kStatus, "Status Push Notifications backed up, replacing oldest"},
        {kCapabilities, "Capabilities Push Notifications backed up, replacing oldest"},
    };
    for (const auto& test : cases) {
        const fakes::LogCapture log(2);

        StorePush(test.type, {1, 2, 3});
        EXPECT_EQ(log.Texts(), std::vector<std::string>{});
        StorePush(test.type, {4, 5});

        EXPECT_EQ(Stored(test.type), (Bytes{4, 5}));
        EXPECT_EQ(log.Texts(), std::vector<std::string>{test.text});
    }
}

TEST_F(PushTest, OtherTypesAreNotStored) {
    const fakes::LogCapture log(2);

    StorePush(kCsi, {1});
    StorePush(kLcd, {1});

    EXPECT_EQ(log.Texts(), (std::vector<std::string>{"Unhandled notification type", "Unhandled notification type"}));
}

TEST_F(PushTest, AnOvertakenPushIsToldAgainFromTheValuesOfTheMoment) {
    m_client.AddInterestAll(kSettings);
    m_client.SetCCCEnabled(KZ_STR_ID_QUERY_CCC, 1);
    StorePush(kSettings, PushOf(kSettings, {2, 30}));

    m_client.DeferStoredPush(kSettings);
    Push(R"({"settings": {"2": 1}})");
    ASSERT_NE(m_client.GetHighestPriorityStoredResponse(), nullptr);

    EXPECT_EQ(Stored(kSettings), (Bytes{0x92, 0, 2, 1, 1, 30, 4, 0, 0, 0x03, 0xE8}));
}

TEST_F(PushTest, AStoredFeatureNotificationStaysAsItIs) {
    const Bytes notification = {0xF5, 0xF7, 8, 1};
    StorePush(kStatus, notification);

    m_client.DeferStoredPush(kStatus);

    EXPECT_EQ(Stored(kStatus), notification);
}

TEST_F(PushTest, OwedIdsWaitForTheGateAndEndWithTheInterest) {
    m_client.AddInterestAll(kStatus);
    m_client.DeferPush(kStatus, {8});

    EXPECT_EQ(m_client.GetHighestPriorityStoredResponse(), nullptr);
    m_client.SetCCCEnabled(KZ_STR_ID_QUERY_CCC, 1);
    m_client.RemoveInterestAll(kStatus);
    EXPECT_EQ(m_client.GetHighestPriorityStoredResponse(), nullptr);
    m_client.AddInterestAll(kStatus);
    EXPECT_EQ(m_client.GetHighestPriorityStoredResponse(), nullptr);
}

}  // namespace
