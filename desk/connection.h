// One connection of the HTTP server, in place of the library's own. That one gives each byte of a request a new
// deadline, so that a slow client never runs out of time; waits for a reader that stands still even when the desk ends;
// and takes a client that has only finished sending for one that has gone. Belongs to the thread that serves it.
#pragma once

#include <httplib.h>

#include <array>
#include <atomic>
#include <chrono>
#include <optional>

namespace kzdesk {

// What all connections of a server see.
struct Serving {
    std::atomic<bool> isEnding = false;  // nobody is waited for any more
    std::atomic<int> waiting = 0;        // connections that found no free thread
};

class Connection : public httplib::Stream {
  public:
    static constexpr std::chrono::seconds kRequestPatience{10};  // with a whole request
    static constexpr std::chrono::seconds kCrowdedPatience{1};   // the same while others wait for a thread
    static constexpr std::chrono::seconds kReaderPatience{60};   // with a reader that stands still
    static constexpr std::chrono::seconds kLastPatience{1};      // with one that sends no more, and may have gone

    // Neither is owned.
    Connection(socket_t socket, const Serving& serving) : m_socket(socket), m_serving(serving) {}

    // Whether the client is still there, once it takes something.
    bool is_writable() const override;
    bool is_readable() const override;
    ssize_t read(char* bytes, size_t size) override;
    ssize_t write(const char* bytes, size_t size) override;
    void get_remote_ip_and_port(std::string& ip, int& port) const override;
    void get_local_ip_and_port(std::string& ip, int& port) const override;
    socket_t socket() const override { return m_socket; }

  private:
    using Clock = std::chrono::steady_clock;

    // Waits for one of the events; the events that came, none when the patience is at its end.
    template <typename IsLate>
    short await(short events, IsLate isLate) const;

    const socket_t m_socket;
    const Serving& m_serving;
    const Clock::time_point m_began = Clock::now();
    mutable std::optional<Clock::time_point> m_finishedSending;  // when that was seen of the client
    std::array<char, 4096> m_buffer{};
    size_t m_at = 0;
    size_t m_end = 0;
};

}  // namespace kzdesk
