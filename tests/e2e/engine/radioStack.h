// The radio-stack daemon as the tests play it: owner of the two radio queues, sender of connection events and packets,
// receiver of packets, which it checks and joins to messages.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <utility>

#include "bytes.h"
#include "queue.h"
#include "skylark/bleMessage.h"
#include "transcript.h"

namespace e2e {

constexpr uint8_t kPhone = 11;   // device type of a phone app
constexpr uint8_t kSensor = 12;  // of a BLE sensor

// A whole message from the daemon.
struct Message {
    uint32_t connection;
    uint8_t stream;
    Bytes bytes;
};

class RadioStack {
  public:
    static constexpr long kDepth = 100;

    // Creates both queues; the depth is that of the queue from the daemon.
    explicit RadioStack(long transmitDepth = kDepth);

    // ---- to the daemon; each waits for queue room
    void connect(uint32_t connection, uint8_t deviceType = kPhone, uint8_t lastAddressByte = 0);
    void disconnect(uint32_t connection);
    // A client wrote a notification-enable descriptor (5, 10, 15 or 20).
    void writeDescriptor(uint32_t connection, uint8_t descriptor, uint8_t value);
    void enableSensor(uint32_t connection);
    void writePacket(uint32_t connection, uint8_t stream, const Bytes& packet);
    // Cuts the message into packets: simple or extended start, continuations. A long one is paced, so that the daemon
    // sheds none of it.
    void writeMessage(uint32_t connection, uint8_t stream, const Bytes& message);
    void debug(uint32_t command, uint32_t argument = 0);
    void send(const ble_message_t& record);

    // ---- from the daemon; throw std::runtime_error when nothing comes in time, or when a packet breaks the format
    ble_message_t receive();
    // Receives packets until a message is whole; packets of other messages may come in between.
    Message receiveMessage();
    std::optional<ble_message_t> tryReceive(std::chrono::milliseconds patience);

    long packetsWaiting() const { return m_fromDaemon.waiting(); }
    long recordsUnread() const { return m_toDaemon.waiting(); }
    Queue& fromDaemon() { return m_fromDaemon; }
    const Transcript& transcript() const { return m_transcript; }

  private:
    struct Partial {
        size_t length = 0;
        Bytes bytes;
        unsigned continuations = 0;
    };

    // The whole message when this packet completes it.
    std::optional<Message> join(const ble_message_t& record);

    Queue m_toDaemon;
    Queue m_fromDaemon;
    Transcript m_transcript;
    std::map<std::pair<uint32_t, uint8_t>, Partial> m_partial;
};

// The packets of a message as a client sends them.
std::vector<Bytes> cutIntoPackets(const Bytes& message);
// A record with everything zero but what is named.
ble_message_t dataRecord(uint32_t connection, uint8_t stream, const Bytes& packet);

}  // namespace e2e
