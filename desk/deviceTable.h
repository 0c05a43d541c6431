// The devices that the desk has connected, by number. Numbers count from 1 and are not used again. A device whose
// connection the camera ended is gone from the table at once. Any thread may call.
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include "device.h"

namespace kzdesk {

class DeviceTable {
  public:
    static constexpr size_t kMostDevices = 20;
    static constexpr size_t kKeptLogs = 20;  // of ended devices

    struct Wish {
        std::optional<kzclient::Address> address;  // nothing: 02:00:00:00:01 and the device's number, or a free one
        uint8_t type = 0;
        bool cameraIsCentral = false;
    };

    // Both have to outlive the table.
    DeviceTable(const ProtocolFile& protocol, const kzclient::Catalogue& names)
        : m_protocol(protocol), m_names(names) {}

    // Throws ApiError: 429 too many devices, 409 the address is in use or the radio refuses, 503 no radio.
    std::shared_ptr<Device> connect(const Wish& wish);
    // Throws ApiError 404.
    std::shared_ptr<Device> find(unsigned number);
    void remove(unsigned number);
    std::vector<std::shared_ptr<Device>> all();
    // By the device's number; those of the last ended devices too.
    std::map<unsigned, std::shared_ptr<EventLog>> logs();
    // Ends every device, and accepts no more.
    void endAll(const char* reason);

  private:
    using Devices = std::map<unsigned, std::shared_ptr<Device>>;

    Devices takeEnded();
    void keepLog(const Device& device);
    bool isUsed(const kzclient::Address& address) const;
    kzclient::Address reserve(const Wish& wish);

    const ProtocolFile& m_protocol;
    const kzclient::Catalogue& m_names;
    std::mutex m_mutex;
    Devices m_devices;
    std::deque<std::pair<unsigned, std::shared_ptr<EventLog>>> m_endedLogs;  // in the order of their ends
    std::set<kzclient::Address> m_connecting;                                // reserved by who connects now
    unsigned m_lastNumber = 0;
    bool m_closed = false;
};

}  // namespace kzdesk
