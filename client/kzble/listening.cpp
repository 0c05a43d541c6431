#include "listening.h"

#include <algorithm>

namespace kzble {

namespace {

using std::chrono::steady_clock;

constexpr std::chrono::milliseconds kLookInterval{500};  // how often the daemon is looked for
constexpr int kLooksPerQuestion = 4;  // and how often it is seen to read: a daemon that hangs keeps its queue

void expectCount(const Limits& limits, uint32_t counted) {
    const uint32_t wanted = std::max(limits.count, 1U);
    if (counted < wanted) {
        throw TimedOut(std::to_string(counted) + " of " + std::to_string(wanted) + " came within the time");
    }
}

}  // namespace

void Limits::addTo(CLI::App& command) {
    addNumber(command, "--count", count, "Stop after so many; fewer in the time of --for exits 3", 1, 1000000);
    addDecimal(command, "--for", seconds, "Stop after so many seconds; when nothing came, exits 3", 0.001, 1e6);
}

void listen(kzclient::BleClient& client, const Limits& limits,
            const std::function<bool(const kzclient::Message&)>& take) try {
    const auto end = steady_clock::now() +
                     std::chrono::duration_cast<steady_clock::duration>(std::chrono::duration<double>(limits.seconds));
    uint32_t counted = 0;
    int looks = 0;
    while (limits.count == 0 || counted < limits.count) {
        const auto now = steady_clock::now();
        if (limits.seconds > 0 && now >= end) {
            expectCount(limits, counted);
            return;
        }
        const auto until = limits.seconds > 0 ? std::min(now + kLookInterval, end) : now + kLookInterval;
        if (const auto message = client.receive(until)) {
            counted += take(*message) ? 1 : 0;
            continue;
        }
        client.link().daemon().expectSame();
        if (++looks % kLooksPerQuestion == 0) {
            client.expectDaemon();
        }
    }
} catch (const kzclient::Interrupted&) {
    throw kzclient::Interrupted(limits.count == 0 && limits.seconds == 0 ? kzclient::Outcome::Done
                                                                         : kzclient::Outcome::Interrupted);
}

}  // namespace kzble
