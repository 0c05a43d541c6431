// Feature notifications: the protobuf messages that a client with interest in CSI keys gets when one of them changes.
//
//   byte 0: 245; byte 1: action id; then the serialised message
#pragma once

#include <cstdint>
#include <vector>

#include "featureStatus.h"

class MemoryStream;
class SettingsStatusMapping;

constexpr unsigned kMaxFeaturePush = 2 + kMaxFeatureStatus;  // of all but presets, which take what room there is

// Builds the notification of a change of CSI key `key` from the server's CSI values. `field` is the field number of the
// changed value within its message; `interest` are the client's CSI keys, not empty. False, after a log line, when
// there is nothing to tell; the stream may then hold a part of a message. The stream must have room for
// kMaxFeaturePush bytes.
bool BuildFeaturePush(uint32_t key, uint32_t field, const std::vector<int>& interest,
                      const SettingsStatusMapping& model, MemoryStream& stream);
