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
    uint32_t deviceCounter;            // last device id given out; that of the list's first record counts
    uint32_t lastKey;                  // last record stored in the payload; 0 when there was none
    uint32_t lastHeader;               // its type, structure size and repeat
    uint32_t sessionPhase;             // samples still to pass over before the session copy takes one
    uint32_t stickyUnsent;             // 1 when a sticky value was stored since the last extraction
    uint32_t taken;                    // 1 while an extraction holds this stream
    char name[kKzmfNameSize];          // not terminated when it fills the field
    char typeText[kKzmfTypeTextSize];  // the complex type; empty when none is known
};
static_assert(sizeof(kzmfStream) <= kKzmfStickyOffset);
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

// What one store brings: `repeat` samples of `structureSize` bytes, at most 65535 and 255. `flags` are those of a
// store.
struct KzmfSamples {
    uint32_t key;
    uint32_t type;
    uint32_t structureSize;
    uint32_t repeat;
    const uint8_t* data;
    uint32_t flags;

    uint32_t DataSize() const { return structureSize * repeat; }
    uint32_t Length() const { return kKzmfHeaderSize + DataSize(); }  // of their record, without padding
    bool IsSticky() const { return (flags & kKzmfSticky) != 0; }
};

// Whether something was stored since the last extraction.
inline bool KzmfIsUnsent(const kzmfStream& stream) {
    return stream.payload.used != 0 || stream.stickyUnsent != 0;
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
// Whether a record of `length` bytes, header included, may be added. An area in use keeps 4 bytes free beyond it.
inline bool KzmfHasRoom(const kzmfArea& area, uint32_t length) {
    if (area.used == 0) {
        return KzmfRoundUp4(length) <= area.size;
    }
    return length + kKzmfStoreMargin < area.size - area.used;
}
// Adds `amount` to the sticky counter `key`; a new one is placed in front. A sticky area without room keeps no new
// counter.
void KzmfCount(kzmfStream& stream, uint32_t key, uint32_t amount);
// Places samples among the records of their area, as AppendFormattedMetadata says. `counted` goes into "TSMP".
uint32_t KzmfStore(kzmfStream& stream, const KzmfSamples& samples, uint32_t counted);
