#include "radioPort.h"

#include <fcntl.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "messageCutter.h"
#include "utils.h"

itimerspec g_timerspec;

namespace {

constexpr const char* kLogTag = "kzBleServer";
constexpr const char* kAssertPath = "kzBleSdkD/src/kzBleServer";

constexpr long kPacketTimerNanoseconds = 20000000;
constexpr unsigned kDumpedBytes = 24;  // the record's head and most of the packet
constexpr unsigned kDumpedBytesPerLine = 8;
constexpr uint32_t kStatsTicks = 3;  // statistics are reported on every third tick at most

constexpr mode_t kQueueMode = 0664;
constexpr long kRadioQueueDepth = 100;
constexpr int kOpenAttempts = 12;  // a second apart
constexpr int kWriteSeconds = 2;   // a write that stays blocked longer has failed

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

// ---------------------------------------------------------------- opening

bool RadioPort::Open() {
    mq_attr attributes{};
    attributes.mq_maxmsg = kRadioQueueDepth;
    attributes.mq_msgsize = kBleRecordSize;
    for (int attempt = 0; attempt < kOpenAttempts && !m_bleRxMq.IsOpen(); ++attempt) {
        m_bleRxMq = QueueHandle(mq_open(kMqToBleSdk, O_RDONLY | O_NONBLOCK, kQueueMode, &attributes));
        if (!m_bleRxMq.IsOpen()) {
            LOG_ERROR("mq_open() failed for '%s': %s\n", kMqToBleSdk, strerror(errno));
            sleep(1);
        }
    }
    // A radio-stack daemon that has made its first queue is about to make the second.
    while (m_bleRxMq.IsOpen() && !m_bleTxMq.IsOpen()) {
        m_bleTxMq = QueueHandle(mq_open(kMqToSkylark, O_WRONLY));
        if (!m_bleTxMq.IsOpen()) {
            LOG_ERROR("mq_open() failed for '%s': %s\n", kMqToSkylark, strerror(errno));
            sleep(1);
        }
    }
    if (const std::optional<mq_attr> queue = QueueAttributes(m_bleTxMq)) {
        m_longestResponse = static_cast<uint16_t>(LongestResponse(queue->mq_maxmsg));
    }
    return m_bleTxMq.IsOpen();
}

void RadioPort::Close() {
    m_bleRxMq.Close();
    m_bleTxMq.Close();
    m_longestResponse = kMaxExtendedLength;
    m_timer_fd.Close();
}

void RadioPort::StartPacketTimer() {
    m_timer_fd = FileDescriptor(timerfd_create(CLOCK_MONOTONIC, 0));
    KZ_ASSERT(m_timer_fd.IsOpen(), kAssertPath, "(pThis->m_timer_fd = timerfd_create(CLOCK_MONOTONIC, 0)) != -1");
    g_timerspec = {};
    const int armed = timerfd_settime(m_timer_fd, 0, &g_timerspec, nullptr);
    KZ_ASSERT(armed != -1, kAssertPath, "timerfd_settime(pThis->m_timer_fd, 0, &g_timerspec, NULL) != -1");
    fcntl(m_timer_fd, F_SETFL, O_NONBLOCK);
    fcntl(m_timer_fd, F_SETFD, FD_CLOEXEC);
}

// ---------------------------------------------------------------- receiving

bool RadioPort::ReceiveBLEMsg(ble_message_t& record) {
    const ssize_t length = mq_receive(m_bleRxMq, reinterpret_cast<char*>(&record), sizeof(record), nullptr);
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
    return true;
}

long RadioPort::Waiting() const {
    const std::optional<mq_attr> queue = QueueAttributes(m_bleRxMq);
    return queue ? queue->mq_curmsgs : 0;
}

// ---------------------------------------------------------------- packets

// Writes one record. The wait for room is bounded, so that a radio-stack daemon that stopped reading costs a packet and
// not the whole service. Without a wait the deadline is one that has passed.
RadioPort::SendResult RadioPort::WriteRecord(const ble_message_t& record, WaitForRoom wait) {
    timespec deadline{};
    if (wait == WaitForRoom::kBounded) {
        clock_gettime(CLOCK_REALTIME_COARSE, &deadline);
        deadline.tv_sec += kWriteSeconds;
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

RadioPort::SendResult RadioPort::SendOrHold(const ble_message_t& record, WaitForRoom wait) {
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

bool RadioPort::PostPacket(const ble_message_t& record) {
    return SendOrHold(record, WaitForRoom::kBounded) == SendResult::kSent;
}

// A record that is to be dumped must not be dumped on every try, so that the queue is asked first.
RadioPort::SendResult RadioPort::TryPacket(const ble_message_t& record) {
    if (DumpsRecords() && !m_packetHolding && TxQueueFill().Available() <= 0) {
        return SendResult::kNoRoom;
    }
    return SendOrHold(record, WaitForRoom::kNo);
}

bool RadioPort::PostResponse(const ble_message_t& record, const unsigned char* data, unsigned short length) {
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
    MessageCutter cutter(length);
    while (cutter.HasNext()) {
        packet.dataLength = static_cast<uint8_t>(cutter.WriteNext(data, packet.data));
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

void RadioPort::QueuePacket(const ble_message_t& record) {
    m_packetQueue.push_back(record);
    LOG_INFO("q size = %d", static_cast<int>(m_packetQueue.size()));
}

bool RadioPort::SetPacketTimer(bool on) {
    m_packetQueue.clear();
    m_packetHolding = on;
    const timespec period{0, on ? kPacketTimerNanoseconds : 0};
    g_timerspec = {period, period};
    KZ_ASSERT(timerfd_settime(m_timer_fd, 0, &g_timerspec, nullptr) != -1, kAssertPath,
              "timerfd_settime(m_timer_fd, 0, &g_timerspec, NULL) != -1");
    return true;
}

// ---------------------------------------------------------------- queue statistics

QueueFill RadioPort::TxQueueFill() const {
    const std::optional<mq_attr> queue = QueueAttributes(m_bleTxMq);
    return queue ? FillOf(*queue) : QueueFill{};
}

unsigned RadioPort::GetBleTxQueueAvailability(int* capacity) const {
    const std::optional<mq_attr> queue = QueueAttributes(m_bleTxMq);
    if (!queue) {
        return 0;
    }
    if (capacity != nullptr) {
        *capacity = static_cast<int>(queue->mq_maxmsg);
    }
    return static_cast<unsigned>(FillOf(*queue).Available());
}

bool RadioPort::TrackBleQStats(uint32_t tick) {
    const bool rxBusy = TrackDepth(m_bleRxMq, m_maxRxQueueDepth);
    const bool txBusy = TrackDepth(m_bleTxMq, m_maxTxQueueDepth);
    return (rxBusy || txBusy) && tick % kStatsTicks == 0;
}

void RadioPort::ReportBleQStats() const {
    if (const std::optional<mq_attr> queue = QueueAttributes(m_bleRxMq)) {
        LOG_WARN("ble rx message queue fullness %ld of %ld, max:%ld", queue->mq_curmsgs, queue->mq_maxmsg,
                 static_cast<long>(m_maxRxQueueDepth));
    }
    if (const std::optional<mq_attr> queue = QueueAttributes(m_bleTxMq)) {
        LOG_WARN("ble tx message queue fullness %ld of %ld, max:%ld", queue->mq_curmsgs, queue->mq_maxmsg,
                 static_cast<long>(m_maxTxQueueDepth));
    }
}
