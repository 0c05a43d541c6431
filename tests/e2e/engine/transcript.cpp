#include "transcript.h"

#include <algorithm>
#include <cstring>
#include <sstream>

#include "bytes.h"

namespace e2e {
namespace {

constexpr size_t kKeptRecords = 64;

}  // namespace

std::string describe(const ble_message_t& record) {
    uint8_t raw[sizeof(record)];
    std::memcpy(raw, &record, sizeof(raw));
    const std::string connection = std::to_string(readLittle32(raw + 1));
    switch (record.eventType) {
        case KZBLE_SDK_EVENT_Conn:
            return "connect " + connection + " type " + std::to_string(raw[kConnDeviceTypeOffset]);
        case KZBLE_SDK_EVENT_Disconn:
            return "disconnect " + connection;
        case KZBLE_SDK_MESSAGE_Data:
            return "data " + connection + " on " + std::to_string(record.streamId) + ": " +
                   toHex(record.data, std::min<size_t>(record.dataLength, kBlePacketSize));
        case KZBLE_SDK_EVENT_CCC:
        case KZBLE_SDK_EVENT_SensorCCC:
            return "descriptor " + std::to_string(record.streamId) + " of " + connection + " = " +
                   std::to_string(record.dataLength);
        case KZBLE_SDK_EVENT_Debug:
            return "debug " + std::to_string(readLittle32(raw + kDebugCommandOffset)) + " " +
                   std::to_string(readLittle32(raw + kDebugArgumentOffset));
        default:
            return "event " + std::to_string(record.eventType) + " of " + connection;
    }
}

void Transcript::add(const char* direction, const ble_message_t& record) {
    m_entries.push_back({direction, record});
    if (m_entries.size() > kKeptRecords) {
        m_entries.pop_front();
        ++m_dropped;
    }
}

std::string Transcript::text() const {
    std::ostringstream out;
    if (m_dropped != 0) {
        out << "(" << m_dropped << " earlier records)\n";
    }
    for (const Entry& entry : m_entries) {
        out << entry.direction << describe(entry.record) << '\n';
    }
    return out.str();
}

}  // namespace e2e
