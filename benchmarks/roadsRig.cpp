#include "roadsRig.h"

#include <dirent.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>
#include <utility>

namespace roads {
namespace {

using e2e::Bytes;
using e2e::Queue;

constexpr const char* kEventQueue = "/to_kzBleD";
constexpr const char* kCsiQueue = "/to_blesdk";
constexpr const char* kNetworkQueue = "/to_kznet";
constexpr uint8_t kGates[] = {KZ_STR_ID_COMMAND_CCC, KZ_STR_ID_SETTINGS_CCC, KZ_STR_ID_QUERY_CCC, KZ_STR_ID_SENSOR_CCC};
constexpr uint8_t kModelNumber = 58;
constexpr std::chrono::milliseconds kExitPoll{300};
constexpr int kStartAttempts = 100;

void Check(bool done, const std::string& what) {
    if (!done) {
        throw std::runtime_error(what + ": " + std::strerror(errno));
    }
}

// The number behind "name:" in a file of /proc.
long ReadNumber(const std::string& path, const std::string& name) {
    std::ifstream file(path);
    std::string word;
    while (file >> word) {
        long value = 0;
        if (word == name + ':' && file >> value) {
            return value;
        }
    }
    return 0;
}

void Pin(pid_t thread, const cpu_set_t& cpus) {
    Check(sched_setaffinity(thread, sizeof(cpus), &cpus) == 0, "sched_setaffinity");
}

cpu_set_t AllCpus() {
    static const cpu_set_t all = [] {
        cpu_set_t cpus;
        Check(sched_getaffinity(0, sizeof(cpus), &cpus) == 0, "sched_getaffinity");
        return cpus;
    }();
    return all;
}

cpu_set_t OneCpu(int cpu) {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(static_cast<size_t>(cpu), &cpus);
    return cpus;
}

sockaddr_un AddressOf(const kzwire::Endpoint& endpoint) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, endpoint.path, sizeof(address.sun_path) - 1);
    return address;
}

void ServeConnection(int connection) {
    unsigned char request[sizeof(kzwire::RequestHeader) + kzwire::kMaxPayload];
    unsigned char reply[sizeof(kzwire::ReplyHeader) + 1];
    while (recv(connection, request, sizeof(request), 0) >= static_cast<ssize_t>(sizeof(kzwire::RequestHeader))) {
        kzwire::RequestHeader header;
        std::memcpy(&header, request, sizeof(header));
        const kzwire::ReplyHeader done{header.sequence, 0};
        std::memcpy(reply, &done, sizeof(done));
        reply[sizeof(done)] = kModelNumber;
        // One byte for a question: the model's number, or that the option exists.
        const bool asks = header.operation == kzwire::Operation::ControlModelNumber ||
                          header.operation == kzwire::Operation::ControlOptionExists;
        send(connection, reply, sizeof(done) + (asks ? 1 : 0), MSG_NOSIGNAL);
    }
    close(connection);
}

int Listen(const kzwire::Endpoint& endpoint) {
    std::filesystem::create_directories(std::filesystem::path(endpoint.path).parent_path());
    const int listener = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    const sockaddr_un address = AddressOf(endpoint);
    unlink(address.sun_path);
    Check(bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0, "bind");
    Check(listen(listener, 8) == 0, "listen");
    return listener;
}

}  // namespace

// ---------------------------------------------------------------- processes

Process Process::Fork(const std::function<void()>& body) {
    const pid_t pid = fork();
    Check(pid >= 0, "fork");
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        _exit(0);
    }
    return Process(pid);
}

Process Process::Spawn(std::vector<std::string> command) {
    std::vector<char*> arguments;
    for (std::string& argument : command) {
        arguments.push_back(argument.data());
    }
    arguments.push_back(nullptr);
    const pid_t pid = vfork();
    Check(pid >= 0, "vfork");
    if (pid == 0) {
        const int sink = open("/dev/null", O_WRONLY);
        dup2(sink, STDOUT_FILENO);
        dup2(sink, STDERR_FILENO);
        execvp(arguments[0], arguments.data());
        _exit(127);
    }
    return Process(pid);
}

Process::Process(Process&& other) noexcept : m_pid(std::exchange(other.m_pid, -1)) {}

Process::~Process() {
    if (m_pid > 0) {
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
    }
}

void Process::Wait() {
    waitpid(std::exchange(m_pid, -1), nullptr, 0);
}

bool Process::IsRunning() const {
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

void Process::Stop() {
    kill(m_pid, SIGSTOP);
    waitpid(m_pid, nullptr, WUNTRACED);
}

void Process::Continue() {
    kill(m_pid, SIGCONT);
}

std::chrono::nanoseconds Process::CpuTime() const {
    clockid_t clock = 0;
    timespec time = {};
    Check(clock_getcpuclockid(m_pid, &clock) == 0 && clock_gettime(clock, &time) == 0, "processor time");
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::vector<pid_t> Process::Threads() const {
    std::vector<pid_t> threads;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(m_pid) + "/task")) {
        threads.push_back(std::stoi(entry.path().filename().string()));
    }
    return threads;
}

long Process::Sleeps() const {
    long sleeps = 0;
    for (const pid_t thread : Threads()) {
        sleeps += ReadNumber("/proc/" + std::to_string(thread) + "/status", "voluntary_ctxt_switches");
    }
    return sleeps;
}

double Process::PrivateMegabytes() const {
    const std::string path = "/proc/" + std::to_string(m_pid) + "/smaps_rollup";
    return static_cast<double>(ReadNumber(path, "Private_Clean") + ReadNumber(path, "Private_Dirty")) / 1024;
}

void Process::PinTo(int cpu) {
    for (const pid_t thread : Threads()) {
        Pin(thread, OneCpu(cpu));
    }
}

int FirstCpu() {
    const cpu_set_t cpus = AllCpus();
    int cpu = 0;
    while (!CPU_ISSET(static_cast<size_t>(cpu), &cpus)) {
        ++cpu;
    }
    return cpu;
}

void PinSelfTo(int cpu) {
    AllCpus();
    Pin(0, OneCpu(cpu));
}

void UnpinSelf() {
    Pin(0, AllCpus());
}

// ---------------------------------------------------------------- the camera

Process StartCamera() {
    return StartServices({kzwire::kControlEndpoint, kzwire::kCsiEndpoint, kzwire::kIpcEndpoint});
}

Process StartServices(const std::vector<kzwire::Endpoint>& endpoints) {
    std::vector<int> listeners;
    std::transform(endpoints.begin(), endpoints.end(), std::back_inserter(listeners), Listen);
    Process services = Process::Fork([&] {
        for (const int listener : listeners) {
            std::thread([listener] {
                for (;;) {
                    std::thread(ServeConnection, accept(listener, nullptr, nullptr)).detach();
                }
            }).detach();
        }
        pause();
    });
    std::for_each(listeners.begin(), listeners.end(), close);
    return services;
}

CameraConnection::CameraConnection() : m_socket(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
    const sockaddr_un address = AddressOf(kzwire::kCsiEndpoint);
    Check(connect(m_socket, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0, "connect");
}

CameraConnection::~CameraConnection() {
    close(m_socket);
}

void CameraConnection::RoundTrip() const {
    unsigned char request[sizeof(kzwire::RequestHeader) + 1] = {};
    unsigned char reply[64];
    send(m_socket, request, sizeof(request), MSG_NOSIGNAL);
    recv(m_socket, reply, sizeof(reply), 0);
}

// ---------------------------------------------------------------- the daemon

Rig::Rig(long toDaemonDepth, long fromDaemonDepth)
    : toDaemon(Queue::create(kMqToBleSdk, toDaemonDepth, kBleRecordSize)),
      fromDaemon(Queue::create(kMqToSkylark, fromDaemonDepth, kBleRecordSize)),
      m_network(Queue::create(kNetworkQueue, 10, kEventSize)) {}

Rig::~Rig() {
    KillDaemon();
}

void Rig::StartDaemon(const std::vector<std::string>& runner) {
    std::vector<std::string> command = runner;
    command.emplace_back(KZ_DAEMON);
    for (int attempt = 0; attempt < kStartAttempts; ++attempt) {
        KillDaemon();
        m_daemon.emplace(Process::Spawn(command));
        // The subscription is the last thing before the loop.
        while (m_daemon->IsRunning()) {
            if (m_network.receive(kExitPoll)) {
                return;
            }
        }
        std::this_thread::sleep_for(kExitPoll);  // other worlds hold the room for its queues
    }
    throw std::runtime_error("the daemon does not come up");
}

void Rig::KillDaemon() {
    if (m_daemon) {
        m_daemon.reset();
        mq_unlink(kEventQueue);
        mq_unlink(kCsiQueue);
    }
}

void Rig::ShutDownDaemon() {
    Debug(KZBLE_DEBUG_SHUTDOWN, 0);
    m_daemon->Wait();
    m_daemon.reset();
}

void Rig::SetLogLevel(uint32_t level) {
    Debug(KZBLE_SET_LOG_LEVEL, level);
}

void Rig::Debug(uint32_t command, uint32_t argument) {
    ble_message_t record = {};
    record.eventType = KZBLE_SDK_EVENT_Debug;
    auto* raw = reinterpret_cast<uint8_t*>(&record);
    std::memcpy(raw + kDebugCommandOffset, &command, sizeof(command));
    std::memcpy(raw + kDebugArgumentOffset, &argument, sizeof(argument));
    Send(record);
}

void Rig::Connect(uint32_t connection, bool openGates) {
    ble_message_t record = {};
    record.eventType = KZBLE_SDK_EVENT_Conn;
    record.connectionId = connection;
    auto* raw = reinterpret_cast<uint8_t*>(&record);
    raw[kConnAddressOffset] = 0xC0;
    raw[kConnAddressOffset + kBleAddressSize - 1] = static_cast<uint8_t>(connection);
    raw[kConnDeviceTypeOffset] = KZ_CALLER_BLE_RC;
    Send(record);
    for (const uint8_t gate : kGates) {
        ble_message_t enable = {};
        enable.eventType = KZBLE_SDK_EVENT_CCC;
        enable.connectionId = connection;
        enable.streamId = gate;
        enable.dataLength = openGates ? 1 : 0;
        Send(enable);
    }
}

void Rig::Send(uint32_t connection, uint8_t stream, const Bytes& packet) {
    Send(PacketFor(connection, stream, packet));
}

ble_message_t Rig::Receive() {
    const std::optional<Bytes> bytes = fromDaemon.receive();
    if (!bytes || bytes->size() != sizeof(ble_message_t)) {
        throw std::runtime_error("the daemon sent no packet");
    }
    ble_message_t record;
    std::memcpy(&record, bytes->data(), sizeof(record));
    return record;
}

void Rig::Settle() {
    e2e::waitUntil([this] { return toDaemon.waiting() == 0; });
    std::this_thread::sleep_for(std::chrono::milliseconds(30));  // the last one may still be in hand
    Drain();
}

void Rig::Drain() {
    while (fromDaemon.waiting() > 0) {
        fromDaemon.receive();
    }
}

ble_message_t PacketFor(uint32_t connection, uint8_t stream, const Bytes& packet) {
    ble_message_t record = NewDataRecord(connection, stream);
    record.dataLength = static_cast<uint8_t>(packet.size());
    std::copy(packet.begin(), packet.end(), record.data);
    return record;
}

std::string WriteCatalogue(const std::string& arguments) {
    const std::string path = std::string(kCatalogueDirectory) + "/settings.json";
    std::filesystem::create_directories(kCatalogueDirectory);
    const std::string command = std::string(KZ_SCRIPTS) + "/make-large-catalogue " + path + ' ' + arguments;
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
    return path;
}

}  // namespace roads
