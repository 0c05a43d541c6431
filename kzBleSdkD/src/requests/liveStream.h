// Live streaming over the protobuf commands: one request says where to stream to, how, and when to stop.
#pragma once

#include <cstdint>
#include <vector>

#include "generic/EnumResultGeneric.pb.h"

class CameraStatus;

// Kilobits per second.
struct StreamBitrates {
    uint32_t minimum;
    uint32_t starting;
    uint32_t maximum;
};

// The bitrates of a window size, which count unless a request gives its own; {800, 2500, 10000} for a size without a
// row.
StreamBitrates BitratesOfWindowSize(int windowSize);

// Carries out a serialised WSDK_RequestSetLiveStreamMode. A url starts or changes the stream, an empty one ends it and
// brings back the preset that was active before, which `camera` remembers. The work goes on after a failed step;
// RESULT_UNKNOWN says that certificate, url or preset failed.
EnumResultGeneric SetLiveStream(const std::vector<uint8_t>& payload, CameraStatus& camera);
