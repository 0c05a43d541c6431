#include "answers.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "identity.h"
#include "skylark/bleMessage.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "bleDevice.cpp";

// Which answers each notification-enable descriptor gates.
struct DescriptorRow {
    uint8_t descriptorStream;
    uint8_t gateStream;
};
constexpr DescriptorRow kDescriptors[] = {
    {KZ_STR_ID_COMMAND_CCC, KZ_STR_ID_COMMAND},
    {KZ_STR_ID_SETTINGS_CCC, KZ_STR_ID_SETTINGS},
    {KZ_STR_ID_QUERY_CCC, KZ_STR_ID_QUERY},
    {KZ_STR_ID_SENSOR_CCC, KZ_STR_ID_SENSOR},
};
constexpr unsigned char kNotificationsEnabled = 1;  // the only descriptor value that opens a gate

// The gate stream of each entry, in priority order.
constexpr uint8_t kGateStreams[eStoredCount] = {
    KZ_STR_ID_COMMAND,   // command response
    KZ_STR_ID_QUERY,     // settings push
    KZ_STR_ID_QUERY,     // status push
    KZ_STR_ID_QUERY,     // capabilities push
    KZ_STR_ID_SETTINGS,  // settings response
    KZ_STR_ID_QUERY,     // query response
    KZ_STR_ID_SENSOR,    // sensor response
};

}  // namespace

// ---------------------------------------------------------------- one entry

void StoredResponse::Store(const unsigned char* data, int length) {
    if (length > m_capacity) {
        m_data = std::make_unique_for_overwrite<unsigned char[]>(static_cast<size_t>(length));
        m_capacity = length;
    }
    if (length > 0) {
        std::memcpy(m_data.get(), data, static_cast<size_t>(length));
    }
    m_length = length;
}

void StoredResponse::Clear() {
    m_data.reset();
    m_capacity = 0;
    m_length = 0;
}

// ---------------------------------------------------------------- all entries

Answers::Answers(const Identity& identity) : m_identity(identity) {
    for (size_t i = 0; i < m_storedResponses.size(); ++i) {
        m_storedResponses[i].m_streamId = kGateStreams[i];
    }
}

bool Answers::GetEnabledByStreamId(unsigned char streamId) const {
    for (const StoredResponse& stored : m_storedResponses) {
        if (stored.m_streamId == streamId) {
            return stored.m_enabled;
        }
    }
    return false;
}

void Answers::SetCCCEnabled(unsigned char cccStreamId, unsigned char value) {
    LOG_INFO("CCC stream ID %d", cccStreamId);
    const auto* row = std::find_if(std::begin(kDescriptors), std::end(kDescriptors),
                                   [cccStreamId](const DescriptorRow& r) { return r.descriptorStream == cccStreamId; });
    if (row == std::end(kDescriptors)) {
        LOG_DEBUG("Invalid CCC stream ID %d", cccStreamId);
        return;
    }
    const bool enable = value == kNotificationsEnabled;
    for (size_t i = 0; i < m_storedResponses.size(); ++i) {
        if (m_storedResponses[i].m_streamId != row->gateStream) {
            continue;
        }
        m_storedResponses[i].m_enabled = enable;
        if (enable) {
            LOG_INFO("StoredResponse[%d] Enabling streamId:%d for connection: %d", static_cast<int>(i), row->gateStream,
                     m_identity.m_connectionId);
        } else {
            LOG_INFO("StoredResponse[%d] Disabling streamId:%d for connection:%d", static_cast<int>(i), row->gateStream,
                     m_identity.m_connectionId);
        }
    }
}

void Answers::SetSensorCCCEnabled() {
    for (StoredResponse& stored : m_storedResponses) {
        stored.m_enabled = true;
    }
}

StoredResponse* Answers::GetHighestPriorityStoredResponse() {
    for (StoredResponse& stored : m_storedResponses) {
        if (stored.m_enabled && stored.m_length > 0) {
            return &stored;
        }
    }
    return nullptr;
}

void Answers::Reset() {
    for (StoredResponse& stored : m_storedResponses) {
        stored.Clear();
        stored.m_enabled = false;
    }
}

void Answers::Dump() const {
    for (const StoredResponse& stored : m_storedResponses) {
        LOG_INFO("SDK Notify stream_id:%d enabled:%d", stored.m_streamId, stored.m_enabled);
        LOG_INFO("    Bytes of stored response:%d", stored.m_length);
    }
}
