#include "soakTally.h"

#include <cstdio>

namespace soak {
namespace {

constexpr unsigned kPrinted = 40;

}  // namespace

void Tally::note(Count& count, const char* kind, const std::string& what) {
    ++count;
    const std::lock_guard lock(m_mutex);
    if (m_printed++ < kPrinted) {
        const std::chrono::duration<double> since = Clock::now() - m_start;
        std::printf("%8.3f s  %s: %s\n", since.count(), kind, what.c_str());
        std::fflush(stdout);
    }
}

}  // namespace soak
