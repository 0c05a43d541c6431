// CSI_ST_STATE: the status byte that the daemon publishes for remote devices. Pure functions.
#pragma once

#include <cstdint>

#include "csi/csiKeys.h"

// The inputs, as taken from the CSI notifications.
struct StInputs {
    uint8_t batteryGood = 0;  // external power, or battery at 20 percent or more
    uint8_t sdCardGood = 0;   // SD card usable
    uint8_t busy = 0;
    uint8_t paused = 0;
    uint8_t newMedia = 0;
    uint8_t st = 0;  // everything permits a transfer
};

constexpr uint32_t kGoodBatteryPercent = 20;

constexpr uint8_t BatteryGood(uint32_t externalPower, uint32_t batteryPercent) {
    return externalPower != 0 || batteryPercent >= kGoodBatteryPercent ? 1 : 0;
}

constexpr uint8_t SdCardGood(uint32_t sdCardState) {
    return sdCardState < SD_CARD_REMOVED ? 1 : 0;  // a full card can still be read
}

constexpr uint8_t StReady(const StInputs& in) {
    return in.newMedia == 1 && in.batteryGood == 1 && in.sdCardGood == 1 && in.busy == 0 && in.paused == 0 ? 1 : 0;
}

// The sum of the inputs at their places, modulo 256:
//   bits 7..5 paused (low three bits), 4 busy, 3 SD card, 2 battery, 1 new media, 0 st
constexpr uint8_t CsiStState(const StInputs& in) {
    return static_cast<uint8_t>((in.paused << 5) + (in.busy << 4) + (in.sdCardGood << 3) + (in.batteryGood << 2) +
                                (in.newMedia << 1) + in.st);
}
