// What one stream gives to an extraction: its samples, whole or thinned, a mark when it is idle, or a payload that
// somebody else made. For the writer's own sources; the caller holds the stream's mutex.
#pragma once

#include <cstdint>
#include <cstring>

#include "kzmfStream.h"

// Characters of the stream's name.
inline uint32_t KzmfNameLength(const kzmfStream& stream) {
    return static_cast<uint32_t>(strnlen(stream.name, kKzmfNameSize));
}
// Whether anything was ever stored in the stream.
bool KzmfHasContent(const kzmfStream& stream);

// Whether the stream carries a payload that somebody else made: its device id is 0xFFFFFFFF, and its first record has
// the key "PFRM". The data of that record is the payload.
inline bool KzmfIsPreformatted(const kzmfStream& stream) {
    // A record without data is no payload: it is the mark of an idle stream.
    return stream.deviceId == 0xFFFFFFFF && stream.payload.used != 0 &&
           KzmfReadKey(stream.payload.data) == kKeyPreformatted && KzmfRecordDataSize(stream.payload.data) != 0;
}
// The size of that payload; 0 when it is not valid, so that nothing of it is copied.
uint32_t KzmfPreformattedSize(const kzmfStream& stream);

// A stream is idle when it has had samples and has none now.
inline bool KzmfIsIdle(const kzmfStream& stream) {
    return stream.payload.used == 0 && stream.lastKey != 0;
}
// Bytes that KzmfMarkIdle will add to the stream's areas.
uint32_t KzmfIdleMarkSize(const kzmfStream& stream);
// Gives an idle stream an empty record of its last key, and counts the empty payload in "EMPT".
void KzmfMarkIdle(kzmfStream& stream);

// What the stream's samples take in a thinned copy. The rate is not 0.
uint32_t KzmfThinnedSize(const kzmfStream& stream, uint32_t sessionRate);
// The length of the stream's container: what it gives to a copy of this rate, the mark of an idle stream included.
inline uint32_t KzmfStreamDataSize(const kzmfStream& stream, uint32_t sessionRate) {
    const uint32_t idle = KzmfIsIdle(stream) ? KzmfIdleMarkSize(stream) : 0;
    const uint32_t payload = sessionRate == 0 ? stream.payload.used : KzmfThinnedSize(stream, sessionRate);
    return stream.sticky.used + idle + payload;
}

// ---- thinning, in session copies

// Which samples of a record are kept: number `first`, and from there every `step`th, `count` in all.
struct KzmfThinning {
    uint32_t first;
    uint32_t step;
    uint32_t count;
};
// Whether a record is thinned in a copy of this rate: one of at least twice as many samples. A rate of 0 thins nothing.
bool KzmfIsThinned(const uint8_t* record, uint32_t sessionRate);
// The thinning of a record of at least 2 * sessionRate samples. `phase` is how many of its samples are passed over
// before one is kept; afterwards it says so for the stream's next record, where thinning goes on as if
// the records were one.
KzmfThinning KzmfThin(uint32_t samples, uint32_t sessionRate, uint32_t& phase);
