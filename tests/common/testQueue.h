// A message queue of this process alone, removed when it goes.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <mqueue.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "kzMbox.h"

class TestQueue {
  public:
    // The name is taken, the queue does not exist yet.
    explicit TestQueue(const std::string& name) : m_name("/kzcommon_" + std::to_string(getpid()) + "_" + name) {}
    TestQueue(const std::string& name, long depth, long messageSize = KZMSG_MAX) : TestQueue(name) {
        mq_attr attributes = {};
        attributes.mq_maxmsg = depth;
        attributes.mq_msgsize = messageSize;
        m_mqd = mq_open(c_str(), O_RDWR | O_CREAT | O_EXCL | O_NONBLOCK, 0600, &attributes);
        EXPECT_GE(m_mqd, 0) << m_name;
    }
    TestQueue(const TestQueue&) = delete;
    TestQueue& operator=(const TestQueue&) = delete;
    ~TestQueue() {
        if (m_mqd >= 0) {
            mq_close(m_mqd);
        }
        mq_unlink(c_str());
    }

    const char* c_str() const { return m_name.c_str(); }
    const std::string& name() const { return m_name; }
    mqd_t mqd() const { return m_mqd; }

    bool exists() const {
        const mqd_t mqd = mq_open(c_str(), O_RDONLY);
        return mqd >= 0 && mq_close(mqd) == 0;
    }
    // Puts a message into the queue.
    void fill(const std::string& message) const { EXPECT_EQ(mq_send(m_mqd, message.data(), message.size(), 0), 0); }
    long waiting() const {
        mq_attr attributes = {};
        mq_getattr(m_mqd, &attributes);
        return attributes.mq_curmsgs;
    }
    // The next message; empty when there is none.
    std::vector<unsigned char> take() const {
        std::vector<unsigned char> message(KZMSG_MAX);
        const ssize_t length = mq_receive(m_mqd, reinterpret_cast<char*>(message.data()), message.size(), nullptr);
        message.resize(length > 0 ? static_cast<size_t>(length) : 0);
        return message;
    }

  private:
    std::string m_name;
    mqd_t m_mqd = -1;
};
