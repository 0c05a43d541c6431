// The daemon's one large buffer: a message is received into it and its response is built in it, one after the other.
#pragma once

#include <array>

#include "blePacketHeader.h"

constexpr unsigned kMessageBufferSize = kMaxExtendedLength;  // the longest message behind an extended header
constexpr unsigned kEventMessageSize = 1500;                 // message size of the two queues that the daemon creates

using MessageBuffer = std::array<unsigned char, kMessageBufferSize>;
