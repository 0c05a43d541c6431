// Where a test and what it puts into the daemon's process meet: in files of the world.
#pragma once

namespace fakes {

// The stand-ins of the camera's client libraries append every call to kCameraCalls as a line of text, "command 3: 01"
// with its argument behind the colon. A file below kCameraReplies that is named after the call, "command 3", holds what
// the call gets: a 32-bit result and the reply. Without one it succeeds; what could only fail without a reply fails.
constexpr const char* kCameraCalls = "/tmp/cameraCalls";
constexpr const char* kCameraReplies = "/tmp/cameraReplies/";

}  // namespace fakes
