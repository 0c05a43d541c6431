// What holds for any sequence of stores and extractions, and for threads that do both at once.
#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "kzmfReader.h"
#include "testStream.h"

namespace {

// What payloads hold, by device: samples under the tests' keys ("K..."), and the last "TSMP".
struct Ledger {
    std::map<uint64_t, uint64_t> samples;
    std::map<uint64_t, uint64_t> counters;

    void Add(const void* payload, uint32_t size) {
        ASSERT_TRUE(MetadataIsValidKZMF(payload, size, true));
        for (const KzmfRecord& device : ReadKzmf({static_cast<const uint8_t*>(payload), size}).devices) {
            const uint64_t id = KzmfNumber(device, "DVID", 0);
            for (const KzmfRecord& record : device.Child("STRM")->children) {
                samples[id] += record.key[0] == 'K' ? record.repeat : 0;
            }
            counters[id] = KzmfNumber(*device.Child("STRM"), "TSMP", 0);
        }
    }
    // Both copies of all streams, into a buffer of that size.
    void Extract(uint32_t sessionRate, uint32_t bufferSize) {
        std::vector<uint8_t> buffer(bufferSize);
        void* copies[2] = {};
        uint32_t sizes[2] = {};
        ASSERT_EQ(MetadataGetPayloadAndSession(buffer.data(), bufferSize, &copies[0], &sizes[0], &copies[1], &sizes[1],
                                               sessionRate),
                  kKzmfDone);
        EXPECT_TRUE(MetadataIsValidKZMF(copies[1], sizes[1], true));
        Add(copies[0], sizes[0]);
    }
};

class RandomRun {
  public:
    explicit RandomRun(unsigned seed) : m_random(seed) {
        for (uint32_t id = 0; id < 4; ++id) {
            m_streams.push_back(std::make_unique<TestStream>(id + 1, "X", 776 + Up(2000)));
            m_streams.back()->Write(Sample("KAAA", 1));  // the counter has its place before sticky values take it
            stored[id + 1] = 1;
        }
    }
    void Step() {
        const uint32_t choice = Up(12);
        choice == 0 ? Extract() : choice == 1 ? ExtractGroups() : StoreSomething();
    }
    void Extract() {
        const uint32_t rate = Up(6);
        ledger.Extract(rate, MetadataEstimateReadBufferSize(0) + MetadataEstimateReadBufferSize(rate));
    }

    Ledger ledger;
    std::map<uint64_t, uint64_t> stored;  // samples by device

  private:
    uint32_t Up(uint32_t below) { return static_cast<uint32_t>(m_random() % below); }

    void StoreSomething() {
        const uint32_t index = Up(4);
        const TestStream& stream = *m_streams[index];
        const bool sticky = Up(8) == 0;
        const char key[] = {sticky ? 'S' : 'K', 'A', 'A', static_cast<char>('A' + Up(6)), '\0'};
        Store store{key, "bBcusSlLhHfFqQjJdGU12348?!\xFF"[Up(27)], 1 + (Up(4) == 0 ? Up(255) : Up(10)), {}};
        store.flags =
            (sticky ? kKzmfSticky : 0) | (Up(4) == 0 ? kKzmfBigEndian : 0) | (Up(6) == 0 ? kKzmfAccumulate : 0);
        store.timeOffset = Up(4) == 0 ? static_cast<float>(Up(100)) : 0.0F;
        store.data.resize(size_t{store.size} * Up(6));
        std::generate(store.data.begin(), store.data.end(), [this] { return static_cast<uint8_t>(Up(256)); });
        if (Up(20) == 0) {
            store = Text("TYPE", "SLbJ", kKzmfSticky);
        }
        const std::string before = stream.Payload() + stream.Sticky();
        if (stream.Write(store) != kKzmfDone) {
            EXPECT_EQ(stream.Payload() + stream.Sticky(), before);
        } else if ((store.flags & kKzmfSticky) == 0) {
            stored[index + 1] += store.data.size() / store.size;
        }
    }
    void ExtractGroups() {
        kzmfGroup group{.limit = 400 + Up(2000), .unsentOnly = Up(2) == 0, .position = 0};
        std::vector<uint8_t> buffer(4000);
        for (uint32_t size = 1; size != 0;) {
            ASSERT_EQ(MetadataGetPayloadGroup(group, buffer.data(), 4000, nullptr, &size), kKzmfDone);
            ledger.Add(buffer.data(), size);
        }
    }

    std::mt19937 m_random;
    std::vector<std::unique_ptr<TestStream>> m_streams;
};

TEST(KzmfAnySequence, YieldsValidPayloadsThatHoldEverySampleOnce) {
    for (unsigned seed = 1; seed < 9; ++seed) {
        RandomRun run(seed);
        for (int i = 0; i < 3000; ++i) {
            run.Step();
        }
        run.Extract();
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
    Ledger ledger;
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
