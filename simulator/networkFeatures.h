// What the camera's network features do when somebody writes their CSI keys: cloud upload, software update, live
// stream. Each goes through its states on a timer, as slowly as a reader of the notifications can follow.
#pragma once

#include <nlohmann/json.hpp>

#include "cameraModel.h"
#include "eventLoop.h"

namespace kzsim {

class NetworkFeatures {
  public:
    NetworkFeatures(EventLoop& loop, CameraModel& camera) : m_loop(loop), m_camera(camera) {}
    NetworkFeatures(const NetworkFeatures&) = delete;
    NetworkFeatures& operator=(const NetworkFeatures&) = delete;
    ~NetworkFeatures();

    // A key was written from outside.
    void csiWritten(uint8_t key);

  private:
    void startUpload();
    void cancelUpload();
    void uploadStep(uint32_t file, uint32_t percent);
    void startUpdate();
    void cancelUpdate();
    void updateStep(uint32_t percent);
    void urlWritten();
    void later(EventLoop::TimerId& timer, std::function<void()> step);

    EventLoop& m_loop;
    CameraModel& m_camera;
    EventLoop::TimerId m_upload = 0;
    EventLoop::TimerId m_update = 0;
};

}  // namespace kzsim
