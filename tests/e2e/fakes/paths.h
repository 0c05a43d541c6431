// Where a test and what it puts into the daemon's process meet: in files of the world.
#pragma once

namespace fakes {

// The stand-ins of the camera's client libraries append every call to kCameraCalls as a line of text, "command 3: 01"
// with its argument behind the colon. A file below kCameraReplies that is named after the call, "command 3", holds what
// the call gets: a 32-bit result and the reply. Without one it succeeds; what could only fail without a reply fails.
constexpr const char* kCameraCalls = "/tmp/cameraCalls";
constexpr const char* kCameraReplies = "/tmp/cameraReplies/";
// Two results stand for what a library does with a service that hangs or is gone: after its deadline, or at once with
// the error of a broken connection, -1. A file that is named after a service, "control", "csi" or "ipc", is for all its
// calls.
constexpr int kHangs = -10001;
constexpr int kGone = -10002;

}  // namespace fakes
