// EventLoop: waits until descriptors are readable and calls their handlers.
//
// Descriptors that are ready at the same time are handled in the order in which they were added, so whoever sets the
// loop up decides what comes first. Each has one turn in a round: a busy descriptor cannot keep the others waiting. A
// time to wait for is a descriptor too (timerfd), so the wait itself has no timeout.
//
// One thread. Descriptors stay their owners', who keep them open while the loop runs, and must be below FD_SETSIZE.
#pragma once

#include <sys/select.h>

#include <cstddef>
#include <functional>
#include <vector>

class EventLoop {
  public:
    // Adds a descriptor behind those added so far. `handle` is called in each round in which it is readable. Gives the
    // number of its place.
    size_t Add(int descriptor, std::function<void()> handle);
    // Waits for another descriptor in the place of one, or for none while it is closed (below 0).
    void Replace(size_t place, int descriptor);
    // Stops or goes on waiting for a descriptor that was added. Added descriptors are waited for.
    void SetWatched(int descriptor, bool watched);

    // One round: waits until a descriptor is readable, then calls the handlers of all that are. A wait that fails is
    // logged and nothing is handled.
    void RunOnce();

  private:
    struct Source {
        int descriptor;
        std::function<void()> handle;
    };

    static fd_set NoDescriptors();

    std::vector<Source> m_sources;  // in the order of handling
    fd_set m_watched = NoDescriptors();
    int m_end = 0;  // above every descriptor so far
};
