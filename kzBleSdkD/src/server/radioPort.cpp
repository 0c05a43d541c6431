// The radio queue: responses cut into packets, stored responses tried again, and how full the queue is.
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>

#include "MemStream.h"
#include "blePacketHeader.h"
#include "kzBleServer.h"
#include "utils.h"

itimerspec g_timerspec;

namespace {

constexpr const char* kLogTag = "kzBleServer";
constexpr const char* kAssertPath = "kzBleSdkD/src/kzBleServer";

constexpr long kPacketTimerNanoseconds = 20000000;
constexpr unsigned kDumpedBytes = 24;  // the record's head and most of the packet
constexpr unsigned kDumpedBytesPerLine = 8;
constexpr uint32_t kStatsTicks = 3;  // statistics are reported on every third tick at most

// Which stream carries the answers of a request stream; the pushes are answers of the query interface.
uint8_t ResponseStream(int gateStream) {
    switch (gateStream) {
        case KZ_STR_ID_COMMAND:
            return KZ_STR_ID_COMMAND_RESPONSE;
        case KZ_STR_ID_SETTINGS:
            return KZ_STR_ID_SETTINGS_RESPONSE;
        case KZ_STR_ID_SENSOR:
            return KZ_STR_ID_SENSOR_RESPONSE;
        default:
            return KZ_STR_ID_QUERY_RESPONSE;
    }
}

// At level 6 exactly: a higher level would be a caller's mistake, a lower one does not want it.
bool DumpsRecords() {
    return kzUtilGetLogLevel() == KZ_LOG_TRACE;
}

void DumpRecord(const ble_message_t& record) {
    if (!DumpsRecords()) {
        return;
    }
    LOG_TRACE("First 24 bytes of message (BLE Data starts at 5th byte)");
    const auto* bytes = reinterpret_cast<const unsigned char*>(&record);
    for (const unsigned char* b = bytes; b < bytes + kDumpedBytes; b += kDumpedBytesPerLine) {
        LOG_ERROR("%02x %02x %02x %02x %02x %02x %02x %02x", b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7]);
    }
}

QueueFill FillOf(const mq_attr& attributes) {
    return {attributes.mq_maxmsg, attributes.mq_curmsgs};
}

// Raises the highest depth seen; true when the queue is busy.
bool TrackDepth(const QueueHandle& queue, int64_t& maxDepth) {
    const std::optional<mq_attr> attributes = QueueAttributes(queue);
    if (!attributes) {
        return false;
    }
    maxDepth = std::max<int64_t>(maxDepth, attributes->mq_curmsgs);
    return FillOf(*attributes).IsBusy();
}

}  // namespace

// ---------------------------------------------------------------- packets

// Writes one record. The wait for room is bounded, so that a radio-stack daemon that stopped reading costs a packet and
// not the whole service. Without a wait the deadline is one that has passed.
KzBleServer::SendResult KzBleServer::WriteRecord(const ble_message_t& record, WaitForRoom wait) {
    timespec deadline{};
    if (wait == WaitForRoom::kBounded) {
        clock_gettime(CLOCK_REALTIME_COARSE, &deadline);
        deadline.tv_sec += kRadioWriteSeconds;
    }
    int result = 0;
    do {
        result = mq_timedsend(m_bleTxMq, reinterpret_cast<const char*>(&record), sizeof(record), 0, &deadline);
    } while (result != 0 && errno == EINTR);
    if (result == 0) {
        return SendResult::kSent;
    }
    const bool couldNotStart = errno == ETIMEDOUT || errno == EBADF;
    return wait == WaitForRoom::kNo && couldNotStart ? SendResult::kNoRoom : SendResult::kFailed;
}

KzBleServer::SendResult KzBleServer::SendOrHold(const ble_message_t& record, WaitForRoom wait) {
    DumpRecord(record);
    if (m_packetHolding) {
        QueuePacket(record);
        return SendResult::kSent;
    }
    const SendResult result = WriteRecord(record, wait);
    if (result == SendResult::kNoRoom) {
        return result;
    }
    if (result == SendResult::kFailed) {
        LOG_ERROR("Failed to send packet to ble client.");
    } else {
        LOG_INFO("Sent 1 packet to GATT MQ for connection_id:%d stream_id:%d", record.connectionId, record.streamId);
    }
    return result;
}

bool KzBleServer::PostPacket(ble_message_t& record) {
    return SendOrHold(record, WaitForRoom::kBounded) == SendResult::kSent;
}

bool KzBleServer::PostResponse(ble_message_t& record, const unsigned char* data, unsigned short length) {
    if (length == 0) {
        return true;
    }
    // Several packets need room for all of them before the first leaves; a single one learns by trying, unless it is to
    // be dumped first.
    const long packets = PacketsNeeded(length);
    const bool tries = packets == 1 && !m_packetHolding && !DumpsRecords();
    if (!tries && TxQueueFill().Available() < packets) {
        LOG_ERROR("GATT Message queue is backed up, buffering response for later attempt");
        return false;
    }
    ble_message_t packet = record;
    BlePacketHeader header(length);
    MemoryStream stream(packet.data, kBlePacketSize);
    int remaining = length;
    for (bool first = true; remaining > 0; first = false) {
        packet.dataLength = static_cast<uint8_t>(std::min<int>(header.m_headerLength + remaining, kBlePacketSize));
        stream.reset();
        stream << header;
        const int chunk = packet.dataLength - header.m_headerLength;
        stream.writeArray(data, static_cast<unsigned short>(chunk));
        data += chunk;
        remaining -= chunk;
        // The header of the next packet; the counter starts at 0 with the second.
        header.m_isStart = false;
        header.m_headerLength = 1;
        header.m_counter = first ? uint8_t{0} : static_cast<uint8_t>((header.m_counter + 1) % 16);

        const SendResult result = SendOrHold(packet, tries ? WaitForRoom::kNo : WaitForRoom::kBounded);
        if (result == SendResult::kNoRoom) {
            LOG_ERROR("GATT Message queue is backed up, buffering response for later attempt");
            return false;
        }
        if (result == SendResult::kFailed) {
            LOG_ERROR("Failed to send packet to ble client. Response remainder will be dropped!!");
            break;
        }
        if (!m_packetHolding) {
            LOG_INFO("->GATT type:%d conn_id:%d str_id:%d data_len:%d", packet.eventType, packet.connectionId,
                     packet.streamId, packet.dataLength);
        }
    }
    LOG_INFO("Sent %d packets to GATT for connection_id:%d stream_id:%d", static_cast<int>(packets),
             record.connectionId, record.streamId);
    return true;
}

void KzBleServer::QueuePacket(const ble_message_t& record) {
    m_packetQueue.push_back(record);
    LOG_INFO("q size = %d", static_cast<int>(m_packetQueue.size()));
}

bool KzBleServer::SetPacketTimer(bool on) {
    m_packetQueue.clear();
    m_packetHolding = on;
    const timespec period{0, on ? kPacketTimerNanoseconds : 0};
    g_timerspec = {period, period};
    KZ_ASSERT(timerfd_settime(m_timer_fd, 0, &g_timerspec, nullptr) != -1, kAssertPath,
              "timerfd_settime(m_timer_fd, 0, &g_timerspec, NULL) != -1");
    return true;
}

// ---------------------------------------------------------------- stored responses

bool KzBleServer::CheckClientsStoredResponses() {
    if (GetBleTxQueueAvailability() == 0) {
        return false;
    }
    bool sent = false;
    const Lock lock(&m_clientMutex);
    for (const auto& client : m_clients) {
        if (GetBleTxQueueAvailability() > 0 && SendStoredResponse(*client)) {
            sent = true;
        }
    }
    return sent;
}

bool KzBleServer::SendStoredResponse(BleNotificationClient& client) {
    BleNotificationClient::StoredResponse* stored = client.GetHighestPriorityStoredResponse();
    if (stored == nullptr) {
        return false;
    }
    ble_message_t record = NewDataRecord(client.m_connectionId, ResponseStream(stored->m_streamId));
    if (!PostResponse(record, stored->m_data.get(), static_cast<unsigned short>(stored->m_length))) {
        return false;
    }
    stored->Clear();
    return true;
}

// ---------------------------------------------------------------- buffers of sensor clients

// A sensor client that connects later than the buffers came gets them with its next answer.
void KzBleServer::SendStoredBuffers(BleNotificationClient& client) {
    if (m_lcdBuffer != nullptr && m_lcdLength != 0) {
        sendLCDBuffer(&client, m_lcdBuffer.get(), m_lcdLength);
    }
    if (m_ledBuffer != nullptr && m_ledLength != 0) {
        sendLEDBuffer(&client, m_ledBuffer.get(), m_ledLength);
    }
}

bool KzBleServer::sendLCDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length) {
    return SendBuffer(NotificationClient::eNotifyLcd, *client, buffer, length);
}

bool KzBleServer::sendLEDBuffer(BleNotificationClient* client, unsigned char* buffer, unsigned short length) {
    return SendBuffer(NotificationClient::eNotifyLed, *client, buffer, length);
}

bool KzBleServer::SendBuffer(NotificationClient::eNotificationType_t type, BleNotificationClient& client,
                             unsigned char* buffer, unsigned short length) {
    m_pushIds.assign(1, static_cast<int>(client.m_connectionId));
    unsigned short pushLength = length;
    int kzErrno = KZ_OK;
    if (!client.ExecutePush(type, m_pushIds, buffer, &pushLength, &kzErrno)) {
        return false;
    }
    ble_message_t record = NewDataRecord(client.m_connectionId, KZ_STR_ID_SENSOR_RESPONSE);
    return PostResponse(record, buffer, length);
}

// ---------------------------------------------------------------- queue statistics

QueueFill KzBleServer::TxQueueFill() const {
    const std::optional<mq_attr> queue = QueueAttributes(m_bleTxMq);
    return queue ? FillOf(*queue) : QueueFill{};
}

uint16_t KzBleServer::GetLongestResponse() {
    if (m_radioDepth == 0) {
        const std::optional<mq_attr> queue = QueueAttributes(m_bleTxMq);
        if (!queue) {
            return kMaxExtendedLength;
        }
        m_radioDepth = queue->mq_maxmsg;
    }
    return static_cast<uint16_t>(LongestResponse(m_radioDepth));
}

uint16_t KzBleServer::GetPushRoom() {
    return static_cast<uint16_t>(std::clamp<unsigned>(GetLongestResponse(), kMaxSimpleLength, kPushBufferSize));
}

unsigned KzBleServer::GetBleTxQueueAvailability(int* capacity) {
    const std::optional<mq_attr> queue = QueueAttributes(m_bleTxMq);
    if (!queue) {
        return 0;
    }
    if (capacity != nullptr) {
        *capacity = static_cast<int>(queue->mq_maxmsg);
    }
    return static_cast<unsigned>(FillOf(*queue).Available());
}

bool KzBleServer::TrackBleQStats(uint32_t tick) {
    const bool rxBusy = TrackDepth(m_bleRxMq, m_maxRxQueueDepth);
    const bool txBusy = TrackDepth(m_bleTxMq, m_maxTxQueueDepth);
    return (rxBusy || txBusy) && tick % kStatsTicks == 0;
}

void KzBleServer::ReportBleQStats() {
    if (const std::optional<mq_attr> queue = QueueAttributes(m_bleRxMq)) {
        LOG_WARN("ble rx message queue fullness %ld of %ld, max:%ld", queue->mq_curmsgs, queue->mq_maxmsg,
                 static_cast<long>(m_maxRxQueueDepth));
    }
    if (const std::optional<mq_attr> queue = QueueAttributes(m_bleTxMq)) {
        LOG_WARN("ble tx message queue fullness %ld of %ld, max:%ld", queue->mq_curmsgs, queue->mq_maxmsg,
                 static_cast<long>(m_maxTxQueueDepth));
    }
}
