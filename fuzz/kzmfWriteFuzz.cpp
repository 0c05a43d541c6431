// The writer: any stores and extractions, with any keys, types, sizes and flags, leave valid payloads of the size
// announced.
#include <array>
#include <memory>

#include "fuzz.h"
#include "kzmfFormat.h"
#include "kzmfReader.h"
#include "kzmfWriter.h"

namespace {

// Common keys are short, so that they meet again.
uint32_t Key(Input& input) {
    constexpr const char* kKeys[] = {"HRAT", "CADE", "TYPE", "TSMP", "EMPT", "PFRM", "STRM", "TIMO", "DEVC"};
    const uint8_t index = input.Byte();
    if (index < std::size(kKeys)) {
        return KzmfReadKey(reinterpret_cast<const uint8_t*>(kKeys[index]));
    }
    return KzmfReadKey(input.Bytes(4).data());
}

class Streams {
  public:
    Streams() {
        for (uint32_t i = 0; i < m_buffers.size(); ++i) {
            const uint32_t size = 776 + i * 301;  // sizes that are no multiple of 4, too
            m_buffers[i] = std::make_unique<uint8_t[]>(size);
            Require(MetadataStreamOpen(std::array{1025u, 1025u, 0xFFFFFFFFu, 0u}[i], "fuzz", m_buffers[i].get(),
                                       size) == m_buffers[i].get());
        }
    }
    ~Streams() {
        for (const auto& buffer : m_buffers) {
            Require(MetadataStreamClose(buffer.get()) == buffer.get());
        }
    }
    Streams(const Streams&) = delete;
    Streams& operator=(const Streams&) = delete;

    void* Handle(Input& input) const { return m_buffers[input.Byte() % m_buffers.size()].get(); }

  private:
    std::array<std::unique_ptr<uint8_t[]>, 4> m_buffers;
};

void Store(void* handle, Input& input) {
    const uint32_t key = Key(input);
    const uint32_t type = input.Byte();
    const uint32_t structureSize = input.Byte();
    const uint32_t repeat = input.Byte() % 16;
    const uint32_t flags = input.Byte();
    const float timeOffset = input.Byte() % 4 == 1 ? 0.25F : 0.0F;
    const std::vector<uint8_t> data = input.Bytes(structureSize * repeat);
    Require(MetadataStreamWrite(handle, key, type, structureSize, repeat, data.data(), flags, timeOffset) !=
            kKzmfNoHandle);
}

void Append(void* handle, Input& input) {
    const std::vector<uint8_t> record = input.Bytes(input.Byte());
    const uint32_t flags = input.Byte();
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
    kzmfGroup group{.limit = input.Byte() * 8u, .unsentOnly = input.Byte() % 2 == 1, .position = 0};
    std::vector<uint8_t> buffer(input.Byte() * 16u);
    for (int turns = 0;; ++turns) {
        uint32_t size = 0;
        const uint32_t result =
            MetadataGetPayloadGroup(group, buffer.data(), static_cast<uint32_t>(buffer.size()), nullptr, &size);
        Require(turns < 10 && size <= buffer.size());
        if (result == kKzmfDone && size == 0) {
            return;
        }
        CheckPayload(buffer.data(), size);
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
                MetadataStreamReset(streams.Handle(input));
                break;
            case 3:
                Append(streams.Handle(input), input);
                break;
            default:
                Store(streams.Handle(input), input);
                break;
        }
    }
    Extract(input);
    return 0;
}
