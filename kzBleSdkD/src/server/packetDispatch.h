// PacketDispatch: the radio-stack daemon's records, and where each goes: connection events, requests of the four
// interfaces, accessory updates, debug commands. Command thread only.
#pragma once

#include <atomic>

#include "messageBuffer.h"
#include "skylark/bleMessage.h"

class AccessoryUpdates;
class BleNotificationClient;
class CameraStatus;
class ClientTable;
class ConnectionEvents;
class Delivery;
class RadioPort;
struct RequestInterface;

class PacketDispatch {
  public:
    struct Parts {
        RadioPort& radio;
        ClientTable& clients;
        const CameraStatus& camera;
        ConnectionEvents& connections;
        Delivery& delivery;
        AccessoryUpdates& accessories;
        MessageBuffer& buffer;       // where requests are joined and responses built
        std::atomic<bool>& running;  // cleared by the debug command that ends the daemon
    };
    explicit PacketDispatch(const Parts& parts) : m_parts(parts) {}

    // Receives and dispatches one record, and further ones as long as they are shed: while more than kMaxRadioBacklog
    // of 100 records wait, data packets are dropped before they are looked at, events never. A dropped packet ends the
    // message that its stream was joining.
    void HandleRecords();
    // Receives and dispatches one record. False for a record that could not be received or is of no known type.
    bool HandleBleMessage();
    // Disconnects every client, as if the radio-stack daemon had sent the records.
    void DisconnectAll();
    // Dispatches one data packet under the lock. True when a response was produced (sent, stored or dropped by its
    // gate) and for a packet of an unknown connection. *kzErrno: the code of the handler. The record is used again for
    // the response.
    bool HandleSDKMessage(ble_message_t& record, int* kzErrno);
    // Logs the queues and every client; returns true. Takes the lock.
    bool DumpBleDeviceStatus();

  private:
    bool HandleRecord(ble_message_t& record);
    void UpdateDevice(const ble_message_t& record);
    void HandleDataEvent(ble_message_t& record, int* kzErrno);
    void AbandonMessage(const ble_message_t& record);
    void HandleDebugEvent(const ble_message_t& record);
    bool DispatchPacket(BleNotificationClient& client, ble_message_t& record, int* kzErrno);
    bool DispatchRequest(const RequestInterface& row, BleNotificationClient& client, ble_message_t& record,
                         int* kzErrno);

    Parts m_parts;
    bool m_shedding = false;  // whether the last record was shed
};
