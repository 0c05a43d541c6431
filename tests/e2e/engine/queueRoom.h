// Room for the queues of one rig. The kernel counts the bytes of all message queues of a user and refuses what goes
// beyond its limit: about six rigs fit at once. A rig therefore sets aside everything it will need before it begins,
// all or nothing, so that rigs wait for one another instead of failing half-way.
#pragma once

#include <string>
#include <vector>

#include "queue.h"

namespace e2e {

struct QueueSize {
    long depth;
    long messageSize;
};

// Held while room changes hands: no other rig of this checkout takes what is free for a moment.
class RoomLock {
  public:
    RoomLock();
    ~RoomLock();
    RoomLock(const RoomLock&) = delete;
    RoomLock& operator=(const RoomLock&) = delete;

  private:
    int m_file;
};

// Queues that stand in for those to come, under names of their own.
class QueueRoom {
  public:
    // Waits until all of them fit, then takes the room. Throws std::runtime_error when they never do.
    void reserve(const std::vector<QueueSize>& sizes);
    // Gives the room of the queue reserved at `index` back; to be called under a RoomLock that is held until its
    // successor exists.
    void release(size_t index);
    bool holds(size_t index) const { return index < m_placeholders.size() && m_placeholders[index].has_value(); }

  private:
    bool tryReserve(const std::vector<QueueSize>& sizes);

    std::vector<std::optional<Queue>> m_placeholders;
};

}  // namespace e2e
