// One device that the desk has connected to the camera: its radio link, a thread that reads it, and the log of all that
// passes. Any thread may call.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <thread>

#include "eventLog.h"
#include "interests.h"
#include "meaning.h"
#include "packetAssembler.h"
#include "protocolFile.h"
#include "radioLink.h"

namespace kzdesk {

class Device {
  public:
    static constexpr int kMostStreams = 8;
    static constexpr std::chrono::seconds kPatience{5};       // with a radio that takes nothing
    static constexpr size_t kLongestMessage = 18 + 399 * 19;  // bytes; what the camera puts together at most

    // Connects. Throws kzclient::Error: NoCamera when there is no radio or no daemon that reads. `protocol` and `names`
    // have to outlive the device.
    Device(unsigned number, const kzclient::RadioLink::Peer& peer, const ProtocolFile& protocol,
           const kzclient::Catalogue& names);
    // Disconnects, and waits for the reading thread.
    ~Device();
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;

    // Writes one packet of 1 to 20 bytes as it is. Throws ApiError: 404 when the connection is gone, 503 when the radio
    // takes nothing for kPatience, and then the device ends, or others wait to write already.
    void writePacket(uint8_t stream, std::span<const uint8_t> packet);
    // Cuts a message of 1 to kLongestMessage bytes into packets, writes them without any other between, and returns
    // their number. Throws as above.
    unsigned writeMessage(uint8_t stream, std::span<const uint8_t> message);
    void writeGate(uint8_t descriptor, uint8_t value);

    // Ends the connection and the log.
    void disconnect(const std::string& reason);
    bool ended() const { return m_ended; }

    unsigned number() const { return m_number; }
    uint32_t connection() const { return m_link.connectionId(); }
    const kzclient::Address& address() const { return m_peer.address; }
    uint8_t type() const { return m_peer.deviceType; }
    EventLog& events() { return *m_events; }
    // The same; it may outlive the device.
    std::shared_ptr<EventLog> log() const { return m_events; }
    // Of its open event streams; counted by who opens and closes them.
    std::atomic<int>& streams() { return m_streams; }
    // What /state says of it.
    nlohmann::ordered_json state() const;

  private:
    enum class Direction { kWrite, kNotify };

    // Holds the writing side of the connection.
    class Turn {
      public:
        explicit Turn(Device& device);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

      private:
        Device& m_device;
    };

    void send(uint8_t stream, std::span<const uint8_t> packet);
    template <typename Work>
    void onLink(Work work);
    void read();
    void lookForDaemon(bool asks);
    void askDaemon();
    void notePacket(Direction direction, uint8_t stream, std::span<const uint8_t> packet);
    void noteMessage(Direction direction, const Interface& interface, uint8_t stream, const kzclient::Bytes& message);

    const unsigned m_number;
    const kzclient::RadioLink::Peer m_peer;
    const ProtocolFile& m_protocol;
    const std::shared_ptr<EventLog> m_events;
    Meaning m_meaning;
    Interests m_interests;
    std::atomic<bool> m_ended = false;
    std::atomic<int> m_streams = 0;
    std::atomic<uint64_t> m_packetsIn = 0;   // notified by the camera
    std::atomic<uint64_t> m_packetsOut = 0;  // written to it

    std::mutex m_turnMutex;
    std::condition_variable m_turnEnded;
    bool m_writing = false;  // somebody has his turn: one message at a time
    mutable std::mutex m_gatesMutex;
    std::map<uint8_t, uint8_t> m_gates;  // last value by descriptor
    // By direction: the writing side's belong to who has his turn, the other ones to the reading thread.
    std::array<std::map<uint8_t, kzclient::PacketAssembler>, 2> m_assemblers;

    kzclient::RadioLink m_link;
    std::thread m_reader;
};

}  // namespace kzdesk
