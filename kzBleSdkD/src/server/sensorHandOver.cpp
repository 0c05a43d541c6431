// The hand-over of sensor metadata to the camera's metadata service.
//
// A hand-over sends one IPC record, or several when the streams do not fit one:
//   0  4  sequence number, little-endian: 49 first, from 64 back to 48
//   4  n  a KZMF payload
//
// When: every second tick, for all streams; at once when the unsent samples come near what a record holds, and before a
// client's streams are closed, for the streams with unsent samples or sticky values alone. So a stream is emptied long
// before its area is full.
#include <array>
#include <cstdint>

#include "kzBleServer.h"
#include "kzipc/kzipc.h"
#include "kzmfWriter.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

constexpr uint32_t kPayloadBudget = 4000;
constexpr uint32_t kLongestIpcPayload = 1400;
// The most that one sample can add to a payload: a device's container and head with a name of 17 characters (48), a
// stream's container (8) with a full sticky area (256), and a record of 35 data bytes (44).
constexpr uint32_t kLargestGrowth = 48 + 8 + 256 + 44;
constexpr uint32_t kNearLimit = kLongestIpcPayload - kLargestGrowth;
constexpr uint32_t kTicksPerSession = 2;  // a session is 1000 ms

constexpr uint32_t kSequenceSize = 4;
constexpr uint32_t kFirstSequenceNumber = 49;
constexpr uint32_t kLowestSequenceNumber = 48;
constexpr uint32_t kHighestSequenceNumber = 64;

uint32_t TakeSequenceNumber() {
    static uint32_t next = kFirstSequenceNumber;
    const uint32_t number = next;
    next = number == kHighestSequenceNumber ? kLowestSequenceNumber : number + 1;
    return number;
}

// An IPC record whose payload is extracted in place.
struct IpcRecord {
    std::array<uint8_t, kSequenceSize + kPayloadBudget> bytes;

    uint8_t* payload() { return bytes.data() + kSequenceSize; }
    void SetSequenceNumber(uint32_t number) {
        for (uint32_t i = 0; i < kSequenceSize; ++i) {
            bytes[i] = static_cast<uint8_t>(number >> 8 * i);
        }
    }
};

void Send(const IpcRecord& record, uint32_t size) {
    alignas(max_align_t) unsigned char channel[KZIPC_CHANNEL_SIZE] = {};
    const int result = kzIpcInit("metadata", channel);
    if (result < 0) {
        LOG_ERROR("IPC Failed to Init IPC %d", result);
        return;
    }
    if (kzIpcSend(channel, record.bytes.data(), size) < 0) {
        LOG_ERROR("IPC Failed to send IPC data");
    }
    kzIpcDestroy(channel);
}

// One payload as it came out of the writer.
void HandOverPayload(IpcRecord& record, uint32_t size) {
    LOG_INFO("IPC size = %d", static_cast<int>(size));
    if (size > kLongestIpcPayload) {
        LOG_ERROR("IPC write size exceeded");
        return;
    }
    if (size == 0) {
        return;
    }
    record.SetSequenceNumber(TakeSequenceNumber());
    Send(record, kSequenceSize + size);
}

// The caller holds the server lock. With many streams the containers and counters alone outgrow a record, so the
// streams go in groups, each a payload of its own.
void HandOver(bool unsentOnly) {
    static IpcRecord record;  // under the server lock
    kzmfGroup group{.limit = kLongestIpcPayload, .unsentOnly = unsentOnly, .position = 0};
    for (bool first = true;; first = false) {
        uint32_t size = 0;
        if (MetadataGetPayloadGroup(group, record.payload(), kPayloadBudget, nullptr, &size) != kKzmfDone) {
            LOG_ERROR("IPC write size exceeded");
            continue;  // one stream was too long; the others follow
        }
        if (size == 0 && !first) {
            return;
        }
        HandOverPayload(record, size);
        if (size == 0) {
            return;
        }
    }
}

}  // namespace

void KzBleServer::writeSession() {
    const Lock lock(&m_clientMutex);
    HandOver(false);
}

void KzBleServer::HandOverMetadataOnTick(uint32_t tick) {
    if (tick % kTicksPerSession == 0 && MetadataHasStreams()) {
        writeSession();
    }
}

void KzBleServer::HandOverMetadataIfNearLimit() {
    if (MetadataEstimateUnsentSize() > kNearLimit) {
        HandOverMetadata();
    }
}

void KzBleServer::HandOverMetadata() {
    if (MetadataEstimateUnsentSize() != 0) {
        HandOver(true);
    }
}
