// Feature notifications: the protobuf messages that a client with interest in CSI keys gets when one of them changes.
//
//   byte 0: 245; byte 1: action id; then the serialised message
#pragma once

#include <cstdint>
#include <vector>

#include "featureStatus.h"

class CameraStatus;
class MemoryStream;
class SettingsStatusMapping;

constexpr unsigned kMaxFeaturePush = 2 + kMaxFeatureStatus;  // of all but presets, which take what room there is

// What a notification is built from.
struct FeatureChange {
    const CameraStatus& camera;
    const SettingsStatusMapping& model;
    const std::vector<int>& interest;  // the client's CSI keys, not empty
    uint32_t key;                      // the CSI key that changed
    uint32_t field;                    // the field number of its value within the message
};

// Builds the notification of a change. False, after a line in the log, when there is nothing to notify of; the stream
// may then hold a part of a message. The stream must have room for kMaxFeaturePush bytes.
bool BuildFeaturePush(const FeatureChange& change, MemoryStream& stream);
