// Runs one command of kzcamctl: the same words, and what it would print with --json. Any thread may call.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kzdesk {

// Asks the camera's console. Throws ApiError: 502 when the camera refuses or does not answer in time, 503 when there is
// none.
nlohmann::ordered_json askCamera(const std::vector<std::string>& consoleWords);

// Null for a command that has nothing to say. Throws ApiError with the tool's text: as askCamera, and 400 for words
// that are no command. A command line that asks for help gets it.
nlohmann::ordered_json doCommand(const std::vector<std::string>& words);

}  // namespace kzdesk
