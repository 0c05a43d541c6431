// What a client is told: its interests, the pushes of values and buffers, and what waits when the radio is full.
#include "queryFixture.h"

namespace {

class PushTest : public QueryTest {
  protected:
    std::string Stored(NotificationClient::eNotificationType_t type) {
        const BleNotificationClient::StoredResponse& entry = *m_client.StoredPush(type);
        return entry.m_length > 0 ? ToHex({entry.m_data.get(), entry.m_data.get() + entry.m_length}) : "";
    }
    void StorePush(NotificationClient::eNotificationType_t type, const std::string& push) {
        const Bytes bytes = FromHex(push);
        m_client.StorePushResponse(type, bytes.data(), static_cast<int>(bytes.size()));
    }
};

// Each of its settings offers 256 options, of which one push carries one setting.
class LargePushTest : public PushTest {
  protected:
    LargePushTest() {
        LoadSettings({{1, Ints(256, 1)}, {2, Ints(256, 1)}, {3, Ints(256, 1)}, {4, Ints(500, 1)}, {5, {2, 3}}});
        PushValues(R"({"status": {"8": 1}})");
        m_client.AddInterestAll(kCapabilities);
        m_client.SetCCCEnabled(KZ_STR_ID_QUERY_CCC, 1);
    }
    static std::string PushOfSetting(uint8_t id) {
        std::string push = "a2 00";
        for (int option = 0; option < 256; ++option) {
            push += " " + ToHex({id, 1, 1});
        }
        return push;
    }
};

}  // namespace

TEST_F(PushTest, InterestsKeepTheOrderOfSingleIdsAndSortLists) {
    for (auto type : {kStatus, kSettings, kCapabilities, kCsi, kLcd, kLed}) {
        for (int id : {9, 2, 9}) {
            m_client.AddInterest(type, id);
        }
        EXPECT_EQ(Interest(type), (Ints{9, 2}));
        m_client.AddInterest(type, Ints{5, 2, 5});
        EXPECT_EQ(Interest(type), (Ints{2, 5, 9}));
        m_client.RemoveInterest(type, 5);
        m_client.RemoveInterest(type, Ints{9, 77});
        EXPECT_EQ(Interest(type), Ints{2});
        m_client.RemoveInterestAll(type);
        EXPECT_EQ(Interest(type), type == kCsi ? Ints{2} : Ints{});
        m_client.AddInterestAll(type);
    }
    EXPECT_EQ(Interest(kStatus), (Ints{8, 13, 29, 33, 96, 97}));
    EXPECT_EQ(Interest(kSettings), (Ints{2, 5, 30, 59}));
    EXPECT_EQ(Interest(kCapabilities), (Ints{2, 5, 30, 59}));
    EXPECT_EQ(Interest(kCsi), Ints{2});
    EXPECT_EQ(Interest(kLcd), Ints{});
}

TEST_F(PushTest, CarriesTheMatchingIdsInAscendingOrder) {
    m_client.AddInterest(kStatus, 29);
    m_client.AddInterest(kStatus, 8);
    m_client.AddInterest(kSettings, Ints{30, 2, 5});
    m_client.AddInterest(kCapabilities, Ints{5, 59});

    EXPECT_EQ(PushOf(kStatus, {8, 13, 29}), "93 00 08 01 01 1d 03 63 61 6d");
    EXPECT_EQ(PushOf(kSettings, {5, 30, 59}), "92 00 05 01 04 1e 04 00 00 03 e8");
    EXPECT_EQ(PushOf(kCapabilities, {2, 5, 30}), "a2 00 05 01 03");
    EXPECT_EQ(m_client.PushRemainder(), Ints{});
}

TEST_F(PushTest, WithoutInterestMatchModelOrKnownTypeThereIsNone) {
    const struct {
        NotificationClient::eNotificationType_t type;
        const char* noInterest;
        int noMatchLevel;
    } kRows[] = {{kStatus, "Connection_id:7 has no interest in ANY status push.", KZ_LOG_INFO},
                 {kSettings, "Connection_id:7 has no interest in ANY settings push.", KZ_LOG_TRACE},
                 {kCapabilities, "Connection_id:7 has no interest in ANY capabilities push.", KZ_LOG_TRACE}};
    for (const auto& row : kRows) {
        const fakes::LogCapture log(KZ_LOG_TRACE);
        EXPECT_EQ(PushOf(row.type, {2, 8}), "");
        EXPECT_TRUE(log.Has(row.noInterest, KZ_LOG_TRACE));
        m_client.AddInterest(row.type, 5);
        EXPECT_EQ(PushOf(row.type, {2, 8}), "");
        EXPECT_TRUE(log.Has("This client is has no matching ids in this push", row.noMatchLevel));
    }
    const fakes::LogCapture log(KZ_LOG_ERROR);
    EXPECT_EQ(PushOf(static_cast<NotificationClient::eNotificationType_t>(4), {1}), "");
    EXPECT_TRUE(log.Has("Unhandled push type"));
    BleSDK::Destroy();
    EXPECT_EQ(PushOf(kStatus, {8}), "");
    EXPECT_TRUE(log.Has("No Database"));
}

TEST_F(PushTest, BuffersGoToClientsThatAskedByConnectionUnderTheirMarker) {
    for (const auto& [type, marker, noInterest] : {std::tuple{kLcd, 0x51, "Failed to find a client interested in RCs"},
                                                   {kLed, 0x53, "Failed to find a client interested in Birchs"}}) {
        const fakes::LogCapture log(KZ_LOG_DEBUG);
        uint8_t buffer[] = {0, 'a', 'b'};
        const auto push = [&, pushed = type] {
            Ints ids = {7};
            unsigned short length = sizeof(buffer);
            int kzErrno = -1;
            return m_client.ExecutePush(pushed, ids, buffer, &length, &kzErrno);
        };
        EXPECT_FALSE(push());
        EXPECT_TRUE(log.Has(noInterest, KZ_LOG_DEBUG));
        m_client.AddInterest(type, 8);
        EXPECT_FALSE(push());
        EXPECT_EQ(buffer[0], 0);
        m_client.AddInterest(type, 7);
        EXPECT_TRUE(push());
        EXPECT_EQ(buffer[0], marker);
    }
}

// ---------------------------------------------------------------- more than one push holds

TEST_F(LargePushTest, GoesOutAsSeveralWholePushesWithoutTheSettingThatFitsNone) {
    Ints todo = {1, 2, 3, 4, 5};
    for (const uint8_t id : Bytes{1, 2, 3}) {
        EXPECT_EQ(PushOf(kCapabilities, todo), PushOfSetting(id));
        todo = m_client.PushRemainder();
    }
    const fakes::LogCapture log(KZ_LOG_ERROR);
    EXPECT_EQ(PushOf(kCapabilities, todo), "a2 00 05 01 02 05 01 03");
    EXPECT_EQ(log.Lines().size(), 1u) << "setting 4 is left out";
    EXPECT_EQ(m_client.PushRemainder(), Ints{});
}

TEST_F(LargePushTest, OwedIdsAreToldOneWholePushATime) {
    m_client.DeferPush(kCapabilities, {3, 1});
    m_client.DeferPush(kCapabilities, {1, 2});
    for (const uint8_t id : Bytes{1, 2, 3}) {
        BleNotificationClient::StoredResponse* entry = m_client.GetHighestPriorityStoredResponse();
        ASSERT_EQ(entry, m_client.StoredPush(kCapabilities));
        EXPECT_EQ(Stored(kCapabilities), PushOfSetting(id));
        EXPECT_EQ(m_client.GetHighestPriorityStoredResponse(), entry) << "not sent yet: still the same";
        entry->Clear();
    }
    EXPECT_EQ(m_client.GetHighestPriorityStoredResponse(), nullptr);
}

TEST_F(LargePushTest, AnOwedPushIsNotLostToANewOne) {
    m_client.DeferPush(kCapabilities, {1, 2});
    m_client.GetHighestPriorityStoredResponse();
    const fakes::LogCapture log(KZ_LOG_ERROR);

    StorePush(kCapabilities, PushOfSetting(3));

    EXPECT_EQ(log.Texts(), Texts{});
    for (const uint8_t id : Bytes{3, 1, 2}) {
        ASSERT_NE(m_client.GetHighestPriorityStoredResponse(), nullptr);
        EXPECT_EQ(Stored(kCapabilities), PushOfSetting(id));
        m_client.StoredPush(kCapabilities)->Clear();
    }
}

// ---------------------------------------------------------------- pushes that wait

TEST_F(PushTest, TheNewestUnsentPushOfATypeStays) {
    for (const auto& [type, text] : {std::pair{kSettings, "Settings Push Notifications backed up, replacing oldest"},
                                     {kStatus, "Status Push Notifications backed up, replacing oldest"},
                                     {kCapabilities, "Capabilities Push Notifications backed up, replacing oldest"}}) {
        const fakes::LogCapture log(KZ_LOG_ERROR);
        StorePush(type, "01 02 03");
        EXPECT_EQ(log.Texts(), Texts{});
        StorePush(type, "04 05");
        EXPECT_EQ(Stored(type), "04 05");
        EXPECT_EQ(log.Texts(), Texts{text});
    }
    const fakes::LogCapture log(KZ_LOG_ERROR);
    StorePush(kCsi, "01");
    EXPECT_EQ(log.Texts(), Texts{"Unhandled notification type"});
}

TEST_F(PushTest, AnOvertakenPushIsToldAgainFromTheValuesOfTheMoment) {
    m_client.AddInterestAll(kSettings);
    m_client.SetCCCEnabled(KZ_STR_ID_QUERY_CCC, 1);
    StorePush(kSettings, PushOf(kSettings, {2, 30}));

    m_client.DeferStoredPush(kSettings);
    PushValues(R"({"settings": {"2": 1}})");
    ASSERT_NE(m_client.GetHighestPriorityStoredResponse(), nullptr);

    EXPECT_EQ(Stored(kSettings), "92 00 02 01 01 1e 04 00 00 03 e8");
}

TEST_F(PushTest, AStoredFeatureNotificationStaysAsItIs) {
    StorePush(kStatus, "f5 f7 08 01");

    m_client.DeferStoredPush(kStatus);

    EXPECT_EQ(Stored(kStatus), "f5 f7 08 01");
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
