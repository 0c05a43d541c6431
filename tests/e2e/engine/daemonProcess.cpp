#include "daemonProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace e2e {
namespace {

int s_instances = 0;

// Between fork and exec: nothing here may allocate.
[[noreturn]] void runDaemon(const char* binary, int log, char* const* environment) {
    dup2(log, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
    char* const argv[] = {const_cast<char*>(binary), nullptr};
    execve(binary, argv, environment);
    _exit(127);
}

std::vector<std::string> makeEnvironment(const std::map<std::string, std::string>& extra) {
    std::vector<std::string> entries;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        if (!extra.contains(std::string(text.substr(0, text.find('='))))) {
            entries.emplace_back(text);
        }
    }
    for (const auto& [name, value] : extra) {
        entries.push_back(name + "=" + value);
    }
    return entries;
}

// The one process that runs the binary and is a child of ours by now.
pid_t findChild(const std::string& binary) {
    std::ifstream children("/proc/self/task/" + std::to_string(getpid()) + "/children");
    pid_t child = -1;
    char path[4096];
    while (children >> child) {
        const ssize_t length = readlink(("/proc/" + std::to_string(child) + "/exe").c_str(), path, sizeof(path));
        if (length > 0 && binary == std::string(path, static_cast<size_t>(length))) {
            return child;
        }
    }
    return -1;
}

}  // namespace

DaemonProcess::~DaemonProcess() {
    kill();
}

void DaemonProcess::start(const Options& options) {
    kill();
    m_logPath = "/tmp/daemon" + std::to_string(++s_instances) + ".log";
    m_readTo = 0;
    const int log = open(m_logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0666);
    if (log < 0) {
        throw std::runtime_error("cannot make " + m_logPath);
    }
    std::vector<std::string> entries = makeEnvironment(options.environment);
    std::vector<char*> environment;
    for (std::string& entry : entries) {
        environment.push_back(entry.data());
    }
    environment.push_back(nullptr);

    const pid_t child = fork();
    if (child == 0) {
        if (options.detach && fork() != 0) {
            pause();  // a parent that is not process 1, as long as the daemon needs one
        }
        runDaemon(options.binary.c_str(), log, environment.data());
    }
    close(log);
    m_pid = child;
    if (options.detach) {
        // The daemon's first process ends at once and leaves the second to us, process 1 of the world.
        if (!waitUntil([&] { return (m_pid = findChild(options.binary)) > 0; })) {
            throw std::runtime_error("the daemon did not detach");
        }
        ::kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

bool DaemonProcess::running() {
    if (m_pid <= 0) {
        return false;
    }
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 && info.si_pid == 0;
}

std::optional<int> DaemonProcess::waitForExit() {
    int status = 0;
    if (m_pid <= 0 || !waitUntil([&] { return waitpid(m_pid, &status, WNOHANG) == m_pid; })) {
        return std::nullopt;
    }
    m_pid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

void DaemonProcess::kill() {
    if (m_pid > 0) {
        ::kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        m_pid = -1;
    }
}

std::string DaemonProcess::log(size_t from) const {
    std::ifstream file(m_logPath, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(from));
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

size_t DaemonProcess::logSize() const {
    struct stat status = {};
    return stat(m_logPath.c_str(), &status) == 0 ? static_cast<size_t>(status.st_size) : 0;
}

std::string DaemonProcess::unread() const {
    return log(m_readTo);
}

void DaemonProcess::skipLog() {
    m_readTo = logSize();
}

bool DaemonProcess::waitForText(std::string_view text) {
    return waitUntil([&] {
        const size_t found = unread().find(text);
        if (found == std::string::npos) {
            return false;
        }
        m_readTo += found + text.size();
        return true;
    });
}

bool DaemonProcess::waitForLog(std::string_view level, std::string_view message, std::string_view module) {
    std::string line(level);
    line += ' ';
    line += message;
    line += " @";
    line += module;
    line += ':';
    return waitForText(line);
}

size_t DaemonProcess::count(std::string_view text) const {
    const std::string all = log();
    size_t found = 0;
    for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + text.size())) {
        ++found;
    }
    return found;
}

}  // namespace e2e
