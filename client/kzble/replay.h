// Plays what recorded devices sent against a camera, and compares what it says with what the recorded camera said.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "bleClient.h"
#include "protocolTable.h"
#include "radioCapture.h"

namespace kzble {

struct ReplayOptions {
    bool fast = false;    // without the recorded pauses
    bool pushes = false;  // compare pushes and accessory buffers too
};

struct Difference {
    std::chrono::nanoseconds time{};  // since the beginning of the recording
    uint32_t connection = 0;          // its number in the recording
    uint8_t stream = 0;
    bool isAnswer = false;
    const kzprotocol::Row* row = nullptr;  // what was asked or pushed; null when the protocol does not know it
    std::optional<kzclient::Bytes> expected;
    std::optional<kzclient::Bytes> got;
};

struct ReplayResult {
    size_t compared = 0;
    size_t different = 0;
    size_t missing = 0;  // of the different ones, those of which nothing came
};

// Makes a connection like the recorded one; a recording that began later does not say like whom.
using Connect = std::function<std::unique_ptr<kzclient::BleClient>(const std::optional<kzcapture::Peer>&)>;

// What a device sent after an answer is sent after the answer here too, also without pauses. An answer that does not
// come within the client's time-out, or stops for so long, is a difference, and so is one that the recorded device
// waited for in vain. Clock readings are not compared. Each difference is passed to `report` when it is found. Throws
// what `connect` throws, and NoCamera when the camera ends a connection earlier than in the recording, or its daemon is
// gone.
ReplayResult replay(const std::vector<kzcapture::Frame>& recording, const ReplayOptions& options,
                    const Connect& connect, const std::function<void(const Difference&)>& report);

}  // namespace kzble
