// Peer: the parts of one connection. Each part owns its state and can be made and tested alone; the handlers of
// requests and the builders of pushes get the peer and touch the parts that they need.
#pragma once

#include <cstdint>

#include "answers.h"
#include "fileSender.h"
#include "identity.h"
#include "interests.h"
#include "sensorStreams.h"

struct Peer {
    Peer(uint32_t connectionId, uint8_t deviceId, uint8_t deviceType)
        : m_identity(connectionId, deviceId, deviceType) {}

    Identity m_identity;
    Interests m_interests;
    Answers m_answers{m_identity};
    SensorStreams m_streams;
    FileSender m_file{m_identity, m_answers};
};
