// CsiInbox: the queue of the CSI service and the network daemon to this daemon: changed CSI values, display and LED
// buffers, and the answer to the subscription. Command thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "csiKeyTable.h"
#include "csiPort.h"
#include "ownQueue.h"

class AccessoryBuffers;
class CameraStatus;
class ChangeFanOut;
class ClientTable;
class PushRegistration;

class CsiInbox {
  public:
    struct Parts {
        ClientTable& clients;
        CameraStatus& camera;
        PushRegistration& registration;
        AccessoryBuffers& buffers;
        ChangeFanOut& fanOut;
    };
    explicit CsiInbox(const Parts& parts) : m_parts(parts) {}

    OwnQueue& Queue() { return m_csiMq; }

    // Subscribes to the keys of csiKeyTable.h, unless the request was sent already to the queue that the network daemon
    // has now, and was not refused. Called at start and on each tick.
    void KeepSubscribed();

    // Receives and handles one message.
    bool HandleCSINotification();
    // The handling alone, of a message of `received` bytes at the start of `buffer`, which has kCsiAnswerRoom bytes
    // more for the acknowledgement that is made of it. False for a message that was dropped, and for a subscription's
    // answer.
    bool HandleCsiMessage(std::span<unsigned char> buffer, uint32_t received);
    // Stores a CSI value, acts on it and notifies the clients. `record` holds the whole value. True when any client
    // produced a push. Takes the lock.
    bool NotifyClientsOfCSIChanges(const csiStruct* record);

  private:
    static constexpr long kQueueDepth = 40;

    bool HandleStateMessage(unsigned char* message, uint32_t size);
    bool HandleBufferMessage(const unsigned char* message);
    // Carries out the action of a key. False when the notification that the key has is held back this time.
    bool Act(CsiAction action, const csiStruct& record);
    bool TakeUploadProgress(const csiStruct& record);
    void EndResume();
    void TakeNewMedia();

    Parts m_parts;
    OwnQueue m_csiMq{kMqCsi, kQueueDepth};
    bool m_csiSubscribed = false;
    QueueHandle m_kzNetMq;  // the queue subscribed to, only to notice its removal
};
