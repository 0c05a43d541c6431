// What the tests of queries and pushes share: a small catalogue with values, and the server's CSI values.
#pragma once

#include <cjson/cJSON.h>

#include <map>

#include "handlersFixture.h"
#include "jsonText.h"
#include "queryMessage.h"

using Ints = std::vector<int>;

constexpr auto kStatus = NotificationClient::eNotifyStatus;
constexpr auto kSettings = NotificationClient::eNotifySettings;
constexpr auto kCapabilities = NotificationClient::eNotifyCapabilities;
constexpr auto kCsi = NotificationClient::eNotifyCSI;
constexpr auto kLcd = NotificationClient::eNotifyLcd;
constexpr auto kLed = NotificationClient::eNotifyLed;

class QueryTest : public HandlersTest<BleQueryMessage> {
  protected:
    // Settings 2, 5, 30 (4-byte values) and 59; statuses 8, 13 (4-byte), 29 (text), 33, 96 and 97 (4-byte). Status 8
    // switches a filter that forbids option 4 of setting 5.
    QueryTest() {
        LoadSettings({{2, {1, 9}}, {5, {3, 4}}, {30, {1000}}, {59, {0}}});
        PushValues(R"({"settings": {"2": 9, "5": 4, "30": 1000}, "status": {"8": 1, "13": 70000, "29": "cam"}})");
    }

    // The options of each setting; they become known with the first value of status 8.
    static void LoadSettings(const std::map<int, Ints>& settings) {
        std::string text;
        for (const auto& [id, options] : settings) {
            text +=
                (text.empty() ? R"({"display_name":"S","id":)" : R"(,{"display_name":"S","id":)") + std::to_string(id);
            for (size_t i = 0; i < options.size(); ++i) {
                text += (i == 0 ? R"(,"options":[{"display_name":"O","id":)" : R"(,{"display_name":"O","id":)") +
                        std::to_string(options[i]) + "}";
            }
            text += "]}";
        }
        const JsonTree root(
            cJSON_Parse((R"({"modes": [], "settings": [)" + text + R"(], "status": {"groups": [{"fields":
            [{"id": 8, "name": "a"}, {"id": 13, "name": "b"}, {"id": 29, "name": "c"}, {"id": 33, "name": "d"},
             {"id": 96, "name": "e"}, {"id": 97, "name": "f"}]}]},
            "filters": [{"activated_by": [{"status_id": 8, "values": [1]}],
                         "blacklist": [{"setting_id": 5, "opt_ids": [4]}]}]})")
                            .c_str()));
        UseModel(std::make_unique<SettingsStatusMapping>());
        SettingsStatusMapping* model = BleSDK::LoadedMapping();
        ASSERT_TRUE(model->ParseSettings(root.get()) && model->ParseStatus(root.get()) &&
                    model->ParseFilters(root.get()));
    }

    static void PushValues(const std::string& json) {
        bool capabilitiesChanged = false;
        BleSDK::LoadedMapping()->CurrentSettingsStatusFromJSON(json.c_str(), capabilitiesChanged);
    }

    // A change of a CSI key, as the service reports it; no client is connected to the server.
    void NotifyCsi(uint8_t key, const Bytes& value) {
        const Bytes record = Bytes{key} + Le32(static_cast<uint32_t>(value.size())) + value;
        const auto* csi = reinterpret_cast<const csiStruct*>(record.data());
        m_camera.Store(*csi);
        if (key == CSI_CAH_UPLOAD_PROGRESS) {
            m_camera.StoreCAHUploadProgress(csi);
        }
        m_camera.TakeModelNumber();
        m_camera.SetCsiStStatus();
    }

    // The push for a change set, in a buffer of exactly `capacity` bytes; empty when there is none.
    std::string PushOf(NotificationClient::eNotificationType_t type, Ints ids, size_t capacity = kPushBufferSize) {
        const auto buffer = std::make_unique<uint8_t[]>(capacity);
        auto length = static_cast<unsigned short>(capacity);
        int kzErrno = -1;
        const bool built = m_client.ExecutePush(type, ids, buffer.get(), &length, &kzErrno);
        return built ? ToHex({buffer.get(), buffer.get() + length}) : "";
    }

    const Ints& Interest(NotificationClient::eNotificationType_t type) const { return m_client.m_interests.Of(type); }
};
