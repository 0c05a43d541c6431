// A phone or another device that speaks the BLE SDK protocol to the camera: cuts requests into packets, rebuilds the
// answers, and keeps the pushes that arrive in between. Throws the errors of errors.h. One thread at a time.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "packetAssembler.h"
#include "radioLink.h"

namespace google::protobuf {
class MessageLite;
}

namespace kzclient {

using Bytes = std::vector<uint8_t>;

// The result byte of an answer in words, for example "invalid parameter".
std::string describeResult(uint8_t result);
// Two hexadecimal digits a byte, separated by blanks.
std::string hex(std::span<const uint8_t> bytes);
// Of such digits, in either case; blanks and colons may stand between bytes. Throws WrongUse.
Bytes parseHex(std::string_view text);

struct Message {
    uint8_t streamId = 0;
    Bytes bytes;
};

// One entry of a value answer or push: an id and its value.
struct Entry {
    uint8_t id = 0;
    Bytes value;
};

struct QueryAnswer {
    std::vector<Entry> entries;
    bool partial = false;  // entries are missing that did not fit: ask for them again
};

class BleClient {
  public:
    BleClient(const std::string& socketPath, const RadioLink::Peer& peer, std::chrono::milliseconds timeout);

    uint32_t connectionId() const { return m_link.connectionId(); }
    RadioLink& link() { return m_link; }

    // Writes the four notification-enable descriptors.
    void enableNotifications();

    // Sends one message on a request stream, cut into packets.
    void send(uint8_t requestStream, std::span<const uint8_t> message);
    // Sends and waits for the answer on the matching response stream; pushes that come first are kept. Throws TimedOut.
    Bytes request(uint8_t requestStream, std::span<const uint8_t> message);

    // A plain command: `parameters` are length-prefixed. Returns the answer behind its id and result byte; throws
    // Refused.
    Bytes command(uint8_t commandId, const std::vector<Bytes>& parameters = {});
    // Command `commandId` whose success is silent (a file transfer): returns at once.
    void sendCommand(uint8_t commandId);
    // A setting's value; throws Refused.
    void set(uint8_t settingId, std::span<const uint8_t> value);
    // A plain query (category | type << 4); throws Refused when nothing could be answered.
    QueryAnswer query(uint8_t header, std::span<const uint8_t> ids);
    // A protobuf request. The answer message is parsed into `answer`; throws Refused when the camera does not know the
    // action.
    void protobuf(uint8_t requestStream, uint8_t featureId, uint8_t actionId,
                  const google::protobuf::MessageLite* payload, google::protobuf::MessageLite& answer);

    // The next packet of any stream, for transfers that are not messages.
    std::optional<Packet> receivePacket(std::chrono::steady_clock::time_point deadline);
    // The next whole message of any stream, the kept pushes first.
    std::optional<Message> receive(std::chrono::steady_clock::time_point deadline);
    // Drops the pushes that were kept: they are older than the last answer.
    void forgetPushes();
    // The next whole message; nothing when no packet came for `patience`. `report` is called after each packet with the
    // bytes of the message in progress on that stream: received and announced.
    std::optional<Message> receiveWithProgress(std::chrono::milliseconds patience,
                                               const std::function<void(std::pair<size_t, size_t>)>& report);

    std::chrono::milliseconds timeout() const { return m_timeout; }
    void setTimeout(std::chrono::milliseconds timeout) { m_timeout = timeout; }

    // Throws NoCamera when the daemon is gone or takes nothing more, without asking it for anything.
    void expectDaemon();
    // For who waited in vain: throws NoCamera when the daemon is gone or reads nothing, else TimedOut with this text.
    [[noreturn]] void failSilent(const std::string& what);

  private:
    std::optional<Message> assemble(const Packet& packet);

    RadioLink m_link;
    std::chrono::milliseconds m_timeout;
    std::map<uint8_t, PacketAssembler> m_assemblers;
    std::deque<Message> m_kept;
};

// Splits "id, length, value" entries; throws Error when the bytes do not come out even.
std::vector<Entry> parseEntries(std::span<const uint8_t> bytes);
uint64_t bigEndian(std::span<const uint8_t> bytes);

}  // namespace kzclient
