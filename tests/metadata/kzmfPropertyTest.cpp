// What holds for any sequence of stores and extractions, and for threads that do both at once.
#include <algorithm>
#include <atomic>
#include <random>
#include <thread>

#include "kzmfRun.h"
#include "testStream.h"

namespace {

TEST(KzmfAnySequence, YieldsValidPayloadsThatHoldEverySampleOnce) {
    for (unsigned seed = 1; seed < 9; ++seed) {
        std::mt19937 random(seed);
        std::vector<uint8_t> input(300000);
        std::generate(input.begin(), input.end(), [&random] { return static_cast<uint8_t>(random()); });
        KzmfRun run({input.data(), input.size()}, true);

        run.Run();

        EXPECT_EQ(run.ledger.samples, run.stored) << seed;
        EXPECT_EQ(run.ledger.counters, run.stored) << seed;
    }
}

TEST(KzmfThreads, LoseNoSampleWhileStoringExtractingOpeningAndClosing) {
    constexpr uint64_t kSamples = 4000;
    std::atomic<int> writing{2};
    const auto write = [&writing](const TestStream& stream) {
        for (uint16_t sample = 0; sample < kSamples; ++sample) {
            while (stream.Write(Sample(sample % 2 == 0 ? "KEVN" : "KODD", sample)) != kKzmfDone) {
                std::this_thread::yield();  // full: the other thread extracts
            }
        }
        --writing;
    };
    const TestStream streams[] = {TestStream(1), TestStream(2)};
    std::thread threads[] = {std::thread(write, std::cref(streams[0])), std::thread(write, std::cref(streams[1])),
                             std::thread([&writing] {
                                 while (writing > 0) {
                                     TestStream(3).Write(Sample("KVIS", 1));
                                 }
                             })};
    KzmfLedger ledger;
    while (writing > 0) {
        ledger.Extract(2, 65536);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ledger.Extract(2, 65536);

    for (const uint64_t id : {1u, 2u}) {
        EXPECT_EQ(ledger.samples[id], kSamples);
        EXPECT_EQ(ledger.counters[id], kSamples);
    }
}

}  // namespace
