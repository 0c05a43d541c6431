#include "soakClient.h"

#include <thread>

#include "skylark/bleMessage.h"

namespace soak {
namespace {

constexpr std::chrono::seconds kPatience{15};       // after that an answer is lost
constexpr std::chrono::seconds kDue{1};             // after that it is late
constexpr std::chrono::milliseconds kReturn{2000};  // the clients that lost their connection come back one by one: the
                                                    // daemon drops packets when very many wait
constexpr std::chrono::milliseconds kRestingLook{50};
constexpr uint64_t kPauses = 100;       // first of the sequences for them
constexpr uint8_t kResponseOffset = 2;  // from a request stream to its response stream
constexpr std::chrono::milliseconds kWelcome{15000};

// Protobuf answers repeat the action with its answer bit; a refusal has the first byte and a code alone.
bool answers(const Bytes& bytes, const Bytes& message) {
    constexpr uint8_t kFirstProtobuf = 0xf0;
    constexpr uint8_t kAnswerBit = 0x80;
    if (bytes.size() < 2 || bytes[0] != message[0]) {
        return false;
    }
    return message[0] < kFirstProtobuf || bytes.size() == 2 || bytes[1] == (message[1] | kAnswerBit);
}

kzclient::Address addressOf(size_t index) {
    return {0xc0, 0x50, 0xa4, 0, 0, static_cast<uint8_t>(index + 1)};
}

}  // namespace

Client::Client(World& world, size_t index, kzclient::RadioLink::Peer peer)
    : m_world(world),
      m_index(index),
      m_peer(peer),
      m_random(world.random(index)),
      m_pauses(world.random(kPauses + index)) {}

void Client::run() {
    while (!m_world.stage.over()) {
        const auto began = Clock::now();
        try {
            step();
        } catch (const NoAnswer&) {
            disconnect();
        } catch (const kzclient::Error& error) {
            if (!m_world.weather.disturbed(kRadio, began) && !m_world.stage.over()) {
                m_world.tally.lost(name() + ": " + error.what());
            }
            disconnect();
            std::this_thread::sleep_for(kReturn * below(m_pauses, 100) / 100);
        }
    }
    disconnect();
}

void Client::step() {
    if (!connected()) {
        connect();
        begin();
    }
    if (m_world.stage.scene() == Stage::Scene::Working) {
        m_rests = false;
        work();
        return;
    }
    if (m_world.stage.scene() == Stage::Scene::Resting && !m_rests) {
        m_rests = true;
        m_world.stage.rests();
    }
    if (connected()) {
        takeWhatComes(kRestingLook);
    }
}

void Client::connect(uint8_t deviceType, bool cameraIsCentral) {
    disconnect();
    ++m_world.tally.connections;
    const kzclient::RadioLink::Peer peer{addressOf(m_index), deviceType, cameraIsCentral};
    m_link = std::make_unique<kzclient::BleClient>("", peer, kWelcome);
}

void Client::disconnect() {
    if (connected()) {
        ended();
        m_link.reset();
    }
}

Bytes Client::ask(uint8_t stream, const Bytes& message, const Take& other) {
    const auto asked = Clock::now();
    m_link->send(stream, message);
    while (auto received = m_link->receive(asked + kPatience)) {
        if (received->streamId == stream + kResponseOffset && answers(received->bytes, message)) {
            noteTime(asked);
            return std::move(received->bytes);
        }
        other(*received);
    }
    ++m_world.tally.requests;
    m_world.tally.lost(name() + ": no answer to " + kzclient::hex(message));
    throw NoAnswer("no answer");
}

void Client::noteTime(Clock::time_point asked) {
    ++m_world.tally.requests;
    if (Clock::now() > asked + kDue && !m_world.weather.disturbed(kEveryPart, asked)) {
        ++m_world.tally.late;
    }
}

}  // namespace soak
