// What holds for any sequence of stores and extractions, and for threads that do both at once.
#include <atomic>
#include <map>
#include <random>
#include <thread>

#include "kzmfReader.h"
#include "testStream.h"

namespace {

// Adds up what payloads hold: samples by stream (device id and place in the device).
class Ledger {
  public:
    void Add(std::span<const uint8_t> payload) {
        ASSERT_TRUE(MetadataIsValidKZMF(payload.data(), static_cast<uint32_t>(payload.size()), true));
        const KzmfDocument document = ReadKzmf(payload);
        ASSERT_EQ(document.error, "");
        for (const KzmfRecord& device : document.devices) {
            const uint64_t id = KzmfNumber(device, "DVID", 0);
            for (const KzmfRecord& child : device.children) {
                if (child.key == "STRM") {
                    AddStream(id, child);
                }
            }
        }
    }
    uint64_t Samples(uint64_t id) const { return m_samples.count(id) != 0 ? m_samples.at(id) : 0; }
    uint64_t Counter(uint64_t id) const { return m_counters.count(id) != 0 ? m_counters.at(id) : 0; }

  private:
    void AddStream(uint64_t id, const KzmfRecord& stream) {
        for (const KzmfRecord& record : stream.children) {
            if (record.key[0] == 'K') {  // keys of the tests' samples
                m_samples[id] += record.repeat;
            }
        }
        m_counters[id] = KzmfNumber(stream, "TSMP", 0);
    }

    std::map<uint64_t, uint64_t> m_samples;
    std::map<uint64_t, uint64_t> m_counters;  // the last "TSMP" seen
};

class RandomRun {
  public:
    explicit RandomRun(unsigned seed) : m_random(seed) {
        for (uint32_t i = 0; i < 4; ++i) {
            m_streams.push_back(std::make_unique<TestStream>(100 + i, "X", 776 + Up(2000)));
        }
    }

    void Step() {
        switch (Up(12)) {
            case 0:
                return Extract();
            case 1:
                return ExtractGroups();
            case 2:
                return ExtractSession();
            default:
                return Store();
        }
    }

    void Check() {
        Extract();
        for (uint32_t i = 0; i < m_streams.size(); ++i) {
            EXPECT_EQ(m_ledger.Samples(100 + i), m_stored[i]);
            EXPECT_EQ(m_ledger.Counter(100 + i), m_stored[i]);
        }
    }

  private:
    uint32_t Up(uint32_t below) { return static_cast<uint32_t>(m_random() % below); }

    void Store() {
        static constexpr char kTypes[] = "bBcusSlLhHfFqQjJdGU12348?!\xFF";
        const uint32_t index = Up(4);
        const char key[] = {'K', 'A', 'A', static_cast<char>('A' + Up(6)), '\0'};
        const char type = kTypes[Up(sizeof(kTypes) - 1)];
        const uint32_t size = Up(4) == 0 ? Up(256) : Up(10);
        const uint32_t repeat = Up(6);
        const uint32_t flags =
            (Up(8) == 0 ? kKzmfSticky : 0) | (Up(4) == 0 ? kKzmfBigEndian : 0) | (Up(6) == 0 ? kKzmfAccumulate : 0);
        const float timeOffset = Up(10) == 0 ? 1.0F : 0.0F;
        std::vector<uint8_t> data(size * repeat);
        for (uint8_t& byte : data) {
            byte = static_cast<uint8_t>(m_random());
        }
        const TestStream& stream = *m_streams[index];
        if (Up(20) == 0) {
            stream.WriteText("TYPE", "SLbJ", kKzmfSticky);
            return;
        }
        const bool sticky = (flags & kKzmfSticky) != 0;
        const std::string stickyKey = std::string("S") + (key + 1);
        const auto before = Areas(stream);
        if (stream.Write(sticky ? stickyKey.c_str() : key, type, size, repeat, data, flags, timeOffset) != kKzmfDone) {
            EXPECT_EQ(Areas(stream), before);
        } else if (!sticky) {
            m_stored[index] += repeat;
        }
    }

    static std::vector<uint8_t> Areas(const TestStream& stream) {
        std::vector<uint8_t> bytes;
        for (const kzmfArea& area : {stream.record().payload, stream.record().sticky}) {
            bytes.insert(bytes.end(), area.data, area.data + area.used);
        }
        return bytes;
    }

    void Extract() {
        const uint32_t estimate = MetadataEstimateReadBufferSize(0);
        const std::vector<uint8_t> payload = TakePayload();
        EXPECT_EQ(payload.size(), estimate);
        m_ledger.Add(payload);
    }
    void ExtractGroups() {
        kzmfGroup group{.limit = 400 + Up(2000), .samplesOnly = Up(2) == 0, .position = 0};
        std::vector<uint8_t> buffer(4000);
        for (uint32_t size = 1; size != 0;) {
            ASSERT_EQ(MetadataGetPayloadGroup(group, buffer.data(), 4000, nullptr, &size), kKzmfDone);
            m_ledger.Add({buffer.data(), size});
        }
    }
    void ExtractSession() {
        const uint32_t rate = 1 + Up(5);
        const uint32_t payloadEstimate = MetadataEstimateReadBufferSize(0);
        const uint32_t sessionEstimate = MetadataEstimateReadBufferSize(rate);
        std::vector<uint8_t> buffer(payloadEstimate + sessionEstimate);  // not a byte to spare
        void* payload = nullptr;
        void* session = nullptr;
        uint32_t payloadSize = 0;
        uint32_t sessionSize = 0;
        ASSERT_EQ(MetadataGetPayloadAndSession(buffer.data(), payloadEstimate + sessionEstimate, &payload, &payloadSize,
                                               &session, &sessionSize, rate),
                  kKzmfDone);
        EXPECT_EQ(payloadSize, payloadEstimate);
        EXPECT_EQ(sessionSize, sessionEstimate);
        EXPECT_TRUE(MetadataIsValidKZMF(session, sessionSize, true));
        m_ledger.Add({static_cast<uint8_t*>(payload), payloadSize});
    }

    std::mt19937 m_random;
    std::vector<std::unique_ptr<TestStream>> m_streams;
    std::map<uint32_t, uint64_t> m_stored;
    Ledger m_ledger;
};

class KzmfAnySequence : public testing::TestWithParam<unsigned> {};

TEST_P(KzmfAnySequence, YieldsValidPayloadsThatHoldEverySampleOnce) {
    RandomRun run(GetParam());
    for (int i = 0; i < 3000; ++i) {
        run.Step();
    }
    run.Check();
}

INSTANTIATE_TEST_SUITE_P(Seeds, KzmfAnySequence, testing::Range(1u, 9u));

TEST(KzmfThreads, LoseNoSampleWhileStoringExtractingOpeningAndClosing) {
    constexpr int kWriters = 3;
    constexpr int kSamples = 4000;
    std::vector<std::unique_ptr<TestStream>> streams;
    for (uint32_t i = 0; i < kWriters; ++i) {
        streams.push_back(std::make_unique<TestStream>(200 + i));
    }
    std::vector<uint8_t> work(100);
    MetadataSetWorkBuf(work.data(), 100);
    std::atomic<int> writing{kWriters};
    std::vector<std::thread> threads;

    for (const auto& stream : streams) {
        threads.emplace_back([&writing, &stream] {
            for (uint16_t sample = 0; sample < kSamples;) {
                if (stream->WriteS(sample % 2 == 0 ? "KEVN" : "KODD", sample) == kKzmfDone) {
                    ++sample;
                } else {
                    std::this_thread::yield();  // full: the other thread extracts
                }
            }
            --writing;
        });
    }
    threads.emplace_back([&writing] {
        while (writing > 0) {
            const TestStream visitor(300);
            visitor.WriteS("KVIS", 1);
            EXPECT_GT(MetadataMaximumReadBufferSize(), 0u);
        }
    });
    Ledger ledger;
    std::vector<uint8_t> buffer(65536);
    while (writing > 0) {
        void* payload = nullptr;
        uint32_t size = 0;
        void* session = nullptr;
        uint32_t sessionSize = 0;
        EXPECT_EQ(MetadataGetPayloadAndSession(buffer.data(), 65536, &payload, &size, &session, &sessionSize, 2),
                  kKzmfDone);
        EXPECT_TRUE(MetadataIsValidKZMF(session, sessionSize, true));
        ledger.Add({static_cast<uint8_t*>(payload), size});
        MetadataEstimateUnsentSize();
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    ledger.Add(TakePayload());
    MetadataSetWorkBuf(work.data(), 1);

    for (uint64_t id = 200; id < 200 + kWriters; ++id) {
        EXPECT_EQ(ledger.Samples(id), uint64_t{kSamples});
        EXPECT_EQ(ledger.Counter(id), uint64_t{kSamples});
    }
}

}  // namespace
