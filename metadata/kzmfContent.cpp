#include "kzmfContent.h"

#include <algorithm>

uint32_t KzmfPreformattedSize(const kzmfStream& stream) {
    const uint32_t size = KzmfRecordDataSize(stream.payload.data);
    return MetadataIsValidKZMF(stream.payload.data + kKzmfHeaderSize, size, true) && size % 4 == 0 ? size : 0;
}

bool KzmfHasContent(const kzmfStream& stream) {
    return stream.payload.used != 0 || stream.sticky.used != 0 || stream.lastKey != 0;
}

uint32_t KzmfIdleMarkSize(const kzmfStream& stream) {
    const bool newCounter =
        KzmfFindRecord(stream.sticky, kKeyEmptyPayloads) == nullptr && KzmfHasRoom(stream.sticky, kKzmfCounterSize);
    return kKzmfHeaderSize + (newCounter ? kKzmfCounterSize : 0);
}

void KzmfMarkIdle(kzmfStream& stream) {
    uint8_t header[kKzmfHeaderSize];
    KzmfWriteBE32(header + 4, stream.lastHeader);
    KzmfStore(stream, {stream.lastKey, KzmfRecordType(header), KzmfRecordStructureSize(header), 0, nullptr, 0}, 0);
    KzmfCount(stream, kKeyEmptyPayloads, 1);
}

bool KzmfIsThinned(const uint8_t* record, uint32_t sessionRate) {
    return sessionRate != 0 && KzmfRecordType(record) != kTypeContainer &&
           KzmfRecordRepeat(record) >= uint64_t{2} * sessionRate;
}

KzmfThinning KzmfThin(uint32_t samples, uint32_t sessionRate, uint32_t& phase) {
    KzmfThinning thinning{};
    thinning.step = std::max(2u, (samples + sessionRate / 2) / sessionRate);
    thinning.first = std::min(phase, thinning.step - 1);
    thinning.count = (samples - thinning.first + thinning.step - 1) / thinning.step;
    phase = thinning.first + thinning.count * thinning.step - samples;
    return thinning;
}

uint32_t KzmfThinnedSize(const kzmfStream& stream, uint32_t sessionRate) {
    uint32_t size = 0;
    uint32_t phase = stream.sessionPhase;
    for (uint32_t at = 0; at < stream.payload.used; at += KzmfRecordSize(stream.payload.data + at)) {
        const uint8_t* record = stream.payload.data + at;
        if (KzmfIsThinned(record, sessionRate)) {
            const KzmfThinning thinning = KzmfThin(KzmfRecordRepeat(record), sessionRate, phase);
            size += kKzmfHeaderSize + KzmfRoundUp4(thinning.count * KzmfRecordStructureSize(record));
        } else {
            size += KzmfRecordSize(record);
        }
    }
    return size;
}
