#include "stopSignals.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "posixHandle.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// Readable as soon as a stop was asked for; never read.
int s_stopEvent = kNoDescriptor;

extern "C" void OnStopSignal(int /*signal*/) {
    const int savedErrno = errno;
    const uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = write(s_stopEvent, &one, sizeof(one));
    errno = savedErrno;
}

extern "C" void OnHarmlessSignal(int /*signal*/) {}

void Catch(int signal, void (*handler)(int)) {
    struct sigaction action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
}

}  // namespace

void CatchSignals() {
    Catch(SIGHUP, OnHarmlessSignal);
    Catch(SIGPIPE, OnHarmlessSignal);
    s_stopEvent = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (s_stopEvent == kNoDescriptor) {
        return;  // both then end the process at once, as they do by default
    }
    Catch(SIGTERM, OnStopSignal);
    Catch(SIGINT, OnStopSignal);
}

bool IsStopAsked() {
    return WaitForStop(milliseconds::zero());
}

bool WaitForStop(milliseconds time) {
    const Clock::time_point end = Clock::now() + time;
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(end - Clock::now());
        const int timeout = left > milliseconds::zero() ? static_cast<int>(left.count()) : 0;
        pollfd stop = {s_stopEvent, POLLIN, 0};  // poll passes over a descriptor that is not open
        const int ready = poll(&stop, 1, timeout);
        if (ready >= 0 || errno != EINTR) {
            return ready > 0;
        }
    }
}
