// The camera's state with the devices of the desk, as /state and /events show it. Any thread may call.
#pragma once

#include <chrono>
#include <mutex>
#include <nlohmann/json.hpp>
#include <string>

#include "deviceTable.h"

namespace kzdesk {

class CameraState {
  public:
    static constexpr std::chrono::milliseconds kAge{200};

    // `devices` has to outlive it.
    explicit CameraState(DeviceTable& devices) : m_devices(devices) {}

    // As it is now. Throws ApiError: 503 when there is no camera, 502 when it does not say.
    nlohmann::ordered_json now();
    // The event `state` with what was so at most kAge ago, so that many readers ask the camera once. Without a camera
    // "camera" is null: the stream outlives its restart.
    std::string recentEvent();

  private:
    nlohmann::ordered_json with(const nlohmann::ordered_json& camera);

    DeviceTable& m_devices;
    std::mutex m_mutex;
    std::chrono::steady_clock::time_point m_taken{};
    std::string m_event;
};

}  // namespace kzdesk
