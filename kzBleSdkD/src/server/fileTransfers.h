// FileTransfers: starts and ends of file transfers, and the pumps that put packets into the radio queue as far as
// ordinary traffic leaves room. One transfer at a time in the whole daemon (transferSlot.h).
//
// Command thread only, with the client table's lock held unless said otherwise.
#pragma once

#include <cstdint>

#include "answers.h"
#include "transmitPlan.h"

class BleNotificationClient;
class CameraStatus;
class ClientTable;
class RadioPort;
class TransferSlot;

class FileTransfers {
  public:
    FileTransfers(ClientTable& clients, RadioPort& radio, TransferSlot& slot, CameraStatus& camera)
        : m_clients(clients), m_radio(radio), m_slot(slot), m_camera(camera) {}

    // Starts the transfer of the device type's firmware image. False, with a line in the log, when another transfer
    // runs or there is no image to send.
    bool StartLarchFileTransfer(BleNotificationClient* client);
    // Ends the client's firmware transfer and frees the slot; a slot that another client's transfer holds stays taken.
    // Returns true.
    bool StopTransfer(BleNotificationClient* client);
    // Ends the client's transfer of settings.json and frees the slot.
    void StopSettingsJSON(BleNotificationClient& client);

    // The settings.json pump, on every tick; true when the last packet sent has more to follow. Takes the lock.
    bool CheckClientsForFileTransfer();
    // The firmware pump: sends as many packets of the client's image as there is room for. False when it sends nothing.
    bool SendFileChunk(BleNotificationClient* client);

  private:
    bool PumpSettingsJSON(BleNotificationClient& client, long budget);
    static long ImageBudget(const BleNotificationClient& client, const QueueFill& queue);
    void FinishImageTransfer(BleNotificationClient& client);

    ClientTable& m_clients;
    RadioPort& m_radio;
    TransferSlot& m_slot;
    CameraStatus& m_camera;
    StoredResponse m_packet;  // the packet being sent; kept for its capacity
};
