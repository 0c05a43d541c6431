#include "playedQueues.h"

#include <mqueue.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "skylark/bleMessage.h"

namespace {

struct Queue {
    std::string name;
    long depth = 0;
    long seems = 0;  // its depth for who looks at it
    played::Messages messages;
};

constexpr int kFirstDescriptor = 500;  // below FD_SETSIZE, and above what a test opens

std::vector<Queue> g_queues;  // by descriptor

// The number of a queue; that behind the last when there is none of the name.
size_t Find(const std::string& name) {
    const auto found = std::find_if(g_queues.begin(), g_queues.end(), [&](const Queue& q) { return q.name == name; });
    return static_cast<size_t>(found - g_queues.begin());
}

}  // namespace

namespace played {

void ResetQueues() {
    g_queues.clear();
}

void SetDepth(const std::string& name, long depth, long seems) {
    const size_t number = Find(name);
    g_queues.resize(std::max(number + 1, g_queues.size()));
    g_queues[number].name = name;
    g_queues[number].depth = depth;
    g_queues[number].seems = std::max(depth, seems);
}

Messages Take(const std::string& name) {
    return std::exchange(g_queues.at(Find(name)).messages, {});
}

void Put(const std::string& name, const fakes::Bytes& message) {
    Queue& queue = g_queues.at(Find(name));
    if (std::ssize(queue.messages) < queue.depth) {
        queue.messages.push_back(message);
    }
}

std::optional<size_t> Waiting(int descriptor) {
    const auto number = static_cast<size_t>(descriptor - kFirstDescriptor);
    return number < g_queues.size() ? std::optional(g_queues[number].messages.size()) : std::nullopt;
}

}  // namespace played

extern "C" {

mqd_t mq_open(const char* name, int, ...) noexcept {
    errno = ENOENT;
    return Find(name) < g_queues.size() ? kFirstDescriptor + static_cast<int>(Find(name)) : -1;
}

int mq_close(mqd_t) noexcept {
    return 0;
}

int mq_unlink(const char*) noexcept {
    return 0;
}

int mq_getattr(mqd_t descriptor, struct mq_attr* attributes) noexcept {
    *attributes = {};
    errno = EBADF;
    const auto number = static_cast<size_t>(descriptor - kFirstDescriptor);
    if (number >= g_queues.size()) {
        return -1;
    }
    attributes->mq_maxmsg = g_queues[number].seems;
    attributes->mq_msgsize = kBleRecordSize;
    attributes->mq_curmsgs = static_cast<long>(g_queues[number].messages.size());
    return 0;
}

int mq_send(mqd_t descriptor, const char* message, size_t length, unsigned int) {
    const auto number = static_cast<size_t>(descriptor - kFirstDescriptor);
    if (number >= g_queues.size() || std::ssize(g_queues[number].messages) >= g_queues[number].depth) {
        errno = number >= g_queues.size() ? EBADF : ETIMEDOUT;
        return -1;
    }
    g_queues[number].messages.emplace_back(message, message + length);
    return 0;
}

ssize_t mq_receive(mqd_t descriptor, char* buffer, size_t size, unsigned int*) {
    const auto number = static_cast<size_t>(descriptor - kFirstDescriptor);
    errno = EAGAIN;
    if (number >= g_queues.size() || g_queues[number].messages.empty()) {
        return -1;
    }
    played::Messages& messages = g_queues[number].messages;
    const fakes::Bytes message = std::move(messages.front());
    messages.erase(messages.begin());
    if (message.size() > size) {
        std::abort();  // no queue carries it
    }
    std::copy(message.begin(), message.end(), buffer);
    return std::ssize(message);
}

// It waits by the wall clock, which may step, so nothing may wait in it.
int mq_timedsend(mqd_t descriptor, const char* message, size_t length, unsigned int priority,
                 const timespec* deadline) {
    if (deadline->tv_sec != 0) {
        std::abort();
    }
    return mq_send(descriptor, message, length, priority);
}

}  // extern "C"
