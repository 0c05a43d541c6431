#include "accessoryState.h"

#include "cameraCalls.h"
#include "csi/csiKeys.h"
#include "csiPort.h"

void PostAccessoryUpdate(uint8_t deviceType, uint8_t percent, eAccessoryUpdate phase) {
    const uint32_t state = AccessoryUpdateState(deviceType, percent, phase);
    csi_set_no_rsp(CSI_ACCESSORY_UPDATE, &state, sizeof(state));
}

void PostAccessoryUpdateIdle() {
    csi_set_no_rsp(CSI_ACCESSORY_UPDATE, &kAccessoryUpdateIdle, sizeof(kAccessoryUpdateIdle));
}

void EndAccessoryUpdate(uint8_t deviceType, eAccessoryUpdate phase) {
    SetCsi(CSI_ACCESSORY_UPDATE, AccessoryUpdateState(deviceType, 0, phase));
    SetCsi(CSI_ACCESSORY_UPDATE, kAccessoryUpdateIdle);
}
