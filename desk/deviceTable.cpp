#include "deviceTable.h"

#include <algorithm>

#include "apiError.h"

namespace kzdesk {
namespace {

kzclient::Address defaultAddress(unsigned number) {
    return {0x02, 0, 0, 0, static_cast<uint8_t>(1 + (number >> 8)), static_cast<uint8_t>(number)};
}

}  // namespace

// Called locked. The caller lets go of them unlocked, because the last owner waits for the device's thread.
DeviceTable::Devices DeviceTable::takeEnded() {
    Devices ended;
    for (auto one = m_devices.begin(); one != m_devices.end();) {
        const auto next = std::next(one);
        if (one->second->ended()) {
            keepLog(*one->second);
            ended.insert(m_devices.extract(one));
        }
        one = next;
    }
    return ended;
}

// Called locked.
void DeviceTable::keepLog(const Device& device) {
    m_endedLogs.emplace_back(device.number(), device.log());
    if (m_endedLogs.size() > kKeptLogs) {
        m_endedLogs.pop_front();
    }
}

// Called locked.
bool DeviceTable::isUsed(const kzclient::Address& address) const {
    return m_connecting.count(address) != 0 || std::any_of(m_devices.begin(), m_devices.end(), [&](const auto& one) {
               return one.second->address() == address;
           });
}

// Called locked, before the device gets its number.
kzclient::Address DeviceTable::reserve(const Wish& wish) {
    if (m_closed) {
        throw ApiError(503, "no-camera", "the desk is stopping");
    }
    if (m_devices.size() + m_connecting.size() >= kMostDevices) {
        throw ApiError(429, "too-many-devices",
                       "the desk holds at most " + std::to_string(kMostDevices) + " devices; delete one first");
    }
    unsigned number = m_lastNumber + 1;
    while (!wish.address && isUsed(defaultAddress(number))) {
        ++number;  // of so few devices one has to be free
    }
    const kzclient::Address address = wish.address.value_or(defaultAddress(number));
    if (isUsed(address)) {
        throw ApiError(409, "address-in-use", "another device has the address " + kzclient::addressText(address));
    }
    m_connecting.insert(address);
    return address;
}

std::shared_ptr<Device> DeviceTable::connect(const Wish& wish) {
    unsigned number = 0;
    kzclient::Address address{};
    Devices ended;
    {
        const std::lock_guard lock(m_mutex);
        ended = takeEnded();
        address = reserve(wish);
        number = ++m_lastNumber;
    }
    std::shared_ptr<Device> device;
    std::optional<ApiError> problem;
    try {
        device = std::make_shared<Device>(number, kzclient::RadioLink::Peer{address, wish.type, wish.cameraIsCentral},
                                          m_protocol, m_names);
    } catch (const kzclient::RadioRefuses& error) {
        problem.emplace(409, "refused", error.what());
    } catch (const kzclient::NoCamera& error) {
        problem.emplace(503, "no-camera", error.what());
    } catch (const std::exception& error) {
        problem.emplace(500, "failed", error.what());
    }
    const std::lock_guard lock(m_mutex);
    m_connecting.erase(address);
    if (problem) {
        throw ApiError(*problem);
    }
    if (m_closed) {
        device->disconnect("desk stops");
    }
    m_devices[number] = device;
    return device;
}

std::shared_ptr<Device> DeviceTable::find(unsigned number) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_devices.find(number);
    if (found == m_devices.end() || found->second->ended()) {
        throw ApiError(404, "no-such-device", "there is no device " + std::to_string(number));
    }
    return found->second;
}

void DeviceTable::remove(unsigned number) {
    const std::shared_ptr<Device> device = find(number);
    device->disconnect("deleted");
    const std::lock_guard lock(m_mutex);
    if (m_devices.erase(number) != 0) {
        keepLog(*device);
    }
}

std::vector<std::shared_ptr<Device>> DeviceTable::all() {
    Devices ended;  // let go of behind the lock
    const std::lock_guard lock(m_mutex);
    ended = takeEnded();
    std::vector<std::shared_ptr<Device>> devices;
    for (const auto& [number, device] : m_devices) {
        devices.push_back(device);
    }
    return devices;
}

std::map<unsigned, std::shared_ptr<EventLog>> DeviceTable::logs() {
    Devices ended;  // let go of behind the lock
    const std::lock_guard lock(m_mutex);
    ended = takeEnded();
    std::map<unsigned, std::shared_ptr<EventLog>> logs(m_endedLogs.begin(), m_endedLogs.end());
    for (const auto& [number, device] : m_devices) {
        logs[number] = device->log();
    }
    return logs;
}

void DeviceTable::endAll(const char* reason) {
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    for (const auto& [number, device] : m_devices) {
        device->disconnect(reason);
    }
}

}  // namespace kzdesk
