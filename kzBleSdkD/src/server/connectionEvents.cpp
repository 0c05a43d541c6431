#include "connectionEvents.h"

#include "FlexValue.h"
#include "bleSDK.h"
#include "cameraCalls.h"
#include "clientTable.h"
#include "csi/csiKeys.h"
#include "csiPort.h"
#include "fileTransfers.h"
#include "pushRegistration.h"
#include "radioPort.h"
#include "sensorHandOver.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

// The analytics record that says that a sensor connected.
constexpr uint8_t kSensorAnalytics[] = {0x76, 0x10, 0xFF, 0xFF};

// Status 33 after the last client left: a value that the camera never reports, so that its next report differs from it.
constexpr unsigned char kStatusUnknown = 255;

const uint8_t* RecordBytes(const ble_message_t& record) {
    return reinterpret_cast<const uint8_t*>(&record);
}

}  // namespace

bool ConnectionEvents::UpdateBleDeviceStatus(const ble_message_t& record) {
    {
        const ClientLock lock(m_parts.clients.Mutex());
        if (BleNotificationClient* client = m_parts.clients.LookUp(record.connectionId); client != nullptr) {
            UpdateClient(*client, record);
            return true;
        }
    }
    if (record.eventType != KZBLE_SDK_EVENT_Conn) {
        LOG_ERROR("Unhandled device conenction event_type:%d", record.eventType);
        return false;
    }
    return AddClient(record);
}

void ConnectionEvents::UpdateClient(BleNotificationClient& client, const ble_message_t& record) {
    switch (record.eventType) {
        case KZBLE_SDK_EVENT_Disconn:
            RemoveClient(client);
            break;
        case KZBLE_SDK_EVENT_CCC:
            LOG_INFO("Set CCC enabled Zorvik as peripheral");
            client.m_answers.SetCCCEnabled(record.streamId, record.dataLength);
            break;
        case KZBLE_SDK_EVENT_SensorCCC:
            LOG_INFO("Set CCC enabled Zorvik as central");
            client.m_answers.SetSensorCCCEnabled();
            break;
        default:
            LOG_WARN("Received event %d for already connected BLE client on connection_id %d", record.eventType,
                     record.connectionId);
            break;
    }
}

// ---------------------------------------------------------------- a client leaves

void ConnectionEvents::RemoveClient(BleNotificationClient& client) {
    if (client.m_streams.m_metadataStreamCount > 0) {
        m_parts.sensorHandOver.HandOverUnsent();
    }
    client.RemoveStreams();
    EndTransfers(client);
    SetCsi(CSI_CONNECTED_ACCESSORY, uint32_t{0});
    m_parts.radio.SetPacketTimer(false);
    m_parts.clients.Remove(client);
}

void ConnectionEvents::EndTransfers(BleNotificationClient& client) {
    if (client.m_file.IsTransferringSettingsJSON()) {
        LOG_INFO("A client with active file transfer disconnected.");
    }
    if (client.m_file.IsTransferringLarch()) {
        LOG_DEBUG("A client with active file transfer disconnected.");
    }
    m_parts.transfers.EndTransfers(client);
}

void ConnectionEvents::UnregisterAfterLastDisconnection() {
    if (m_parts.clients.GetClientCount() > 0) {
        return;
    }
    LOG_INFO("No devices connected, unregistering for push notifications from kzControlD");
    if (guards::AllAnswer()) {
        m_parts.registration.UnregisterForKzControlNotifications();
    } else {
        m_parts.registration.UnregisterLater();  // these clients have waited for a hung service already
    }
    if (SettingsStatusMapping* model = BleSDK::LoadedMapping(); model != nullptr) {
        FlexValue unknown(eValueWidth1Byte, 0);
        unknown.SetValue(kStatusUnknown);
        model->SetStatusValue(SettingsStatusMapping::kStatusIdResetOnDisconnect, unknown);
    }
}

// ---------------------------------------------------------------- a client comes

bool ConnectionEvents::AddClient(const ble_message_t& record) {
    LOG_INFO("KZ_GATT_STREAM_EVENT_TYPE_Conn");
    const uint8_t deviceId = m_parts.clients.DeviceIdOfAddress(RecordBytes(record) + kConnAddressOffset);
    const uint8_t deviceType = RecordBytes(record)[kConnDeviceTypeOffset];
    if (m_parts.clients.Add(record.connectionId, deviceId, deviceType) == nullptr) {
        return false;
    }
    if (deviceType == KZ_CALLER_BLE_SENSOR) {
        LOG_INFO("Developer Program Analytics - KZ_CALLER_BLE_SENSOR");
        csi_set_no_rsp(CSI_CLIENT_ANALYTICS, kSensorAnalytics, sizeof(kSensorAnalytics));
    }
    return true;
}

void ConnectionEvents::RegisterAfterConnection() {
    if (m_parts.clients.GetClientCount() > 0) {
        m_parts.registration.RegisterForKzControlNotifications();
    }
}
