// What a client is told: its interests, the pushes of values and buffers, and what waits when the radio is full.
#include "queryFixture.h"

namespace {

using PushTest = QueryTest;

}  // namespace

TEST_F(PushTest, InterestsKeepTheOrderOfSingleIdsAndSortLists) {
    for (auto type : {kStatus, kSettings, kCapabilities, kCsi, kLcd, kLed}) {
        for (int id : {9, 2, 9}) {
            m_client.AddInterest(type, id);
        }
        EXPECT_EQ(Interest(type), (Ints{9, 2}));
        m_client.AddInterest(type, Ints{5, 2, 5});
        EXPECT_EQ(Interest(type), (Ints{2, 5, 9}));
        m_client.RemoveInterest(type, Ints{9, 5, 77});
        EXPECT_EQ(Interest(type), Ints{2});
        m_client.RemoveInterestAll(type);
        EXPECT_EQ(Interest(type), type == kCsi ? Ints{2} : Ints{});
    }
}

TEST_F(PushTest, CarriesTheMatchingIdsInAscendingOrder) {
    m_client.AddInterest(kStatus, 29);
    m_client.AddInterest(kStatus, 8);
    m_client.AddInterest(kSettings, Ints{30, 2, 5});
    m_client.AddInterest(kCapabilities, Ints{5, 59});

    EXPECT_EQ(PushOf(kStatus, {8, 13, 29}), "93 00 08 01 01 1d 03 63 61 6d");
    EXPECT_EQ(PushOf(kSettings, {5, 30, 59}), "92 00 05 01 04 1e 04 00 00 03 e8");
    EXPECT_EQ(PushOf(kCapabilities, {2, 5, 30}), "a2 00 05 01 03");
    EXPECT_EQ(m_client.m_pushes.PushRemainder(), Ints{});
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
    const fakes::LogCapture log(KZ_LOG_DEBUG);
    EXPECT_EQ(PushOf(kLcd, {7}) + PushOf(kLed, {7}), "");
    EXPECT_TRUE(log.Has("Failed to find a client interested in RCs"));
    EXPECT_TRUE(log.Has("Failed to find a client interested in Birchs"));
    EXPECT_EQ(PushOf(static_cast<NotificationClient::eNotificationType_t>(4), {1}), "");
    EXPECT_TRUE(log.Has("Unhandled push type"));
    BleSDK::Destroy();
    EXPECT_EQ(PushOf(kStatus, {8}), "");
    EXPECT_TRUE(log.Has("No Database"));
}

TEST_F(PushTest, MoreThanOneHoldsGoesOutAsSeveralWholePushesWithoutTheSettingThatFitsNone) {
    LoadSettings({{1, Ints(256, 1)}, {2, Ints(256, 1)}, {3, Ints(256, 1)}, {4, Ints(500, 1)}, {5, {2, 3}}});
    PushValues(R"({"status": {"8": 1}})");
    m_client.AddInterestAll(kCapabilities);
    Ints todo = {1, 2, 3, 4, 5};
    for (const uint8_t id : Bytes{1, 2, 3}) {
        std::string whole = "a2 00";
        for (int option = 0; option < 256; ++option) {
            whole += " " + ToHex({id, 1, 1});
        }
        EXPECT_EQ(PushOf(kCapabilities, todo), whole);
        todo = m_client.m_pushes.PushRemainder();
    }
    const fakes::LogCapture log(KZ_LOG_ERROR);
    EXPECT_EQ(PushOf(kCapabilities, todo), "a2 00 05 01 02 05 01 03");
    EXPECT_EQ(log.Lines().size(), 1u) << "setting 4 is left out";
    EXPECT_EQ(m_client.m_pushes.PushRemainder(), Ints{});
}

TEST_F(PushTest, TheNewestUnsentPushOfATypeStays) {
    const std::pair<NotificationClient::eNotificationType_t, Texts> kRows[] = {
        {kSettings, {"Settings Push Notifications backed up, replacing oldest"}},
        {kStatus, {"Status Push Notifications backed up, replacing oldest"}},
        {kCapabilities, {"Capabilities Push Notifications backed up, replacing oldest"}},
        {kCsi, {"Unhandled notification type", "Unhandled notification type"}},
    };
    for (const auto& [type, texts] : kRows) {
        const fakes::LogCapture log(KZ_LOG_ERROR);
        for (const uint8_t push : Bytes{1, 2}) {
            m_client.StorePushResponse(type, &push, 1);
        }
        EXPECT_TRUE(type == kCsi || m_client.m_pushes.StoredPush(type)->m_data[0] == 2);
        EXPECT_EQ(log.Texts(), texts);
    }
}

TEST_F(PushTest, OwedIdsWaitForTheGateAndEndWithTheInterest) {
    m_client.AddInterestAll(kStatus);
    m_client.m_pushes.DeferPush(kStatus, {8});

    EXPECT_EQ(m_client.GetHighestPriorityStoredResponse(), nullptr);
    m_client.SetCCCEnabled(KZ_STR_ID_QUERY_CCC, 1);
    m_client.RemoveInterestAll(kStatus);
    EXPECT_EQ(m_client.GetHighestPriorityStoredResponse(), nullptr);
    m_client.AddInterestAll(kStatus);
    EXPECT_EQ(m_client.GetHighestPriorityStoredResponse(), nullptr);
}
