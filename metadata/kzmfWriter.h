// The KZMF stream writer: keeps the samples of sensor streams and makes KZMF payloads of them on request.
//
// Each stream lives in a buffer that its caller owns: a record, a sticky area (values repeated in every payload, such
// as counters) and a payload area (emptied by each extraction). Nothing is allocated. The format itself: kzmfFormat.h.
//
// Threads: any. The list mutex guards the list and every walk over it, each stream's mutex its areas. A store takes
// only its stream's mutex; an extraction takes the list's and then those of its streams, in list order, and keeps them
// until it is done. So a payload shows all streams at one moment, and no sample that is stored meanwhile is lost. A
// handle must not be used after its close.
#pragma once

#include <pthread.h>

#include <cstdint>

struct kzmfStream;

// Results of the operations below that return a number.
enum kzmfResult : uint32_t {
    kKzmfDone = 0,
    kKzmfNoHandle = 1,
    kKzmfNoRoom = 2,  // no room in the area, or the buffer given is too small; nothing changed
};

// Flags of a store.
constexpr uint32_t kKzmfSticky = 1;      // store in the sticky area
constexpr uint32_t kKzmfBigEndian = 2;   // the data is big-endian already
constexpr uint32_t kKzmfAccumulate = 8;  // sticky 'L' and 'h': add to the stored value; a new record goes in front
constexpr uint32_t kKzmfMutexHeld = 1u << 31;  // the caller holds the stream's mutex

constexpr uint32_t kKzmfMinimumStreamBuffer = 776;

extern kzmfStream* g_metadata_devices;          // head of the list of streams, in opening order
extern pthread_mutex_t g_metadata_device_list;  // guards it

// ---------------------------------------------------------------- service

// Create and destroy the list mutex. Calling either again has no effect. No stream may be used after the close.
void MetadataServiceInit();
void MetadataServiceClose();

// Sets the scratch space that all streams share for samples that need half of what their area has free, or more. It
// must stay until another one is set. kKzmfNoRoom when either argument is 0.
uint32_t MetadataSetWorkBuf(void* buffer, uint32_t size);

// ---------------------------------------------------------------- streams

// Makes a stream of `buffer` (aligned as malloc does) and appends it to the list. At most 80 characters of `name`
// count; null is an empty name. A device id of 0 takes the next number of a counter. Returns the handle, which is the
// buffer, or null: fewer than kKzmfMinimumStreamBuffer bytes, a misaligned buffer, or one that is a stream already.
void* MetadataStreamOpen(uint32_t deviceId, const char* name, void* buffer, uint32_t bufferSize);
// Takes the stream off the list and gives its buffer back to the caller; null for a handle that is not open.
void* MetadataStreamClose(void* handle);
// Empties the payload and sets the counters "TSMP" and "EMPT" to 0. Other sticky records stay.
void MetadataStreamReset(void* handle);
// Whether any stream is open.
bool MetadataHasStreams();

// ---------------------------------------------------------------- stores

// Stores `repeat` samples of `structureSize` bytes each under `key`; `data` must hold their product. Values are in the
// machine's byte order unless flagged. For type '?' the fields follow the stream's last "TYPE" text. A time offset
// other than 0 is kept in the sticky "TIMO".
//   kKzmfDone      stored; or silently dropped, when the key is not four valid characters, or the data of a container
//                  is not a sequence of records
//   kKzmfNoHandle
//   kKzmfNoRoom    no room in the area that the flags choose; also for more than 255 bytes a sample or 65535 samples
// When the sticky area has no room for "TSMP" or "TIMO", samples for the payload area are stored without that value.
uint32_t MetadataStreamWrite(void* handle, uint32_t key, uint32_t type, uint32_t structureSize, uint32_t repeat,
                             const void* data, uint32_t flags, float timeOffset);

// Stores a record of `length` bytes that is complete, big-endian and unpadded. Payload: samples are added to a record
// of the same key, type and structure size; otherwise a record is added at the end. Sticky: a record of the same key is
// replaced when the data takes the same room and left alone when not. `repeat` samples are counted in "TSMP" for a
// payload record. Results and silent drops as above; a record whose header does not say `length` is dropped too.
uint32_t AppendFormattedMetadata(void* handle, const void* record, uint32_t length, uint32_t flags, uint32_t repeat);

// ---------------------------------------------------------------- extractions

// Writes the payload of all streams and, behind it, a session copy into `buffer` and empties the payload areas. Each
// copy is asked for by its pair of out-parameters (either may be null); they are left alone on kKzmfNoRoom and say 0
// bytes when there is nothing. In the session copy a record of at least 2 * sessionRate samples is thinned to about
// `sessionRate` whole samples; a rate of 0 thins nothing. A stream that has had samples but has none now gives an empty
// record of its last key and counts this in "EMPT"; one in which nothing was ever stored gives an empty "STRM".
uint32_t MetadataGetPayloadAndSession(void* buffer, uint32_t bufferSize, void** payload, uint32_t* payloadSize,
                                      void** session, uint32_t* sessionSize, uint32_t sessionRate);
uint32_t MetadataGetPayload(void* buffer, uint32_t bufferSize, void** payload, uint32_t* payloadSize);

// The exact size that the payload (rate 0) or the session copy would take now.
uint32_t MetadataEstimateReadBufferSize(uint32_t sessionRate);
// An upper estimate for both together: 2.2 times the room that is used now.
uint32_t MetadataMaximumReadBufferSize();

// ---- payloads of a limited size: the streams in groups

// The state of a round over the list.
struct kzmfGroup {
    uint32_t limit;     // most bytes of one payload; a stream that is longer by itself gets a payload of its own
    bool unsentOnly;    // pass over streams in which nothing was stored since the last extraction
    uint32_t position;  // streams of the list already passed; 0 begins a round
};
// Does what MetadataGetPayload does, for the next streams of the round that fit the limit together. Streams in which
// nothing was ever stored are left out. A payload of 0 bytes ends the round. kKzmfNoRoom says that the next stream does
// not fit the buffer at all; it is passed over and keeps its samples.
uint32_t MetadataGetPayloadGroup(kzmfGroup& group, void* buffer, uint32_t bufferSize, void** payload,
                                 uint32_t* payloadSize);
// The size of a payload of the streams in which something was stored since the last extraction; 0 when there is none.
uint32_t MetadataEstimateUnsentSize();
