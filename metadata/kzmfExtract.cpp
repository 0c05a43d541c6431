// The extractions: payloads and session copies of the streams, their sizes before they are made, and the rounds in
// groups.
#include <algorithm>

#include "kzmfContent.h"
#include "kzmfCopy.h"

namespace {

// Holds the mutex of the list, and those of the streams that it takes, for its own life, so that nothing is stored
// between the measuring and the copying.
class Extraction {
  public:
    Extraction() = default;
    ~Extraction() {
        for (kzmfStream* stream = g_metadata_devices; stream != nullptr; stream = stream->next) {
            if (stream->taken) {
                stream->taken = false;
                pthread_mutex_unlock(&stream->mutex);
            }
        }
    }
    Extraction(const Extraction&) = delete;
    Extraction& operator=(const Extraction&) = delete;

    // Takes the next stream in list order.
    void Take(kzmfStream& stream) {
        pthread_mutex_lock(&stream.mutex);
        stream.taken = true;
    }
    // Takes the next stream in list order when `accept` agrees, which is asked with the stream's mutex held.
    template <typename Accept>
    bool TakeIf(kzmfStream& stream, Accept accept) {
        pthread_mutex_lock(&stream.mutex);
        if (accept(stream)) {
            stream.taken = true;
            return true;
        }
        pthread_mutex_unlock(&stream.mutex);
        return false;
    }

    // Copies the streams taken to `out`. Returns the number of bytes.
    uint32_t Copy(uint8_t* out, uint32_t sessionRate) {
        KzmfCopyWriter writer(out, sessionRate);
        ForTaken([&](kzmfStream& stream) { writer.Add(stream); });
        return writer.Finish();
    }

    void EmptyPayloads() {
        ForTaken([](kzmfStream& stream) {
            stream.payload.used = 0;
            stream.stickyUnsent = false;
        });
    }

  private:
    template <typename Action>
    void ForTaken(Action action) {
        for (kzmfStream* stream = g_metadata_devices; stream != nullptr; stream = stream->next) {
            if (stream->taken) {
                action(*stream);
            }
        }
    }

    KzmfListLock m_listLock;
};

// Fills in a pair of out-parameters, either of which may be null.
void Answer(void** place, uint32_t* size, void* bytes, uint32_t count) {
    if (place != nullptr) {
        *place = bytes;
    }
    if (size != nullptr) {
        *size = count;
    }
}

// Runs `action` on each stream, under the stream's mutex.
template <typename Action>
void ForEachStream(Action action) {
    const KzmfListLock listLock;
    for (kzmfStream* stream = g_metadata_devices; stream != nullptr; stream = stream->next) {
        const KzmfStreamLock lock(*stream);
        action(*stream);
    }
}

// The stream behind `position` others in the list, or null.
kzmfStream* StreamAt(uint32_t position) {
    kzmfStream* stream = g_metadata_devices;
    for (; stream != nullptr && position != 0; --position) {
        stream = stream->next;
    }
    return stream;
}

// The largest multiple of 4 stands for sizes beyond 32 bits.
uint32_t Saturated(uint64_t size) {
    return static_cast<uint32_t>(std::min<uint64_t>(size, UINT32_MAX & ~3u));
}

}  // namespace

uint32_t MetadataGetPayloadAndSession(void* buffer, uint32_t bufferSize, void** payload, uint32_t* payloadSize,
                                      void** session, uint32_t* sessionSize, uint32_t sessionRate) {
    const bool wantsPayload = payload != nullptr || payloadSize != nullptr;
    const bool wantsSession = session != nullptr || sessionSize != nullptr;
    Extraction extraction;
    KzmfMeasure payloadMeasure(0);
    KzmfMeasure sessionMeasure(sessionRate);
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
    KzmfMeasure measure(0);
    bool full = false;
    for (kzmfStream* stream = StreamAt(group.position); stream != nullptr; stream = stream->next, ++group.position) {
        KzmfMeasure longer = measure;
        const bool taken = extraction.TakeIf(*stream, [&](const kzmfStream& candidate) {
            if (group.unsentOnly ? !KzmfIsUnsent(candidate) : !KzmfHasContent(candidate)) {
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
    KzmfMeasure measure(sessionRate);
    ForEachStream([&](const kzmfStream& stream) { measure.Add(stream); });
    return Saturated(measure.size());
}

uint32_t MetadataEstimateUnsentSize() {
    KzmfMeasure measure(0);
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
