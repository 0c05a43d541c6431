// The fan-out: who is told what, in which order, and what becomes of a push that finds the radio queue full.
#include "bleSDK.h"
#include "kzControlCommands.h"
#include "serverFixture.h"

namespace server_test {
namespace {

class FanOutTest : public ServerTest {};

TEST_F(FanOutTest, WithoutAModelNothingIsTold) {
    Connect(1).AddInterestAll(kSettings);
    PushJson(R"({"settings": {"2": 9}})");
    BleSDK::Destroy();
    const fakes::LogCapture log(2);

    EXPECT_FALSE(Server().NotifyClientsOfSettingsChanges());

    EXPECT_TRUE(log.Has("No Database!!", 2));
}

// ---------------------------------------------------------------- no room

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

TEST_F(FanOutTest, AFeaturePushHoldsNoMoreThanTheRadioQueueTakes) {
    BleNotificationClient& client = Connect(3);
    client.AddInterest(kCsi, CSI_PRESETS_MODIFIED);
    Bytes presets{10, 211, 1, 8, 1};  // one group with eight presets of 26 bytes
    for (uint8_t id = 10; id < 18; ++id) {
        presets = presets + Bytes{0x12, 24,   8, id,   0x10, 15,   0x18, 1,    0x20, 1,    0x28, 1,    0x30,
                                  20,   0x3A, 6, 0x08, 2,    0x10, 9,    0x18, 1,    0x40, 0,    0x48, 1};
    }
    fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, 0, presets);
    NotifyCsi(CSI_MODEL_NUMBER, Le32(51));
    const auto told = [&](long depth, uint8_t key, const Bytes& value) {
        SetRadioDepth(depth);
        Server().m_radioDepth = 0;  // read again
        NotifyCsi(key, value);
        EXPECT_EQ(client.GetHighestPriorityStoredResponse(), nullptr) << depth;
        const std::vector<Told> all = TakeTold();
        return all.empty() ? 0 : all[0].message.size();
    };

    EXPECT_EQ(told(12, CSI_PRESETS_MODIFIED, {1}), 219u);
    EXPECT_EQ(told(11, CSI_PRESETS_MODIFIED, {1}), 42u) << "the ids alone";
    EXPECT_EQ(told(2, CSI_PRESETS_MODIFIED, {1}), 0u);
    EXPECT_EQ(told(2, CSI_CAH_UPLOAD_PROGRESS, fakes::BytesOf("999999999:999999999:999999999")), 23u);
    EXPECT_EQ(told(1, CSI_CAH_UPLOAD_PROGRESS, fakes::BytesOf("999999999:999999999:999999999")), 0u);
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

// ---------------------------------------------------------------- radio queue

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

TEST_F(FanOutTest, HeldPacketsAreDroppedWhenHoldingEnds) {
    ble_message_t record = NewDataRecord(4, KZ_STR_ID_QUERY_RESPONSE);
    Server().SetPacketTimer(true);
    EXPECT_TRUE(Server().PostPacket(record));
    EXPECT_TRUE(Server().PostResponse(record, Counting(30).data(), 30));
    EXPECT_TRUE(TakeTold().empty());

    Server().SetPacketTimer(false);

    EXPECT_TRUE(TakeTold().empty());
    EXPECT_TRUE(Server().PostResponse(record, Counting(30).data(), 30));
    EXPECT_EQ(TakeTold(), (std::vector<Told>{{4, Counting(30)}}));
}

TEST_F(FanOutTest, SetMessagesHoldWhatAMessageHolds) {
    const Bytes value(1500, 1);

    EXPECT_EQ(Server().csi_set_no_rsp(73, value.data(), 1450), 0);
    EXPECT_EQ(Server().csi_set_no_rsp(73, value.data(), 1490), -1);
    EXPECT_EQ(Server().csi_set_no_rsp(73, value.data(), 1500), -1);
    EXPECT_EQ(Server().csi_set_no_rsp(73, nullptr, 0), 0);
    EXPECT_EQ(played::Take(kMqKzNet).size(), 2u);
    played::SetDepth(kMqKzNet, 0);
    EXPECT_EQ(Server().csi_set_no_rsp(73, value.data(), 1), -1) << "full";
}

}  // namespace
}  // namespace server_test
