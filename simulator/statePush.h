// The JSON documents in which the control daemon tells changed settings and status values:
//     {"settings":{"2":1,"30":1000},"status":{"29":"abc","70":80}}
// Numbers are whole and unsigned; texts are strings.
#pragma once

#include <cstdint>
#include <set>
#include <string>

#include "cameraModel.h"

namespace kzsim {

// What a listener has not been told yet. An id that changes again before it is told is told once, with its last value.
struct PendingPush {
    std::set<uint32_t> settings;
    std::set<uint32_t> statuses;

    bool empty() const { return settings.empty() && statuses.empty(); }
};

// One document of at most `limit` bytes with as many of the pending values as fit, in ascending order, settings first;
// what it tells is pending no more. Ids without a value, or whose value alone is over the limit, are dropped. Empty
// text when nothing is left to tell.
std::string takePush(PendingPush& pending, const CameraModel& camera, size_t limit);

}  // namespace kzsim
