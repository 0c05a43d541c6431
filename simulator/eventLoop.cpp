#include "eventLoop.h"

#include <algorithm>

namespace kzsim {

void EventLoop::watch(int fd, short events, std::function<void(short)> handler) {
    m_watches[fd] = std::make_shared<Watch>(Watch{events, std::move(handler)});
}

void EventLoop::setEvents(int fd, short events) {
    const auto found = m_watches.find(fd);
    if (found != m_watches.end()) {
        found->second->events = events;
    }
}

void EventLoop::forget(int fd) {
    m_watches.erase(fd);
}

EventLoop::TimerId EventLoop::callAfter(std::chrono::milliseconds delay, std::function<void()> handler) {
    m_timers[++m_lastTimer] = {Clock::now() + delay, std::move(handler)};
    return m_lastTimer;
}

EventLoop::TimerId EventLoop::atEndOfTurn(std::function<void()> handler) {
    m_endOfTurn[++m_lastTimer] = std::move(handler);
    return m_lastTimer;
}

void EventLoop::cancel(TimerId timer) {
    m_timers.erase(timer);
    m_endOfTurn.erase(timer);
}

int EventLoop::timeToNextTimer() const {
    if (m_timers.empty()) {
        return -1;
    }
    const auto next = std::min_element(m_timers.begin(), m_timers.end(), [](const auto& left, const auto& right) {
        return left.second.due < right.second.due;
    });
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(next->second.due - Clock::now()).count();
    return static_cast<int>(std::clamp<long>(left, 0, 60000));
}

void EventLoop::runDueTimers() {
    const auto now = Clock::now();
    std::vector<TimerId> due;
    for (const auto& [id, timer] : m_timers) {
        if (timer.due <= now) {
            due.push_back(id);
        }
    }
    for (const TimerId id : due) {
        const auto found = m_timers.find(id);
        if (found == m_timers.end()) {
            continue;  // an earlier one cancelled it
        }
        const auto handler = std::move(found->second.handler);
        m_timers.erase(found);
        handler();
    }
}

void EventLoop::pollOnce() {
    std::vector<pollfd> descriptors;
    std::vector<std::shared_ptr<Watch>> watches;  // keeps a handler alive while it runs, whatever it forgets
    for (const auto& [fd, watch] : m_watches) {
        if (watch->events != 0) {
            descriptors.push_back({fd, watch->events, 0});
            watches.push_back(watch);
        }
    }
    if (poll(descriptors.data(), descriptors.size(), timeToNextTimer()) <= 0) {
        return;
    }
    for (size_t i = 0; i < descriptors.size(); ++i) {
        const auto current = m_watches.find(descriptors[i].fd);
        const bool stillWatched = current != m_watches.end() && current->second == watches[i];
        if (descriptors[i].revents != 0 && stillWatched) {
            watches[i]->handler(descriptors[i].revents);
        }
    }
}

void EventLoop::run() {
    m_running = true;
    while (m_running) {
        pollOnce();
        runDueTimers();
        for (const auto& [id, handler] : m_endOfTurn) {
            handler();
        }
    }
}

}  // namespace kzsim
