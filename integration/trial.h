// Carries a check out in a child process with a deadline, so that a library that crashes or hangs has broken its
// promise and has not ended this program.
#pragma once

#include <array>
#include <string>

#include "promise.h"

namespace kzcheck {

struct TrialOptions {
    std::array<std::string, 3> files;  // of the libraries
    int patienceMs;                    // after which a check is stopped
};

// What came of the promise. Makes the queue that it needs; when that exists, nothing is tried.
Outcome tryPromise(const Promise& promise, const TrialOptions& options);

// From now on an interrupt removes the queue of the check that is running and ends the program with status 130.
void removeQueueOnInterrupt();

}  // namespace kzcheck
