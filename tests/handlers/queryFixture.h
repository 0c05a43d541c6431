// What the tests of queries and pushes share: a small catalogue with values, and the server's CSI values.
#pragma once

#include <cjson/cJSON.h>

#include "bleQueryMessage.h"
#include "handlersFixture.h"
#include "jsonText.h"

using Ints = std::vector<int>;

// Settings 2, 5, 30 (4-byte values) and 59; statuses 8, 13 (4-byte), 29 (text), 33, 96 and 97 (4-byte). Status 8
// switches a filter that forbids option 4 of setting 5.
inline constexpr const char* kCatalogue = R"({"modes": [],
 "settings": [
  {"id": 2, "display_name": "Resolution", "options": [{"id": 1, "display_name": "4K"}, {"id": 9, "display_name": "1080"}]},
  {"id": 5, "display_name": "Rate", "options": [{"id": 3, "display_name": "60"}, {"id": 4, "display_name": "240"}]},
  {"id": 30, "display_name": "Interval", "options": [{"id": 1000, "display_name": "1 s"}]},
  {"id": 59, "display_name": "Power", "options": [{"id": 0, "display_name": "Never"}]}],
 "status": {"groups": [{"fields": [{"id": 8, "name": "Busy"}, {"id": 13, "name": "Progress"}, {"id": 29, "name": "SSID"},
  {"id": 33, "name": "SD"}, {"id": 96, "name": "Group"}, {"id": 97, "name": "Preset"}]}]},
 "filters": [{"activated_by": [{"status_id": 8, "values": [1]}], "blacklist": [{"setting_id": 5, "opt_ids": [4]}]}]})";

class QueryTest : public HandlersTest<BleQueryMessage> {
  protected:
    QueryTest() {
        Load(kCatalogue);
        Push(R"({"settings": {"2": 9, "5": 4, "30": 1000}, "status": {"8": 1, "13": 70000, "29": "cam"}})");
    }

    ~QueryTest() override { KzBleServer::GetInstance()->m_csiCache.fill(0); }

    static SettingsStatusMapping& Model() { return *BleSDK::LoadedMapping(); }

    static void Load(const std::string& catalogue) {
        BleSDK* sdk = BleSDK::GetInstance();
        delete sdk->m_pSettingsMapping;
        sdk->m_pSettingsMapping = new SettingsStatusMapping();
        const JsonTree root(cJSON_Parse(catalogue.c_str()));
        ASSERT_NE(root, nullptr);
        ASSERT_TRUE(Model().ParseSettings(root.get()));
        ASSERT_TRUE(Model().ParseStatus(root.get()));
        Model().ParseFilters(root.get());
    }

    static void Push(const std::string& json) {
        bool capabilitiesChanged = false;
        Model().CurrentSettingsStatusFromJSON(json.c_str(), capabilitiesChanged);
    }

    static void SetCsi(uint8_t key, uint32_t value) { KzBleServer::GetInstance()->m_csiCache[key] = value; }

    // A change of a CSI key, as the service reports it; no client is connected to the server.
    static void NotifyCsi(uint8_t key, const Bytes& value) {
        Bytes record = Bytes{key} + Le32(static_cast<uint32_t>(value.size())) + value;
        KzBleServer::GetInstance()->NotifyClientsOfCSIChanges(reinterpret_cast<const csiStruct*>(record.data()));
    }

    const Ints& Interest(NotificationClient::eNotificationType_t type) {
        switch (type) {
            case NotificationClient::eNotifyStatus:
                return m_client.m_statusInterest;
            case NotificationClient::eNotifySettings:
                return m_client.m_settingsInterest;
            case NotificationClient::eNotifyCapabilities:
                return m_client.m_capabilitiesInterest;
            case NotificationClient::eNotifyLcd:
                return m_client.m_lcdInterest;
            case NotificationClient::eNotifyLed:
                return m_client.m_ledInterest;
            default:
                return m_client.m_interestedCSIs;
        }
    }
};
