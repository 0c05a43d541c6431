#include "logLimit.h"

bool LogLimit::Admit(std::optional<uint32_t> connection, Time now) {
    if (!m_end) {
        m_end = now + std::chrono::seconds(1);
        m_counts[0] = {};
        m_used = 1;
    }
    Count& count = CountOf(connection);
    const unsigned most = count.connection ? kConnectionLines : kOtherLines;
    if (count.lines < most) {
        ++count.lines;
        return true;
    }
    ++count.held;
    return false;
}

LogLimit::Count& LogLimit::CountOf(std::optional<uint32_t> connection) {
    for (size_t i = 0; i < m_used; ++i) {
        if (m_counts[i].connection == connection) {
            return m_counts[i];
        }
    }
    if (m_used == m_counts.size()) {
        return m_counts[0];
    }
    return m_counts[m_used++] = {.connection = connection};
}
