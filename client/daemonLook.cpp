#include "daemonLook.h"

#include <fcntl.h>
#include <mqueue.h>
#include <sys/stat.h>

#include <cerrno>
#include <thread>

#include "errors.h"
#include "skylark/bleMessage.h"

namespace kzclient {

namespace {

using std::chrono::steady_clock;

constexpr const char* kDaemonQueue = "/to_kzBleD";  // made by the daemon when it starts, removed when it stops

enum class Seen { Yes, No, Hidden };

// Calls `look` with the open queue. A queue that exists but may not be opened is hidden.
template <typename Look>
Seen withQueue(const char* name, Look look) {
    const mqd_t queue = mq_open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (queue == -1) {
        return errno == ENOENT ? Seen::No : Seen::Hidden;
    }
    look(queue);
    mq_close(queue);
    return Seen::Yes;
}

std::optional<long> waitingForDaemon() {
    std::optional<long> waiting;
    withQueue(kMqToBleSdk, [&](mqd_t queue) {
        mq_attr attributes{};
        if (mq_getattr(queue, &attributes) == 0) {
            waiting = attributes.mq_curmsgs;
        }
    });
    return waiting;
}

}  // namespace

DaemonLook::DaemonLook() {
    if (!waitingForDaemon()) {
        return;
    }
    const Seen daemon = withQueue(kDaemonQueue, [&](mqd_t queue) {
        struct stat status {};
        if (fstat(queue, &status) == 0) {
            m_daemon = status.st_ino;
        }
    });
    if (daemon == Seen::No) {
        throw NoCamera("the camera is there, but its Bluetooth daemon does not run");
    }
}

void DaemonLook::expectSame() const {
    if (m_daemon && DaemonLook().m_daemon != m_daemon) {
        throw NoCamera("the camera's Bluetooth daemon was started anew; this connection is lost");
    }
}

void DaemonLook::expectReading(std::chrono::milliseconds patience) const {
    const auto first = waitingForDaemon();
    const auto deadline = steady_clock::now() + patience;
    auto now = first;
    while (first && now && *now > 0 && *now >= *first) {
        if (steady_clock::now() >= deadline) {
            throw NoCamera("the camera's Bluetooth daemon does not read what it is sent");
        }
        checkInterrupt();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        now = waitingForDaemon();
    }
}

}  // namespace kzclient
