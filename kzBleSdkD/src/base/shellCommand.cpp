#include "shellCommand.h"

#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>

#include <cerrno>
#include <ctime>

namespace {

constexpr const char* kShell = "/bin/sh";
constexpr const char* kPath = "PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin";

constexpr int kMaxSeconds = 5;
constexpr timespec kPause{0, 2'000'000};

// A group of its own, which can be killed whole, and the signals of a fresh process, whatever the daemon ignores.
class SpawnAttributes {
  public:
    SpawnAttributes() {
        sigset_t signals;
        sigemptyset(&signals);
        posix_spawnattr_init(&m_attributes);
        posix_spawnattr_setsigmask(&m_attributes, &signals);
        sigfillset(&signals);
        posix_spawnattr_setsigdefault(&m_attributes, &signals);
        posix_spawnattr_setflags(&m_attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&m_attributes); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    const posix_spawnattr_t* Get() const { return &m_attributes; }

  private:
    posix_spawnattr_t m_attributes;
};

class UmaskScope {
  public:
    UmaskScope() : m_before(umask(077)) {}
    ~UmaskScope() { umask(m_before); }
    UmaskScope(const UmaskScope&) = delete;
    UmaskScope& operator=(const UmaskScope&) = delete;

  private:
    mode_t m_before;
};

bool IsOver(const timespec& deadline) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec > deadline.tv_sec || (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

// The status of the child, or -1 after it has been given up.
int AwaitChild(pid_t child) {
    timespec deadline{};
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += kMaxSeconds;
    int status = 0;
    for (;;) {
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child) {
            return status;
        }
        if (ended < 0 && errno != EINTR) {
            return -1;
        }
        if (IsOver(deadline)) {
            break;
        }
        nanosleep(&kPause, nullptr);
    }
    kill(-child, SIGKILL);
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    errno = ETIMEDOUT;
    return -1;
}

}  // namespace

int RunShellCommand(const char* command) {
    const SpawnAttributes attributes;
    char* const arguments[] = {const_cast<char*>("sh"), const_cast<char*>("-c"), const_cast<char*>(command), nullptr};
    char* const environment[] = {const_cast<char*>(kPath), nullptr};
    pid_t child = 0;
    int error = 0;
    {
        const UmaskScope umaskScope;
        error = posix_spawn(&child, kShell, nullptr, attributes.Get(), arguments, environment);
    }
    if (error != 0) {
        errno = error;
        return -1;
    }
    return AwaitChild(child);
}
