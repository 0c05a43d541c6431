// Whether the camera has a firmware image for an accessory, and whether the accessory should get it now. Command thread
// only.
#pragma once

#include <cstdint>
#include <string>

#include "accessoryImage.h"

// Finds the update image of a device type. Stores its path and returns true when there is one.
bool GetLarchUpdate(unsigned char deviceType, std::string* path);

// Whether an accessory of version major.minor.patch should be updated now; stores the image's path if so. Asks the
// control daemon for the camera's state, and reads and checks the image. Every refusal is logged.
bool LarchUpdateCheck(unsigned char deviceType, std::string* path, unsigned char major, unsigned char minor,
                      unsigned char patch);
// The same check; the image comes open, to be sent from the descriptor that was checked. No path and no file when the
// accessory should not be updated.
AccessoryImageFile OpenLarchUpdate(uint8_t deviceType, const AccessoryVersion& accessory);
