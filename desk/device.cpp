#include "device.h"

#include <poll.h>

#include <cstdio>

#include "apiError.h"
#include "bleClient.h"
#include "messageCutter.h"
#include "skylark/bleMessage.h"

namespace kzdesk {
namespace {

using Json = nlohmann::ordered_json;
using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kReadTurn{500};  // how often a quiet device looks for the daemon
constexpr int kLooksPerQuestion = 4;  // and how often it gets something to read: one that was killed leaves its queues
constexpr std::chrono::seconds kReadingPatience{2};  // with a daemon that reads nothing of what waits for it

}  // namespace

Device::Device(unsigned number, const kzclient::RadioLink::Peer& peer, const ProtocolFile& protocol,
               const kzclient::Catalogue& names)
    : m_number(number),
      m_peer(peer),
      m_protocol(protocol),
      m_events(std::make_shared<EventLog>(number)),
      m_meaning(names),
      m_link("", peer) {
    m_link.setSendPatience(kPatience);
    m_link.daemon().expectReading(kReadingPatience);  // the connection first of all
    m_reader = std::thread([this] { read(); });
}

Device::~Device() {
    disconnect("deleted");
    m_reader.join();
}

void Device::disconnect(const std::string& reason) {
    m_ended = true;
    m_events->end(reason);
    m_link.disconnect();
}

// ---------------------------------------------------------------- writing

// The radio stops reading a device whose packets the daemon does not take. Then one writer waits for it, and the others
// must not all wait behind that one.
Device::Turn::Turn(Device& device) : m_device(device) {
    std::unique_lock lock(device.m_turnMutex);
    if (!device.m_turnEnded.wait_for(lock, kPatience, [&] { return !device.m_writing; })) {
        throw ApiError(503, "busy", "the camera does not take what was written before");
    }
    device.m_writing = true;
}

Device::Turn::~Turn() {
    {
        const std::lock_guard lock(m_device.m_turnMutex);
        m_device.m_writing = false;
    }
    m_device.m_turnEnded.notify_one();
}

// The log comes first: an answer must not stand before its request.
void Device::send(uint8_t stream, std::span<const uint8_t> packet) {
    if (m_ended) {
        throw ApiError(404, "no-such-device", "device " + std::to_string(m_number) + " is disconnected");
    }
    notePacket(Direction::kWrite, stream, packet);
    onLink([&] { m_link.send(stream, packet); });
    ++m_packetsOut;
}

// What the radio has not taken in time may be the middle of a message, and stands in the log already: the device ends.
template <typename Work>
void Device::onLink(Work work) {
    try {
        work();
    } catch (const kzclient::TimedOut& error) {
        disconnect("the camera takes nothing");
        throw ApiError(503, "busy", error.what());
    } catch (const kzclient::Error& error) {
        throw ApiError(404, "no-such-device", error.what());
    }
}

void Device::writePacket(uint8_t stream, std::span<const uint8_t> packet) {
    const Turn turn(*this);
    send(stream, packet);
}

unsigned Device::writeMessage(uint8_t stream, std::span<const uint8_t> message) {
    const Turn turn(*this);
    unsigned packets = 0;
    for (MessageCutter cutter(static_cast<unsigned>(message.size())); cutter.HasNext(); ++packets) {
        std::array<uint8_t, kBlePacketSize> packet{};
        const unsigned size = cutter.WriteNext(message.data(), packet.data());
        send(stream, {packet.data(), size});
    }
    return packets;
}

void Device::writeGate(uint8_t descriptor, uint8_t value) {
    const Turn turn(*this);
    {
        const std::lock_guard lock(m_gatesMutex);
        m_gates[descriptor] = value;
    }
    m_events->add("gate", {{"descriptor", descriptor}, {"value", value}});
    onLink([&] { m_link.writeDescriptor(descriptor, value); });
}

// ---------------------------------------------------------------- reading

void Device::read() {
    int looks = 0;
    try {
        while (!m_ended) {
            if (const auto packet = m_link.receive(steady_clock::now() + kReadTurn)) {
                ++m_packetsIn;
                notePacket(Direction::kNotify, packet->streamId, packet->bytes);
            } else {
                lookForDaemon(++looks % kLooksPerQuestion == 0);
            }
        }
    } catch (const kzclient::Error&) {
        disconnect("disconnected");
    }
}

// The radio keeps a connection whose daemon has gone: the next one knows nothing of it.
void Device::lookForDaemon(bool asks) {
    try {
        m_link.daemon().expectSame();
        if (asks) {
            askDaemon();
        }
        m_link.daemon().expectReading(kReadingPatience);
    } catch (const kzclient::Error& error) {
        disconnect(error.what());
    }
}

// Writes a gate as it is, which changes nothing; to a sensor, whose gates the camera opens, it would be news. Not
// beside a writer, and not to a radio that takes nothing: that is for the next writer to find out.
void Device::askDaemon() {
    const std::lock_guard turn(m_turnMutex);
    pollfd radio{m_link.descriptor(), POLLOUT, 0};
    if (m_peer.cameraIsCentral || m_writing || poll(&radio, 1, 0) != 1 || radio.revents != POLLOUT) {
        return;
    }
    uint8_t value = 0;
    {
        const std::lock_guard lock(m_gatesMutex);
        const auto known = m_gates.find(KZ_STR_ID_QUERY_CCC);
        value = known != m_gates.end() ? known->second : value;
    }
    m_link.writeDescriptor(KZ_STR_ID_QUERY_CCC, value);
}

void Device::notePacket(Direction direction, uint8_t stream, std::span<const uint8_t> packet) {
    m_events->add("packet", {{"direction", direction == Direction::kWrite ? "write" : "notify"},
                             {"stream", stream},
                             {"bytes", kzclient::hex(packet)}});
    const Interface* const interface = m_protocol.interfaceOf(stream);
    if (interface == nullptr) {
        return;
    }
    const auto result = m_assemblers[direction == Direction::kWrite ? 0 : 1][stream].add(packet);
    if (result.message) {
        noteMessage(direction, *interface, stream, *result.message);
    }
}

void Device::noteMessage(Direction direction, const Interface& interface, uint8_t stream,
                         const kzclient::Bytes& message) {
    const bool isWrite = direction == Direction::kWrite;
    isWrite ? m_interests.noteRequest(interface, message) : m_interests.noteAnswer(interface, message);
    m_events->add("message", {{"direction", isWrite ? "write" : "notify"},
                              {"stream", stream},
                              {"interface", interface.name},
                              {"bytes", kzclient::hex(message)},
                              {"meaning", isWrite ? m_meaning.ofRequest(interface, message)
                                                  : m_meaning.ofNotification(interface, message)}});
}

Json Device::state() const {
    Json gates = Json::object();
    {
        const std::lock_guard lock(m_gatesMutex);
        for (const auto& [descriptor, value] : m_gates) {
            gates[std::to_string(descriptor)] = value;
        }
    }
    return {{"device", m_number},
            {"connection", connection()},
            {"address", kzclient::addressText(address())},
            {"type", type()},
            {"typeName", m_protocol.deviceTypeName(type())},
            {"central", m_peer.cameraIsCentral},
            {"gates", gates},
            {"interests", m_interests.state()},
            {"packetsIn", m_packetsIn.load()},
            {"packetsOut", m_packetsOut.load()}};
}

}  // namespace kzdesk
