#include "services.h"

#include "cameraStatus.h"
#include "sensorHandOver.h"
#include "transferSlot.h"

const Services& DetachedServices() {
    static CameraStatus camera;
    static SensorHandOver sensorHandOver;
    static TransferSlot transferSlot;
    static const Services services{camera, sensorHandOver, transferSlot};
    return services;
}
