// The stores that callers ask for: their checks, the time offset, the text of a complex type, and the work buffer.
#include <cstring>

#include "kzmfStream.h"

namespace {

// Scratch space for samples that are too large to be converted in place. All streams share it, so its user holds its
// mutex, and takes no other lock meanwhile, so that two threads never wait for each other.
struct WorkBuffer {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    uint8_t* data = nullptr;
    uint32_t size = 0;
} g_workBuffer;

// The time offset of a store; 0 means that there is none. `flags` are those of the store: they say whether the offset
// is big-endian already.
struct TimeOffset {
    float value;
    uint32_t flags;

    bool present() const { return value != 0.0F; }
};

// Stores the offset and then the samples. When the sticky area has no room for the offset, the samples are stored
// without it. When the samples find no room, the sticky area is restored, because a refused store changes nothing.
uint32_t StoreWithTimeOffset(kzmfStream& stream, const KzmfSamples& samples, const TimeOffset& timeOffset) {
    uint8_t before[kKzmfStickySize];
    const uint32_t usedBefore = stream.sticky.used;
    const bool unsentBefore = stream.stickyUnsent;
    std::memcpy(before, stream.sticky.data, sizeof(before));
    uint8_t value[sizeof(float)];
    std::memcpy(value, &timeOffset.value, sizeof(float));
    const uint32_t flags = kKzmfSticky | (timeOffset.flags & kKzmfBigEndian);
    KzmfStore(stream, {kKeyTimeOffset, 'f', sizeof(float), 1, value, flags}, 0);
    const uint32_t result = KzmfStore(stream, samples, samples.repeat);
    if (result != kKzmfDone) {
        std::memcpy(stream.sticky.data, before, usedBefore);
        stream.sticky.used = usedBefore;
        stream.stickyUnsent = unsentBefore;
    }
    return result;
}

// Keeps the text that names the fields of complex samples. It ends at its first zero byte or with its record. A text
// that is too long is not kept: a part of it would describe other samples.
void RememberTypeText(kzmfStream& stream, const KzmfSamples& samples) {
    std::memset(stream.typeText, 0, sizeof(stream.typeText));
    if (samples.DataSize() == 0) {
        return;
    }
    const auto* text = reinterpret_cast<const char*>(samples.data);
    const size_t length = strnlen(text, samples.DataSize());
    if (length < sizeof(stream.typeText)) {
        std::memcpy(stream.typeText, text, length);
    }
}

uint32_t Write(kzmfStream& stream, const KzmfSamples& samples, const TimeOffset& timeOffset) {
    const uint32_t result = timeOffset.present() ? StoreWithTimeOffset(stream, samples, timeOffset)
                                                 : KzmfStore(stream, samples, samples.repeat);
    if (samples.key == kKeyTypeText && result == kKzmfDone) {
        RememberTypeText(stream, samples);
    }
    return result;
}

// Whether less than half of what the area has free is needed. Then samples are converted where they will stay, without
// the work buffer.
bool FitsBeside(const kzmfArea& area, uint32_t need) {
    return 2 * need < area.size - area.used;
}

// Stores samples by way of the work buffer, which must be larger than their need.
uint32_t WriteLarge(kzmfStream& stream, KzmfSamples samples, const TimeOffset& timeOffset, uint32_t need) {
    uint32_t result = kKzmfNoRoom;
    pthread_mutex_lock(&g_workBuffer.mutex);
    if (need < g_workBuffer.size) {
        KzmfPutData(g_workBuffer.data, samples, stream.typeText);
        samples.data = g_workBuffer.data;
        samples.flags |= kKzmfBigEndian;
        result = Write(stream, samples, timeOffset);
    }
    pthread_mutex_unlock(&g_workBuffer.mutex);
    return result;
}

}  // namespace

uint32_t MetadataSetWorkBuf(void* buffer, uint32_t size) {
    if (buffer == nullptr || size == 0) {
        return kKzmfNoRoom;
    }
    pthread_mutex_lock(&g_workBuffer.mutex);
    g_workBuffer.data = static_cast<uint8_t*>(buffer);
    g_workBuffer.size = size;
    pthread_mutex_unlock(&g_workBuffer.mutex);
    return kKzmfDone;
}

uint32_t AppendFormattedMetadata(void* handle, const void* record, uint32_t length, uint32_t flags, uint32_t repeat) {
    if (handle == nullptr) {
        return kKzmfNoHandle;
    }
    const auto* bytes = static_cast<const uint8_t*>(record);
    if (bytes == nullptr || length < kKzmfHeaderSize || length != kKzmfHeaderSize + KzmfRecordDataSize(bytes)) {
        return kKzmfDone;
    }
    kzmfStream& stream = *static_cast<kzmfStream*>(handle);
    const KzmfStreamLock lock(stream, (flags & kKzmfMutexHeld) != 0);
    return KzmfStore(stream,
                     {KzmfReadKey(bytes), KzmfRecordType(bytes), KzmfRecordStructureSize(bytes),
                      KzmfRecordRepeat(bytes), bytes + kKzmfHeaderSize, flags | kKzmfBigEndian},
                     repeat);
}

uint32_t MetadataStreamWrite(void* handle, uint32_t key, uint32_t type, uint32_t structureSize, uint32_t repeat,
                             const void* data, uint32_t flags, float timeOffset) {
    if (handle == nullptr) {
        return kKzmfNoHandle;
    }
    if (structureSize > kKzmfLargestStructure || repeat > kKzmfLargestRepeat) {
        return kKzmfNoRoom;
    }
    kzmfStream& stream = *static_cast<kzmfStream*>(handle);
    const KzmfSamples samples{key, type & 0xFF, structureSize, repeat, static_cast<const uint8_t*>(data), flags};
    const TimeOffset offset{timeOffset, flags};
    const uint32_t need = samples.Length() + kKzmfStoreMargin + (offset.present() ? kKzmfCounterSize : 0);

    const KzmfStreamLock lock(stream, (flags & kKzmfMutexHeld) != 0);
    const kzmfArea& target = samples.IsSticky() ? stream.sticky : stream.payload;
    if (need > target.size - target.used) {
        return kKzmfNoRoom;
    }
    if (FitsBeside(target, need) || FitsBeside(stream.payload, need)) {
        return Write(stream, samples, offset);
    }
    return WriteLarge(stream, samples, offset, need);
}
