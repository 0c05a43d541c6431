// The fan-out: what becomes of pushes that find no room in the radio queue, and of sets that find none in the network
// daemon's.
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

#include "bleSDK.h"
#include "cameraFakes.h"
#include "csi/csiKeys.h"
#include "jsonText.h"
#include "kzControlCommands.h"
#include "logCapture.h"
#include "serverParts.h"
#include "settingsStatusMapping.h"

namespace {

using fakes::Bytes;
using fakes::Le32;

constexpr auto kStatus = NotificationClient::eNotifyStatus;
constexpr auto kSettings = NotificationClient::eNotifySettings;
constexpr auto kCapabilities = NotificationClient::eNotifyCapabilities;
constexpr auto kCsi = NotificationClient::eNotifyCSI;

// Settings 2, 5 and 59, statuses 8 and 29 (text). Status 8 switches a filter that forbids option 4 of setting 5.
constexpr const char* kCatalogue = R"({"modes": [],
 "settings": [
  {"id": 2, "display_name": "Resolution", "options": [{"id": 1, "display_name": "4K"}, {"id": 9, "display_name": "1080"}]},
  {"id": 5, "display_name": "Rate", "options": [{"id": 3, "display_name": "60"}, {"id": 4, "display_name": "240"}]},
  {"id": 59, "display_name": "Power", "options": [{"id": 0, "display_name": "Never"}]}],
 "status": {"groups": [{"fields": [{"id": 8, "name": "Busy"}, {"id": 29, "name": "SSID"}]}]},
 "filters": [{"activated_by": [{"status_id": 8, "values": [1]}], "blacklist": [{"setting_id": 5, "opt_ids": [4]}]}]})";

Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

// One whole message to a client, joined from its packets.
struct Push {
    uint32_t connectionId = 0;
    Bytes message;

    friend bool operator==(const Push&, const Push&) = default;
};
using Pushes = std::vector<Push>;
void PrintTo(const Push& push, std::ostream* out) {
    *out << "client " << push.connectionId << ": " << testing::PrintToString(push.message);
}

class FanOutTest : public testing::Test {
  protected:
    FanOutTest() {
        fakes::Reset();
        LoadCatalogue(kCatalogue);
        played::SetDepth(kMqKzNet, 40);
    }
    ~FanOutTest() override { BleSDK::Destroy(); }

    static void LoadCatalogue(const std::string& text) {
        BleSDK* sdk = BleSDK::GetInstance();
        delete sdk->m_pSettingsMapping;
        sdk->m_pSettingsMapping = new SettingsStatusMapping();  // owned by the facade
        const JsonTree root(cJSON_Parse(text.c_str()));
        ASSERT_TRUE(sdk->m_pSettingsMapping->ParseSettings(root.get()));
        ASSERT_TRUE(sdk->m_pSettingsMapping->ParseStatus(root.get()));
        sdk->m_pSettingsMapping->ParseFilters(root.get());
    }
    static void PushJson(const std::string& json) {
        bool capabilitiesChanged = false;
        BleSDK::LoadedMapping()->ResetSettingsHasChanged();
        BleSDK::LoadedMapping()->ResetStatusHasChanged();
        BleSDK::LoadedMapping()->CurrentSettingsStatusFromJSON(json.c_str(), capabilitiesChanged);
    }
    void NotifyCsi(uint8_t key, const Bytes& value) {
        const Bytes record = Bytes{key} + Le32(static_cast<uint32_t>(value.size())) + value;
        server.inbox.NotifyClientsOfCSIChanges(reinterpret_cast<const csiStruct*>(record.data()));
    }

    // Takes what was pushed so far.
    static Pushes TakePushes() {
        Pushes all;
        for (const Bytes& bytes : played::Take(kMqToSkylark)) {
            ble_message_t record{};
            EXPECT_EQ(bytes.size(), sizeof(record));
            std::copy(bytes.begin(), bytes.end(), reinterpret_cast<uint8_t*>(&record));
            EXPECT_EQ(record.eventType, KZBLE_SDK_MESSAGE_Data);
            EXPECT_EQ(record.streamId, KZ_STR_ID_QUERY_RESPONSE);
            const bool starts = (record.data[0] & 0x80) == 0;
            const bool extended = (record.data[0] & 0x20) != 0;
            if (starts) {
                all.push_back({record.connectionId, {}});
            }
            EXPECT_EQ(all.back().connectionId, record.connectionId);
            const uint8_t* payload = record.data + (starts && extended ? 2 : 1);
            all.back().message.insert(all.back().message.end(), payload,
                                      static_cast<const uint8_t*>(record.data) + record.dataLength);
        }
        return all;
    }

    ServerParts server{100};
};

TEST_F(FanOutTest, AWaitingPushLeavesBeforeALaterOne) {
    BleNotificationClient& client = server.Connect(3);
    client.AddInterestAll(kSettings);
    client.AddInterestAll(kStatus);
    client.AddInterest(kCsi, 42);
    server.SetRadioDepth(0);
    PushJson(R"({"settings": {"2": 9}})");
    server.fanOut.NotifyClientsOfSettingsChanges();
    NotifyCsi(41, Le32(10));
    server.SetRadioDepth(100);

    PushJson(R"({"settings": {"2": 1}})");
    server.fanOut.NotifyClientsOfSettingsChanges();
    NotifyCsi(41, Le32(11));

    EXPECT_EQ(
        TakePushes(),
        (Pushes{
            {3, {0x92, 0, 2, 1, 9}}, {3, {0x92, 0, 2, 1, 1}}, {3, {0xF5, 0xF7, 16, 10}}, {3, {0xF5, 0xF7, 16, 11}}}));
    EXPECT_FALSE(server.delivery.CheckClientsStoredResponses());
}

TEST_F(FanOutTest, AWaitingPushThatIsOvertakenIsSentLaterFromCurrentValues) {
    BleNotificationClient& client = server.Connect(3);
    client.AddInterestAll(kStatus);
    server.SetRadioDepth(2);
    for (const char* push : {R"({"8": 0})", R"({"8": 1, "29": "a text of two packets"})", R"({"8": 2})"}) {
        PushJson(std::string(R"({"status": )") + push + "}");
        server.fanOut.NotifyClientsOfStatusChanges();
    }
    EXPECT_EQ(TakePushes(), (Pushes{{3, {0x93, 0, 8, 1, 0}}, {3, {0x93, 0, 8, 1, 2}}}));

    EXPECT_TRUE(server.delivery.CheckClientsStoredResponses());
    EXPECT_EQ(TakePushes(), (Pushes{{3, Bytes{0x93, 0, 8, 1, 2, 29, 21} + fakes::BytesOf("a text of two packets")}}));
    EXPECT_FALSE(server.delivery.CheckClientsStoredResponses());
}

TEST_F(FanOutTest, AFeaturePushHoldsNoMoreThanTheRadioQueueTakes) {
    BleNotificationClient& client = server.Connect(3);
    client.AddInterest(kCsi, CSI_PRESETS_MODIFIED);
    Bytes presets{10, 211, 1, 8, 1};  // one group with eight presets of 26 bytes
    for (uint8_t id = 10; id < 18; ++id) {
        presets = presets + Bytes{0x12, 24,   8, id,   0x10, 15,   0x18, 1,    0x20, 1,    0x28, 1,    0x30,
                                  20,   0x3A, 6, 0x08, 2,    0x10, 9,    0x18, 1,    0x40, 0,    0x48, 1};
    }
    fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, 0, presets);
    NotifyCsi(CSI_MODEL_NUMBER, Le32(51));
    const auto pushed = [&](long depth, uint8_t key, const Bytes& value) {
        server.SetRadioDepth(depth);
        NotifyCsi(key, value);
        EXPECT_EQ(client.GetHighestPriorityStoredResponse(), nullptr) << depth;
        const Pushes all = TakePushes();
        return all.empty() ? 0 : all[0].message.size();
    };

    EXPECT_EQ(pushed(12, CSI_PRESETS_MODIFIED, {1}), 219u);
    EXPECT_EQ(pushed(11, CSI_PRESETS_MODIFIED, {1}), 42u) << "the ids alone";
    EXPECT_EQ(pushed(2, CSI_PRESETS_MODIFIED, {1}), 0u);
    EXPECT_EQ(pushed(2, CSI_CAH_UPLOAD_PROGRESS, fakes::BytesOf("999999999:999999999:999999999")), 23u);
    EXPECT_EQ(pushed(1, CSI_CAH_UPLOAD_PROGRESS, fakes::BytesOf("999999999:999999999:999999999")), 0u);
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
    server.Connect(3).AddInterestAll(kCapabilities);
    server.Connect(4).AddInterestAll(kCapabilities);
    PushJson(R"({"status": {"8": 1}})");

    Pushes sent;
    server.SetRadioDepth(45);  // one push takes 42 packets
    EXPECT_TRUE(server.fanOut.NotifyClientsOfSettingsCapabilitiesChanges());
    for (int tick = 0; tick < 4 * kSettingCount; ++tick) {
        const Pushes more = TakePushes();
        EXPECT_LE(more.size(), 1u);
        sent.insert(sent.end(), more.begin(), more.end());
        server.delivery.CheckClientsStoredResponses();
    }

    for (const uint32_t client : {3u, 4u}) {
        Bytes entries;
        for (const Push& push : sent) {
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

TEST_F(FanOutTest, HeldPacketsAreDroppedWhenHoldingEnds) {
    const ble_message_t record = NewDataRecord(4, KZ_STR_ID_QUERY_RESPONSE);
    Bytes bytes(30);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    server.radio.StartPacketTimer();
    server.radio.SetPacketTimer(true);
    EXPECT_TRUE(server.radio.PostPacket(record));
    EXPECT_TRUE(server.radio.PostResponse(record, bytes.data(), 30));
    EXPECT_TRUE(TakePushes().empty());

    server.radio.SetPacketTimer(false);

    EXPECT_TRUE(TakePushes().empty());
    EXPECT_TRUE(server.radio.PostResponse(record, bytes.data(), 30));
    EXPECT_EQ(TakePushes(), (Pushes{{4, bytes}}));
}

TEST_F(FanOutTest, SetMessagesHoldWhatAMessageHolds) {
    const Bytes value(1500, 1);

    EXPECT_EQ(csi_set_no_rsp(73, value.data(), 1450), 0);
    EXPECT_EQ(csi_set_no_rsp(73, value.data(), 1490), -1);
    EXPECT_EQ(csi_set_no_rsp(73, value.data(), 1500), -1);
    EXPECT_EQ(csi_set_no_rsp(73, nullptr, 0), 0);
    EXPECT_EQ(played::Take(kMqKzNet).size(), 2u);
    played::SetDepth(kMqKzNet, 0);
    EXPECT_EQ(csi_set_no_rsp(73, value.data(), 1), -1) << "full";
}

}  // namespace
