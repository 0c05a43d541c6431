#include "sensorHandOver.h"

#include <algorithm>
#include <cstddef>

#include "kzipc/kzipc.h"
#include "kzmfWriter.h"
#include "serviceGuard.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

constexpr uint32_t kLongestIpcPayload = 1400;
// The most that one sample can add to a payload: a device's container and head with a name of 17 characters (48), a
// stream's container (8) with a full sticky area (256), and a record of 35 data bytes (44).
constexpr uint32_t kLargestGrowth = 48 + 8 + 256 + 44;
constexpr uint32_t kNearLimit = kLongestIpcPayload - kLargestGrowth;
constexpr uint32_t kTicksPerSession = 2;  // a session is 1000 ms

constexpr uint32_t kLowestSequenceNumber = 48;
constexpr uint32_t kHighestSequenceNumber = 64;

void Send(const uint8_t* record, uint32_t size) {
    alignas(max_align_t) unsigned char channel[KZIPC_CHANNEL_SIZE] = {};
    const int result = guards::metadata.Ask([&] { return std::min(kzIpcInit("metadata", channel), 0); });
    if (result < 0) {
        LOG_ERROR("IPC Failed to Init IPC %d", result);
        return;
    }
    if (guards::metadata.Ask([&] { return std::min(kzIpcSend(channel, record, size), 0); }) < 0) {
        LOG_ERROR("IPC Failed to send IPC data");
    }
    kzIpcDestroy(channel);
}

}  // namespace

bool SensorHandOver::IsSessionOver(uint32_t tick) {
    return tick % kTicksPerSession == 0 && MetadataHasStreams();
}

void SensorHandOver::writeSession() {
    m_hung = false;
    HandOver(false);
}

void SensorHandOver::HandOverIfNearLimit() {
    if (MetadataEstimateUnsentSize() > kNearLimit) {
        HandOverUnsent();
    }
}

void SensorHandOver::HandOverUnsent() {
    if (MetadataEstimateUnsentSize() != 0) {
        HandOver(true);
    }
}

// With many streams the containers and counters alone outgrow a record, so the streams go in groups, each a payload of
// its own.
void SensorHandOver::HandOver(bool unsentOnly) {
    kzmfGroup group{.limit = kLongestIpcPayload, .unsentOnly = unsentOnly, .position = 0};
    for (bool first = true;; first = false) {
        uint32_t size = 0;
        if (MetadataGetPayloadGroup(group, Payload(), kPayloadBudget, nullptr, &size) != kKzmfDone) {
            LOG_ERROR("IPC write size exceeded");
            continue;  // one stream was too long; the others follow
        }
        if (size == 0 && !first) {
            return;
        }
        HandOverPayload(size);
        if (size == 0) {
            return;
        }
    }
}

// Sends the payload of `size` bytes that stands in the record.
void SensorHandOver::HandOverPayload(uint32_t size) {
    LOG_INFO("IPC size = %d", static_cast<int>(size));
    if (size > kLongestIpcPayload) {
        LOG_ERROR("IPC write size exceeded");
        return;
    }
    if (size == 0) {
        return;
    }
    if (m_hung) {
        return;
    }
    WriteSequenceNumber();
    Send(m_record.data(), kSequenceSize + size);
    m_hung = !guards::metadata.Answers();
}

void SensorHandOver::WriteSequenceNumber() {
    for (uint32_t i = 0; i < kSequenceSize; ++i) {
        m_record[i] = static_cast<uint8_t>(m_sequenceNumber >> 8 * i);
    }
    m_sequenceNumber = m_sequenceNumber == kHighestSequenceNumber ? kLowestSequenceNumber : m_sequenceNumber + 1;
}
