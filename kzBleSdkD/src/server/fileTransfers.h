// FileTransfers: starts and ends of file transfers, and the pumps that put packets into the radio queue as far as
// ordinary traffic leaves room. One transfer at a time in the whole daemon (transferSlot.h).
//
// Command thread only, with the client table's lock held unless said otherwise.
#pragma once

#include <cstdint>

#include "answers.h"
#include "radioPort.h"
#include "transmitPlan.h"
#include "waitingPackets.h"

class BleNotificationClient;
class CameraStatus;
class ClientTable;
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
    // Ends whatever the client receives before it is complete, and publishes a firmware update as failed: the client
    // went, or nothing moved. What waits to be sent to it is dropped.
    void EndTransfers(BleNotificationClient& client);

    // The first step of every tick: sends the replies that found no room, and ends a transfer in which nothing moved
    // for 60 seconds, so that a silent peer does not keep the only slot. Takes the lock.
    void KeepMoving();
    // A reply of a firmware update. It never waits in the radio queue; one that finds no room leaves on a later tick,
    // before any further packet of an image.
    void PostReply(const ble_message_t& record) { m_replies.Post(record); }

    // The settings.json pump, on every tick; true when the last packet sent has more to follow. Takes the lock.
    bool CheckClientsForFileTransfer();
    // The firmware pump: sends as many packets of the client's image as there is room for. False when it sends nothing.
    bool SendFileChunk(BleNotificationClient* client);
    // Sends what the last SendFileChunk meant to send and found no room for.
    bool ResumeFileChunk(BleNotificationClient* client);

  private:
    // How far the running transfer is, behind its file position.
    struct Progress {
        bool packetWaits = false;  // m_packet is cut and found no room
        bool moreFollow = false;   // behind m_packet
        long owedPackets = 0;      // of the last chunk of an image
        uint32_t stillTicks = 0;   // since a packet was sent
    };

    void StopSettingsJSON(BleNotificationClient& client);
    bool PumpSettingsJSON(BleNotificationClient& client, long budget);
    template <typename Cut>
    RadioPort::SendResult SendNext(ble_message_t& record, Cut cut);
    bool SendImagePackets(BleNotificationClient& client, long limit);
    static long ImageBudget(const BleNotificationClient& client, const QueueFill& queue);
    void FinishImageTransfer(BleNotificationClient& client);

    ClientTable& m_clients;
    RadioPort& m_radio;
    TransferSlot& m_slot;
    CameraStatus& m_camera;
    StoredResponse m_packet;  // the packet being sent; kept for its capacity
    Progress m_progress;
    WaitingPackets m_replies{m_radio};
};
