// The camera and those who speak for it, as the console finds them.
#pragma once

#include "cameraModel.h"
#include "controlDaemon.h"
#include "metadataService.h"
#include "networkDaemon.h"
#include "radioStack.h"

namespace kzsim {

struct Roles {
    CameraModel& camera;
    RadioStack& radio;
    ControlDaemon& control;
    NetworkDaemon& network;
    MetadataService& metadata;
};

}  // namespace kzsim
