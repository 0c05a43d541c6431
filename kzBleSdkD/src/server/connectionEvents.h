// ConnectionEvents: what happens when a device connects, disconnects or changes what it wants to be notified of: a
// client is added to the table, or removed from it together with its streams and transfers. While there are clients,
// the daemon is registered for the control daemon's pushes. Command thread only.
#pragma once

#include "skylark/bleMessage.h"

class BleNotificationClient;
class ClientTable;
class FileTransfers;
class PushRegistration;
class RadioPort;
class SensorHandOver;

class ConnectionEvents {
  public:
    struct Parts {
        ClientTable& clients;
        PushRegistration& registration;
        RadioPort& radio;
        FileTransfers& transfers;
        SensorHandOver& sensorHandOver;
    };
    explicit ConnectionEvents(const Parts& parts) : m_parts(parts) {}

    // Carries out a connection, disconnection or notification-enable record. False, with a line in the log, for an
    // event of an unknown connection and for a connection beyond the limit. Takes the lock.
    bool UpdateBleDeviceStatus(const ble_message_t& record);

    // Called after a connection record, and after a disconnection record, was carried out.
    void RegisterAfterConnection();
    void UnregisterAfterLastDisconnection();

  private:
    void UpdateClient(BleNotificationClient& client, const ble_message_t& record);
    void RemoveClient(BleNotificationClient& client);
    void EndTransfers(BleNotificationClient& client);
    bool AddClient(const ble_message_t& record);

    Parts m_parts;
};
