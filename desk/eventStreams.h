// Server-sent events as the body of an answer: of a device, and of the state. Each holds the thread that serves its
// connection until its reader goes, its subject ends or the desk stops. Any thread may call.
#pragma once

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <memory>

#include "cameraState.h"
#include "device.h"

namespace kzdesk {

class EventStreams {
  public:
    static constexpr int kMostOfState = 8;
    // After so long without an event a comment is sent, so that nobody on the way takes the connection for dead.
    static constexpr std::chrono::seconds kHeartbeat{15};

    // `state` has to outlive it.
    explicit EventStreams(CameraState& state) : m_state(state) {}

    // The events of a device behind the one with the id `after`. Throws ApiError 429.
    void ofDevice(std::shared_ptr<Device> device, uint64_t after, httplib::Response& response);
    void ofState(httplib::Response& response);

    // Ends the streams of the state, and waits up to `patience` for all streams to be gone.
    void stop(std::chrono::milliseconds patience);

  private:
    CameraState& m_state;
    std::atomic<bool> m_stopping = false;
    std::atomic<int> m_ofState = 0;
    std::atomic<int> m_open = 0;
};

}  // namespace kzdesk
