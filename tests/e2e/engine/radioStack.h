// The radio-stack daemon as the tests play it: sender of connection events and packets, receiver of packets.
#pragma once

#include <deque>
#include <optional>
#include <string>

#include "bytes.h"
#include "queue.h"
#include "skylark/bleMessage.h"

namespace e2e {

constexpr uint8_t kPhone = 11;   // device type of a phone app
constexpr uint8_t kSensor = 12;  // of a BLE sensor

class RadioStack {
  public:
    static constexpr long kDepth = 100;

    RadioStack(Queue toDaemon, Queue fromDaemon)
        : m_toDaemon(std::move(toDaemon)), m_fromDaemon(std::move(fromDaemon)) {}

    // ---- to the daemon; both wait for queue room
    void send(const ble_message_t& record);
    // Cuts the message into packets. A long one is paced, so that the daemon sheds none of it.
    void writeMessage(uint32_t connection, uint8_t stream, const Bytes& message);

    // ---- from the daemon; nothing when no record comes in time
    std::optional<ble_message_t> receive(std::chrono::milliseconds patience = kPatience);
    // The next record of this connection; those of others wait for their turn.
    std::optional<ble_message_t> receiveOf(uint32_t connection);

    long packetsWaiting() const { return m_fromDaemon.waiting(); }
    long recordsUnread() const { return m_toDaemon.waiting(); }
    // Takes places of the queue from the daemon, as other traffic would.
    void occupy(long places);
    // Throws away what waits in it.
    void drain();
    // The newest records of both directions, for the reader of a failing test.
    std::string transcript() const;

  private:
    void note(const char* direction, const ble_message_t& record);

    Queue m_toDaemon;
    Queue m_fromDaemon;
    std::deque<ble_message_t> m_ofOthers;
    std::string m_transcript;
};

// A record with these bytes behind the connection id and zeros behind them.
ble_message_t eventRecord(uint8_t type, uint32_t connection, const Bytes& rest = {});
ble_message_t dataRecord(uint32_t connection, uint8_t stream, const Bytes& packet);
ble_message_t connectionRecord(uint32_t connection, uint8_t deviceType, uint8_t lastAddressByte);
ble_message_t debugRecord(uint32_t command, uint32_t argument = 0);
// The packets of a message, as both sides cut it: the shortest header, full packets, continuations counted modulo 16.
std::vector<Bytes> cutIntoPackets(const Bytes& message);
// "type 2 connection 1 stream 4: 02 01 00"
std::string describe(const ble_message_t& record);

}  // namespace e2e
