// What the road benchmark plays around the daemon, and the bare processes it is compared with. Runs as process 1 of a
// private world. Failures throw std::runtime_error.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "cameraWire.h"
#include "engine/queue.h"
#include "skylark/bleMessage.h"

namespace roads {

constexpr const char* kCatalogueDirectory = "/usr/local/zorvik/etc/58";
constexpr long kEventSize = 1500;  // bytes of a message between daemons

// A child process, ended with its object.
class Process {
  public:
    // A copy of this process that runs `body`.
    static Process Fork(const std::function<void()>& body);
    // A program with its arguments, found on the path, with the output thrown away.
    static Process Spawn(std::vector<std::string> command);
    Process(Process&& other) noexcept;
    Process& operator=(Process&& other) = delete;
    ~Process();

    pid_t Pid() const { return m_pid; }
    bool IsRunning() const;
    void Wait();  // until it ends by itself
    void Stop();  // all its threads, until Continue
    void Continue();
    std::chrono::nanoseconds CpuTime() const;  // of all its threads
    std::vector<pid_t> Threads() const;
    long Sleeps() const;              // how often its threads went to sleep so far
    double PrivateMegabytes() const;  // memory that no other process shares
    void PinTo(int cpu);

  private:
    explicit Process(pid_t pid) : m_pid(pid) {}
    pid_t m_pid;
};

int FirstCpu();
void PinSelfTo(int cpu);
void UnpinSelf();

// The camera behind the client libraries: every request succeeds, with an empty reply. Each connection has a thread of
// its own that receives and sends.
Process StartCamera();
// Some of its services, in place of those that listened there before.
Process StartServices(const std::vector<kzwire::Endpoint>& endpoints);
// A connection to it, to be used bare: one request and its reply a call.
class CameraConnection {
  public:
    CameraConnection();
    ~CameraConnection();
    CameraConnection(const CameraConnection&) = delete;
    CameraConnection& operator=(const CameraConnection&) = delete;
    void RoundTrip() const;

  private:
    int m_socket;
};

// The daemon with its queues, on the given depths of the radio queues.
class Rig {
  public:
    explicit Rig(long toDaemonDepth = 100, long fromDaemonDepth = 100);
    ~Rig();

    // Starts the daemon, as the last argument of `runner` when there is one, and waits until it serves, again while
    // other worlds hold the room for its queues. Restarting it kills it first.
    void StartDaemon(const std::vector<std::string>& runner = {});
    void KillDaemon();
    // Ends the daemon orderly and waits until it is gone.
    void ShutDownDaemon();
    Process& Daemon() { return *m_daemon; }
    void SetLogLevel(uint32_t level);
    // Connects a phone and opens its gates; with answers thrown away when they stay closed.
    void Connect(uint32_t connection, bool openGates = true);

    void Send(const ble_message_t& record) { toDaemon.send(&record, sizeof(record)); }
    void Send(uint32_t connection, uint8_t stream, const e2e::Bytes& packet);
    ble_message_t Receive();
    // Waits until everything sent was handled, then throws away what came.
    void Settle();
    void Drain();

    e2e::Queue toDaemon;
    e2e::Queue fromDaemon;

  private:
    void Debug(uint32_t command, uint32_t argument);

    e2e::Queue m_network;
    std::optional<Process> m_daemon;
};

ble_message_t PacketFor(uint32_t connection, uint8_t stream, const e2e::Bytes& packet);

// Writes the measured catalogue and its compressed copy where the daemon looks for them; returns its path.
std::string WriteCatalogue(const std::string& arguments);

}  // namespace roads
