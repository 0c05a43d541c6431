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

void EventLoop::Add(int descriptor, std::function<void()> handle) {
    m_sources.push_back({descriptor, std::move(handle)});
    m_end = std::max(m_end, descriptor + 1);
    SetWatched(descriptor, true);
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
    if (select(m_end, &readable, nullptr, nullptr, nullptr) < 0) {
        LOG_ERROR("Select failed and not handled");
        return;
    }
    for (const Source& source : m_sources) {
        if (FD_ISSET(source.descriptor, &readable)) {
            source.handle();
        }
    }
}
