// PushRegistration: whether the control daemon pushes changes of settings and status to this daemon's event queue.
// Registered while a client is connected and the camera is awake; the callers see to that. Command thread only.
//
// A control daemon that was started anew knows nothing of the registration. That it hung or was gone shows on any call
// to it, so the registration is renewed on the tick after that: on each one while it is gone, which costs nothing, and
// after it hung once a client's command works again, so that the tick does not wait for it.
#pragma once

#include <cstdint>

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
    // Ends the pushes on the tick, unless a client is there by then: for an end that must not wait for a hung service.
    void UnregisterLater() { m_unregistrationDue = true; }
    // Does what is due. Called on each tick.
    void KeepRegistered(bool clientsConnected);

  private:
    bool Register();

    const CameraStatus& m_camera;
    bool m_unregistrationDue = false;
    uint32_t m_knownLosses = 0;  // of the control daemon, when it last took the registration
    bool m_registeredForPush = false;
};
