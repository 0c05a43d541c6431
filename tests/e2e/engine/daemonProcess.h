// The real daemon binary as a child process, with its log.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <optional>
#include <string>
#include <string_view>

#include "queue.h"

namespace e2e {

class DaemonProcess {
  public:
    explicit DaemonProcess(std::string logPath = "/tmp/daemon.log", std::string libraries = KZ_FAKES_DIRECTORY)
        : m_logPath(std::move(logPath)), m_libraries(std::move(libraries)) {}
    ~DaemonProcess() { kill(); }
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    // In the environment of the test, with the folder `libraries` before the camera's libraries.
    void start();
    bool running() const;
    // The exit status, 128 + signal when a signal ended it; nothing when it did not end in time.
    std::optional<int> waitForExit();
    void kill();
    void signal(int number) const { ::kill(m_pid, number); }
    // Stops all its threads until it is resumed.
    void pause();
    void resume();

    // ---- the log. Reading goes forward: each call looks at what follows the last text that was found.
    bool waitForText(std::string_view text);
    std::string unread() const { return log(m_readTo); }
    // The log so far, from that byte on.
    std::string log(size_t from = 0) const;
    size_t logSize() const;
    // How often a text occurs in the whole log so far.
    size_t count(std::string_view text) const;

  private:
    pid_t m_pid = -1;
    std::string m_logPath;
    std::string m_libraries;
    size_t m_readTo = 0;
};

}  // namespace e2e
