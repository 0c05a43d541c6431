// The camera and those who speak for it, as the console finds them.
#pragma once

#include "cameraModel.h"
#include "controlDaemon.h"
#include "metadataService.h"
#include "networkDaemon.h"
#include "part.h"
#include "radioStack.h"

namespace kzsim {

struct Roles {
    CameraModel& camera;
    Part<RadioStack>& radio;
    Part<ControlDaemon>& control;
    Part<NetworkDaemon>& network;
    Part<MetadataService>& metadata;
};

}  // namespace kzsim
