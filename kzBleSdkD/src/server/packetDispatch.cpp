#include "packetDispatch.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "accessoryUpdates.h"
#include "cameraStatus.h"
#include "clientTable.h"
#include "connectionEvents.h"
#include "delivery.h"
#include "kzCtrlD/kzCtrlD.h"
#include "logWriter.h"
#include "radioPort.h"
#include "requestInterfaces.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

constexpr long kMaxRadioBacklog = 90;
constexpr int kMaxShedAtOnce = 16;  // records; then the other queues have their turn

// While it lives, the control daemon takes requests to come from one peer.
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

// ---------------------------------------------------------------- records

void PacketDispatch::HandleRecords() {
    HandleBleMessage();
    for (int i = 1; i < kMaxShedAtOnce && m_shedding; ++i) {
        HandleBleMessage();
    }
}

bool PacketDispatch::HandleBleMessage() {
    m_shedding = false;
    ble_message_t record;
    if (!m_parts.radio.ReceiveBLEMsg(record)) {
        return false;
    }
    return HandleRecord(record);
}

bool PacketDispatch::HandleRecord(ble_message_t& record) {
    // A debug event carries no connection; what stands in its place counts as one.
    const LogSource source(record.connectionId);
    // Kept for the line at the end, because the handlers use the record again.
    const uint8_t eventType = record.eventType;
    bool known = true;
    int kzErrno = KZ_OK;
    switch (eventType) {
        case KZBLE_SDK_EVENT_Conn:
            LOG_INFO("Received KZBLE_SDK_EVENT_Conn message for connection_id:%d", record.connectionId);
            UpdateDevice(record);
            m_parts.connections.RegisterAfterConnection();
            break;
        case KZBLE_SDK_EVENT_Disconn:
            LOG_INFO("Received KZBLE_SDK_EVENT_Disconn message for connection_id:%d", record.connectionId);
            UpdateDevice(record);
            m_parts.connections.UnregisterAfterLastDisconnection();
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

void PacketDispatch::DisconnectAll() {
    while (m_parts.clients.GetClientCount() > 0) {
        ble_message_t record{};
        record.eventType = KZBLE_SDK_EVENT_Disconn;
        record.connectionId = m_parts.clients.Clients().front()->m_identity.m_connectionId;
        HandleRecord(record);
    }
}

void PacketDispatch::UpdateDevice(const ble_message_t& record) {
    if (!m_parts.connections.UpdateBleDeviceStatus(record)) {
        LOG_ERROR("Unable to update SDK device state");
    }
}

void PacketDispatch::HandleDataEvent(ble_message_t& record, int* kzErrno) {
    LOG_INFO("Received KZBLE_SDK_MESSAGE_Data");
    if (m_parts.camera.IsSuspended()) {
        LOG_ERROR("ERROR - BLE message recieved while resuming");
    }
    const long waiting = m_parts.radio.Waiting();
    LOG_INFO("mq_curmsgs = %d", static_cast<int>(waiting));
    m_shedding = waiting > kMaxRadioBacklog;
    if (m_shedding) {
        AbandonMessage(record);
        return;
    }
    if (HandleSDKMessage(record, kzErrno)) {
        LOG_INFO("Response Generated for BLE Client");
    }
}

// A shed packet is missing in the message that was being joined: what follows must not be joined to what came before.
void PacketDispatch::AbandonMessage(const ble_message_t& record) {
    const RequestInterface* row = kRequestInterfaces.Find(record.streamId);
    if (row == nullptr) {
        return;
    }
    const ClientLock lock(m_parts.clients.Mutex());
    if (BleNotificationClient* client = m_parts.clients.LookUp(record.connectionId); client != nullptr) {
        row->builder(*client).Abandon();
    }
}

void PacketDispatch::HandleDebugEvent(const ble_message_t& record) {
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
            m_parts.running = false;
            break;
        default:
            LOG_ERROR("Unrecognized command on debug event");
            break;
    }
}

bool PacketDispatch::HandleSDKMessage(ble_message_t& record, int* kzErrno) {
    LogReceivedPacket(record);
    const ClientLock lock(m_parts.clients.Mutex());
    BleNotificationClient* client = m_parts.clients.FindBleDeviceByConnectionID(record.connectionId);
    if (client == nullptr) {
        LOG_ERROR("Received SDK message for non tracked connection_id:%d", record.connectionId);
        return true;
    }
    const CallerScope caller(client->m_identity.m_deviceType);
    ++client->m_identity.m_inCount;
    if (record.dataLength > kBlePacketSize) {
        LOG_INFO("Connection id:%d stream_id:%d Received data packet with %d > %d bytes of data", record.connectionId,
                 record.streamId, record.dataLength, static_cast<int>(kBlePacketSize));
    }
    return DispatchPacket(*client, record, kzErrno);
}

bool PacketDispatch::DispatchPacket(BleNotificationClient& client, ble_message_t& record, int* kzErrno) {
    if (const RequestInterface* row = kRequestInterfaces.Find(record.streamId); row != nullptr) {
        return DispatchRequest(*row, client, record, kzErrno);
    }
    if (record.streamId == KZ_STR_ID_START_OTA) {
        m_parts.accessories.HandleAccessoryUpdateMessage(client, record);
    } else {
        LOG_ERROR("Unhandled stream type:%d in BLE SDK Message.", record.streamId);
    }
    return false;
}

bool PacketDispatch::DispatchRequest(const RequestInterface& row, BleNotificationClient& client, ble_message_t& record,
                                     int* kzErrno) {
    LOG_INFO("%s", row.received);
    unsigned short length = kMessageBufferSize;
    if (!row.process(client, record.data, m_parts.buffer.data(), &length, kzErrno)) {
        return false;
    }
    m_parts.delivery.DeliverAnswer(row, client, record, {m_parts.buffer.data(), length});
    return true;
}

bool PacketDispatch::DumpBleDeviceStatus() {
    m_parts.radio.ReportBleQStats();
    const ClientLock lock(m_parts.clients.Mutex());
    m_parts.clients.Dump();
    return true;
}
