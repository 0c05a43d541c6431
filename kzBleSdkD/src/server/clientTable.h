// ClientTable: the connected clients, in the order in which they connected, and the small id that every device address
// keeps across its connections.
//
// The lock is taken by whoever touches the clients, through ClientLock, and never twice. Only the command thread adds
// and removes clients.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "bleDevice.h"
#include "skylark/bleMessage.h"

constexpr size_t kMaxClients = 20;          // what the radio can hold
constexpr size_t kMaxDeviceHistory = 4096;  // addresses remembered; a peer may come with a new one each time

// Holds a mutex for its own life; a failure is logged and the work goes on.
class ClientLock {
  public:
    explicit ClientLock(pthread_mutex_t* mutex) : m_mutex(mutex) {
        if (const int error = pthread_mutex_lock(m_mutex); error != 0) {
            LogLockFailure(error);
        }
    }
    virtual ~ClientLock() {
        if (const int error = pthread_mutex_unlock(m_mutex); error != 0) {
            LogUnlockFailure(error);
        }
    }
    ClientLock(const ClientLock&) = delete;
    ClientLock& operator=(const ClientLock&) = delete;

  private:
    static void LogLockFailure(int error);
    static void LogUnlockFailure(int error);

    pthread_mutex_t* m_mutex;
};

// A device and the id it keeps.
struct __attribute__((packed)) deviceInfo_t {
    uint8_t deviceId;
    uint8_t address[kBleAddressSize];
};
static_assert(sizeof(deviceInfo_t) == 7);

class ClientTable {
  public:
    // `services` is for every client that connects; it must outlive the table.
    explicit ClientTable(const Services& services);
    ~ClientTable();
    ClientTable(const ClientTable&) = delete;
    ClientTable& operator=(const ClientTable&) = delete;

    pthread_mutex_t* Mutex() { return &m_clientMutex; }

    // ---- the caller holds the lock

    // The clients, each at an address of its own that stays.
    const std::vector<std::unique_ptr<BleNotificationClient>>& Clients() const { return m_clients; }
    BleNotificationClient* LookUp(uint32_t connectionId);
    // The same; when there is none, the known clients are listed in the log.
    BleNotificationClient* FindBleDeviceByConnectionID(uint32_t connectionId);
    void Remove(const BleNotificationClient& client);
    void Dump() const;

    // ---- without the lock; command thread only

    // Appends a client. Null, with a line in the log, when the table is full.
    BleNotificationClient* Add(uint32_t connectionId, uint8_t deviceId, uint8_t deviceType);
    // The id that the device had on an earlier connection, or a new one. `address` has kBleAddressSize bytes. Of more
    // than kMaxDeviceHistory addresses the oldest is forgotten.
    uint8_t DeviceIdOfAddress(const uint8_t* address);

    size_t GetClientCount();  // takes the lock

  private:
    const Services& m_services;
    pthread_mutex_t m_clientMutex;
    std::vector<std::unique_ptr<BleNotificationClient>> m_clients;
    std::vector<deviceInfo_t> m_deviceHistory;  // one entry an address, kept for the life of the process
    uint8_t m_lastDeviceId = 0;
};
