// LogLimit: how many lines each connection may cause in a second, and all others together. Lines beyond that are held
// back and counted.
//
// A second begins with the first line behind the end of the one before. It is closed by the owner, which reports what
// was held back in it.
//
// Not synchronised.
#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>

class LogLimit {
  public:
    using Time = std::chrono::steady_clock::time_point;

    static constexpr unsigned kConnectionLines = 100;
    static constexpr unsigned kOtherLines = 400;
    // Connections counted apart in one second: all clients, and some that are none. Those beyond count as others.
    static constexpr size_t kConnections = 32;

    // The lines of one connection, or of all others.
    struct Count {
        std::optional<uint32_t> connection;
        unsigned lines = 0;
        unsigned held = 0;
    };

    // Whether a line that `connection` causes comes out; one that does not is counted. The second before must have been
    // closed when it is over.
    bool Admit(std::optional<uint32_t> connection, Time now);

    // When the second ends; nothing when none has begun.
    std::optional<Time> End() const { return m_end; }
    bool IsOver(Time now) const { return m_end && now >= *m_end; }
    // Ends the second. `report(count)` is called for each count of which lines were held back.
    template <typename Report>
    void Close(Report report) {
        for (size_t i = 0; i < m_used; ++i) {
            if (m_counts[i].held > 0) {
                report(m_counts[i]);
            }
        }
        m_used = 0;
        m_end.reset();
    }

  private:
    Count& CountOf(std::optional<uint32_t> connection);

    std::optional<Time> m_end;
    std::array<Count, kConnections + 1> m_counts;  // the first is that of all others
    size_t m_used = 0;
};
