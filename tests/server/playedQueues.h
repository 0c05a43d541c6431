// POSIX queues played inside a test program: mq_open, mq_getattr, mq_send and mq_close of the executable stand before
// those of the C library. Queues of any depth, no namespace, nothing left behind. Nothing is ever received: a test
// reads what was sent.
#pragma once

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

}  // namespace played
