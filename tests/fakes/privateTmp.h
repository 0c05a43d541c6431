// A /tmp of the test's own, for code whose files have fixed paths.
#pragma once

namespace fakes {

// Moves the process into a mount namespace in which /tmp is empty and nobody else's; as an ordinary user by way of a
// user namespace. For the rest of the process; call it while there is one thread. `options` are those of a tmpfs, such
// as its size. Every further call makes /tmp empty again. With another `folder` all this happens to that one. False
// when the system does not allow it.
bool EnterPrivateTmp(const char* options = "", const char* folder = "/tmp");

}  // namespace fakes
