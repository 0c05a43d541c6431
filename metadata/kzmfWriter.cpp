// The writer's service and its streams: the list, opening, closing and resetting. Stores: kzmfStreamWrite.cpp;
// extractions: kzmfExtract.cpp.
#include "kzmfWriter.h"

#include <cstring>
#include <new>

#include "kzmfStream.h"

kzmfStream* g_metadata_devices = nullptr;
pthread_mutex_t g_metadata_device_list = PTHREAD_MUTEX_INITIALIZER;

namespace {

bool g_listMutexReady = true;

// The most of a buffer that is used for samples: the container of a longer stream could not say its length.
constexpr uint32_t kLargestPayloadArea = kKzmfLongestContainer - 1024;

bool IsListed(const void* buffer) {
    for (const kzmfStream* stream = g_metadata_devices; stream != nullptr; stream = stream->next) {
        if (stream == buffer) {
            return true;
        }
    }
    return false;
}

uint32_t NextDeviceId(kzmfStream& opened) {
    kzmfStream& first = g_metadata_devices != nullptr ? *g_metadata_devices : opened;
    return ++first.deviceCounter;
}

void AppendToList(kzmfStream& stream) {
    kzmfStream* last = g_metadata_devices;
    if (last == nullptr) {
        g_metadata_devices = &stream;
        return;
    }
    while (last->next != nullptr) {
        last = last->next;
    }
    last->next = &stream;
    stream.prev = last;
}

void TakeOffList(kzmfStream& stream) {
    if (stream.next != nullptr) {
        stream.next->prev = stream.prev;
    }
    if (stream.prev != nullptr) {
        stream.prev->next = stream.next;
        return;
    }
    g_metadata_devices = stream.next;
    if (stream.next != nullptr) {
        stream.next->deviceCounter = stream.deviceCounter;  // it is kept in the first stream
    }
}

void ZeroCounter(kzmfStream& stream, uint32_t key) {
    uint8_t* counter = KzmfFindRecord(stream.sticky, key);
    if (counter != nullptr && KzmfRecordDataSize(counter) >= 4) {
        KzmfWriteBE32(counter + kKzmfHeaderSize, 0);
    }
}

}  // namespace

void MetadataServiceInit() {
    if (!g_listMutexReady) {
        pthread_mutex_init(&g_metadata_device_list, nullptr);
        g_listMutexReady = true;
    }
}

void MetadataServiceClose() {
    if (g_listMutexReady) {
        pthread_mutex_destroy(&g_metadata_device_list);
        g_listMutexReady = false;
    }
}

void* MetadataStreamOpen(uint32_t deviceId, const char* name, void* buffer, uint32_t bufferSize) {
    if (buffer == nullptr || bufferSize < kKzmfMinimumStreamBuffer ||
        reinterpret_cast<uintptr_t>(buffer) % alignof(kzmfStream) != 0) {
        return nullptr;
    }
    const KzmfListLock lock;
    if (IsListed(buffer)) {
        return nullptr;
    }
    auto* bytes = static_cast<uint8_t*>(buffer);
    std::memset(bytes, 0, kKzmfPayloadOffset);
    kzmfStream& stream = *new (buffer) kzmfStream{};
    pthread_mutex_init(&stream.mutex, nullptr);
    if (name != nullptr) {
        std::memcpy(stream.name, name, strnlen(name, kKzmfNameSize));
    }
    const uint32_t payloadSize = bufferSize - kKzmfPayloadOffset;
    stream.payload = {bytes + kKzmfPayloadOffset, payloadSize < kLargestPayloadArea ? payloadSize : kLargestPayloadArea,
                      0};
    stream.sticky = {bytes + kKzmfStickyOffset, kKzmfStickySize, 0};
    stream.deviceId = deviceId != 0 ? deviceId : NextDeviceId(stream);
    AppendToList(stream);
    return buffer;
}

void* MetadataStreamClose(void* handle) {
    const KzmfListLock listLock;
    if (handle == nullptr || !IsListed(handle)) {
        return nullptr;
    }
    kzmfStream& stream = *static_cast<kzmfStream*>(handle);
    {
        const KzmfStreamLock lock(stream);
        TakeOffList(stream);
    }
    pthread_mutex_destroy(&stream.mutex);
    return handle;
}

void MetadataStreamReset(void* handle) {
    if (handle == nullptr) {
        return;
    }
    kzmfStream& stream = *static_cast<kzmfStream*>(handle);
    const KzmfStreamLock lock(stream);
    stream.payload.used = 0;
    ZeroCounter(stream, kKeyTotalSamples);
    ZeroCounter(stream, kKeyEmptyPayloads);
}

bool MetadataHasStreams() {
    const KzmfListLock lock;
    return g_metadata_devices != nullptr;
}
