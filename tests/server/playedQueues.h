// POSIX queues played inside a test program: the mq_ functions of the executable stand before those of the C library.
// Queues of any depth, no namespace, nothing left behind. They are never waited for.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "cameraFakes.h"

namespace played {

using Messages = std::vector<fakes::Bytes>;

// Forgets all queues; descriptors that are still open are closed.
void ResetQueues();
// Makes a queue, or gives an existing one another depth. A queue that `seems` deeper is one whose last places another
// sender takes between a look at it and a write.
void SetDepth(const std::string& name, long depth, long seems = 0);
// Takes what waits in the queue.
Messages Take(const std::string& name);
// Puts a message into a queue that there is; it is lost when the queue is full.
void Put(const std::string& name, const fakes::Bytes& message);
// How many messages wait behind a descriptor; nothing when it is no queue's.
std::optional<size_t> Waiting(int descriptor);

}  // namespace played
