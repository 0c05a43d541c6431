// The road of a sensor sample: into its stream, and out again in a payload.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "kzmfFormat.h"
#include "kzmfWriter.h"
#include "roadTable.h"

namespace {

constexpr uint32_t kStreamBufferSize = 3000;
constexpr size_t kRecordSize = 12;  // a record of one 2-byte sample
constexpr int kSamplesPerRound = 500;

// A stream of the daemon's size, closed with the object.
class Stream {
  public:
    explicit Stream(uint32_t deviceId) { MetadataStreamOpen(deviceId, "HRM", m_buffer.get(), kStreamBufferSize); }
    ~Stream() { MetadataStreamClose(m_buffer.get()); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void* handle() const { return m_buffer.get(); }
    // Sample of the key with this number.
    void Store(uint32_t key, uint16_t sample) const {
        MetadataStreamWrite(handle(), KzmfKey("KEYA") + (key << 24), 'S', 2, 1, &sample, 0, 0.0F);
    }
    void Restart(uint32_t keys) const {
        MetadataStreamReset(handle());
        for (uint32_t key = 0; key < keys; ++key) {
            Store(key, 0);
        }
    }

  private:
    std::unique_ptr<unsigned char[]> m_buffer = std::make_unique<unsigned char[]>(kStreamBufferSize);
};

// A sample stored into the last of `keys` open records, beside the copy of a record that is ready. Both learn the size
// at run time, as the daemon does.
void MeasureStore(RoadTable& table, const std::string& name, uint32_t keys, double aim) {
    const Stream stream(1025);
    uint16_t sample = 72;
    unsigned char record[kRecordSize] = {'H', 'R', 'A', 'T', 'S', 2, 0, 1, 0, 72};
    size_t recordSize = kRecordSize;
    std::vector<unsigned char> area(kSamplesPerRound * kRecordSize);
    size_t at = 0;
    table.Measure(
        name, kSamplesPerRound, aim,
        [&] {
            KeepAlive(sample);
            stream.Store(keys - 1, sample);
        },
        [&] {
            KeepAlive(record);
            KeepAlive(recordSize);
            std::memcpy(area.data() + at, record, recordSize);
            at += recordSize;
            KeepAlive(area);
        },
        [&] {
            at = 0;
            stream.Restart(keys);
        });
}

// Twenty streams with a few samples each.
void MeasureExtraction(RoadTable& table) {
    std::vector<std::unique_ptr<Stream>> streams;
    for (uint32_t i = 0; i < 20; ++i) {
        streams.push_back(std::make_unique<Stream>(1025 + i / 3));
    }
    std::vector<unsigned char> out(8192);
    std::vector<unsigned char> ready(8192);
    uint32_t size = 0;
    const auto store = [&] {
        for (const auto& stream : streams) {
            for (uint16_t sample = 0; sample < 10; ++sample) {
                stream->Store(0, sample);
            }
        }
    };
    store();
    MetadataGetPayload(out.data(), static_cast<uint32_t>(out.size()), nullptr, &size);
    const uint32_t bytes = size;
    table.Measure(
        "extraction of 20 streams, " + std::to_string(bytes) + " bytes", 1, 0,
        [&] {
            MetadataGetPayload(out.data(), static_cast<uint32_t>(out.size()), nullptr, &size);
            KeepAlive(out);
        },
        [&] {
            KeepAlive(ready);
            std::memcpy(out.data(), ready.data(), bytes);
            KeepAlive(out);
        },
        store);
}

}  // namespace

int main() {
    // The daemon has two threads, and the C library locks cheaper while a process has one.
    std::thread([] {}).join();
    MetadataServiceInit();
    RoadTable table(101);
    MeasureStore(table, "one 2-byte sample into an open record", 1, 14);
    MeasureStore(table, "the same with 5 keys in the area", 5, 0);
    MeasureStore(table, "the same with 20 keys in the area", 20, 0);
    MeasureExtraction(table);
    table.Print();
    return 0;
}
