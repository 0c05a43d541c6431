// The threads that serve connections: one each, started when none is idle and kept for the next. An event stream holds
// its thread as long as it lasts, so that a fixed pool would have to be as large as the largest number of them.
#pragma once

#include <httplib.h>

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "connection.h"

namespace kzdesk {

class ConnectionThreads : public httplib::TaskQueue {
  public:
    // Further connections wait for a free thread, and are counted in `serving`, which has to outlive it.
    ConnectionThreads(size_t most, Serving& serving) : m_most(most), m_serving(serving) {}

    void enqueue(std::function<void()> job) override;
    // Serves what was accepted, and returns when every thread has ended.
    void shutdown() override;

  private:
    void serve();

    // Called locked: how many connections have no thread that will serve them at once.
    void noteWaiting();

    const size_t m_most;
    Serving& m_serving;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::function<void()>> m_jobs;
    std::vector<std::thread> m_threads;
    size_t m_idle = 0;
    bool m_ending = false;
};

}  // namespace kzdesk
