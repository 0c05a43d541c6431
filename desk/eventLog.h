// The last events of one device in the form of server-sent events, each with a growing id, so that a reader that lost
// its connection goes on where it was. Any thread may call; readers wait without holding anything.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

namespace kzdesk {

// One event as it goes over the wire. Without an id when `id` is 0.
std::string eventText(uint64_t id, const char* name, const nlohmann::ordered_json& data);

// Now, as RFC 3339 with milliseconds in UTC.
std::string timeNow();

class EventLog {
  public:
    // `device` is its number, which stands in each event.
    explicit EventLog(unsigned device) : m_device(device) {}

    static constexpr size_t kKept = 1000;
    using Clock = std::chrono::steady_clock;

    // What a reader has not seen yet, as text to send.
    struct Batch {
        std::string text;
        uint64_t last = 0;      // id of the last event in it; what the reader asked for when there is none
        bool finished = false;  // nothing comes after it
    };

    // Adds an event; "time" and "device" go before the members of `data`. Nothing is added behind the end.
    void add(const char* name, const nlohmann::ordered_json& data);
    // Adds the event `end`, behind which there is nothing. The first reason stays.
    void end(const std::string& reason);

    // The events behind the one with the id `after`, waiting for one until `deadline`. Events that were thrown away
    // before they could be read are announced by an event `lost` with their number.
    Batch read(uint64_t after, Clock::time_point deadline);

  private:
    void append(const char* name, const nlohmann::ordered_json& data);

    const unsigned m_device;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<std::string> m_events;  // the last one has the id m_last
    uint64_t m_last = 0;
    bool m_ended = false;
};

}  // namespace kzdesk
