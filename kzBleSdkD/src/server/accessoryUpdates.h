// AccessoryUpdates: firmware updates of accessories, from the request to reboot into update mode to the accessory's
// requests for its image. The image itself is sent by the file transfers.
//
// Command thread only.
#pragma once

#include <cstdint>

#include "skylark/bleMessage.h"

class BleNotificationClient;
class CameraStatus;
class ClientTable;
class FileTransfers;
class RadioPort;

class AccessoryUpdates {
  public:
    AccessoryUpdates(ClientTable& clients, RadioPort& radio, FileTransfers& transfers, const CameraStatus& camera)
        : m_clients(clients), m_radio(radio), m_transfers(transfers), m_camera(camera) {}

    // The work of the tick: sends image packets, asks accessories with a pending update to reboot. True when something
    // was sent to a client. Takes the lock.
    bool CheckClientsForLarchOTA();
    // A message on stream 27: the accessory asks for its image or for its next block, or reports an error. The caller
    // holds the lock. The record is used again for the reply.
    void HandleAccessoryUpdateMessage(BleNotificationClient& client, ble_message_t& record);

  private:
    bool AdvancePendingUpdate(BleNotificationClient& client);
    bool RequestAccessoryReboot(BleNotificationClient& client);
    void HandleStreamedImageRequest(BleNotificationClient& client, ble_message_t& record);
    void HandleBlockMessage(BleNotificationClient& client, const ble_message_t& record);
    void HandleImageRequest(BleNotificationClient& client, const ble_message_t& record);
    void HandleBlockRequest(BleNotificationClient& client);
    void HandleImageError(BleNotificationClient& client);

    ClientTable& m_clients;
    RadioPort& m_radio;
    FileTransfers& m_transfers;
    const CameraStatus& m_camera;
    uint8_t m_rebootDelay = 0;  // ticks since an update became pending or was last requested; shared by all clients
};
