// The caller's side of the camera's console: one command, one answer. Used by kzcamctl, and by whoever else pokes a
// running camera. Every call makes a connection of its own, so that any thread may call.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "consoleWire.h"

namespace kzsim {

struct ConsoleResult {
    Outcome outcome;
    nlohmann::ordered_json value;  // what was asked for, or a text that says why not
};

// Sends the words of a command and waits up to 5 seconds for what came of it. Does not throw: a camera that is not
// there or does not answer is an outcome.
ConsoleResult askConsole(const std::vector<std::string>& words);

}  // namespace kzsim
