// The fan-out: who is told what, in which order, and what becomes of a push that finds the radio queue full.
#include <cstdlib>
#include <new>

#include "bleSDK.h"
#include "changesFixture.h"

namespace {

size_t g_allocations = 0;

}  // namespace

// The program's allocations are counted. Kept out of line: inlined, a new and its free look mismatched to the compiler.
[[gnu::noinline]] void* operator new(size_t size) {
    ++g_allocations;
    void* memory = std::malloc(size);
    return memory != nullptr ? memory : throw std::bad_alloc();
}
[[gnu::noinline]] void* operator new(size_t size, const std::nothrow_t&) noexcept {
    ++g_allocations;
    return std::malloc(size);
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, size_t) noexcept {
    std::free(memory);
}

namespace changes_test {
namespace {

class FanOutTest : public ChangesTest {};

TEST_F(FanOutTest, EveryClientIsToldWhatItAskedFor) {
    Connect(1).AddInterest(kSettings, Ints{2});
    Connect(2);
    BleNotificationClient& third = Connect(0x01020304);
    third.AddInterestAll(kSettings);
    third.AddInterestAll(kStatus);
    third.AddInterestAll(kCapabilities);
    ASSERT_TRUE(PushJson(R"({"settings": {"5": 3, "2": 9}, "status": {"8": 1}})"));

    EXPECT_TRUE(Server().NotifyClientsOfSettingsChanges());
    EXPECT_TRUE(Server().NotifyClientsOfStatusChanges());
    EXPECT_TRUE(Server().NotifyClientsOfSettingsCapabilitiesChanges());

    EXPECT_EQ(TakeTold(), (std::vector<Told>{
                              {1, {0x92, 0, 2, 1, 9}},
                              {0x01020304, {0x92, 0, 2, 1, 9, 5, 1, 3}},
                              {0x01020304, {0x93, 0, 8, 1, 1}},
                              {0x01020304, {0xA2, 0, 2, 1, 1, 2, 1, 9, 5, 1, 3, 59, 1, 0}},
                          }));
    EXPECT_EQ(third.m_pushCount, 3u);
}

TEST_F(FanOutTest, OnlyWhatChangedIsTold) {
    Connect(1).AddInterestAll(kCapabilities);
    PushJson(R"({"status": {"8": 0}})");
    Server().NotifyClientsOfSettingsCapabilitiesChanges();
    TakeTold();

    PushJson(R"({"status": {"8": 1}})");
    Server().NotifyClientsOfSettingsCapabilitiesChanges();

    EXPECT_EQ(TakeTold(), (std::vector<Told>{{1, {0xA2, 0, 5, 1, 3}}}));
}

TEST_F(FanOutTest, NobodyInterestedIsNoPush) {
    Connect(1);
    PushJson(R"({"settings": {"2": 9}, "status": {"8": 1}})");

    EXPECT_FALSE(Server().NotifyClientsOfSettingsChanges());
    EXPECT_FALSE(Server().NotifyClientsOfStatusChanges());
    EXPECT_FALSE(Server().NotifyClientsOfSettingsCapabilitiesChanges());
    EXPECT_EQ(TakeTold(), std::vector<Told>{});
}

TEST_F(FanOutTest, AClosedGateDropsThePush) {
    BleNotificationClient& client = Connect(6);
    client.SetCCCEnabled(KZ_STR_ID_QUERY_CCC, 0);
    client.AddInterestAll(kSettings);
    client.AddInterestAll(kStatus);
    client.AddInterestAll(kCapabilities);
    client.AddInterest(kCsi, 42);
    PushJson(R"({"settings": {"2": 9}, "status": {"8": 1}})");
    const fakes::LogCapture log(5);

    EXPECT_TRUE(Server().NotifyClientsOfSettingsChanges());
    EXPECT_TRUE(log.Has("Client provided data for push response, length:5", 5));
    EXPECT_TRUE(log.Has("Settings Push dropped because notify disabled on conn_id 6 stream_id:14", 5));
    EXPECT_TRUE(Server().NotifyClientsOfStatusChanges());
    EXPECT_TRUE(log.Has("Status Push dropped because notify disabled on conn_id 6 stream_id:14", 5));
    EXPECT_TRUE(Server().NotifyClientsOfSettingsCapabilitiesChanges());
    EXPECT_TRUE(log.Has("Capabilities Push dropped because notify disabled on conn_id 6 stream_id:14", 5));
    EXPECT_TRUE(NotifyCsi(42, Le32(1)));

    EXPECT_EQ(TakeTold(), std::vector<Told>{});
    EXPECT_EQ(client.m_pushCount, 4u);
    for (const auto& stored : client.m_storedResponses) {
        EXPECT_EQ(stored.m_length, 0);
    }
}

TEST_F(FanOutTest, WithoutAModelNothingIsTold) {
    Connect(1).AddInterestAll(kSettings);
    PushJson(R"({"settings": {"2": 9}})");
    BleSDK::Destroy();
    const fakes::LogCapture log(2);

    EXPECT_FALSE(Server().NotifyClientsOfSettingsChanges());

    EXPECT_TRUE(log.Has("No Database!!", 2));
}

// ---------------------------------------------------------------- no room

TEST_F(FanOutTest, AnUnsentPushWaitsAndANewerOneReplacesIt) {
    BleNotificationClient& client = Connect(3);
    client.AddInterestAll(kSettings);
    SetRadioDepth(0);
    const fakes::LogCapture log(2);

    PushJson(R"({"settings": {"2": 9}})");
    EXPECT_TRUE(Server().NotifyClientsOfSettingsChanges());
    EXPECT_EQ(log.Texts(), (Texts{"GATT Message queue is backed up, buffering response for later attempt",
                                  "Failed to send a response of length 5 to connection_id:3, will buffer."}));
    log.Has("");
    PushJson(R"({"settings": {"5": 3}})");
    EXPECT_TRUE(Server().NotifyClientsOfSettingsChanges());
    EXPECT_EQ(log.Texts().back(), "Settings Push Notifications backed up, replacing oldest");
    EXPECT_EQ(log.Texts().size(), 5u);

    SetRadioDepth(100);
    EXPECT_TRUE(Server().CheckClientsStoredResponses());
    EXPECT_FALSE(Server().CheckClientsStoredResponses());
    EXPECT_EQ(TakeTold(), (std::vector<Told>{{3, {0x92, 0, 5, 1, 3}}}));
}

TEST_F(FanOutTest, AWaitingPushLeavesBeforeALaterOne) {
    BleNotificationClient& client = Connect(3);
    client.AddInterestAll(kSettings);
    client.AddInterestAll(kStatus);
    client.AddInterest(kCsi, 42);
    SetRadioDepth(0);
    PushJson(R"({"settings": {"2": 9}})");
    Server().NotifyClientsOfSettingsChanges();
    NotifyCsi(41, Le32(10));
    SetRadioDepth(100);

    PushJson(R"({"settings": {"2": 1}})");
    Server().NotifyClientsOfSettingsChanges();
    NotifyCsi(41, Le32(11));

    EXPECT_EQ(
        TakeTold(),
        (std::vector<Told>{
            {3, {0x92, 0, 2, 1, 9}}, {3, {0x92, 0, 2, 1, 1}}, {3, {0xF5, 0xF7, 16, 10}}, {3, {0xF5, 0xF7, 16, 11}}}));
    EXPECT_FALSE(Server().CheckClientsStoredResponses());
}

TEST_F(FanOutTest, AWaitingPushThatIsOvertakenIsToldLaterFromCurrentValues) {
    BleNotificationClient& client = Connect(3);
    client.AddInterestAll(kStatus);
    SetRadioDepth(2);
    for (const char* push : {R"({"8": 0})", R"({"8": 1, "29": "a text of two packets"})", R"({"8": 2})"}) {
        PushJson(std::string(R"({"status": )") + push + "}");
        Server().NotifyClientsOfStatusChanges();
    }
    EXPECT_EQ(TakeTold(), (std::vector<Told>{{3, {0x93, 0, 8, 1, 0}}, {3, {0x93, 0, 8, 1, 2}}}));

    EXPECT_TRUE(Server().CheckClientsStoredResponses());
    EXPECT_EQ(TakeTold(),
              (std::vector<Told>{{3, Bytes{0x93, 0, 8, 1, 2, 29, 21} + fakes::BytesOf("a text of two packets")}}));
    EXPECT_FALSE(Server().CheckClientsStoredResponses());
}

TEST_F(FanOutTest, APushIsNoLongerThanTheRadioQueueTakes) {
    const std::string text(31, 't');
    Connect(3).AddInterestAll(kStatus);
    SetRadioDepth(2);  // 37 bytes
    PushJson(R"({"status": {"8": 1, "29": ")" + text + "\"}}");

    Server().NotifyClientsOfStatusChanges();
    EXPECT_EQ(TakeTold(), (std::vector<Told>{{3, {0x93, 0, 8, 1, 1}}}));
    Server().CheckClientsStoredResponses();
    EXPECT_EQ(TakeTold(), (std::vector<Told>{{3, Bytes{0x93, 0, 29, 31} + fakes::BytesOf(text)}}));
}

// ---------------------------------------------------------------- more than one push holds

// Nine settings of 256 options, two of which fit no push together.
class LargeFanOutTest : public FanOutTest {
  protected:
    static constexpr int kSettingCount = 9;

    LargeFanOutTest() {
        std::string settings;
        for (int id = 1; id <= kSettingCount; ++id) {
            std::string options;
            for (int option = 0; option < 256; ++option) {
                options +=
                    (option == 0 ? "" : ",") + (R"({"id":)" + std::to_string(option) + R"(,"display_name":"O"})");
            }
            settings += (id == 1 ? "" : ",") +
                        (R"({"id":)" + std::to_string(id) + R"(,"display_name":"S","options":[)" + options + "]}");
        }
        LoadCatalogue(R"({"modes":[],"settings":[)" + settings +
                      R"(],"status":{"groups":[{"fields":[{"id":8,"name":"B"}]}]},
            "filters":[{"activated_by":[{"status_id":8,"values":[1]}],"blacklist":[]}]})");
    }

    static Bytes AllOptionsOf(int id) {
        Bytes entries;
        for (int option = 0; option < 256; ++option) {
            entries = entries + Bytes{static_cast<uint8_t>(id), 1, static_cast<uint8_t>(option)};
        }
        return entries;
    }
};

TEST_F(LargeFanOutTest, LeavesAsWholePushesAtOnceWhereThereIsRoom) {
    BleNotificationClient& client = Connect(3);
    client.AddInterestAll(kCapabilities);
    SetRadioDepth(1000);
    ASSERT_TRUE(PushJson(R"({"status": {"8": 1}})"));

    EXPECT_TRUE(Server().NotifyClientsOfSettingsCapabilitiesChanges());

    std::vector<Told> expected;
    for (int id = 1; id <= kSettingCount; ++id) {
        expected.push_back({3, Bytes{0xA2, 0} + AllOptionsOf(id)});
    }
    EXPECT_EQ(TakeTold(), expected);
    EXPECT_EQ(client.m_pushCount, static_cast<uint32_t>(kSettingCount));
}

TEST_F(LargeFanOutTest, LosesNothingInAQueueThatHoldsOnePushAtATime) {
    Connect(3).AddInterestAll(kCapabilities);
    Connect(4).AddInterestAll(kCapabilities);
    ASSERT_TRUE(PushJson(R"({"status": {"8": 1}})"));

    std::vector<Told> told;
    SetRadioDepth(45);  // one push takes 42 packets
    EXPECT_TRUE(Server().NotifyClientsOfSettingsCapabilitiesChanges());
    for (int tick = 0; tick < 4 * kSettingCount; ++tick) {
        const std::vector<Told> more = TakeTold();
        EXPECT_LE(more.size(), 1u);
        told.insert(told.end(), more.begin(), more.end());
        Server().CheckClientsStoredResponses();
    }

    for (const uint32_t client : {3u, 4u}) {
        Bytes entries;
        for (const Told& push : told) {
            if (push.connectionId == client) {
                EXPECT_EQ(push.message.size(), 2u + 768);
                entries.insert(entries.end(), push.message.begin() + 2, push.message.end());
            }
        }
        Bytes expected;
        for (int id = 1; id <= kSettingCount; ++id) {
            expected = expected + AllOptionsOf(id);
        }
        EXPECT_EQ(entries, expected);
    }
}

// ---------------------------------------------------------------- answers

TEST_F(LargeFanOutTest, AnAnswerIsNoLongerThanTheRadioQueueTakes) {
    BleNotificationClient& client = Connect(3);
    PushJson(R"({"status": {"8": 1}})");
    SetRadioDepth(100);
    ble_message_t record = NewDataRecord(3, KZ_STR_ID_QUERY);
    record.dataLength = 2;
    record.data[0] = 1;
    record.data[1] = 0x32;
    int kzErrno = -1;

    EXPECT_TRUE(Server().HandleSDKMessage(record, &kzErrno));

    EXPECT_EQ(TakeTold(), (std::vector<Told>{{3, Bytes{0x32, 1} + AllOptionsOf(1) + AllOptionsOf(2)}}));
    EXPECT_EQ(client.GetHighestPriorityStoredResponse(), nullptr);
}

// ---------------------------------------------------------------- cost

TEST_F(FanOutTest, PackingPushesAllocatesNothingOnceWarm) {
    SetRadioDepth(0);  // the played queue allocates: let it take nothing
    for (uint32_t id = 1; id <= kMaxClients; ++id) {
        BleNotificationClient& client = Connect(id);
        client.AddInterestAll(kSettings);
        client.AddInterestAll(kStatus);
        client.AddInterestAll(kCapabilities);
        client.AddInterest(kCsi, 42);
    }
    PushJson(R"({"settings": {"2": 9, "5": 3}, "status": {"8": 1, "29": "a text"}})");
    const auto fanOut = [] {
        Server().NotifyClientsOfSettingsChanges();
        Server().NotifyClientsOfStatusChanges();
        Server().NotifyClientsOfSettingsCapabilitiesChanges();
        NotifyCsi(42, {});
    };
    fanOut();
    const Bytes record = Bytes{42} + Le32(4) + Le32(3);

    const size_t before = g_allocations;
    Server().NotifyClientsOfSettingsChanges();
    Server().NotifyClientsOfStatusChanges();
    Server().NotifyClientsOfSettingsCapabilitiesChanges();
    Server().NotifyClientsOfCSIChanges(reinterpret_cast<const csiStruct*>(record.data()));

    EXPECT_EQ(g_allocations - before, 0u);
}

}  // namespace
}  // namespace changes_test
