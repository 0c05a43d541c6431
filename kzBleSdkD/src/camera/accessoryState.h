// CSI_ACCESSORY_UPDATE: how far the firmware update of an accessory is, as the camera shows it.
//
//   device type << 16 | percent << 8 | phase; 0 while nothing is updated
#pragma once

#include <cstdint>

enum eAccessoryUpdate : uint32_t {
    eAccessoryUpdateSending = 1,
    eAccessoryUpdateFinished = 2,
    eAccessoryUpdateReconnected = 3,  // the accessory is back with its new firmware
    eAccessoryUpdateFailed = 4,
};
constexpr uint32_t kAccessoryUpdateIdle = 0;

constexpr uint32_t AccessoryUpdateState(uint8_t deviceType, uint8_t percent, eAccessoryUpdate phase) {
    return static_cast<uint32_t>(deviceType) << 16 | static_cast<uint32_t>(percent) << 8 | phase;
}

// Publish a state without waiting for the service's answer; a message that could not be sent is logged.
void PostAccessoryUpdate(uint8_t deviceType, uint8_t percent, eAccessoryUpdate phase);
void PostAccessoryUpdateIdle();

// Publishes how an update ended, then that nothing is updated any more. Waits for the service's answers.
void EndAccessoryUpdate(uint8_t deviceType, eAccessoryUpdate phase);
