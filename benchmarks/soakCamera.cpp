#include "soakCamera.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "simulator/consoleWire.h"
#include "skylark/radioWire.h"

namespace soak {
namespace {

constexpr size_t kKeptLines = 30;
constexpr int kStartSeconds = 15;
constexpr const char* kDaemonQueue = "/dev/mqueue/to_kzBleD";  // clients look for it
constexpr std::chrono::milliseconds kLook{20};

// One record to the console and the one that it answers with: a byte that is the outcome, then JSON.
std::string askConsole(const std::string& request) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, kzsim::kConsoleEndpoint.address(), sizeof(address.sun_path) - 1);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    std::string answer(kzsim::kConsoleRecordLimit, '\0');
    ssize_t length = -1;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 &&
        send(fd, request.data(), request.size(), MSG_NOSIGNAL) >= 0) {
        length = recv(fd, answer.data(), answer.size(), 0);
    }
    close(fd);
    if (length <= 0) {
        throw std::runtime_error("the simulator does not answer");
    }
    answer.resize(static_cast<size_t>(length));
    return answer;
}

void await(const char* path, Process& maker) {
    for (int look = 0; !std::filesystem::exists(path); ++look) {
        if (!maker.running() || look * kLook > std::chrono::seconds(kStartSeconds)) {
            throw std::runtime_error(std::string("nobody makes ") + path);
        }
        std::this_thread::sleep_for(kLook);
    }
}

}  // namespace

// ---------------------------------------------------------------- a child process

void Process::start(const std::vector<std::string>& command, int output) {
    std::vector<char*> arguments;
    for (const std::string& word : command) {
        arguments.push_back(const_cast<char*>(word.c_str()));
    }
    arguments.push_back(nullptr);
    m_id = fork();
    if (m_id == 0) {
        if (output >= 0) {
            dup2(output, STDOUT_FILENO);
            dup2(output, STDERR_FILENO);
        }
        execv(arguments[0], arguments.data());
        _exit(127);
    }
}

Process::~Process() {
    if (running()) {
        kill(m_id, SIGKILL);
        wait(kStartSeconds);
    }
}

bool Process::running() {
    if (m_id > 0 && waitpid(m_id, &m_status, WNOHANG) == m_id) {
        m_id = -1;
    }
    return m_id > 0;
}

int Process::wait(int seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (running()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return -1;
        }
        std::this_thread::sleep_for(kLook);
    }
    return WIFEXITED(m_status) ? WEXITSTATUS(m_status) : 128 + WTERMSIG(m_status);
}

// ---------------------------------------------------------------- camera and daemon

Camera::Camera(const std::string& logFile) : m_logFile(logFile) {
    m_simulator.start({KZ_SIMULATOR}, STDERR_FILENO);
    await(kzradio::kRadioEndpoint.address(), m_simulator);
    await(kzsim::kConsoleEndpoint.address(), m_simulator);
    int log[2];
    if (pipe2(log, O_CLOEXEC) != 0) {
        throw std::runtime_error("no pipe for the daemon's log");
    }
    m_daemon.start({KZ_DAEMON}, log[1]);
    close(log[1]);
    await(kDaemonQueue, m_daemon);
    m_logReader = std::thread([this, descriptor = log[0]] { readLog(descriptor); });
}

Camera::~Camera() {
    if (m_daemon.running()) {
        kill(m_daemon.id(), SIGKILL);
    }
    m_logReader.join();
}

std::string Camera::command(const std::vector<std::string>& words) const {
    std::string request;
    for (const std::string& word : words) {
        request += word + '\0';
    }
    const std::string answer = askConsole(request);
    const auto outcome = static_cast<kzsim::Outcome>(answer[0]);
    if (outcome != kzsim::Outcome::Done && outcome != kzsim::Outcome::Refused) {
        throw std::runtime_error("the simulator did not " + words[0] + ": " + answer.substr(1));
    }
    return answer.substr(1);
}

Footprint Camera::footprint() const {
    const std::filesystem::path process = "/proc/" + std::to_string(m_daemon.id());
    Footprint found;
    std::ifstream status(process / "status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            status >> found.residentKb;
        }
    }
    const std::filesystem::directory_iterator descriptors(process / "fd");
    found.descriptors = std::distance(begin(descriptors), end(descriptors));
    return found;
}

int Camera::stopDaemon() {
    command({"shutdown-daemon"});
    return m_daemon.wait(kStartSeconds);
}

std::string Camera::lastLogLines() const {
    const std::lock_guard lock(m_mutex);
    std::string text;
    for (const std::string& line : m_lastLines) {
        text += line + '\n';
    }
    return text;
}

void Camera::note(const std::string& line) {
    const std::lock_guard lock(m_mutex);
    m_logFile << line << '\n';
}

// Until the daemon closes the other end.
void Camera::readLog(int descriptor) {
    std::string line;
    char buffer[65536];
    for (ssize_t got = 0; (got = read(descriptor, buffer, sizeof(buffer))) > 0;) {
        const std::lock_guard lock(m_mutex);
        for (const char character : std::string_view(buffer, static_cast<size_t>(got))) {
            if (character != '\n') {
                line += character;
                continue;
            }
            ++m_logLines;
            m_logFile << line << '\n';
            m_lastLines.push_back(std::exchange(line, {}));
            if (m_lastLines.size() > kKeptLines) {
                m_lastLines.pop_front();
            }
        }
    }
    close(descriptor);
}

}  // namespace soak
