// The parts of the server that notify clients of changes, on played queues, without a loop and without a daemon.
#pragma once

#include "accessoryBuffers.h"
#include "cameraStatus.h"
#include "changeFanOut.h"
#include "clientTable.h"
#include "csiInbox.h"
#include "delivery.h"
#include "playedQueues.h"
#include "pushRegistration.h"
#include "radioPort.h"
#include "sensorHandOver.h"
#include "transferSlot.h"

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
        client.SetSensorCCCEnabled();
        return client;
    }

    CameraStatus camera;
    SensorHandOver sensorHandOver;
    TransferSlot transferSlot;
    Services services{camera, sensorHandOver, transferSlot};
    PushRegistration registration{camera};
    RadioPort radio;
    ClientTable clients{services};
    MessageBuffer buffer{};
    AccessoryBuffers buffers{clients, radio};
    Delivery delivery{clients, radio, buffers};
    ChangeFanOut fanOut{clients, radio, buffer};
    CsiInbox inbox{{clients, camera, registration, buffers, fanOut}};
};
