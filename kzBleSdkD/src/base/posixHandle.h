// Owners of POSIX descriptors: message queues and plain file descriptors. A handle closes what it holds.
#pragma once

#include <mqueue.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <utility>

constexpr int kNoDescriptor = -1;

template <int (*CloseFunction)(int)>
class PosixHandle {
  public:
    PosixHandle() = default;
    explicit PosixHandle(int descriptor) : m_descriptor(descriptor) {}
    PosixHandle(PosixHandle&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, kNoDescriptor)) {}
    PosixHandle& operator=(PosixHandle&& other) noexcept {
        if (this != &other) {
            Close();
            m_descriptor = std::exchange(other.m_descriptor, kNoDescriptor);
        }
        return *this;
    }
    PosixHandle(const PosixHandle&) = delete;
    PosixHandle& operator=(const PosixHandle&) = delete;
    ~PosixHandle() { Close(); }

    bool IsOpen() const { return m_descriptor != kNoDescriptor; }
    void Close() {
        if (IsOpen()) {
            CloseFunction(std::exchange(m_descriptor, kNoDescriptor));
        }
    }
    // Gives the descriptor away: it stays open.
    int Release() { return std::exchange(m_descriptor, kNoDescriptor); }
    // The descriptor, for the system's calls; kNoDescriptor when closed.
    operator int() const { return m_descriptor; }

  private:
    int m_descriptor = kNoDescriptor;
};

using QueueHandle = PosixHandle<mq_close>;
using FileDescriptor = PosixHandle<close>;

// The attributes of a queue; nothing when it is closed or the system does not give them.
inline std::optional<mq_attr> QueueAttributes(const QueueHandle& queue) {
    std::optional<mq_attr> attributes(std::in_place);
    if (!queue.IsOpen() || mq_getattr(queue, &*attributes) != 0) {
        attributes.reset();
    }
    return attributes;
}

// Whether the name of an open queue was removed: who opens that name now gets another queue or none.
inline bool IsRemoved(const QueueHandle& queue) {
    struct stat status {};
    return queue.IsOpen() && fstat(queue, &status) == 0 && status.st_nlink == 0;
}
