// RadioPort: the two queues between the radio-stack daemon and this one. Receives records, sends packets and whole
// responses, and knows how full the queues are.
//
// Command thread only.
#pragma once

#include <time.h>

#include <cstdint>
#include <deque>

#include "posixHandle.h"
#include "skylark/bleMessage.h"
#include "transmitPlan.h"

// What the packet timer was last set to.
extern itimerspec g_timerspec;

class RadioPort {
  public:
    RadioPort() = default;
    RadioPort(const RadioPort&) = delete;
    RadioPort& operator=(const RadioPort&) = delete;

    // Opens the queues, which the radio-stack daemon makes. Waits 12 seconds for the one to this daemon, and without
    // limit for the other. A queue whose messages are not records is waited for as if it did not exist. False when the
    // first does not appear or the process is asked to stop; each attempt is logged.
    bool Open();
    void Close();

    // ---- a radio-stack daemon that is started anew removes its queues and makes others

    bool IsOpen() const { return m_bleRxMq.IsOpen() && m_bleTxMq.IsOpen(); }
    // Whether one of the open queues has been removed.
    bool IsGone() const { return IsRemoved(m_bleRxMq) || IsRemoved(m_bleTxMq); }
    void CloseQueues();
    // Tries to open what is closed, without a wait and without a line for a queue that is not there yet. True when both
    // queues are open.
    bool Reopen();

    // Makes the packet timer, disarmed; failure is fatal. Called by the command thread when it starts.
    void StartPacketTimer();

    // ---- receiving

    int ReceiveDescriptor() const { return m_bleRxMq; }
    // Receives one record. False, with a line in the log, when there is none, and for one of a wrong length, which is
    // dropped.
    bool ReceiveBLEMsg(ble_message_t& record);
    // Records that wait to be received; 0 when the queue cannot be read.
    long Waiting() const;

    // ---- sending

    enum class SendResult {
        kSent,
        kNoRoom,  // only when it was not to wait; nothing was logged
        kFailed,
    };
    // Sends one ready record, or finds no room for it. It never waits.
    SendResult TryPacket(const ble_message_t& record);
    // Sends one ready record. It does not look for room: a full queue is waited for, two seconds at most.
    bool PostPacket(const ble_message_t& record);
    // Splits `length` bytes into packets on the record's connection and stream. False only when the response was not
    // started because the queue has no room for all of it.
    bool PostResponse(const ble_message_t& record, const unsigned char* data, unsigned short length);
    // How full the send queue is. Capacity and room are 0 when it is closed or cannot be read.
    QueueFill TxQueueFill() const;
    // Free places; 0 when the queue is closed or cannot be read. `capacity`, when given, gets the queue's depth.
    unsigned GetBleTxQueueAvailability(int* capacity = nullptr) const;
    // Bytes of the longest response that the send queue takes when it is empty: a longer one could never be sent. The
    // longest message while the queue is closed.
    uint16_t GetLongestResponse() const { return m_longestResponse; }

    // ---- packet holding. These operations are kept because they belong to the public interface; the daemon itself
    // only ever ends holding.

    // Switches packet holding, during which packets are collected instead of sent. Packets held are dropped. Returns
    // true.
    bool SetPacketTimer(bool on);
    void QueuePacket(const ble_message_t& record);
    bool IsHolding() const { return m_packetHolding; }
    int TimerDescriptor() const { return m_timer_fd; }

    // ---- statistics

    // Follows the depth of both queues; true when one is more than a third full and `tick` is a multiple of 3.
    bool TrackBleQStats(uint32_t tick);
    void ReportBleQStats() const;

  private:
    enum class WaitForRoom { kNo, kBounded };
    void LearnLongestResponse();
    bool AwaitRoom(int64_t deadlineMs) const;
    bool WriteRecord(const ble_message_t& record) const;
    SendResult WriteAgain(const ble_message_t& record, WaitForRoom wait) const;
    SendResult SendOrHold(const ble_message_t& record, WaitForRoom wait);

    QueueHandle m_bleRxMq;
    QueueHandle m_bleTxMq;
    uint16_t m_longestResponse = kMaxExtendedLength;
    FileDescriptor m_timer_fd;
    bool m_packetHolding = false;
    std::deque<ble_message_t> m_packetQueue;
    int64_t m_maxRxQueueDepth = 0;
    int64_t m_maxTxQueueDepth = 0;
};
