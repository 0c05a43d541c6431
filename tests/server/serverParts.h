// The parts of the server that notify clients of changes, on played queues, without a loop and without a daemon.
#pragma once

#include "cameraStatus.h"
#include "changeFanOut.h"
#include "clientTable.h"
#include "csiInbox.h"
#include "delivery.h"
#include "playedQueues.h"
#include "pushRegistration.h"
#include "radioPort.h"

struct ServerParts {
    explicit ServerParts(long radioDepth) {
        played::ResetQueues();
        played::SetDepth(kMqToBleSdk, 1);
        SetRadioDepth(radioDepth);
    }

    // Opens the radio queue anew, as deep as this.
    void SetRadioDepth(long depth) {
        played::SetDepth(kMqToSkylark, depth);
        radio.Close();
        radio.Open();
    }

    // A client with all gates open.
    BleNotificationClient& Connect(uint32_t connectionId) {
        BleNotificationClient& client = *clients.Add(connectionId, 1, KZ_CALLER_BLE_RC);
        client.m_pushes.Attach(camera);
        client.SetSensorCCCEnabled();
        return client;
    }

    CameraStatus camera;
    PushRegistration registration{camera};
    RadioPort radio;
    ClientTable clients;
    MessageBuffer buffer{};
    Delivery delivery{clients, radio};
    ChangeFanOut fanOut{clients, radio, buffer};
    CsiInbox inbox{{clients, camera, registration, delivery, fanOut}};
};
