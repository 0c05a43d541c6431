#include "connectionThreads.h"

namespace kzdesk {

void ConnectionThreads::enqueue(std::function<void()> job) {
    const std::lock_guard lock(m_mutex);
    m_jobs.push_back(std::move(job));
    if (m_jobs.size() > m_idle && m_threads.size() < m_most) {
        m_threads.emplace_back([this] { serve(); });
    }
    noteWaiting();
    m_changed.notify_one();
}

void ConnectionThreads::noteWaiting() {
    const bool mayGrow = m_threads.size() < m_most;
    m_serving.waiting = mayGrow || m_jobs.size() <= m_idle ? 0 : static_cast<int>(m_jobs.size() - m_idle);
}

void ConnectionThreads::shutdown() {
    {
        const std::lock_guard lock(m_mutex);
        m_ending = true;
    }
    m_changed.notify_all();
    for (std::thread& thread : m_threads) {
        thread.join();
    }
}

void ConnectionThreads::serve() {
    std::unique_lock lock(m_mutex);
    while (true) {
        ++m_idle;
        m_changed.wait(lock, [this] { return !m_jobs.empty() || m_ending; });
        --m_idle;
        if (m_jobs.empty()) {
            return;
        }
        const auto job = std::move(m_jobs.front());
        m_jobs.pop_front();
        noteWaiting();
        lock.unlock();
        job();
        lock.lock();
    }
}

}  // namespace kzdesk
