// What the loop receives from the radio-stack daemon and the control daemon, and where it goes.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "bleSDK.h"
#include "kzBleMessages.h"
#include "kzBleServer.h"
#include "kzCtrlD/kzCtrlD.h"
#include "kzTlv.h"
#include "settingsStatusMapping.h"
#include "utils.h"

// One row per request interface: where its packets come from, who handles them, where the answers go.
struct RequestInterface {
    using Process = bool (BleNotificationClient::*)(unsigned char*, unsigned char*, unsigned short*, int*);
    using Store = void (BleNotificationClient::*)(const unsigned char*, int);

    uint8_t requestStream;  // also the gate of its answers
    uint8_t responseStream;
    const char* received;  // logged for each packet
    Process process;
    Store store;  // keeps an answer that the radio queue has no room for
};

namespace {

constexpr const char* kLogTag = "kzBleServer";

constexpr RequestInterface kInterfaces[] = {
    {KZ_STR_ID_COMMAND, KZ_STR_ID_COMMAND_RESPONSE, "Received message on Command Interface",
     &BleNotificationClient::ProcessCommandMessage, &BleNotificationClient::StoreCommandResponse},
    {KZ_STR_ID_SETTINGS, KZ_STR_ID_SETTINGS_RESPONSE, "Received message on Settings Interface",
     &BleNotificationClient::ProcessSettingMessage, &BleNotificationClient::StoreSettingsResponse},
    {KZ_STR_ID_QUERY, KZ_STR_ID_QUERY_RESPONSE, "Received message on Query Interface",
     &BleNotificationClient::ProcessQueryMessage, &BleNotificationClient::StoreQueryResponse},
    {KZ_STR_ID_SENSOR, KZ_STR_ID_SENSOR_RESPONSE, "Received message on Sensor Interface 0714",
     &BleNotificationClient::ProcessMetadataMessage, &BleNotificationClient::StoreSensorResponse},
};

// Attributes what the control daemon is asked for to one peer, for its own life.
class CallerScope {
  public:
    explicit CallerScope(uint8_t deviceType) { kzcontrol_set_caller_id(deviceType); }
    ~CallerScope() { kzcontrol_set_caller_id(KZ_CALLER_UNKNOWN); }
    CallerScope(const CallerScope&) = delete;
    CallerScope& operator=(const CallerScope&) = delete;
};

uint32_t ReadWord(const ble_message_t& record, unsigned offset) {
    uint32_t word = 0;
    std::memcpy(&word, reinterpret_cast<const unsigned char*>(&record) + offset, sizeof(word));
    return word;
}

void LogReceivedPacket(const ble_message_t& record) {
    if (kzUtilGetLogLevel() < KZ_LOG_INFO) {
        return;
    }
    char text[kBlePacketSize * 3 + 1] = "";
    const unsigned count = std::min<unsigned>(record.dataLength, kBlePacketSize);
    for (unsigned i = 0; i < count; ++i) {
        snprintf(text + i * 3, 4, "%02x:", record.data[i]);
    }
    LOG_INFO("BlePacket RX [%s]", text);
}

}  // namespace

// ---------------------------------------------------------------- the radio-stack daemon's records

bool KzBleServer::ReceiveBLEMsg(ble_message_t& record) {
    const ssize_t length = mq_receive(m_bleRxMq, reinterpret_cast<char*>(m_msgBuffer.get()), kBleRecordSize, nullptr);
    if (length < 0) {
        LOG_ERROR("Error receiving on daemon message queue");
        return false;
    }
    LOG_INFO("received %d bytes at server from skylark\n", static_cast<int>(length));
    if (length != kBleRecordSize) {
        LOG_ERROR("A record of %d bytes from skylark is not %d bytes long, dropping", static_cast<int>(length),
                  static_cast<int>(kBleRecordSize));
        return false;
    }
    std::memcpy(&record, m_msgBuffer.get(), sizeof(record));
    return true;
}

bool KzBleServer::HandleBleMessage() {
    m_shedding = false;
    ble_message_t record;
    if (!ReceiveBLEMsg(record)) {
        return false;
    }
    // The handlers reuse the record; what is logged at the end is the event as it came.
    const uint8_t eventType = record.eventType;
    bool known = true;
    int kzErrno = KZ_OK;
    switch (eventType) {
        case KZBLE_SDK_EVENT_Conn:
            LOG_INFO("Received KZBLE_SDK_EVENT_Conn message for connection_id:%d", record.connectionId);
            UpdateDevice(record);
            RegisterAfterConnection();
            break;
        case KZBLE_SDK_EVENT_Disconn:
            LOG_INFO("Received KZBLE_SDK_EVENT_Disconn message for connection_id:%d", record.connectionId);
            UpdateDevice(record);
            UnregisterAfterLastDisconnection();
            break;
        case KZBLE_SDK_EVENT_CCC:
        case KZBLE_SDK_EVENT_SensorCCC:
            LOG_INFO("Received KZBLE_SDK_EVENT_CCC message for connection_id:%d", record.connectionId);
            UpdateDevice(record);
            break;
        case KZBLE_SDK_MESSAGE_Data:
            HandleDataEvent(record, &kzErrno);
            break;
        case KZBLE_SDK_EVENT_Debug:
            HandleDebugEvent(record);
            break;
        default:
            known = false;
            kzErrno = KZ_ERR_NOT_SUPPORTED;
            LOG_ERROR("Unhandled event_type %d", eventType);
            break;
    }
    if (kzErrno != KZ_OK) {
        LOG_ERROR("event_type:%d returned kzErrno:(%d)", eventType, kzErrno);
    }
    return known;
}

void KzBleServer::UpdateDevice(ble_message_t& record) {
    if (!UpdateBleDeviceStatus(record)) {
        LOG_ERROR("Unable to update SDK device state");
    }
}

void KzBleServer::HandleDataEvent(ble_message_t& record, int* kzErrno) {
    LOG_INFO("Received KZBLE_SDK_MESSAGE_Data");
    if (IsSuspended()) {
        LOG_ERROR("ERROR - BLE message recieved while resuming");
    }
    const std::optional<mq_attr> queue = QueueAttributes(m_bleRxMq);
    const long waiting = queue ? queue->mq_curmsgs : 0;
    LOG_INFO("mq_curmsgs = %d", static_cast<int>(waiting));
    m_shedding = waiting > kMaxRadioBacklog;
    if (m_shedding) {
        return;
    }
    if (HandleSDKMessage(record, kzErrno)) {
        LOG_INFO("Response Generated for BLE Client");
    }
}

void KzBleServer::HandleDebugEvent(const ble_message_t& record) {
    const uint32_t argument = ReadWord(record, kDebugArgumentOffset);
    switch (ReadWord(record, kDebugCommandOffset)) {
        case KZBLE_SET_LOG_LEVEL:
            LOG_INFO("KZBLE_SET_LOG_LEVEL: level:%d", argument);
            kzUtilSetLogLevel(static_cast<int>(argument));
            break;
        case KZBLE_DEBUG_DUMP_STATUS:
            LOG_INFO("Dumping device status at server");
            DumpBleDeviceStatus();
            break;
        case KZBLE_DEBUG_SHUTDOWN:
            LOG_INFO("Shutting down Server");
            m_running = false;
            break;
        default:
            LOG_ERROR("Unrecognized command on debug event");
            break;
    }
}

bool KzBleServer::HandleSDKMessage(ble_message_t& record, int* kzErrno) {
    LogReceivedPacket(record);
    const Lock lock(&m_clientMutex);
    BleNotificationClient* client = FindBleDeviceByConnectionID(record.connectionId);
    if (client == nullptr) {
        LOG_ERROR("Received SDK message for non tracked connection_id:%d", record.connectionId);
        return true;
    }
    const CallerScope caller(client->m_deviceType);
    ++client->m_inCount;
    if (record.dataLength > kBlePacketSize) {
        LOG_INFO("Connection id:%d stream_id:%d Received data packet with %d > %d bytes of data", record.connectionId,
                 record.streamId, record.dataLength, static_cast<int>(kBlePacketSize));
    }
    return DispatchPacket(*client, record, kzErrno);
}

bool KzBleServer::DispatchPacket(BleNotificationClient& client, ble_message_t& record, int* kzErrno) {
    for (const RequestInterface& row : kInterfaces) {
        if (row.requestStream == record.streamId) {
            return DispatchRequest(row, client, record, kzErrno);
        }
    }
    if (record.streamId == KZ_STR_ID_START_OTA) {
        HandleAccessoryUpdateMessage(client, record);
    } else {
        LOG_ERROR("Unhandled stream type:%d in BLE SDK Message.", record.streamId);
    }
    return false;
}

bool KzBleServer::DispatchRequest(const RequestInterface& row, BleNotificationClient& client, ble_message_t& record,
                                  int* kzErrno) {
    LOG_INFO("%s", row.received);
    unsigned short length = kMessageBufferSize;
    if (!(client.*row.process)(record.data, m_msgBuffer.get(), &length, kzErrno)) {
        return false;
    }
    if (!client.GetEnabledByStreamId(row.requestStream)) {
        if (row.requestStream == KZ_STR_ID_COMMAND) {
            LOG_INFO("Response dropped because notify disabled on conn_id %d stream_id:%d for response:%d",
                     client.m_connectionId, row.requestStream, row.responseStream);
        } else {
            LOG_INFO("Response dropped because notify disabled on conn_id %d stream_id:%d", client.m_connectionId,
                     row.requestStream);
        }
        return true;
    }
    record.streamId = row.responseStream;
    if (!PostResponse(record, m_msgBuffer.get(), length)) {
        LOG_ERROR("Failed to send a response of length %d to connection_id:%d", length, client.m_connectionId);
        (client.*row.store)(m_msgBuffer.get(), length);
        return true;
    }
    LOG_INFO("Response sent to client %d stream_id:%d", client.m_connectionId, row.responseStream);
    if (row.requestStream == KZ_STR_ID_SENSOR) {
        SendStoredBuffers(client);
    }
    return true;
}

// ---------------------------------------------------------------- the control daemon's events

bool KzBleServer::ReceiveEventMsg(Msg& message) {
    const ssize_t length =
        mq_receive(m_eventMq, reinterpret_cast<char*>(m_msgBuffer.get()), kEventMessageSize, nullptr);
    if (length < 0) {
        LOG_ERROR("Error receiving on daemon message queue");
        return false;
    }
    MemoryStream stream(m_msgBuffer.get(), static_cast<unsigned short>(length));
    const bool decoded = message.decode(stream);
    if (message.getCategory() != CAT_KZCONTROL_EVENT) {
        LOG_ERROR("Invalid command category received: %d", message.getCategory());
        return false;
    }
    return decoded;
}

bool KzBleServer::HandleEvent() {
    Msg message(0);
    if (!ReceiveEventMsg(message)) {
        return false;
    }
    const MsgElement* element = message.findElement(TLV_RSPARG);
    if (element == nullptr) {
        return true;
    }
    SettingsStatusMapping* model = BleSDK::LoadedMapping();
    if (model == nullptr) {
        LOG_ERROR("No Database!!");
        return false;
    }
    m_eventText.assign(reinterpret_cast<const char*>(element->getData()), element->getDataLength());
    LOG_TRACE("%s", m_eventText.c_str());
    bool capabilitiesChanged = false;
    const uint8_t changed = model->CurrentSettingsStatusFromJSON(m_eventText.c_str(), capabilitiesChanged);
    if ((changed & SettingsStatusMapping::kSettingsChanged) != 0 && NotifyClientsOfSettingsChanges()) {
        model->ResetSettingsHasChanged();
    }
    if ((changed & SettingsStatusMapping::kStatusChanged) != 0 && NotifyClientsOfStatusChanges()) {
        model->ResetStatusHasChanged();
    }
    if (capabilitiesChanged) {
        NotifyClientsOfSettingsCapabilitiesChanges();
    }
    return true;
}
