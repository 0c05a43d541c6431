// The camera as the daemon's client libraries show it: what was called, in order, and what the calls shall get. The
// test's side of fakes/paths.h.
#pragma once

#include <string>

#include "bytes.h"

namespace e2e {

// Makes the missing directories too.
void writeFile(const std::string& path, const Bytes& content);

// Calls are written and compared as text:
//     "open"  "close"  "caller 11"  "command 3: 01"  "camera-info"  "model-number"  "option 2: 3a 00 00 00 04 00 00 00"
//     "csi_get 104"  "csi_set 92: 0b"  "ipc-init: 6d ..."  "ipc-send: 31 00 00 00"  "ipc-destroy"
class Camera {
  public:
    // A camera on which every command succeeds without a reply and every setting option exists. Made before the daemon.
    Camera();

    // From now on this call ("command 98", without its argument) has this result and reply.
    void reply(const std::string& call, int result, const Bytes& bytes = {});
    // From now on every call succeeds again, or fails where it needs a reply.
    void forgetReplies();
    // The calls since the last time, oldest first: "open, model-number". Those that only name the caller are left out.
    std::string takeCalls(bool withCallers = false);

  private:
    long m_taken = 0;
};

}  // namespace e2e
