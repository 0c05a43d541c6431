// Which parts of the camera are being disturbed by a fault, or were a moment ago. What an answer must be depends on it.
#pragma once

#include <algorithm>
#include <array>
#include <mutex>

#include "soakTally.h"

namespace soak {

// A part's bit; sets of parts are sums.
enum Part : unsigned { kRadio = 1, kControl = 2, kNetwork = 4, kMetadata = 8 };
constexpr unsigned kNoPart = 0;
constexpr unsigned kEveryPart = kRadio | kControl | kNetwork | kMetadata;

// How long the daemon may need after the end of a fault until everything is as before: two seconds in which it does not
// ask a service that hung, then one more call that it waits for.
constexpr std::chrono::milliseconds kRecovery{4500};

class Weather {
  public:
    void begin(Part part) { set(part, Clock::time_point::max()); }
    void end(Part part) { set(part, Clock::now() + kRecovery); }

    // Whether one of the parts was disturbed at some time since then.
    bool disturbed(unsigned parts, Clock::time_point since) const {
        const std::lock_guard lock(m_mutex);
        for (size_t bit = 0; bit < m_until.size(); ++bit) {
            if ((parts & (1u << bit)) != 0 && m_until[bit] > since) {
                return true;
            }
        }
        return false;
    }

  private:
    void set(Part part, Clock::time_point until) {
        const std::lock_guard lock(m_mutex);
        for (size_t bit = 0; bit < m_until.size(); ++bit) {
            if (part == 1u << bit) {
                m_until[bit] = until;
            }
        }
    }

    mutable std::mutex m_mutex;
    std::array<Clock::time_point, 4> m_until{};
};

}  // namespace soak
