// What a soak has seen so far: numbers, and the first findings in words. For any number of threads.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

namespace soak {

using Clock = std::chrono::steady_clock;

class Tally {
  public:
    using Count = std::atomic<uint64_t>;

    Count requests{0};  // answered, rightly or wrongly, or lost
    Count failures{0};  // answered with the failure that a fault of the camera calls for
    Count late{0};      // answered after more than the time that was due
    Count cut{0};       // the connection ended before the answer came
    Count connections{0};
    Count samples{0};
    Count catalogues{0};
    Count firmware{0};
    Count pushesExpected{0};
    Count pushesReceived{0};
    Count faults{0};

    // An answer or a push that is not what it must be.
    void wrong(const std::string& what) { note(m_wrong, "wrong", what); }
    // An answer or a push that did not come.
    void lost(const std::string& what) { note(m_lost, "lost", what); }
    // Something that grew and did not go back.
    void grown(const std::string& what) { note(m_grown, "grown", what); }

    uint64_t wrongCount() const { return m_wrong; }
    uint64_t lostCount() const { return m_lost; }
    bool clean() const { return m_wrong == 0 && m_lost == 0 && m_grown == 0; }

  private:
    // Prints the first findings.
    void note(Count& count, const char* kind, const std::string& what);

    Count m_wrong{0};
    Count m_lost{0};
    Count m_grown{0};
    std::mutex m_mutex;
    unsigned m_printed = 0;
    const Clock::time_point m_start = Clock::now();
};

}  // namespace soak
