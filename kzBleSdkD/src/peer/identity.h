// Identity: who the peer of one connection is, and how many packets and pushes were counted for it.
#pragma once

#include <cstdint>

struct Identity {
    Identity(uint32_t connectionId, uint8_t deviceId, uint8_t deviceType)
        : m_connectionId(connectionId), m_deviceId(deviceId), m_deviceType(deviceType) {}

    uint32_t m_connectionId;  // given by the radio-stack daemon
    uint8_t m_deviceId;       // the same for all connections of one device address
    uint8_t m_deviceType;     // also the caller id towards the control daemon, and the analytics caller id
    bool m_accessoryUpdatePending = false;  // the accessory is to be asked to reboot for new firmware

    uint32_t m_inCount = 0;    // data packets received
    uint32_t m_outCount = 0;   // reported by Dump; nothing advances it
    uint32_t m_pushCount = 0;  // pushes sent
};
