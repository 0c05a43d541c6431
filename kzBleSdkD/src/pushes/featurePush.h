// Feature notifications: the protobuf messages that a client with interest in CSI keys gets when one of them changes.
//
//   byte 0: 245; byte 1: action id; then the serialised message
#pragma once

#include <cstdint>
#include <vector>

class CameraStatus;
class MemoryStream;
class SettingsStatusMapping;

// What a notification is built from.
struct FeatureChange {
    const CameraStatus& camera;
    const SettingsStatusMapping& model;
    const std::vector<int>& interest;  // the client's CSI keys, not empty
    uint32_t key;                      // the CSI key that changed
    uint32_t field;                    // the field number of its value within the message
};

// Builds the notification of a change. The stream has room for the two bytes in front of the message at least; presets
// are carried with as much detail as fits it. False, after a line in the log, when there is nothing to notify of or the
// message does not fit; the stream may then hold a part of it.
bool BuildFeaturePush(const FeatureChange& change, MemoryStream& stream);
