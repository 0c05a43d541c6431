#include "eventLoop.h"

#include <algorithm>
#include <utility>

#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

}  // namespace

fd_set EventLoop::NoDescriptors() {
    fd_set none;
    FD_ZERO(&none);
    return none;
}

size_t EventLoop::Add(int descriptor, std::function<void()> handle) {
    m_sources.push_back({-1, std::move(handle)});
    Replace(m_sources.size() - 1, descriptor);
    return m_sources.size() - 1;
}

void EventLoop::Replace(size_t place, int descriptor) {
    int& current = m_sources[place].descriptor;
    if (current == descriptor) {
        return;
    }
    if (current >= 0) {
        SetWatched(current, false);
    }
    current = descriptor;
    if (current >= 0) {
        m_end = std::max(m_end, current + 1);
        SetWatched(current, true);
    }
}

void EventLoop::SetWatched(int descriptor, bool watched) {
    if (watched) {
        FD_SET(descriptor, &m_watched);
    } else {
        FD_CLR(descriptor, &m_watched);
    }
}

void EventLoop::RunOnce() {
    fd_set readable = m_watched;
    int ready = select(m_end, &readable, nullptr, nullptr, nullptr);
    if (ready < 0) {
        LOG_ERROR("Select failed and not handled");
        return;
    }
    for (auto source = m_sources.begin(); source != m_sources.end() && ready > 0; ++source) {
        if (source->descriptor >= 0 && FD_ISSET(source->descriptor, &readable)) {
            --ready;
            source->handle();
        }
    }
}
