// The real daemon binary as a child process, with its log.
#pragma once

#include <sys/types.h>

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "deadline.h"

namespace e2e {

class DaemonProcess {
  public:
    struct Options {
        std::string binary = KZ_DAEMON;
        // Environment on top of the test's own. LD_LIBRARY_PATH puts the stand-ins before the camera libraries.
        std::map<std::string, std::string> environment = {{"LD_LIBRARY_PATH", KZ_FAKES_DIRECTORY}};
        // Through a short-lived parent, so that the daemon detaches itself as it does from a shell.
        bool detach = false;
    };

    DaemonProcess() = default;
    ~DaemonProcess();
    DaemonProcess(const DaemonProcess&) = delete;
    DaemonProcess& operator=(const DaemonProcess&) = delete;

    void start(const Options& options);
    void start() { start(Options()); }
    bool running();
    pid_t pid() const { return m_pid; }
    // The exit status, 128 + signal when a signal ended it; nothing when it did not end in time.
    std::optional<int> waitForExit();
    void kill();

    // ---- the log. Reading goes forward: each call looks at what follows the last text that was found.
    // A line of that level ("[ERROR]") and module with exactly this message appears.
    bool waitForLog(std::string_view level, std::string_view message, std::string_view module);
    // Any text appears.
    bool waitForText(std::string_view text);
    // The log so far, from that byte on.
    std::string log(size_t from = 0) const;
    size_t logSize() const;
    // How often a text occurs in the whole log so far.
    size_t count(std::string_view text) const;
    // The log since the last text that was found.
    std::string unread() const;
    void skipLog();

  private:
    pid_t m_pid = -1;
    std::string m_logPath;
    size_t m_readTo = 0;
};

}  // namespace e2e
