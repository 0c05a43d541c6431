// The writer: any stores and extractions, with any keys, types, sizes and flags, leave valid payloads of the size
// announced.
#include <array>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <vector>

#include "kzmfFormat.h"
#include "kzmfReader.h"
#include "kzmfWriter.h"

namespace {

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// The input, consumed from the front; zeroes when it is used up.
class Input {
  public:
    Input(const uint8_t* data, size_t size) : m_data(data), m_left(size) {}

    bool IsEmpty() const { return m_left == 0; }
    uint8_t Byte() {
        if (m_left == 0) {
            return 0;
        }
        --m_left;
        return *m_data++;
    }
    uint32_t Key() {
        // Common keys are short, so that they meet again.
        constexpr uint32_t kKeys[] = {KzmfKey("HRAT"), KzmfKey("CADE"), KzmfKey("TYPE"),
                                      KzmfKey("TSMP"), KzmfKey("EMPT"), KzmfKey("PFRM"),
                                      KzmfKey("STRM"), KzmfKey("TIMO"), KzmfKey("DEVC")};
        const uint8_t index = Byte();
        if (index < std::size(kKeys)) {
            return kKeys[index];
        }
        uint32_t key = 0;
        for (int i = 0; i < 4; ++i) {
            key = key << 8 | Byte();
        }
        return key;
    }
    // Exactly as long as asked, so that a read past its end is seen.
    std::vector<uint8_t> Bytes(size_t size) {
        std::vector<uint8_t> bytes(size);
        for (uint8_t& byte : bytes) {
            byte = Byte();
        }
        return bytes;
    }

  private:
    const uint8_t* m_data;
    size_t m_left;
};

class Streams {
  public:
    Streams() {
        constexpr uint32_t kDeviceIds[] = {1025, 1025, 0xFFFFFFFF, 0};
        for (size_t i = 0; i < m_buffers.size(); ++i) {
            const uint32_t size = 776 + static_cast<uint32_t>(i) * 301;  // sizes that are no multiple of 4, too
            m_buffers[i] = std::make_unique<uint8_t[]>(size);
            Require(MetadataStreamOpen(kDeviceIds[i], "fuzz", m_buffers[i].get(), size) == m_buffers[i].get());
        }
    }
    ~Streams() {
        for (const auto& buffer : m_buffers) {
            Require(MetadataStreamClose(buffer.get()) == buffer.get());
        }
    }
    Streams(const Streams&) = delete;
    Streams& operator=(const Streams&) = delete;

    void* Handle(uint8_t index) const { return m_buffers[index % m_buffers.size()].get(); }

  private:
    std::array<std::unique_ptr<uint8_t[]>, 4> m_buffers;
};

void Store(const Streams& streams, Input& input) {
    void* handle = streams.Handle(input.Byte());
    const uint32_t key = input.Key();
    const uint32_t type = input.Byte();
    const uint32_t structureSize = input.Byte();
    const uint32_t repeat = input.Byte() % 16;
    const uint32_t flags = input.Byte() & ~kKzmfMutexHeld;
    const float timeOffset = input.Byte() % 4 == 1 ? 0.25F : 0.0F;
    const std::vector<uint8_t> data = input.Bytes(structureSize * repeat);
    Require(MetadataStreamWrite(handle, key, type, structureSize, repeat, data.data(), flags, timeOffset) !=
            kKzmfNoHandle);
}

void Append(const Streams& streams, Input& input) {
    void* handle = streams.Handle(input.Byte());
    const std::vector<uint8_t> record = input.Bytes(input.Byte());
    const uint32_t flags = input.Byte() & ~kKzmfMutexHeld;
    AppendFormattedMetadata(handle, record.data(), static_cast<uint32_t>(record.size()), flags, input.Byte());
}

void CheckPayload(const void* payload, uint32_t size) {
    Require(MetadataIsValidKZMF(payload, size, true));
    Require(ReadKzmf({static_cast<const uint8_t*>(payload), size}).error.empty());
}

void Extract(Input& input) {
    const uint32_t rate = input.Byte();
    const uint32_t needed = MetadataEstimateReadBufferSize(0) + MetadataEstimateReadBufferSize(rate);
    const auto buffer = std::make_unique<uint8_t[]>(needed);
    void* payload = nullptr;
    void* session = nullptr;
    uint32_t payloadSize = 0;
    uint32_t sessionSize = 0;
    Require(MetadataGetPayloadAndSession(buffer.get(), needed, &payload, &payloadSize, &session, &sessionSize, rate) ==
            kKzmfDone);
    Require(payloadSize + sessionSize == needed);
    CheckPayload(payload, payloadSize);
    CheckPayload(session, sessionSize);
}

void ExtractGroups(Input& input) {
    kzmfGroup group{.limit = input.Byte() * 8u, .samplesOnly = input.Byte() % 2 == 1, .position = 0};
    const uint32_t bufferSize = input.Byte() * 16u;
    const auto buffer = std::make_unique<uint8_t[]>(bufferSize);
    for (int turns = 0;; ++turns) {
        uint32_t size = 0;
        const uint32_t result = MetadataGetPayloadGroup(group, buffer.get(), bufferSize, nullptr, &size);
        Require(turns < 10 && size <= bufferSize);
        if (result == kKzmfDone && size == 0) {
            return;
        }
        CheckPayload(buffer.get(), size);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::array<uint8_t, 600> workBuffer;
    MetadataSetWorkBuf(workBuffer.data(), size % 2 == 0 ? static_cast<uint32_t>(workBuffer.size()) : 1);
    const Streams streams;
    Input input(data, size);
    while (!input.IsEmpty()) {
        switch (input.Byte() % 8) {
            case 0:
                Extract(input);
                break;
            case 1:
                ExtractGroups(input);
                break;
            case 2:
                MetadataStreamReset(streams.Handle(input.Byte()));
                break;
            case 3:
                Append(streams, input);
                break;
            default:
                Store(streams, input);
                break;
        }
    }
    Extract(input);
    return 0;
}
