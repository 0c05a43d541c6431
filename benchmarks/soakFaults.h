// What goes wrong around the daemon during a soak, and what changes in the camera by itself. Each in a thread of its
// own until the soak is over; throws nothing.
#pragma once

#include "soakWorld.h"

namespace soak {

// Kills parts of the camera and starts them anew, hangs them and wakes them, slows the radio and breaks connections:
// one at a time, at random, with pauses, while the clients work. Ends with everything mended.
void causeFaults(World& world);

// Gives status fields and states of features new values.
void changeCamera(World& world);

}  // namespace soak
