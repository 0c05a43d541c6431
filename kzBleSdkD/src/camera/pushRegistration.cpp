#include "pushRegistration.h"

#include <cstdint>
#include <cstring>
#include <utility>

#include "cameraCalls.h"
#include "cameraStatus.h"
#include "kzCtrlD/kzCtrlRecords.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleServer";

int SendRegistration(uint32_t operation) {
    kz_push_registration_t registration{};
    registration.operation = operation;
    std::memcpy(registration.queueName, kMqEvents, std::strlen(kMqEvents));
    return CallControl(KZCONTROL_EVENT_REGISTER_MQUEUE, &registration, sizeof(registration), nullptr, 0);
}

}  // namespace

int PushRegistration::RegisterForKzControlNotifications() {
    if (m_registeredForPush) {
        return 0;
    }
    if (m_camera.IsSuspended()) {
        LOG_DEBUG(
            "BLE device connected while SYS_SUSPENDED_UNSAFE, mobile should call caminfo  cmd to determine when resumed");
        return -1;
    }
    if (!Register()) {
        LOG_ERROR("Unable to register with kzControl for push notifications");
        return -1;
    }
    return 0;
}

bool PushRegistration::Register() {
    // Counted before: what is lost while it is sent is sent again.
    const uint32_t losses = guards::control.Losses();
    if (SendRegistration(KZ_PUSH_REGISTER) != 0) {
        return false;
    }
    m_registeredForPush = true;
    m_knownLosses = losses;
    return true;
}

void PushRegistration::KeepRegistered(bool clientsConnected) {
    if (std::exchange(m_unregistrationDue, false) && !clientsConnected) {
        UnregisterForKzControlNotifications();
    }
    const bool lost = guards::control.Losses() != m_knownLosses;
    if (lost && clientsConnected && guards::control.Answers() && !m_camera.IsSuspended() && Register()) {
        LOG_WARN("Registered again with kzControl for push notifications");
    }
}

int PushRegistration::UnregisterForKzControlNotifications() {
    if (!m_registeredForPush) {
        return 0;
    }
    m_registeredForPush = false;
    if (SendRegistration(KZ_PUSH_UNREGISTER) != 0) {
        LOG_ERROR("Unable to unregister with kzControl for push notifications");
        return -1;
    }
    return 0;
}
