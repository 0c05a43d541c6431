#include "eventLog.h"

#include <algorithm>
#include <cstdio>
#include <ctime>

namespace kzdesk {

using Json = nlohmann::ordered_json;

std::string eventText(uint64_t id, const char* name, const Json& data) {
    std::string text;
    if (id != 0) {
        text += "id: " + std::to_string(id) + "\n";
    }
    text += "event: ";
    text += name;
    // Texts of the camera need not be UTF-8. A dump has no line breaks, which would end the event.
    return text + "\ndata: " + data.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n\n";
}

std::string timeNow() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm utc{};
    gmtime_r(&now.tv_sec, &utc);
    char seconds[32];
    std::strftime(seconds, sizeof seconds, "%Y-%m-%dT%H:%M:%S", &utc);
    char text[48];
    std::snprintf(text, sizeof text, "%s.%03ldZ", seconds, now.tv_nsec / 1000000);
    return text;
}

void EventLog::append(const char* name, const Json& data) {
    Json timed = {{"time", timeNow()}, {"device", m_device}};
    timed.update(data);
    m_events.push_back(eventText(++m_last, name, timed));
    if (m_events.size() > kKept) {
        m_events.pop_front();
    }
}

void EventLog::add(const char* name, const Json& data) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_ended) {
            return;
        }
        append(name, data);
    }
    m_changed.notify_all();
}

void EventLog::end(const std::string& reason) {
    {
        const std::lock_guard lock(m_mutex);
        if (m_ended) {
            return;
        }
        append("end", {{"reason", reason}});
        m_ended = true;
    }
    m_changed.notify_all();
}

EventLog::Batch EventLog::read(uint64_t after, Clock::time_point deadline) {
    std::unique_lock lock(m_mutex);
    after = after <= m_last ? after : 0;  // an id of an earlier desk
    m_changed.wait_until(lock, deadline, [&] { return m_last > after || m_ended; });
    Batch batch{{}, after, m_ended};
    const uint64_t thrownAway = m_last - m_events.size();
    if (after < thrownAway) {
        batch.text =
            eventText(thrownAway, "lost", {{"time", timeNow()}, {"device", m_device}, {"events", thrownAway - after}});
    }
    for (uint64_t id = std::max(after, thrownAway) + 1; id <= m_last; ++id) {
        batch.text += m_events[id - thrownAway - 1];
    }
    batch.last = std::max(after, m_last);
    return batch;
}

}  // namespace kzdesk
