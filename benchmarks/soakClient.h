// One client of a soak, in a thread of its own: connected again and again, working while the stage says so.
#pragma once

#include <memory>

#include "soakWorld.h"

namespace soak {

class NoAnswer : public kzclient::Error {
  public:
    using Error::Error;
};

class Client {
  public:
    Client(World& world, size_t index, kzclient::RadioLink::Peer peer);
    virtual ~Client() = default;

    // Until the soak is over.
    void run();

  protected:
    // Begins a connection that was just made.
    virtual void begin() = 0;
    // Does one piece of work.
    virtual void work() = 0;
    // Takes what comes for that time.
    virtual void takeWhatComes(std::chrono::milliseconds duration) = 0;
    // The connection is gone.
    virtual void ended() = 0;

    World& world() { return m_world; }
    Random& random() { return m_random; }
    size_t index() const { return m_index; }
    kzclient::BleClient& link() { return *m_link; }
    std::string name() const { return "client " + std::to_string(m_index); }

    // Leaves and comes back as this device. Throws kzclient::Error when no radio takes it.
    void connect(uint8_t deviceType, bool cameraIsCentral);
    void connect() { connect(m_peer.deviceType, m_peer.cameraIsCentral); }
    void disconnect();
    bool connected() const { return m_link != nullptr; }
    // Waits for the answer, and hands everything else to `other`. Throws NoAnswer, after a finding, when none came, so
    // that the client begins anew: an answer that comes later would belong to another request.
    using Take = std::function<void(const kzclient::Message&)>;
    Bytes ask(uint8_t stream, const Bytes& message, const Take& other);

  private:
    void step();
    void noteTime(Clock::time_point asked);

    World& m_world;
    const size_t m_index;
    const kzclient::RadioLink::Peer m_peer;
    Random m_random;
    Random m_pauses;  // apart, so that a lost connection does not change what is asked for afterwards
    std::unique_ptr<kzclient::BleClient> m_link;
    bool m_rests = false;
};

std::unique_ptr<Client> makePhone(World& world, size_t index);
std::unique_ptr<Client> makeSensor(World& world, size_t index);
// An accessory that has its firmware sent as one stream or block by block.
enum class Way { Stream, Blocks };
std::unique_ptr<Client> makeAccessory(World& world, size_t index, Way way);

}  // namespace soak
