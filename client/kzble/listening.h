// Waiting for what the camera says unasked: `watch`, `wait`, `raw --listen`, displays and LEDs.
#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "commands.h"

namespace kzble {

// When to stop: after so many that counted, or so much time; without either, when interrupted.
struct Limits {
    uint32_t count = 0;
    double seconds = 0;

    // Adds --count and --for.
    void addTo(CLI::App& command);
};

// Hands every message to `take`, which returns whether it counts. Throws NoCamera when the daemon goes, and TimedOut
// when the time is over before `count`, at least one, were counted, and Interrupted.
void listen(kzclient::BleClient& client, const Limits& limits,
            const std::function<bool(const kzclient::Message&)>& take);

}  // namespace kzble
