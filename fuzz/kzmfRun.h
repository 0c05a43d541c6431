// A sequence of stores and extractions on four streams, as an input draws it, and what must hold after each of them:
// payloads are valid and as long as was announced, and a store that is refused changes nothing. For the writer's fuzzer
// and for the test that draws at random.
#pragma once

#include <array>
#include <iterator>
#include <map>
#include <memory>
#include <string_view>

#include "fuzz.h"
#include "kzmfReader.h"
#include "kzmfStream.h"

// What payloads hold, by device: samples under the keys "K...", and the last "TSMP".
struct KzmfLedger {
    std::map<uint64_t, uint64_t> samples;
    std::map<uint64_t, uint64_t> counters;

    void Add(const void* payload, uint32_t size) {
        const KzmfDocument document = ReadKzmf({static_cast<const uint8_t*>(payload), size});
        Require(document.error.empty() && MetadataIsValidKZMF(payload, size, true));
        for (const KzmfRecord& device : document.devices) {
            const uint64_t id = KzmfNumber(device, "DVID", 0);
            if (const KzmfRecord* stream = device.Child("STRM")) {
                for (const KzmfRecord& record : stream->children) {
                    samples[id] += record.key[0] == 'K' ? record.repeat : 0;
                }
                counters[id] = KzmfNumber(*stream, "TSMP", 0);
            }
        }
    }
    // Both copies of all streams, into a buffer of that size. Returns the bytes that they take.
    uint32_t Extract(uint32_t sessionRate, uint32_t bufferSize) {
        const auto buffer = std::make_unique<uint8_t[]>(bufferSize);
        void* copies[2] = {};
        uint32_t sizes[2] = {};
        Require(MetadataGetPayloadAndSession(buffer.get(), bufferSize, &copies[0], &sizes[0], &copies[1], &sizes[1],
                                             sessionRate) == kKzmfDone);
        Require(MetadataIsValidKZMF(copies[1], sizes[1], true));
        Add(copies[0], sizes[0]);
        return sizes[0] + sizes[1];
    }
};

class KzmfRun {
  public:
    // A plain run has ordinary streams and keys only, so that the samples that it stores can be found again.
    KzmfRun(const Input& input, bool plain) : m_input(input), m_plain(plain) {
        for (uint32_t i = 0; i < m_buffers.size(); ++i) {
            const uint32_t size = 776 + i * 301;  // sizes that are no multiple of 4, too
            const uint32_t id = plain ? i + 1 : std::array{1025u, 1025u, 0xFFFFFFFFu, 0u}[i];
            m_buffers[i] = std::make_unique<uint8_t[]>(size);
            Require(MetadataStreamOpen(id, "run", m_buffers[i].get(), size) == m_buffers[i].get());
            if (plain) {  // the counter has its place before sticky values take it
                Require(MetadataStreamWrite(m_buffers[i].get(), KzmfKey("KAAA"), 'B', 1, 1, "", 0, 0.0F) == kKzmfDone);
                ++stored[id];
            }
        }
    }
    ~KzmfRun() {
        for (const auto& buffer : m_buffers) {
            Require(MetadataStreamClose(buffer.get()) == buffer.get());
        }
    }
    KzmfRun(const KzmfRun&) = delete;
    KzmfRun& operator=(const KzmfRun&) = delete;

    void Run() {
        while (!m_input.IsEmpty()) {
            Step(m_input.Byte());
        }
        Extract();
    }

    KzmfLedger ledger;
    std::map<uint64_t, uint64_t> stored;  // samples under the keys "K...", by device

  private:
    void Step(uint8_t choice) {
        kzmfStream& stream = *reinterpret_cast<kzmfStream*>(m_buffers[choice / 64].get());
        const int action = choice % (m_plain ? 16 : 8);
        if (action == 0) {
            Extract();
        } else if (action == 1) {
            ExtractGroups();
        } else if (action == 2 && !m_plain) {
            MetadataStreamReset(&stream);
        } else if (action == 3 && !m_plain) {
            Append(stream);
        } else {
            Store(stream);
        }
    }
    void Extract() {
        const uint32_t rate = m_input.Byte() % 8;
        const uint32_t needed = MetadataEstimateReadBufferSize(0) + MetadataEstimateReadBufferSize(rate);
        Require(ledger.Extract(rate, needed) == needed);
    }
    void ExtractGroups() {
        kzmfGroup group{.limit = m_input.Byte() * 8u, .unsentOnly = m_input.Byte() % 2 == 1, .position = 0};
        std::vector<uint8_t> buffer(m_input.Byte() * 16u);
        const auto bufferSize = static_cast<uint32_t>(buffer.size());
        for (int turns = 0;; ++turns) {
            uint32_t size = 0;
            const uint32_t result = MetadataGetPayloadGroup(group, buffer.data(), bufferSize, nullptr, &size);
            Require(turns < 10 && size <= bufferSize);
            Require(result == kKzmfDone || MetadataEstimateReadBufferSize(0) > bufferSize);
            if (result == kKzmfDone && size == 0) {
                return;
            }
            ledger.Add(buffer.data(), size);
        }
    }
    void Append(kzmfStream& stream) {
        const std::vector<uint8_t> record = m_input.Bytes(m_input.Byte());
        const uint32_t flags = m_input.Byte();
        AppendFormattedMetadata(&stream, record.data(), static_cast<uint32_t>(record.size()), flags, m_input.Byte());
    }
    void Store(kzmfStream& stream) {
        constexpr std::string_view kTypes = "bBcusSlLhHfFqQjJdGU12348?!\xFF";
        const uint32_t key = Key();
        const bool sample = (key & 0xFF) == 'K';
        const uint32_t type = m_plain ? static_cast<uint8_t>(kTypes[m_input.Byte() % kTypes.size()]) : m_input.Byte();
        const uint32_t size = m_input.Byte() % 4 == 0 ? m_input.Byte() : m_input.Byte() % 10;
        const uint32_t repeat = m_input.Byte() % 16 / 3;
        uint32_t flags = m_input.Byte();
        if (m_plain) {
            flags = (flags & (kKzmfBigEndian | kKzmfAccumulate)) | (sample ? 0 : kKzmfSticky);
        }
        const float timeOffset = m_input.Byte() % 4 == 1 ? 0.25F : 0.0F;
        std::vector<uint8_t> data = m_input.Bytes(size_t{size} * repeat);
        if (key == kKeyTypeText) {
            std::transform(data.begin(), data.end(), data.begin(),
                           [=](uint8_t byte) { return static_cast<uint8_t>(kTypes[byte % kTypes.size()]); });
        }
        const auto before = Areas(stream);
        if (MetadataStreamWrite(&stream, key, type, size, repeat, data.data(), flags, timeOffset) != kKzmfDone) {
            Require(Areas(stream) == before);
        } else if (sample) {
            stored[stream.deviceId] += repeat;
        }
    }
    // Common keys are few, so that they meet again. Those behind the seventh have a meaning of their own.
    uint32_t Key() {
        constexpr const char* kKeys[] = {"TYPE", "SAAA", "SAAB", "KAAA", "KAAB", "KAAC", "KAAD",
                                         "TSMP", "EMPT", "PFRM", "STRM", "TIMO", "DEVC"};
        const size_t index = m_input.Byte() % (m_plain ? 7u : 16u);
        if (index < std::size(kKeys)) {
            return KzmfReadKey(reinterpret_cast<const uint8_t*>(kKeys[index]));
        }
        return KzmfReadKey(m_input.Bytes(4).data());
    }
    static std::vector<uint8_t> Areas(const kzmfStream& stream) {
        std::vector<uint8_t> bytes(stream.sticky.data, stream.sticky.data + stream.sticky.used);
        bytes.insert(bytes.end(), stream.payload.data, stream.payload.data + stream.payload.used);
        return bytes;
    }

    Input m_input;
    bool m_plain;
    std::array<std::unique_ptr<uint8_t[]>, 4> m_buffers;
};
