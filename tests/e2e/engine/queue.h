// An owned POSIX message queue of a world, and waiting with an end.
#pragma once

#include <mqueue.h>
#include <time.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "bytes.h"

namespace e2e {

// How long a test waits for something that must come. Generous: it is spent only when something is wrong. The slowest
// honest wait is the twelve-second start-up retry.
constexpr std::chrono::seconds kPatience{30};

// True as soon as `condition` holds; false when it did not within the time.
bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds patience = kPatience);
// The absolute CLOCK_REALTIME time at which a queue operation gives up.
timespec queueDeadline(std::chrono::milliseconds patience = kPatience);

class Queue {
  public:
    // Creates the queue and removes its name again at the end. The kernel counts the bytes of all queues of a user:
    // while other worlds hold them, this waits. Throws std::runtime_error.
    static Queue create(const std::string& name, long depth, long messageSize);
    // Opens a queue that the daemon made, for sending. Throws when it does not exist.
    static Queue openForSending(const std::string& name);

    // Waits for room; throws when none comes.
    void send(const void* data, size_t length);
    void send(const Bytes& message) { send(message.data(), message.size()); }
    // Nothing when no message came in time.
    std::optional<Bytes> receive(std::chrono::milliseconds patience = kPatience);
    long waiting() const { return attributes().mq_curmsgs; }  // messages in the queue
    mqd_t descriptor() const { return m_open->descriptor; }

  private:
    struct Open {
        Open(std::string itsName, int flags, mq_attr* attributes);
        ~Open();
        Open(const Open&) = delete;
        Open& operator=(const Open&) = delete;

        std::string name;
        mqd_t descriptor;
        bool created;
    };

    explicit Queue(std::unique_ptr<Open> open) : m_open(std::move(open)) {}
    mq_attr attributes() const;

    std::unique_ptr<Open> m_open;
};

// Whether a queue of that name exists in this world.
bool queueExists(const std::string& name);

}  // namespace e2e
