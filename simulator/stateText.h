// The simulator's state for a reader: names with their values, and nothing that is zero, empty or false.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace kzsim {

std::string stateAsText(const nlohmann::ordered_json& state);

}  // namespace kzsim
