// Feature notifications: the protobuf messages that a client with interest in CSI keys gets when one of them changes.
//
//   byte 0: 245; byte 1: action id; then the serialised message
#pragma once

#include <cstdint>
#include <vector>

class MemoryStream;
class SettingsStatusMapping;

// Builds the notification of a change of CSI key `key` from the server's CSI values. `field` is the field number of the
// changed value within its message; `interest` are the client's CSI keys, not empty. The stream has room for the two
// bytes in front of the message at least; presets are carried with as much detail as fits it. False, after a log line,
// when there is nothing to notify of or the message does not fit; the stream may then hold a part of it.
bool BuildFeaturePush(uint32_t key, uint32_t field, const std::vector<int>& interest,
                      const SettingsStatusMapping& model, MemoryStream& stream);
