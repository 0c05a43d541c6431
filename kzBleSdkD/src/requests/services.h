// What the handlers of requests may use beyond their peer's own parts.
#pragma once

#include <cstdint>

#include "blePacketHeader.h"

class CameraStatus;
class SensorHandOver;
class TransferSlot;

// Owned by the server; it outlives every client that is made with it.
struct Services {
    CameraStatus& camera;
    SensorHandOver& sensorHandOver;
    TransferSlot& transferSlot;
    // Bytes of the longest response that the radio queue takes when it is empty: a longer one could never be sent.
    uint16_t longestResponse = kMaxExtendedLength;
};

// The services of clients that no server made: a camera of which nothing is known yet, and a sensor hand-over and
// transfer slot that these clients share.
const Services& DetachedServices();
