// Values of the camera in words: what `get`, `status`, `caps` and `watch` print.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "bleClient.h"
#include "catalogue.h"

namespace kzble {

enum class ValueKind { Setting, Status };

// The value as a number or a text.
nlohmann::ordered_json valueJson(ValueKind kind, const kzclient::Entry& entry);
// The value in words: the option's name of a setting where the catalogue knows it.
std::string valueText(ValueKind kind, const kzclient::Entry& entry, const kzclient::Catalogue& catalogue);
std::string idName(ValueKind kind, uint8_t id, const kzclient::Catalogue& catalogue);

}  // namespace kzble
