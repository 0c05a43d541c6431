// What the threads of a soak share.
#pragma once

#include <atomic>
#include <mutex>
#include <random>

#include "catalogue.h"
#include "soakBoard.h"
#include "soakCamera.h"
#include "soakStage.h"
#include "soakTally.h"
#include "soakWeather.h"

namespace soak {

using Random = std::mt19937_64;

struct World {
    World(uint64_t seedOfAll, const std::string& logFile) : seed(seedOfAll), board(tally), camera(logFile) {}

    // A sequence of its own for each thread.
    Random random(uint64_t thread) const {
        std::seed_seq sequence{seed, thread};
        return Random(sequence);
    }

    const uint64_t seed;
    Tally tally;
    Weather weather;
    Stage stage;
    Board board;
    Camera camera;
    kzclient::Catalogue catalogue;  // the camera's
    Bytes catalogueFile;            // as it is transferred
    std::mutex transfer;            // held by the client that has a file sent: the daemon sends one at a time
    std::atomic<bool> faultsWanted{false};
    std::atomic<bool> quiet{false};  // nothing is changed, so that all must know what there is
};

inline size_t below(Random& random, size_t limit) {
    return std::uniform_int_distribution<size_t>(0, limit - 1)(random);
}

inline bool chance(Random& random, unsigned percent) {
    return below(random, 100) < percent;
}

template <typename List>
auto& anyOf(Random& random, List& list) {
    return list[below(random, std::size(list))];
}

}  // namespace soak
