// What the server lends to the handlers of a client, for tests that have no server.
#pragma once

#include "cameraStatus.h"
#include "sensorHandOver.h"
#include "services.h"
#include "transferSlot.h"

struct TestServices {
    CameraStatus camera;
    SensorHandOver sensorHandOver;
    TransferSlot transferSlot;
    Services services{camera, sensorHandOver, transferSlot};
};
