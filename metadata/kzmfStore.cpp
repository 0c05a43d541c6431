// The areas of a stream: where the record of a store is placed or grows.
#include <cstring>

#include "kzmfStream.h"

namespace {

// ---------------------------------------------------------------- new records

// Adds a record at the end of the area; an accumulating store adds it in front of all others.
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
    KzmfPutRecord(place, samples, stream.typeText);
    area.used += size;
    return kKzmfDone;
}

// ---------------------------------------------------------------- sticky records

// Whether the new value is added to the stored one. Only counters of the types 'L' and 'h' are added up.
bool Accumulates(const uint8_t* stored, const KzmfSamples& samples) {
    return (samples.flags & kKzmfAccumulate) != 0 && (samples.type == 'L' || samples.type == 'h') &&
           KzmfRecordType(stored) == samples.type && KzmfRecordDataSize(stored) >= 4 && samples.DataSize() >= 4;
}

// Replaces the stored record when the new one takes the same room; otherwise the old one stays, because the records
// behind it do not move.
void ReplaceSticky(uint8_t* stored, const KzmfSamples& samples, const kzmfStream& stream) {
    if (KzmfRecordSize(stored) != KzmfRoundUp4(samples.Length())) {
        return;
    }
    uint8_t* value = stored + kKzmfHeaderSize;
    const uint32_t before = Accumulates(stored, samples) ? KzmfReadBE32(value) : 0;
    KzmfPutRecord(stored, samples, stream.typeText);
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
    stream.stickyUnsent = true;
    return kKzmfDone;
}

// ---------------------------------------------------------------- payload records

// Finds the record that samples are added to: one of the same key, type and structure size. A record has one layout, so
// that samples of another one under the same key get a record of their own. Returns null when there is none.
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
    if (repeat > kKzmfLargestRepeat || !KzmfHasRoom(area, samples.Length())) {
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
    KzmfPutData(data + oldSize, samples, stream.typeText);
    KzmfPad(data, newSize);
    KzmfWriteBE16(record + 6, repeat);
    area.used += growth;
    return kKzmfDone;
}

// Whether a counter has exactly one value of type 'L'. Such a counter is added to in place, since that happens with
// every store.
bool IsPlainCounter(const uint8_t* record) {
    return KzmfReadBE32(record + 4) == (uint32_t{'L'} << 24 | 4u << 16 | 1u);
}

// Only the payload area decides whether samples are stored: when the sticky area has no room for their counter, they
// are stored uncounted.
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

// ---------------------------------------------------------------- either area

// Whether samples may become a record. An invalid key, or a container whose data is no sequence of records, would make
// every payload of the stream invalid.
bool IsStorable(const KzmfSamples& samples) {
    constexpr uint32_t kLevel = 3;  // below the device, the stream and the container itself
    if (!KzmfIsValidKey(samples.key)) {
        return false;
    }
    return samples.type != kTypeContainer ||
           (samples.DataSize() % 4 == 0 && IsValidKZMF(samples.data, samples.DataSize(), true, kLevel));
}

}  // namespace

void KzmfCount(kzmfStream& stream, uint32_t key, uint32_t amount) {
    uint8_t value[4];
    KzmfWriteBE32(value, amount);
    StoreSticky(stream, {key, 'L', sizeof(value), 1, value, kKzmfAccumulate | kKzmfBigEndian});
}

uint32_t KzmfStore(kzmfStream& stream, const KzmfSamples& samples, uint32_t counted) {
    if (!IsStorable(samples)) {
        return kKzmfDone;
    }
    return samples.IsSticky() ? StoreSticky(stream, samples) : StoreInPayload(stream, samples, counted);
}
