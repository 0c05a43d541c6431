// What a message says, in words for a line of a trace or a log. Any thread may call. Of a message whose first packet
// alone is there, as much as that packet holds.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "catalogue.h"
#include "protocolTable.h"

namespace kzclient {

using MessageBytes = std::span<const uint8_t>;

// Each begins with what separates it from the row's name; empty when the name says all.
std::string requestDetails(const kzprotocol::Row& row, MessageBytes message, const Catalogue& names);
std::string answerDetails(const kzprotocol::Row& row, MessageBytes message, const Catalogue& names);
std::string pushDetails(const kzprotocol::Row& row, MessageBytes message, const Catalogue& names);
// An answer that names no request: the camera could not tell what it was sent.
std::string refusalOrUnknown(MessageBytes message);
// "invalid parameter", or "result 7" where the number has no name.
std::string resultText(uint8_t answerStream, uint8_t result);

}  // namespace kzclient
