// The stores: samples are converted to big-endian where they will stay, among the records of their area.
#include <bit>
#include <cstring>

#include "kzmfStream.h"

namespace {

constexpr uint32_t kLargestStructure = 255;
constexpr uint32_t kLargestRepeat = 65535;

// Where a record is made that is too large to be made in place. All streams share it, so its user holds the mutex; no
// other lock is taken meanwhile.
struct WorkBuffer {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    uint8_t* data = nullptr;
    uint32_t size = 0;
} g_workBuffer;

// ---------------------------------------------------------------- big-endian copies

template <typename Value>
Value Reversed(Value value) {
    if constexpr (sizeof(Value) == 2) {
        return __builtin_bswap16(value);
    } else if constexpr (sizeof(Value) == 4) {
        return __builtin_bswap32(value);
    } else {
        return __builtin_bswap64(value);
    }
}

void CopyBytes(uint8_t* out, const uint8_t* data, uint32_t size) {
    if (size != 0) {
        std::memcpy(out, data, size);
    }
}

// Bytes behind the last whole unit are copied as they are.
template <typename Value>
void CopyReversed(uint8_t* out, const uint8_t* data, uint32_t size) {
    constexpr uint32_t kUnit = sizeof(Value);
    uint32_t at = 0;
    for (; size - at >= kUnit; at += kUnit) {
        Value value;
        std::memcpy(&value, data + at, kUnit);
        value = Reversed(value);
        std::memcpy(out + at, &value, kUnit);
    }
    if (at < size) [[unlikely]] {
        CopyBytes(out + at, data + at, size - at);
    }
}

void CopyToBigEndian(uint8_t* out, const uint8_t* data, uint32_t size, int swapUnit) {
    if constexpr (std::endian::native == std::endian::big) {
        swapUnit = 1;
    }
    switch (swapUnit) {
        case 2:
            return CopyReversed<uint16_t>(out, data, size);
        case 4:
            return CopyReversed<uint32_t>(out, data, size);
        case 8:
            return CopyReversed<uint64_t>(out, data, size);
        default:
            return CopyBytes(out, data, size);
    }
}

// One sample whose fields `typeText` names. The walk ends with the text, at the first character that is no type, or at
// the first field that does not fit the sample; what is left of the sample is copied as it is.
void CopyComplexSample(uint8_t* out, const uint8_t* data, uint32_t structureSize, const char* typeText) {
    uint32_t at = 0;
    for (const char* type = typeText; *type != '\0'; ++type) {
        const uint32_t character = static_cast<uint8_t>(*type);
        const int fieldSize = MetadataTypeSize(character);
        if (fieldSize < 0 || static_cast<uint32_t>(fieldSize) > structureSize - at) {
            break;
        }
        CopyToBigEndian(out + at, data + at, static_cast<uint32_t>(fieldSize), MetadataEndianSize(character));
        at += static_cast<uint32_t>(fieldSize);
    }
    CopyBytes(out + at, data + at, structureSize - at);
}

void PutData(uint8_t* out, const KzmfSamples& samples, const kzmfStream& stream) {
    if ((samples.flags & kKzmfBigEndian) != 0) {
        CopyBytes(out, samples.data, samples.DataSize());
    } else if (samples.type == kTypeComplex) {
        for (uint32_t i = 0; i < samples.repeat; ++i) {
            const uint32_t at = i * samples.structureSize;
            CopyComplexSample(out + at, samples.data + at, samples.structureSize, stream.typeText);
        }
    } else {
        CopyToBigEndian(out, samples.data, samples.DataSize(), MetadataEndianSize(samples.type));
    }
}

// Zeroes up to the next multiple of 4.
void Pad(uint8_t* data, uint32_t size) {
    switch (size % 4) {
        case 1:
            data[size + 2] = 0;
            [[fallthrough]];
        case 2:
            data[size + 1] = 0;
            [[fallthrough]];
        case 3:
            data[size] = 0;
            [[fallthrough]];
        default:
            break;
    }
}

void PutRecord(uint8_t* place, const KzmfSamples& samples, const kzmfStream& stream) {
    KzmfWriteHeader(place, samples.key, samples.type, samples.structureSize, samples.repeat);
    PutData(place + kKzmfHeaderSize, samples, stream);
    Pad(place + kKzmfHeaderSize, samples.DataSize());
}

// ---------------------------------------------------------------- new records

// At the end of the area; in front of all others for accumulating stores.
uint32_t AddRecord(kzmfArea& area, const KzmfSamples& samples, const kzmfStream& stream) {
    if (!KzmfHasRoom(area, samples.Length())) {
        return kKzmfNoRoom;
    }
    const uint32_t size = KzmfRoundUp4(samples.Length());
    uint8_t* place = area.data + area.used;
    if ((samples.flags & kKzmfAccumulate) != 0) {
        std::memmove(area.data + size, area.data, area.used);
        place = area.data;
    }
    PutRecord(place, samples, stream);
    area.used += size;
    return kKzmfDone;
}

// ---------------------------------------------------------------- sticky records

bool Accumulates(const uint8_t* stored, const KzmfSamples& samples) {
    return (samples.flags & kKzmfAccumulate) != 0 && (samples.type == 'L' || samples.type == 'h') &&
           KzmfRecordType(stored) == samples.type && KzmfRecordDataSize(stored) >= 4 && samples.DataSize() >= 4;
}

// The new value takes the old one's place when it takes the same room; otherwise the old one stays.
void ReplaceSticky(uint8_t* stored, const KzmfSamples& samples, const kzmfStream& stream) {
    if (KzmfRecordSize(stored) != KzmfRoundUp4(samples.Length())) {
        return;
    }
    uint8_t* value = stored + kKzmfHeaderSize;
    const uint32_t before = Accumulates(stored, samples) ? KzmfReadBE32(value) : 0;
    PutRecord(stored, samples, stream);
    if (before != 0) {
        KzmfWriteBE32(value, before + KzmfReadBE32(value));
    }
}

uint32_t StoreSticky(kzmfStream& stream, const KzmfSamples& samples) {
    uint8_t* stored = KzmfFindRecord(stream.sticky, samples.key);
    if (stored != nullptr) {
        ReplaceSticky(stored, samples, stream);
    } else if (AddRecord(stream.sticky, samples, stream) != kKzmfDone) {
        return kKzmfNoRoom;
    }
    stream.stickyUnsent = 1;
    return kKzmfDone;
}

// ---------------------------------------------------------------- payload records

// A record of another layout under the same key stays a record of its own.
uint8_t* FindOpenRecord(const kzmfArea& area, const KzmfSamples& samples) {
    for (uint32_t at = 0; at < area.used; at += KzmfRecordSize(area.data + at)) {
        uint8_t* record = area.data + at;
        if (KzmfReadKey(record) == samples.key && KzmfRecordType(record) == samples.type &&
            KzmfRecordStructureSize(record) == samples.structureSize) {
            return record;
        }
    }
    return nullptr;
}

uint32_t AddSamples(kzmfArea& area, uint8_t* record, const KzmfSamples& samples, const kzmfStream& stream) {
    const uint32_t repeat = KzmfRecordRepeat(record) + samples.repeat;
    if (repeat > kLargestRepeat || !KzmfHasRoom(area, samples.Length())) {
        return kKzmfNoRoom;
    }
    uint8_t* data = record + kKzmfHeaderSize;
    const uint32_t oldSize = KzmfRecordDataSize(record);
    const uint32_t newSize = oldSize + samples.DataSize();
    const uint32_t growth = KzmfRoundUp4(newSize) - KzmfRoundUp4(oldSize);
    uint8_t* behind = data + KzmfRoundUp4(oldSize);
    uint8_t* end = area.data + area.used;
    if (behind != end && growth != 0) {
        std::memmove(behind + growth, behind, static_cast<size_t>(end - behind));
    }
    PutData(data + oldSize, samples, stream);
    Pad(data, newSize);
    KzmfWriteBE16(record + 6, repeat);
    area.used += growth;
    return kKzmfDone;
}

bool IsPlainCounter(const uint8_t* record) {
    return KzmfReadBE32(record + 4) == (uint32_t{'L'} << 24 | 4u << 16 | 1u);
}

// The payload area alone decides: samples whose counter finds no room in the sticky area are stored uncounted.
uint32_t StoreInPayload(kzmfStream& stream, const KzmfSamples& samples, uint32_t counted) {
    kzmfArea& area = stream.payload;
    uint8_t* record = FindOpenRecord(area, samples);
    const uint32_t result =
        record != nullptr ? AddSamples(area, record, samples, stream) : AddRecord(area, samples, stream);
    if (result != kKzmfDone) {
        return result;
    }
    stream.lastKey = samples.key;
    stream.lastHeader = samples.type << 24 | samples.structureSize << 16 | samples.repeat;
    if (uint8_t* counter = KzmfFindRecord(stream.sticky, kKeyTotalSamples);
        counter != nullptr && IsPlainCounter(counter)) {
        KzmfWriteBE32(counter + kKzmfHeaderSize, KzmfReadBE32(counter + kKzmfHeaderSize) + counted);
    } else {
        KzmfCount(stream, kKeyTotalSamples, counted);
    }
    return kKzmfDone;
}

// ---------------------------------------------------------------- whole stores

// Keys and containers that would break the sequence of records they are placed in.
bool IsStorable(const KzmfSamples& samples) {
    constexpr uint32_t kLevel = 3;  // below the device, the stream and the container itself
    if (!KzmfIsValidKey(samples.key)) {
        return false;
    }
    return samples.type != kTypeContainer ||
           (samples.DataSize() % 4 == 0 && IsValidKZMF(samples.data, samples.DataSize(), true, kLevel));
}

uint32_t Store(kzmfStream& stream, const KzmfSamples& samples, uint32_t counted) {
    if (!IsStorable(samples)) {
        return kKzmfDone;
    }
    return samples.IsSticky() ? StoreSticky(stream, samples) : StoreInPayload(stream, samples, counted);
}

// A time offset; 0 is none. `flags` say whether it is big-endian already.
struct TimeOffset {
    float value;
    uint32_t flags;

    bool present() const { return value != 0.0F; }
};

// The offset is stored first. A sticky area without room for it does not keep the samples from being stored; samples
// that find no room take their offset back with them.
uint32_t StoreWithTimeOffset(kzmfStream& stream, const KzmfSamples& samples, const TimeOffset& timeOffset) {
    uint8_t before[kKzmfStickySize];
    const uint32_t usedBefore = stream.sticky.used;
    const uint32_t unsentBefore = stream.stickyUnsent;
    std::memcpy(before, stream.sticky.data, sizeof(before));
    uint8_t value[sizeof(float)];
    std::memcpy(value, &timeOffset.value, sizeof(float));
    StoreSticky(stream, {kKeyTimeOffset, 'f', sizeof(float), 1, value, timeOffset.flags & kKzmfBigEndian});
    const uint32_t result = Store(stream, samples, samples.repeat);
    if (result != kKzmfDone) {
        std::memcpy(stream.sticky.data, before, usedBefore);
        stream.sticky.used = usedBefore;
        stream.stickyUnsent = unsentBefore;
    }
    return result;
}

// The text may end at a zero byte; one that is too long is no text.
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
                                                 : Store(stream, samples, samples.repeat);
    if (samples.key == kKeyTypeText && result == kKzmfDone) {
        RememberTypeText(stream, samples);
    }
    return result;
}

// Whether less than half of what an area has free is needed: then samples are placed without a copy on the side.
bool FitsBeside(const kzmfArea& area, uint32_t need) {
    return 2 * need < area.size - area.used;
}

// By way of the work buffer, which must hold the whole record.
uint32_t WriteLarge(kzmfStream& stream, KzmfSamples samples, const TimeOffset& timeOffset, uint32_t need) {
    uint32_t result = kKzmfNoRoom;
    pthread_mutex_lock(&g_workBuffer.mutex);
    if (need < g_workBuffer.size) {
        PutData(g_workBuffer.data, samples, stream);
        samples.data = g_workBuffer.data;
        samples.flags |= kKzmfBigEndian;
        result = Write(stream, samples, timeOffset);
    }
    pthread_mutex_unlock(&g_workBuffer.mutex);
    return result;
}

}  // namespace

void KzmfCount(kzmfStream& stream, uint32_t key, uint32_t amount) {
    uint8_t value[4];
    KzmfWriteBE32(value, amount);
    StoreSticky(stream, {key, 'L', sizeof(value), 1, value, kKzmfAccumulate | kKzmfBigEndian});
}

uint32_t KzmfStore(kzmfStream& stream, const KzmfSamples& samples, uint32_t counted) {
    return Store(stream, samples, counted);
}

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
    if (structureSize > kLargestStructure || repeat > kLargestRepeat) {
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
