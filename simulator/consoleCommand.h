// What the console's commands are made of: a row a command, the answers they give, and the reading of their words.
#pragma once

#include <nlohmann/json.hpp>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "consoleWire.h"
#include "roles.h"

namespace kzsim {

struct ConsoleAnswer {
    Outcome outcome;
    nlohmann::json value;  // what was asked for, or a text that says why not
};

using Words = std::vector<std::string>;  // the command's own word first

struct ConsoleRow {
    const char* word;
    size_t fewest;  // words behind it
    size_t most;
    ConsoleAnswer (*execute)(const Roles&, const Words&);
    bool canBeUndone = true;  // as far as it changes what CameraSnapshot holds
};

std::span<const ConsoleRow> cameraRows();   // settings, status, CSI, power, card, capture
std::span<const ConsoleRow> serviceRows();  // refusals, the BLE daemon and the radio
std::span<const ConsoleRow> partRows();     // parts that are killed, started anew, hung and woken

inline ConsoleAnswer done(nlohmann::json value = nullptr) {
    return {Outcome::Done, std::move(value)};
}
inline ConsoleAnswer failed(std::string why) {
    return {Outcome::Failed, std::move(why)};
}
inline ConsoleAnswer refused(std::string why) {
    return {Outcome::Refused, std::move(why)};
}
inline ConsoleAnswer wrongUse(std::string why) {
    return {Outcome::WrongUse, std::move(why)};
}

// A whole decimal or 0x number, also negative.
std::optional<int64_t> number(const std::string& word);
// The number of a word that must lie in 0 to `highest`.
std::optional<uint32_t> numberUpTo(const std::string& word, uint32_t highest);

}  // namespace kzsim
