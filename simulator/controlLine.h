// The commands of kzcamctl as a command line: what may be typed, its help, and the words that the console is sent for
// it.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace kzsim {

// Adds every command to `app`. Parsing a line fills `words`, which has to outlive it, with the console's words; they
// stay empty when the line names no command. What a line means is decided by the console. CLI11 throws its ParseError.
void addControlCommands(CLI::App& app, std::vector<std::string>& words);

}  // namespace kzsim
