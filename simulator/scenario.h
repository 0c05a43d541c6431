// The camera's life: one second after another for whatever runs (captures, counters), and on request a day in a minute:
// the battery drains, recordings start and stop, the card is pulled and put back, the camera sleeps and wakes.
#pragma once

#include "cameraModel.h"
#include "eventLoop.h"

namespace kzsim {

class Scenario {
  public:
    // A scripted step of `secondLength` is one second of the script.
    Scenario(EventLoop& loop, CameraModel& camera, bool scripted, std::chrono::milliseconds secondLength);
    Scenario(const Scenario&) = delete;
    Scenario& operator=(const Scenario&) = delete;
    ~Scenario();

  private:
    void second();

    EventLoop& m_loop;
    CameraModel& m_camera;
    bool m_scripted;
    std::chrono::milliseconds m_secondLength;
    uint32_t m_second = 0;
    EventLoop::TimerId m_timer = 0;
};

}  // namespace kzsim
