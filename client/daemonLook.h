// Whether the daemon is there, as far as its message queues tell. They tell nothing where the radio's own queue cannot
// be seen, for example from another IPC namespace; every question is then answered with "yes".
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>

namespace kzclient {

class DaemonLook {
  public:
    // Throws NoCamera when the radio's queue is there and the daemon's is not.
    DaemonLook();

    // Throws NoCamera when the daemon of the construction is gone, also when another has taken its place.
    void expectSame() const;
    // Waits until the daemon reads what the radio queued for it. Throws NoCamera when it reads nothing for `patience`:
    // a daemon that was killed leaves its queues behind.
    void expectReading(std::chrono::milliseconds patience) const;

  private:
    std::optional<ino_t> m_daemon;  // of its queue
};

}  // namespace kzclient
