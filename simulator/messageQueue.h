// A POSIX message queue that never blocks the loop. A queue the simulator created goes with it.
#pragma once

#include <mqueue.h>

#include <optional>
#include <string>
#include <utility>

#include "bytes.h"

namespace kzsim {

class MessageQueue {
  public:
    enum class Sent { Yes, Full, Failed };

    // A new queue of `depth` messages of `size` bytes, in place of one left over by an earlier run; `access` is
    // O_RDONLY or O_WRONLY. Throws std::runtime_error saying what to do about it.
    static MessageQueue create(const std::string& name, long depth, long size, int access);
    // An existing queue of another process, for sending.
    static std::optional<MessageQueue> openForSending(const std::string& name);

    MessageQueue(MessageQueue&& other) noexcept { *this = std::move(other); }
    MessageQueue& operator=(MessageQueue&& other) noexcept;
    ~MessageQueue();

    int fd() const { return m_queue; }
    const std::string& name() const { return m_name; }
    long waiting() const;

    Sent send(ByteView message);
    // One message; empty when none waits.
    std::optional<Bytes> receive();

  private:
    MessageQueue(mqd_t queue, std::string name, bool created);

    mqd_t m_queue = -1;
    std::string m_name;
    bool m_created = false;
    size_t m_messageSize = 0;
};

}  // namespace kzsim
