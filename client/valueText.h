// Values of settings and status fields in words and as JSON. Any thread may call.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "bleClient.h"
#include "catalogue.h"

namespace kzclient {

enum class ValueKind { Setting, Status };

// The value as a number or a text.
nlohmann::ordered_json valueJson(ValueKind kind, const Entry& entry);
// {"id", "name", "value"}, and "option" where the catalogue knows it.
nlohmann::ordered_json entryJson(ValueKind kind, const Entry& entry, const Catalogue& catalogue);
// The value in words: the option's name of a setting where the catalogue knows it.
std::string valueText(ValueKind kind, const Entry& entry, const Catalogue& catalogue);
// A text of the camera for people, who see it in a terminal: control characters as \xNN.
std::string printable(const std::string& text);
std::string idName(ValueKind kind, uint8_t id, const Catalogue& catalogue);

}  // namespace kzclient
