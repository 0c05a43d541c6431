#include "daemonProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace e2e {

void DaemonProcess::start() {
    setenv("LD_LIBRARY_PATH", m_libraries.c_str(), 1);
    m_pid = fork();
    if (m_pid == 0) {
        const int output = open(m_logPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0666);
        dup2(output, STDOUT_FILENO);
        dup2(output, STDERR_FILENO);
        close(output);
        execl(KZ_DAEMON, KZ_DAEMON, nullptr);
        _exit(127);
    }
}

bool DaemonProcess::running() const {
    siginfo_t info = {};
    return m_pid > 0 && waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
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

void DaemonProcess::pause() {
    ::kill(m_pid, SIGSTOP);
    waitpid(m_pid, nullptr, WUNTRACED);
}

void DaemonProcess::resume() {
    ::kill(m_pid, SIGCONT);
}

bool DaemonProcess::waitForText(std::string_view text) {
    return waitUntil([&] {
        const size_t found = unread().find(text);
        if (found != std::string::npos) {
            m_readTo += found + text.size();
        }
        return found != std::string::npos;
    });
}

std::string DaemonProcess::log(size_t from) const {
    std::ifstream file(m_logPath, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(from));
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

size_t DaemonProcess::logSize() const {
    return std::filesystem::file_size(m_logPath);
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
