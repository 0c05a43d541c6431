// Waiting with an end: how long a test waits for something that must come, and the polling of what cannot wake it.
#pragma once

#include <time.h>

#include <chrono>
#include <functional>
#include <thread>

namespace e2e {

// Generous: it is spent only when something is wrong. The slowest honest wait is the twelve-second start-up retry.
constexpr std::chrono::seconds kPatience{30};

// True as soon as `condition` holds; false when it did not within the time.
inline bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds patience = kPatience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
    return true;
}

// The absolute CLOCK_REALTIME time at which a queue operation gives up.
inline timespec queueDeadline(std::chrono::milliseconds patience = kPatience) {
    timespec time = {};
    clock_gettime(CLOCK_REALTIME, &time);
    time.tv_sec += patience.count() / 1000;
    time.tv_nsec += patience.count() % 1000 * 1'000'000;
    if (time.tv_nsec >= 1'000'000'000) {
        ++time.tv_sec;
        time.tv_nsec -= 1'000'000'000;
    }
    return time;
}

}  // namespace e2e
