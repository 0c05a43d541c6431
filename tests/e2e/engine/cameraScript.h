// The camera as the daemon's client libraries show it: what was called, in order, and what the calls shall get. The
// test's side of fakes/fakeCamera.h.
#pragma once

#include <string>
#include <vector>

#include "../fakes/fakeCamera.h"
#include "bytes.h"

namespace e2e {

// Calls are written and compared as text:
//     "open"  "close"  "caller 11"  "command 3: 01"  "camera-info"  "model-number"  "option 2: 4"
//     "csi_get 104"  "csi_set 92: 0b"  "ipc-init metadata"  "ipc-send: 31 00 00 00"  "ipc-destroy"
class CameraScript {
  public:
    // A camera on which every command succeeds without a reply and every setting option exists. Made before the daemon.
    CameraScript();
    ~CameraScript();
    CameraScript(const CameraScript&) = delete;
    CameraScript& operator=(const CameraScript&) = delete;

    // From now on this call has this result and reply. `id`: command, key or setting.
    void reply(fakes::Function function, uint32_t id, int result, const Bytes& bytes = {});
    // From now on this command stops inside the library until `release`; `waitHeld` returns once it is there.
    void hold(uint32_t command);
    bool waitHeld();
    void release(uint32_t command);

    // The calls since the last time, oldest first; those that only name the caller are left out of `takeCalls`.
    std::vector<std::string> takeCalls();
    std::vector<std::string> takeCallsWithCallers();
    void setRecording(bool on);

  private:
    fakes::SharedState* m_state;
};

}  // namespace e2e
