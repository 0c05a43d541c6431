// PushRegistration: whether the control daemon pushes changes of settings and status to this daemon's event queue.
// Registered while a client is connected and the camera is awake; the callers see to that. Command thread only.
#pragma once

class CameraStatus;

constexpr const char* kMqEvents = "/to_kzBleD";  // control daemon to this daemon

class PushRegistration {
  public:
    explicit PushRegistration(const CameraStatus& camera) : m_camera(camera) {}

    // Asks for pushes. Returns 0 when they are on, also when they were on already; -1, with a line in the log, when the
    // control daemon refused or the camera is suspended.
    int RegisterForKzControlNotifications();
    // Ends the pushes. Returns 0 when they are off, also when they were off already; -1, with a line in the log, when
    // the control daemon refused. They count as off in any case.
    int UnregisterForKzControlNotifications();

  private:
    const CameraStatus& m_camera;
    bool m_registeredForPush = false;
};
