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
constexpr long kRadioDepth = 100;

class RadioStack {
  public:
    explicit RadioStack(long transmitDepth)
        : toDaemon(Queue::create(kMqToBleSdk, kRadioDepth, kBleRecordSize)),
          fromDaemon(Queue::create(kMqToSkylark, transmitDepth, kBleRecordSize)) {}

    void send(const ble_message_t& record);  // waits for queue room
    // Cuts the message into packets. A long one is paced, so that the daemon sheds none of it.
    void writeMessage(uint32_t connection, uint8_t stream, const Bytes& message);
    // The next record from the daemon; nothing when none comes in time.
    std::optional<ble_message_t> receive(std::chrono::milliseconds patience = kPatience);
    // The next of this connection; those of others wait for their turn.
    std::optional<ble_message_t> receiveOf(uint32_t connection);
    // The newest records of both directions, for the reader of a failing test.
    std::string transcript() const;

    Queue toDaemon;
    Queue fromDaemon;

  private:
    std::deque<ble_message_t> m_ofOthers;
    std::string m_transcript;
};

// A record with these bytes behind the connection id and zeros behind them.
ble_message_t eventRecord(uint8_t type, uint32_t connection, const Bytes& rest = {});
ble_message_t dataRecord(uint32_t connection, uint8_t stream, const Bytes& packet);
ble_message_t debugRecord(uint32_t command, uint32_t argument = 0);
// The packets of a message, as both sides cut it: the shortest header, full packets, continuations counted modulo 16.
std::vector<Bytes> cutIntoPackets(const Bytes& message);
// "type 2 connection 1 stream 4: 02 01 00"
std::string describe(const ble_message_t& record);

}  // namespace e2e
