// The commands of the control daemon that act on the camera alone: one row each, found by id.
#pragma once

#include <cstdint>

#include "bytes.h"
#include "cameraModel.h"

namespace kzsim {

// Executes a command. KZ_ERR_NOT_SUPPORTED for an id without a row, KZ_ERR_INVALID_PARAM for a parameter of a length
// the command does not take.
int32_t executeControlCommand(CameraModel& camera, uint32_t id, ByteView parameter, Bytes& reply);

}  // namespace kzsim
