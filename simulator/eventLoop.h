// The one poll loop of the simulator: descriptors, timers, and work left for the end of a turn. One thread.
//
// Handlers may watch, change and forget any descriptor, their own included, and set and cancel timers.
#pragma once

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace kzsim {

class EventLoop {
  public:
    using Clock = std::chrono::steady_clock;
    using TimerId = uint64_t;  // 0 is no timer

    // Calls `handler` with the events that came (POLLIN, POLLOUT, POLLHUP, ...). The descriptor stays the caller's, who
    // forgets it before closing it.
    void watch(int fd, short events, std::function<void(short)> handler);
    // Events waited for from now on; 0 pauses the descriptor.
    void setEvents(int fd, short events);
    void forget(int fd);

    TimerId callAfter(std::chrono::milliseconds delay, std::function<void()> handler);
    // Ends a timer or what is called at the end of a turn.
    void cancel(TimerId timer);

    // Called after every turn until it is cancelled: the place to send what the turn's events have changed. Cancelling
    // is for the handlers of descriptors and timers, not for a handler of this kind.
    TimerId atEndOfTurn(std::function<void()> handler);

    // Runs until stop().
    void run();
    void stop() { m_running = false; }

  private:
    struct Watch {
        short events;
        std::function<void(short)> handler;
    };
    struct Timer {
        Clock::time_point due;
        std::function<void()> handler;
    };

    int timeToNextTimer() const;
    void runDueTimers();
    void pollOnce();

    std::map<int, std::shared_ptr<Watch>> m_watches;
    std::map<TimerId, Timer> m_timers;
    TimerId m_lastTimer = 0;
    std::map<TimerId, std::function<void()>> m_endOfTurn;
    bool m_running = false;
};

}  // namespace kzsim
