#include "clientTable.h"

#include <algorithm>
#include <cstring>

#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

}  // namespace

// ---------------------------------------------------------------- lock

void ClientLock::LogLockFailure(int error) {
    LOG_ERROR("LOCK failed %d, %s", error, strerror(error));
}

void ClientLock::LogUnlockFailure(int error) {
    LOG_ERROR("UNLOCK failed %d, %s", error, strerror(error));
}

ClientTable::ClientTable(const Services& services) : m_services(services) {
    if (pthread_mutex_init(&m_clientMutex, nullptr) != 0) {
        LOG_ERROR("\n mutex init failed\n");
    }
}

ClientTable::~ClientTable() {
    pthread_mutex_destroy(&m_clientMutex);
}

// ---------------------------------------------------------------- look-up

BleNotificationClient* ClientTable::LookUp(uint32_t connectionId) {
    for (const auto& client : m_clients) {
        if (client->m_identity.m_connectionId == connectionId) {
            return client.get();
        }
    }
    return nullptr;
}

BleNotificationClient* ClientTable::FindBleDeviceByConnectionID(uint32_t connectionId) {
    BleNotificationClient* client = LookUp(connectionId);
    if (client == nullptr) {
        LOG_ERROR("Couldn't find connectionID:%d in list of size %d", connectionId, static_cast<int>(m_clients.size()));
        for (size_t i = 0; i < m_clients.size(); ++i) {
            LOG_ERROR("Client:%d , id:%d", static_cast<int>(i), m_clients[i]->m_identity.m_connectionId);
        }
    }
    return client;
}

size_t ClientTable::GetClientCount() {
    const ClientLock lock(&m_clientMutex);
    return m_clients.size();
}

void ClientTable::Dump() const {
    for (const auto& client : m_clients) {
        client->Dump();
    }
}

// ---------------------------------------------------------------- coming and going

BleNotificationClient* ClientTable::Add(uint32_t connectionId, uint8_t deviceId, uint8_t deviceType) {
    if (m_clients.size() >= kMaxClients) {
        LOG_ERROR("Client limit %d reached, connection_id:%d will not be serviced", static_cast<int>(kMaxClients),
                  connectionId);
        return nullptr;
    }
    LOG_INFO("Add Client connId=%d deviceId=%d", connectionId, deviceId);
    m_clients.push_back(std::make_unique<BleNotificationClient>(connectionId, deviceId, deviceType, m_services));
    return m_clients.back().get();
}

void ClientTable::Remove(const BleNotificationClient& client) {
    std::erase_if(m_clients, [&client](const auto& entry) { return entry.get() == &client; });
}

uint8_t ClientTable::DeviceIdOfAddress(const uint8_t* address) {
    const deviceInfo_t* known = nullptr;
    for (const deviceInfo_t& device : m_deviceHistory) {
        LOG_INFO("History devId= %d addr = %02X%02X%02X%02X%02X%02X", device.deviceId, device.address[0],
                 device.address[1], device.address[2], device.address[3], device.address[4], device.address[5]);
        if (std::equal(device.address, device.address + kBleAddressSize, address)) {
            known = &device;
        }
    }
    if (known != nullptr) {
        return known->deviceId;
    }
    deviceInfo_t device{};
    device.deviceId = ++m_lastDeviceId;
    std::copy_n(address, kBleAddressSize, device.address);
    if (m_deviceHistory.size() == kMaxDeviceHistory) {
        m_deviceHistory.erase(m_deviceHistory.begin());
    }
    m_deviceHistory.push_back(device);
    return device.deviceId;
}
