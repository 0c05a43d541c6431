#include "serverFixture.h"

#include <cjson/cJSON.h>
#include <fcntl.h>
#include <mqueue.h>
#include <sys/timerfd.h>

#include <numeric>

#include "bleSDK.h"
#include "jsonText.h"

namespace server_test {
namespace {

// Settings 2, 5 and 59, statuses 8 and 29 (text). Status 8 switches a filter that forbids option 4 of setting 5.
constexpr const char* kCatalogue = R"({"modes": [],
 "settings": [
  {"id": 2, "display_name": "Resolution", "options": [{"id": 1, "display_name": "4K"}, {"id": 9, "display_name": "1080"}]},
  {"id": 5, "display_name": "Rate", "options": [{"id": 3, "display_name": "60"}, {"id": 4, "display_name": "240"}]},
  {"id": 59, "display_name": "Power", "options": [{"id": 0, "display_name": "Never"}]}],
 "status": {"groups": [{"fields": [{"id": 8, "name": "Busy"}, {"id": 29, "name": "SSID"}]}]},
 "filters": [{"activated_by": [{"status_id": 8, "values": [1]}], "blacklist": [{"setting_id": 5, "opt_ids": [4]}]}]})";

}  // namespace

Bytes Counting(size_t length) {
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    return bytes;
}

void PrintTo(const Told& told, std::ostream* out) {
    *out << "client " << told.connectionId << ": " << testing::PrintToString(told.message);
}

ServerTest::ServerTest() {
    fakes::Reset();
    played::ResetQueues();
    played::SetDepth(kMqToSkylark, 100);
    played::SetDepth(kMqKzNet, 40);
    Server().m_bleTxMq = QueueHandle(mq_open(kMqToSkylark, O_WRONLY));
    Server().m_timer_fd = FileDescriptor(timerfd_create(CLOCK_MONOTONIC, 0));
    Server().m_msgBuffer = std::make_unique<unsigned char[]>(kMessageBufferSize);
    LoadCatalogue(kCatalogue);
    fakes::ForgetCalls();
}

ServerTest::~ServerTest() {
    KzBleServer::Destroy();
    BleSDK::Destroy();
}

void ServerTest::LoadCatalogue(const std::string& text) {
    BleSDK* sdk = BleSDK::GetInstance();
    delete sdk->m_pSettingsMapping;
    sdk->m_pSettingsMapping = new SettingsStatusMapping();  // owned by the facade
    const JsonTree root(cJSON_Parse(text.c_str()));
    ASSERT_NE(root, nullptr);
    ASSERT_TRUE(sdk->m_pSettingsMapping->ParseSettings(root.get()));
    ASSERT_TRUE(sdk->m_pSettingsMapping->ParseStatus(root.get()));
    sdk->m_pSettingsMapping->ParseFilters(root.get());
}

bool ServerTest::PushJson(const std::string& json) {
    bool capabilitiesChanged = false;
    BleSDK::LoadedMapping()->ResetSettingsHasChanged();
    BleSDK::LoadedMapping()->ResetStatusHasChanged();
    BleSDK::LoadedMapping()->CurrentSettingsStatusFromJSON(json.c_str(), capabilitiesChanged);
    return capabilitiesChanged;
}

BleNotificationClient& ServerTest::Connect(uint32_t connectionId) {
    auto owned = std::make_unique<BleNotificationClient>(connectionId, uint8_t{1}, uint8_t{KZ_CALLER_BLE_RC});
    BleNotificationClient& client = *owned;
    client.SetCCCEnabled(KZ_STR_ID_QUERY_CCC, 1);
    Server().m_clients.push_back(std::move(owned));
    return client;
}

bool ServerTest::NotifyCsi(uint8_t key, const Bytes& value) {
    const Bytes record = Bytes{key} + Le32(static_cast<uint32_t>(value.size())) + value;
    return Server().NotifyClientsOfCSIChanges(reinterpret_cast<const csiStruct*>(record.data()));
}

std::vector<Told> ServerTest::TakeTold() {
    std::vector<Told> all;
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

}  // namespace server_test
