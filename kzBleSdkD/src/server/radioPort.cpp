#include "radioPort.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include "messageCutter.h"
#include "monotonicTime.h"
#include "stopSignals.h"
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
constexpr int kOpenAttempts = 12;
constexpr std::chrono::seconds kOpenPeriod{1};
constexpr int64_t kWriteMs = 2000;  // a write that stays blocked longer has failed

// Records are dumped at level 6 alone: it is the highest, and a higher number would be a caller's mistake.
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

// Whether the queue carries records of this daemon's size. One that does not is not the radio stack's, or is that of
// another version, and counts as not there.
bool CarriesRecords(const QueueHandle& queue, const char* name) {
    const std::optional<mq_attr> attributes = QueueAttributes(queue);
    const long size = attributes ? attributes->mq_msgsize : 0;
    if (size != kBleRecordSize) {
        LOG_ERROR("'%s' carries messages of %ld bytes and not of %d, not using it\n", name, size,
                  static_cast<int>(kBleRecordSize));
    }
    return size == kBleRecordSize;
}

QueueHandle Checked(QueueHandle queue, const char* name) {
    if (queue.IsOpen() && !CarriesRecords(queue, name)) {
        queue.Close();
    }
    return queue;
}

// One attempt; the reason of a failure is in the log.
QueueHandle OpenRadioQueue(const char* name, int flags, mq_attr* attributes) {
    QueueHandle queue(mq_open(name, flags, kQueueMode, attributes));
    if (!queue.IsOpen()) {
        LOG_ERROR("mq_open() failed for '%s': %s\n", name, strerror(errno));
    }
    return Checked(std::move(queue), name);
}

}  // namespace

// ---------------------------------------------------------------- opening

bool RadioPort::Open() {
    mq_attr attributes{};
    attributes.mq_maxmsg = kRadioQueueDepth;
    attributes.mq_msgsize = kBleRecordSize;
    for (int attempt = 0; attempt < kOpenAttempts && !m_bleRxMq.IsOpen(); ++attempt) {
        m_bleRxMq = OpenRadioQueue(kMqToBleSdk, O_RDONLY | O_NONBLOCK, &attributes);
        if (!m_bleRxMq.IsOpen() && WaitForStop(kOpenPeriod)) {
            return false;
        }
    }
    // A radio-stack daemon that has made its first queue is about to make the second.
    while (m_bleRxMq.IsOpen() && !m_bleTxMq.IsOpen()) {
        m_bleTxMq = OpenRadioQueue(kMqToSkylark, O_WRONLY, nullptr);
        if (!m_bleTxMq.IsOpen() && WaitForStop(kOpenPeriod)) {
            return false;
        }
    }
    LearnLongestResponse();
    return m_bleTxMq.IsOpen();
}

void RadioPort::Close() {
    CloseQueues();
    m_timer_fd.Close();
}

void RadioPort::CloseQueues() {
    m_bleRxMq.Close();
    m_bleTxMq.Close();
    m_longestResponse = kMaxExtendedLength;
}

bool RadioPort::Reopen() {
    if (!m_bleRxMq.IsOpen()) {
        m_bleRxMq = Checked(QueueHandle(mq_open(kMqToBleSdk, O_RDONLY | O_NONBLOCK)), kMqToBleSdk);
    }
    if (!m_bleTxMq.IsOpen()) {
        m_bleTxMq = Checked(QueueHandle(mq_open(kMqToSkylark, O_WRONLY)), kMqToSkylark);
    }
    LearnLongestResponse();
    return IsOpen();
}

void RadioPort::LearnLongestResponse() {
    if (const std::optional<mq_attr> queue = QueueAttributes(m_bleTxMq)) {
        m_longestResponse = static_cast<uint16_t>(LongestResponse(queue->mq_maxmsg));
    }
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

// Waits until the send queue has room; false at the deadline.
bool RadioPort::AwaitRoom(int64_t deadlineMs) const {
    pollfd queue{m_bleTxMq, POLLOUT, 0};
    int ready = -1;
    do {
        const int64_t left = std::max<int64_t>(deadlineMs - MonotonicMs(), 0);
        ready = poll(&queue, 1, static_cast<int>(left));
    } while (ready < 0 && errno == EINTR);
    return ready > 0 && (queue.revents & POLLOUT) != 0;
}

// Writes one record if there is room. The system's own wait goes by the wall clock, which may step, so it gets a
// deadline that has passed.
bool RadioPort::WriteRecord(const ble_message_t& record) const {
    constexpr timespec kAtOnce{};
    return mq_timedsend(m_bleTxMq, reinterpret_cast<const char*>(&record), sizeof(record), 0, &kAtOnce) == 0;
}

// Goes on with a record whose write has just failed. The wait for room is bounded, so that a radio-stack daemon that
// stopped reading costs a packet and not the whole service.
RadioPort::SendResult RadioPort::WriteAgain(const ble_message_t& record, WaitForRoom wait) const {
    std::optional<int64_t> deadlineMs;
    do {
        if (errno == EINTR) {
            continue;
        }
        if (wait == WaitForRoom::kNo) {
            return errno == ETIMEDOUT || errno == EBADF ? SendResult::kNoRoom : SendResult::kFailed;
        }
        if (errno != ETIMEDOUT) {
            return SendResult::kFailed;
        }
        deadlineMs = deadlineMs.value_or(MonotonicMs() + kWriteMs);
        if (!AwaitRoom(*deadlineMs)) {
            return SendResult::kFailed;
        }
    } while (!WriteRecord(record));
    return SendResult::kSent;
}

RadioPort::SendResult RadioPort::SendOrHold(const ble_message_t& record, WaitForRoom wait) {
    DumpRecord(record);
    if (m_packetHolding) {
        QueuePacket(record);
        return SendResult::kSent;
    }
    const SendResult result = WriteRecord(record) ? SendResult::kSent : WriteAgain(record, wait);
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
    // Several packets leave only if the queue has room for all of them. A single one is simply tried, unless it would
    // be held, or dumped in the log before it is known to leave.
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
