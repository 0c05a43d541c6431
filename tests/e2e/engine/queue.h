// An owned POSIX message queue of a world.
#pragma once

#include <mqueue.h>

#include <chrono>
#include <optional>
#include <string>

#include "bytes.h"
#include "deadline.h"

namespace e2e {

class Queue {
  public:
    // Creates the queue and removes its name again at the end. The kernel counts the bytes of all queues of a user:
    // while other worlds hold them, this waits. Throws std::runtime_error.
    static Queue create(const std::string& name, long depth, long messageSize);
    // The same without waiting: nothing when there is no room.
    static std::optional<Queue> tryCreate(const std::string& name, long depth, long messageSize);
    // Opens a queue that the daemon made, for sending. Throws when it does not exist.
    static Queue openForSending(const std::string& name);

    Queue(Queue&& other) noexcept;
    Queue& operator=(Queue&& other) noexcept;
    Queue(const Queue&) = delete;
    Queue& operator=(const Queue&) = delete;
    ~Queue();

    // Waits for room; throws when none comes.
    void send(const void* data, size_t length);
    void send(const Bytes& message) { send(message.data(), message.size()); }
    // Nothing when no message came in time.
    std::optional<Bytes> receive(std::chrono::milliseconds patience = kPatience);
    long waiting() const;  // messages in the queue
    mqd_t descriptor() const { return m_descriptor; }

  private:
    Queue(std::string name, mqd_t descriptor, bool owned);
    void release();

    std::string m_name;
    mqd_t m_descriptor;
    bool m_owned;
};

// Whether a queue of that name exists in this world.
bool queueExists(const std::string& name);

}  // namespace e2e
