// The clock for waits with an end: it never steps, whatever happens to the wall clock.
#pragma once

#include <time.h>

#include <cstdint>

// Milliseconds since some point in the past; exact to a few of them.
inline int64_t MonotonicMs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}
