// A message queue of this process alone, removed when it goes.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <sys/resource.h>
#include <unistd.h>

#include <string>

#include "kzMbox.h"

class TestQueue {
  public:
    // With depth 0 the name is taken, but the queue does not exist yet.
    explicit TestQueue(const std::string& name, long depth = 0, long messageSize = KZMSG_MAX)
        : m_name("/kzcommon_" + std::to_string(getpid()) + "_" + name) {
        // All queues of a user share one limit, which other tests may have used up: lifted where that is permitted.
        const rlimit unlimited = {RLIM_INFINITY, RLIM_INFINITY};
        setrlimit(RLIMIT_MSGQUEUE, &unlimited);
        mq_attr attributes = {};
        attributes.mq_maxmsg = depth;
        attributes.mq_msgsize = messageSize;
        m_mqd = depth == 0 ? -1 : mq_open(c_str(), O_RDWR | O_CREAT | O_EXCL | O_NONBLOCK, 0600, &attributes);
        EXPECT_EQ(m_mqd >= 0, depth > 0) << m_name;
    }
    TestQueue(const TestQueue&) = delete;
    TestQueue& operator=(const TestQueue&) = delete;
    ~TestQueue() {
        mq_close(m_mqd);
        mq_unlink(c_str());
    }

    const char* c_str() const { return m_name.c_str(); }
    const std::string& name() const { return m_name; }
    mqd_t mqd() const { return m_mqd; }

    // Puts a message into the queue.
    void fill(const std::string& message) const { EXPECT_EQ(mq_send(m_mqd, message.data(), message.size(), 0), 0); }
    // The next message; empty when there is none.
    std::string take() const {
        std::string message(KZMSG_MAX, '\0');
        const ssize_t length = mq_receive(m_mqd, message.data(), message.size(), nullptr);
        message.resize(length > 0 ? static_cast<size_t>(length) : 0);
        return message;
    }

  private:
    std::string m_name;
    mqd_t m_mqd;
};
