// The client table, the registration for the control daemon's pushes that follows it, and CSI_ST_STATE.
#include <algorithm>
#include <cstring>

#include "FlexValue.h"
#include "bleSDK.h"
#include "csi/csi.h"
#include "csi/csiKeys.h"
#include "kzBleServer.h"
#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlD.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

// What the control daemon is told to begin or end its pushes.
struct __attribute__((packed)) PushRegistration {
    uint32_t operation;
    char queueName[256];
    uint32_t reserved;
};
static_assert(sizeof(PushRegistration) == 264);
constexpr uint32_t kUnregister = 0;
constexpr uint32_t kRegister = 1;

int SendPushRegistration(uint32_t operation) {
    PushRegistration registration{};
    registration.operation = operation;
    std::memcpy(registration.queueName, kMqEvents, std::strlen(kMqEvents));
    return kzcontrol_send_command_param_response(KZCONTROL_EVENT_REGISTER_MQUEUE, &registration, sizeof(registration),
                                                 nullptr, 0);
}

// A sensor connected: reported to the analytics.
constexpr uint8_t kSensorAnalytics[] = {0x76, 0x10, 0xFF, 0xFF};

// Status 33 after the last client left: a value the camera does not report, so that its next report counts as a change.
constexpr unsigned char kStatusUnknown = 255;

const uint8_t* RecordBytes(const ble_message_t& record) {
    return reinterpret_cast<const uint8_t*>(&record);
}

}  // namespace

// ---------------------------------------------------------------- look-up

BleNotificationClient* KzBleServer::LookUpClient(uint32_t connectionId) {
    const auto found = std::find_if(m_clients.begin(), m_clients.end(), [connectionId](const auto& client) {
        return client->m_connectionId == connectionId;
    });
    return found == m_clients.end() ? nullptr : found->get();
}

BleNotificationClient* KzBleServer::FindBleDeviceByConnectionID(uint32_t connectionId) {
    BleNotificationClient* client = LookUpClient(connectionId);
    if (client == nullptr) {
        LOG_ERROR("Couldn't find connectionID:%d in list of size %d", connectionId, static_cast<int>(m_clients.size()));
        for (size_t i = 0; i < m_clients.size(); ++i) {
            LOG_ERROR("Client:%d , id:%d", static_cast<int>(i), m_clients[i]->m_connectionId);
        }
    }
    return client;
}

size_t KzBleServer::GetClientCount() {
    const Lock lock(&m_clientMutex);
    return m_clients.size();
}

bool KzBleServer::DumpBleDeviceStatus() {
    ReportBleQStats();
    const Lock lock(&m_clientMutex);
    for (const auto& client : m_clients) {
        client->Dump();
    }
    return true;
}

// ---------------------------------------------------------------- connection events

bool KzBleServer::UpdateBleDeviceStatus(ble_message_t& record) {
    {
        const Lock lock(&m_clientMutex);
        if (BleNotificationClient* client = LookUpClient(record.connectionId); client != nullptr) {
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

void KzBleServer::UpdateClient(BleNotificationClient& client, const ble_message_t& record) {
    switch (record.eventType) {
        case KZBLE_SDK_EVENT_Disconn:
            RemoveClient(client);
            break;
        case KZBLE_SDK_EVENT_CCC:
            LOG_INFO("Set CCC enabled Zorvik as peripheral");
            client.SetCCCEnabled(record.streamId, record.dataLength);
            break;
        case KZBLE_SDK_EVENT_SensorCCC:
            LOG_INFO("Set CCC enabled Zorvik as central");
            client.SetSensorCCCEnabled();
            break;
        default:
            LOG_WARN("Received event %d for already connected BLE client on connection_id %d", record.eventType,
                     record.connectionId);
            break;
    }
}

void KzBleServer::RemoveClient(BleNotificationClient& client) {
    if (client.m_metadataStreamCount > 0) {
        HandOverMetadata();
    }
    client.RemoveStreams();
    if (client.IsTransferringSettingsJSON()) {
        LOG_INFO("A client with active file transfer disconnected.");
        client.SetTransferringSettingsJSON(false);
        ReleaseFileTransferSlot();
    }
    if (client.IsTransferringLarch()) {
        LOG_DEBUG("A client with active file transfer disconnected.");
        StopTransfer(&client);
        const uint32_t failed = AccessoryUpdateState(client.m_deviceType, 0, eAccessoryUpdateFailed);
        csi_set_no_rsp(CSI_ACCESSORY_UPDATE, &failed, sizeof(failed));
        csi_set_no_rsp(CSI_ACCESSORY_UPDATE, &kAccessoryUpdateIdle, sizeof(kAccessoryUpdateIdle));
    }
    const uint32_t noAccessory = 0;
    csi_set(CSI_CONNECTED_ACCESSORY, &noAccessory, sizeof(noAccessory));
    SetPacketTimer(false);
    std::erase_if(m_clients, [&client](const auto& entry) { return entry.get() == &client; });
}

// The lock is not held: this thread alone changes the table.
bool KzBleServer::AddClient(const ble_message_t& record) {
    LOG_INFO("KZ_GATT_STREAM_EVENT_TYPE_Conn");
    const uint8_t deviceId = DeviceIdOfAddress(RecordBytes(record) + kConnAddressOffset);
    if (m_clients.size() >= kMaxClients) {
        LOG_ERROR("Client limit %d reached, connection_id:%d will not be serviced", static_cast<int>(kMaxClients),
                  record.connectionId);
        return false;
    }
    const uint8_t deviceType = RecordBytes(record)[kConnDeviceTypeOffset];
    LOG_INFO("Add Client connId=%d deviceId=%d", record.connectionId, deviceId);
    m_clients.push_back(std::make_unique<BleNotificationClient>(record.connectionId, deviceId, deviceType));
    if (deviceType == KZ_CALLER_BLE_SENSOR) {
        LOG_INFO("Developer Program Analytics - KZ_CALLER_BLE_SENSOR");
        csi_set_no_rsp(CSI_CLIENT_ANALYTICS, kSensorAnalytics, sizeof(kSensorAnalytics));
    }
    return true;
}

// The id that the device had on an earlier connection, or a new one.
uint8_t KzBleServer::DeviceIdOfAddress(const uint8_t* address) {
    const deviceInfo_t* known = nullptr;
    for (const deviceInfo_t& device : m_deviceHistory) {
        LOG_INFO("History devId= %d addr = %02X%02X%02X%02X%02X%02X", device.deviceId, device.address[0],
                 device.address[1], device.address[2], device.address[3], device.address[4], device.address[5]);
        if (std::equal(device.address, device.address + kBleAddressSize, address)) {
            known = &device;
        }
    }
    if (known != nullptr) {
        return known->deviceId;
    }
    deviceInfo_t device{};
    device.deviceId = ++m_lastDeviceId;
    std::copy_n(address, kBleAddressSize, device.address);
    if (m_deviceHistory.size() == kMaxDeviceHistory) {
        m_deviceHistory.erase(m_deviceHistory.begin());
    }
    m_deviceHistory.push_back(device);
    return device.deviceId;
}

// ---------------------------------------------------------------- pushes of the control daemon

void KzBleServer::RegisterAfterConnection() {
    if (GetClientCount() > 0) {
        RegisterForKzControlNotifications();
    }
}

void KzBleServer::UnregisterAfterLastDisconnection() {
    if (GetClientCount() > 0) {
        return;
    }
    LOG_INFO("No devices connected, unregistering for push notifications from kzControlD");
    UnregisterForKzControlNotifications();
    if (SettingsStatusMapping* model = BleSDK::LoadedMapping(); model != nullptr) {
        FlexValue unknown(eValueWidth1Byte, 0);
        unknown.SetValue(kStatusUnknown);
        model->SetStatusValue(SettingsStatusMapping::kStatusIdResetOnDisconnect, unknown);
    }
}

int KzBleServer::RegisterForKzControlNotifications() {
    if (m_registeredForPush) {
        return 0;
    }
    if (IsSuspended()) {
        LOG_DEBUG(
            "BLE device connected while SYS_SUSPENDED_UNSAFE, mobile should call caminfo  cmd to determine when resumed");
        return -1;
    }
    if (SendPushRegistration(kRegister) != 0) {
        LOG_ERROR("Unable to register with kzControl for push notifications");
        return -1;
    }
    m_registeredForPush = true;
    return 0;
}

int KzBleServer::UnregisterForKzControlNotifications() {
    if (!m_registeredForPush) {
        return 0;
    }
    m_registeredForPush = false;
    if (SendPushRegistration(kUnregister) != 0) {
        LOG_ERROR("Unable to unregister with kzControl for push notifications");
        return -1;
    }
    return 0;
}

// ---------------------------------------------------------------- camera state

bool KzBleServer::IsSuspended() const {
    return m_csiCache[CSI_SYSTEM_STATE] == SYS_SUSPENDED_UNSAFE;
}

bool KzBleServer::IsForcedUpdate() const {
    return m_csiCache[CSI_FORCED_UPDATE] == 1;
}

bool KzBleServer::SetCsiStStatus() {
    m_stInputs.batteryGood = BatteryGood(m_csiCache[CSI_BATTERY_EXTERNAL_POWER], m_csiCache[CSI_BATTERY_LEVEL]);
    m_stInputs.busy = static_cast<uint8_t>(m_csiCache[CSI_CAMERA_BUSY]);
    m_stInputs.st = StReady(m_stInputs);
    const uint8_t state = CsiStState(m_stInputs);
    if (state == m_lastStState) {
        LOG_INFO("st_state not changed");
        return false;
    }
    if (!m_stNotificationReady) {
        LOG_INFO("ST Notifications being setup, don't set CSI_ST");
        return false;
    }
    m_lastStState = state;
    const auto bit = [state](int position) { return state >> position & 1; };
    LOG_INFO("csi_st_state [paused=%d][busy=%d][sdcard=%d][batt=%d][new_media=%d][st=%d]", bit(5), bit(4), bit(3),
             bit(2), bit(1), bit(0));
    if (csi_set_no_rsp(CSI_ST_STATE, &state, sizeof(state)) != 0) {
        LOG_ERROR("Error setting CSI_ST_STATE = %d", state);
    }
    m_csiCache[CSI_ST_STATE] = state;
    return true;
}
