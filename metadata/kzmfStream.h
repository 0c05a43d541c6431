// One metadata stream as it lies in its caller's buffer. For the writer's own sources and its tests.
//
//   0    264  the record below
//   264  256  sticky area
//   520  ...  payload area, the rest of the buffer
//
// Both areas hold whole records, each padded to a multiple of 4, so `used` is always a multiple of 4.
#pragma once

#include <pthread.h>

#include <cstdint>
#include <type_traits>

#include "kzmfFormat.h"
#include "kzmfSamples.h"
#include "kzmfWriter.h"

constexpr uint32_t kKzmfStickySize = 256;
constexpr uint32_t kKzmfPayloadOffset = 520;
constexpr uint32_t kKzmfStickyOffset = kKzmfPayloadOffset - kKzmfStickySize;
constexpr uint32_t kKzmfNameSize = 80;
constexpr uint32_t kKzmfTypeTextSize = 64;  // 63 characters and a zero byte

struct kzmfArea {
    uint8_t* data;
    uint32_t size;
    uint32_t used;
};

struct kzmfStream {
    pthread_mutex_t mutex;  // guards everything below but `next`, `prev` and `taken`
    kzmfStream* next;       // these three: guarded by g_metadata_device_list
    kzmfStream* prev;
    kzmfArea payload;
    kzmfArea sticky;
    uint32_t deviceId;
    uint32_t deviceCounter;            // last device id given out; only the first stream's is used
    uint32_t lastKey;                  // key of the last record stored in the payload; 0 when none was
    uint32_t lastHeader;               // its type, structure size and repeat
    uint32_t sessionPhase;             // samples to be passed over before a session copy keeps one
    bool stickyUnsent;                 // a sticky value was stored since the last extraction
    bool taken;                        // an extraction holds this stream
    char name[kKzmfNameSize];          // not terminated when it fills the field
    char typeText[kKzmfTypeTextSize];  // the complex type; empty when none is known
};
static_assert(sizeof(kzmfStream) <= kKzmfStickyOffset);  // AArch64 fills it: the mutex takes 48 bytes there
static_assert(std::is_trivially_copyable_v<kzmfStream>);

// Holds a stream's mutex for its own life, unless the caller already does.
class KzmfStreamLock {
  public:
    explicit KzmfStreamLock(kzmfStream& stream, bool heldByCaller = false)
        : m_mutex(heldByCaller ? nullptr : &stream.mutex) {
        if (m_mutex != nullptr) {
            pthread_mutex_lock(m_mutex);
        }
    }
    ~KzmfStreamLock() {
        if (m_mutex != nullptr) {
            pthread_mutex_unlock(m_mutex);
        }
    }
    KzmfStreamLock(const KzmfStreamLock&) = delete;
    KzmfStreamLock& operator=(const KzmfStreamLock&) = delete;

  private:
    pthread_mutex_t* m_mutex;
};

// Holds the mutex of the stream list for its own life.
class KzmfListLock {
  public:
    KzmfListLock() { pthread_mutex_lock(&g_metadata_device_list); }
    ~KzmfListLock() { pthread_mutex_unlock(&g_metadata_device_list); }
    KzmfListLock(const KzmfListLock&) = delete;
    KzmfListLock& operator=(const KzmfListLock&) = delete;
};

// ---- the areas (kzmfStore.cpp); the caller holds the stream's mutex

constexpr uint32_t kKzmfCounterSize = kKzmfHeaderSize + 4;
constexpr uint32_t kKzmfStoreMargin = 4;

// Whether something was stored since the last extraction.
inline bool KzmfIsUnsent(const kzmfStream& stream) {
    return stream.payload.used != 0 || stream.stickyUnsent;
}

// The first record of `area` with `key`, or null.
inline uint8_t* KzmfFindRecord(const kzmfArea& area, uint32_t key) {
    for (uint32_t at = 0; at < area.used; at += KzmfRecordSize(area.data + at)) {
        if (KzmfReadKey(area.data + at) == key) {
            return area.data + at;
        }
    }
    return nullptr;
}
// Whether a record of `length` bytes, header included, may be added. In an area that holds records already, more than 4
// bytes must stay free behind it.
inline bool KzmfHasRoom(const kzmfArea& area, uint32_t length) {
    if (area.used == 0) {
        return KzmfRoundUp4(length) <= area.size;
    }
    return length + kKzmfStoreMargin < area.size - area.used;
}
// Adds `amount` to the sticky counter `key`. A counter that is not there yet is placed in front of the other records,
// if the area has room for it.
void KzmfCount(kzmfStream& stream, uint32_t key, uint32_t amount);
// Places samples among the records of their area, as AppendFormattedMetadata says. `counted` goes into "TSMP".
uint32_t KzmfStore(kzmfStream& stream, const KzmfSamples& samples, uint32_t counted);
