#include "logQueue.h"

#include <algorithm>
#include <cstring>
#include <utility>

LogQueue::LogQueue(size_t capacity) : m_capacity(capacity), m_bytes(std::make_unique_for_overwrite<char[]>(capacity)) {}

void LogQueue::Put(LogSink sink, std::string_view text) {
    const Head head{sink, std::min(text.size(), kLogTextSize - 1)};
    if (m_lost > 0 || m_capacity - m_used < sizeof(head) + head.length) {
        ++m_lost;
        return;
    }
    Write(&head, sizeof(head));
    Write(text.data(), head.length);
}

bool LogQueue::Take(LogEntry& entry) {
    if (IsEmpty()) {
        return false;
    }
    Head head{};
    Read(&head, sizeof(head));
    Read(entry.text, head.length);
    entry.text[head.length] = '\0';
    entry.sink = head.sink;
    if (IsEmpty()) {
        m_begin = 0;
    }
    return true;
}

unsigned LogQueue::TakeLost() {
    return std::exchange(m_lost, 0);
}

void LogQueue::Write(const void* bytes, size_t length) {
    const size_t end = (m_begin + m_used) % m_capacity;
    const size_t first = std::min(length, m_capacity - end);
    std::memcpy(&m_bytes[end], bytes, first);
    std::memcpy(&m_bytes[0], static_cast<const char*>(bytes) + first, length - first);
    m_used += length;
}

void LogQueue::Read(void* bytes, size_t length) {
    const size_t first = std::min(length, m_capacity - m_begin);
    std::memcpy(bytes, &m_bytes[m_begin], first);
    std::memcpy(static_cast<char*>(bytes) + first, &m_bytes[0], length - first);
    m_begin = (m_begin + length) % m_capacity;
    m_used -= length;
}
