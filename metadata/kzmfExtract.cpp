// The extractions: payloads and session copies of the streams, their sizes before they are made, and the rounds in
// groups.
#include <algorithm>
#include <cstring>

#include "kzmfStream.h"

namespace {

constexpr uint32_t kPreformattedDeviceId = 0xFFFFFFFF;

// ---------------------------------------------------------------- what a stream gives

uint32_t NameLength(const kzmfStream& stream) {
    return static_cast<uint32_t>(strnlen(stream.name, kKzmfNameSize));
}

// A payload that somebody else made, kept whole in the data of one record. A record without data is none: it marks a
// stream idle.
bool IsPreformatted(const kzmfStream& stream) {
    return stream.deviceId == kPreformattedDeviceId && stream.payload.used != 0 &&
           KzmfReadKey(stream.payload.data) == kKeyPreformatted && KzmfRecordDataSize(stream.payload.data) != 0;
}

uint32_t PreformattedSize(const kzmfStream& stream) {
    const uint32_t size = KzmfRecordDataSize(stream.payload.data);
    return MetadataIsValidKZMF(stream.payload.data + kKzmfHeaderSize, size, true) && size % 4 == 0 ? size : 0;
}

// Whether anything was ever stored in the stream.
bool HasContent(const kzmfStream& stream) {
    return stream.payload.used != 0 || stream.sticky.used != 0 || stream.lastKey != 0;
}

// The stream had samples once and has none now.
bool IsIdle(const kzmfStream& stream) {
    return stream.payload.used == 0 && stream.lastKey != 0;
}

// Bytes that MarkIdle will add to the stream's areas.
uint32_t IdleMarkSize(const kzmfStream& stream) {
    const bool newCounter =
        KzmfFindRecord(stream.sticky, kKeyEmptyPayloads) == nullptr && KzmfHasRoom(stream.sticky, kKzmfCounterSize);
    return kKzmfHeaderSize + (newCounter ? kKzmfCounterSize : 0);
}

void MarkIdle(kzmfStream& stream) {
    uint8_t header[kKzmfHeaderSize];
    KzmfWriteBE32(header + 4, stream.lastHeader);
    KzmfStore(stream, {stream.lastKey, KzmfRecordType(header), KzmfRecordStructureSize(header), 0, nullptr, 0}, 0);
    KzmfCount(stream, kKeyEmptyPayloads, 1);
}

// ---------------------------------------------------------------- thinning

// How one record is thinned: its samples first, first + step, ...
struct Thinning {
    uint32_t first;
    uint32_t step;
    uint32_t count;
};

bool IsThinned(const uint8_t* record, uint32_t sessionRate) {
    return sessionRate != 0 && KzmfRecordType(record) != kTypeContainer &&
           KzmfRecordRepeat(record) >= uint64_t{2} * sessionRate;
}

// `phase` is the stream's; it moves on to the next record. At least 2 * sessionRate samples.
Thinning Thin(uint32_t samples, uint32_t sessionRate, uint32_t& phase) {
    Thinning thinning{};
    thinning.step = std::max(2u, (samples + sessionRate / 2) / sessionRate);
    thinning.first = std::min(phase, thinning.step - 1);
    thinning.count = (samples - thinning.first + thinning.step - 1) / thinning.step;
    phase = thinning.first + thinning.count * thinning.step - samples;
    return thinning;
}

uint32_t SessionSize(const kzmfStream& stream, uint32_t sessionRate) {
    uint32_t size = 0;
    uint32_t phase = stream.sessionPhase;
    for (uint32_t at = 0; at < stream.payload.used; at += KzmfRecordSize(stream.payload.data + at)) {
        const uint8_t* record = stream.payload.data + at;
        if (IsThinned(record, sessionRate)) {
            const Thinning thinning = Thin(KzmfRecordRepeat(record), sessionRate, phase);
            size += kKzmfHeaderSize + KzmfRoundUp4(thinning.count * KzmfRecordStructureSize(record));
        } else {
            size += KzmfRecordSize(record);
        }
    }
    return size;
}

// The data of the stream's container.
uint32_t StreamDataSize(const kzmfStream& stream, uint32_t sessionRate) {
    const uint32_t idle = IsIdle(stream) ? IdleMarkSize(stream) : 0;
    const uint32_t payload = sessionRate == 0 ? stream.payload.used : SessionSize(stream, sessionRate);
    return stream.sticky.used + idle + payload;
}

// ---------------------------------------------------------------- devices

uint32_t DeviceHeadSize(const kzmfStream& stream) {
    return kKzmfCounterSize + kKzmfHeaderSize + KzmfRoundUp4(NameLength(stream));
}

// Which streams share a device container. Sizes and payloads are made by the same steps, so that they agree.
class DeviceRun {
  public:
    // Counts the stream in. True when it begins a new container: another device, or more than a container can say.
    bool Begins(const kzmfStream& stream, uint32_t streamSize) {
        const bool begins = !m_open || m_deviceId != stream.deviceId || m_length + streamSize > kKzmfLongestContainer;
        if (begins) {
            m_open = true;
            m_deviceId = stream.deviceId;
            m_length = DeviceHeadSize(stream);
        }
        m_length += streamSize;
        return begins;
    }
    void End() { m_open = false; }

  private:
    bool m_open = false;
    uint32_t m_deviceId = 0;
    uint32_t m_length = 0;  // data of the container so far
};

// Adds up what streams will take.
class Measure {
  public:
    explicit Measure(uint32_t sessionRate) : m_sessionRate(sessionRate) {}

    void Add(const kzmfStream& stream) {
        if (IsPreformatted(stream)) {
            m_run.End();
            m_size += PreformattedSize(stream);
            return;
        }
        const uint32_t streamSize = kKzmfHeaderSize + StreamDataSize(stream, m_sessionRate);
        if (m_run.Begins(stream, streamSize)) {
            m_size += kKzmfHeaderSize + DeviceHeadSize(stream);
        }
        m_size += streamSize;
    }
    uint64_t size() const { return m_size; }

  private:
    uint32_t m_sessionRate;
    DeviceRun m_run;
    uint64_t m_size = 0;
};

// ---------------------------------------------------------------- writing

// Writes one copy of streams into a buffer that is known to be large enough.
class CopyWriter {
  public:
    CopyWriter(uint8_t* out, uint32_t sessionRate) : m_begin(out), m_out(out), m_sessionRate(sessionRate) {}

    void Add(kzmfStream& stream) {
        if (IsPreformatted(stream)) {
            m_run.End();
            CloseDevice();
            Put(stream.payload.data + kKzmfHeaderSize, PreformattedSize(stream));
            return;
        }
        const uint32_t dataSize = StreamDataSize(stream, m_sessionRate);
        if (m_run.Begins(stream, kKzmfHeaderSize + dataSize)) {
            CloseDevice();
            OpenDevice(stream);
        }
        if (IsIdle(stream)) {
            MarkIdle(stream);
        }
        PutContainerHeader(m_out, kKeyStream, dataSize);
        m_out += kKzmfHeaderSize;
        Put(stream.sticky.data, stream.sticky.used);
        if (m_sessionRate == 0) {
            Put(stream.payload.data, stream.payload.used);
        } else {
            PutThinned(stream);
        }
    }
    // Bytes written, when all streams are in.
    uint32_t Finish() {
        CloseDevice();
        return static_cast<uint32_t>(m_out - m_begin);
    }

  private:
    static void PutContainerHeader(uint8_t* place, uint32_t key, uint32_t length) {
        if (length > kKzmfLongestPlainContainer) {
            KzmfWriteHeader(place, key, kTypeContainer, 4, length / 4);
        } else {
            KzmfWriteHeader(place, key, kTypeContainer, 1, length);
        }
    }
    void Put(const uint8_t* bytes, uint32_t size) {
        std::memcpy(m_out, bytes, size);
        m_out += size;
    }
    void PadFrom(uint32_t size) {
        const uint32_t padding = KzmfRoundUp4(size) - size;
        std::memset(m_out, 0, padding);
        m_out += padding;
    }
    void OpenDevice(const kzmfStream& stream) {
        m_device = m_out;
        m_out += kKzmfHeaderSize;  // written when the device is closed
        KzmfWriteHeader(m_out, kKeyDeviceId, 'L', 4, 1);
        KzmfWriteBE32(m_out + kKzmfHeaderSize, stream.deviceId);
        m_out += kKzmfCounterSize;
        const uint32_t nameLength = NameLength(stream);
        KzmfWriteHeader(m_out, kKeyDeviceName, 'c', 1, nameLength);
        m_out += kKzmfHeaderSize;
        Put(reinterpret_cast<const uint8_t*>(stream.name), nameLength);
        PadFrom(nameLength);
    }
    void CloseDevice() {
        if (m_device != nullptr) {
            PutContainerHeader(m_device, kKeyDevice, static_cast<uint32_t>(m_out - m_device) - kKzmfHeaderSize);
            m_device = nullptr;
        }
    }
    void PutThinned(kzmfStream& stream) {
        for (uint32_t at = 0; at < stream.payload.used; at += KzmfRecordSize(stream.payload.data + at)) {
            const uint8_t* record = stream.payload.data + at;
            if (IsThinned(record, m_sessionRate)) {
                PutSamples(record, Thin(KzmfRecordRepeat(record), m_sessionRate, stream.sessionPhase));
            } else {
                Put(record, KzmfRecordSize(record));
            }
        }
    }
    void PutSamples(const uint8_t* record, const Thinning& thinning) {
        const uint32_t sampleSize = KzmfRecordStructureSize(record);
        Put(record, kKzmfHeaderSize);
        KzmfWriteBE16(m_out - 2, thinning.count);
        for (uint32_t i = 0; i < thinning.count; ++i) {
            const size_t sample = size_t{thinning.first} + size_t{i} * thinning.step;
            Put(record + kKzmfHeaderSize + sample * sampleSize, sampleSize);
        }
        PadFrom(thinning.count * sampleSize);
    }

    uint8_t* m_begin;
    uint8_t* m_out;
    uint32_t m_sessionRate;
    DeviceRun m_run;
    uint8_t* m_device = nullptr;  // header of the open device container
};

// ---------------------------------------------------------------- one extraction

// Holds the list, and the streams it takes, for its own life: between the measuring and the copying nothing is stored.
class Extraction {
  public:
    Extraction() = default;
    ~Extraction() {
        for (kzmfStream* stream = g_metadata_devices; stream != nullptr; stream = stream->next) {
            if (stream->taken != 0) {
                stream->taken = 0;
                pthread_mutex_unlock(&stream->mutex);
            }
        }
    }
    Extraction(const Extraction&) = delete;
    Extraction& operator=(const Extraction&) = delete;

    // Takes `stream`, next in list order.
    void Take(kzmfStream& stream) {
        pthread_mutex_lock(&stream.mutex);
        stream.taken = 1;
    }
    // Takes it only when `accept` says so, which is asked with the stream's mutex held.
    template <typename Accept>
    bool TakeIf(kzmfStream& stream, Accept accept) {
        pthread_mutex_lock(&stream.mutex);
        if (accept(stream)) {
            stream.taken = 1;
            return true;
        }
        pthread_mutex_unlock(&stream.mutex);
        return false;
    }

    // Copies what was taken to `out`; returns the bytes.
    uint32_t Copy(uint8_t* out, uint32_t sessionRate) {
        CopyWriter writer(out, sessionRate);
        ForTaken([&](kzmfStream& stream) { writer.Add(stream); });
        return writer.Finish();
    }

    void EmptyPayloads() {
        ForTaken([](kzmfStream& stream) {
            stream.payload.used = 0;
            stream.stickyUnsent = 0;
        });
    }

  private:
    template <typename Action>
    void ForTaken(Action action) {
        for (kzmfStream* stream = g_metadata_devices; stream != nullptr; stream = stream->next) {
            if (stream->taken != 0) {
                action(*stream);
            }
        }
    }

    KzmfListLock m_listLock;
};

void Answer(void** place, uint32_t* size, void* bytes, uint32_t count) {
    if (place != nullptr) {
        *place = bytes;
    }
    if (size != nullptr) {
        *size = count;
    }
}

// Adds up a property of all streams, each under its mutex.
template <typename Action>
void ForEachStream(Action action) {
    const KzmfListLock listLock;
    for (kzmfStream* stream = g_metadata_devices; stream != nullptr; stream = stream->next) {
        const KzmfStreamLock lock(*stream);
        action(*stream);
    }
}

kzmfStream* StreamAt(uint32_t position) {
    kzmfStream* stream = g_metadata_devices;
    for (; stream != nullptr && position != 0; --position) {
        stream = stream->next;
    }
    return stream;
}

uint32_t Saturated(uint64_t size) {
    return static_cast<uint32_t>(std::min<uint64_t>(size, UINT32_MAX & ~3u));
}

}  // namespace

uint32_t MetadataGetPayloadAndSession(void* buffer, uint32_t bufferSize, void** payload, uint32_t* payloadSize,
                                      void** session, uint32_t* sessionSize, uint32_t sessionRate) {
    const bool wantsPayload = payload != nullptr || payloadSize != nullptr;
    const bool wantsSession = session != nullptr || sessionSize != nullptr;
    Extraction extraction;
    Measure payloadMeasure(0);
    Measure sessionMeasure(sessionRate);
    for (kzmfStream* stream = g_metadata_devices; stream != nullptr; stream = stream->next) {
        extraction.Take(*stream);
        if (wantsPayload) {
            payloadMeasure.Add(*stream);
        }
        if (wantsSession) {
            sessionMeasure.Add(*stream);
        }
    }
    const uint64_t needed = payloadMeasure.size() + sessionMeasure.size();
    if (needed > bufferSize || (needed != 0 && buffer == nullptr)) {
        return kKzmfNoRoom;
    }
    auto* out = static_cast<uint8_t*>(buffer);
    uint32_t payloadBytes = 0;
    if (wantsPayload) {
        payloadBytes = needed != 0 ? extraction.Copy(out, 0) : 0;
        Answer(payload, payloadSize, out, payloadBytes);
    }
    if (wantsSession) {
        const uint32_t sessionBytes = needed != 0 ? extraction.Copy(out + payloadBytes, sessionRate) : 0;
        Answer(session, sessionSize, needed != 0 ? out + payloadBytes : out, sessionBytes);
    }
    if (wantsPayload || wantsSession) {
        extraction.EmptyPayloads();
    }
    return kKzmfDone;
}

uint32_t MetadataGetPayload(void* buffer, uint32_t bufferSize, void** payload, uint32_t* payloadSize) {
    return MetadataGetPayloadAndSession(buffer, bufferSize, payload, payloadSize, nullptr, nullptr, 0);
}

uint32_t MetadataGetPayloadGroup(kzmfGroup& group, void* buffer, uint32_t bufferSize, void** payload,
                                 uint32_t* payloadSize) {
    Extraction extraction;
    Measure measure(0);
    bool full = false;
    for (kzmfStream* stream = StreamAt(group.position); stream != nullptr; stream = stream->next, ++group.position) {
        Measure longer = measure;
        const bool taken = extraction.TakeIf(*stream, [&](const kzmfStream& candidate) {
            if (group.unsentOnly ? !KzmfIsUnsent(candidate) : !HasContent(candidate)) {
                return false;
            }
            longer.Add(candidate);
            full = longer.size() > bufferSize || (measure.size() != 0 && longer.size() > group.limit);
            return !full;
        });
        if (full) {
            break;
        }
        if (taken) {
            measure = longer;
        }
    }
    if (measure.size() == 0 && full) {
        ++group.position;
        return kKzmfNoRoom;
    }
    Answer(payload, payloadSize, buffer, measure.size() != 0 ? extraction.Copy(static_cast<uint8_t*>(buffer), 0) : 0);
    extraction.EmptyPayloads();
    return kKzmfDone;
}

uint32_t MetadataEstimateReadBufferSize(uint32_t sessionRate) {
    Measure measure(sessionRate);
    ForEachStream([&](const kzmfStream& stream) { measure.Add(stream); });
    return Saturated(measure.size());
}

uint32_t MetadataEstimateUnsentSize() {
    Measure measure(0);
    ForEachStream([&](const kzmfStream& stream) {
        if (KzmfIsUnsent(stream)) {
            measure.Add(stream);
        }
    });
    return Saturated(measure.size());
}

uint32_t MetadataMaximumReadBufferSize() {
    uint64_t sum = 0;
    ForEachStream([&](const kzmfStream& stream) {
        sum += KzmfRoundUp4(kKzmfHeaderSize + stream.payload.used);
        sum += KzmfRoundUp4(kKzmfHeaderSize + stream.sticky.used);
    });
    return Saturated((sum * 22 / 10) & ~uint64_t{3});
}
