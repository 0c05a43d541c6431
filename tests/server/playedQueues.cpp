#include "playedQueues.h"

#include <gtest/gtest.h>
#include <mqueue.h>

#include <cerrno>
#include <cstdarg>
#include <map>
#include <utility>

namespace {

struct Queue {
    long depth = 0;
    played::Messages messages;
};

constexpr int kFirstDescriptor = 10000;

std::map<std::string, Queue> g_queues;
std::vector<std::string> g_descriptors;  // by descriptor

Queue* QueueOf(mqd_t descriptor) {
    const auto index = static_cast<size_t>(descriptor - kFirstDescriptor);
    const auto queue = index < g_descriptors.size() ? g_queues.find(g_descriptors[index]) : g_queues.end();
    if (queue == g_queues.end()) {
        errno = EBADF;
        return nullptr;
    }
    return &queue->second;
}

}  // namespace

namespace played {

void ResetQueues() {
    g_queues.clear();
    g_descriptors.clear();
}

void SetDepth(const std::string& name, long depth) {
    g_queues[name].depth = depth;
}

Messages Take(const std::string& name) {
    return std::exchange(g_queues[name].messages, {});
}

}  // namespace played

extern "C" {

mqd_t mq_open(const char* name, int, ...) noexcept {
    if (!g_queues.contains(name)) {
        errno = ENOENT;
        return -1;
    }
    g_descriptors.emplace_back(name);
    return kFirstDescriptor + static_cast<int>(g_descriptors.size()) - 1;
}

int mq_close(mqd_t) noexcept {
    return 0;
}

int mq_getattr(mqd_t descriptor, struct mq_attr* attributes) noexcept {
    const Queue* queue = QueueOf(descriptor);
    if (queue == nullptr) {
        return -1;
    }
    *attributes = {};
    attributes->mq_maxmsg = queue->depth;
    attributes->mq_msgsize = 1500;
    attributes->mq_curmsgs = static_cast<long>(queue->messages.size());
    return 0;
}

int mq_send(mqd_t descriptor, const char* message, size_t length, unsigned int) {
    Queue* queue = QueueOf(descriptor);
    if (queue == nullptr) {
        return -1;
    }
    if (static_cast<long>(queue->messages.size()) >= queue->depth) {
        errno = ETIMEDOUT;
        return -1;
    }
    queue->messages.emplace_back(message, message + length);
    return 0;
}

// It waits by the wall clock, which may step, so nothing may wait in it.
int mq_timedsend(mqd_t descriptor, const char* message, size_t length, unsigned int priority,
                 const timespec* deadline) {
    EXPECT_EQ(deadline->tv_sec, 0);
    return mq_send(descriptor, message, length, priority);
}

}  // extern "C"
