#include "console.h"

#include <algorithm>
#include <charconv>

#include "report.h"

namespace kzsim {
namespace {

nlohmann::json settingsOf(const CameraModel& camera) {
    auto settings = nlohmann::json::array();
    for (const auto& [id, value] : camera.settings()) {
        nlohmann::json one = {{"id", id}, {"value", value}};
        const auto known = camera.catalogue().settings().find(id);
        if (known != camera.catalogue().settings().end()) {
            one["name"] = known->second.name;
            const auto option = known->second.optionNames.find(value);
            if (option != known->second.optionNames.end()) {
                one["option"] = option->second;
            }
        }
        settings.push_back(std::move(one));
    }
    return settings;
}

nlohmann::json statusesOf(const CameraModel& camera) {
    auto statuses = nlohmann::json::array();
    for (const auto& [id, value] : camera.statuses()) {
        nlohmann::json one = {{"id", id}};
        std::visit([&one](const auto& what) { one["value"] = what; }, value);
        const auto known = camera.catalogue().statuses().find(id);
        if (known != camera.catalogue().statuses().end()) {
            one["name"] = known->second;
        }
        statuses.push_back(std::move(one));
    }
    return statuses;
}

nlohmann::json stateOf(const Roles& roles, size_t changes) {
    const CameraModel& camera = roles.camera;
    return {{"model", camera.modelNumber()},     {"capturing", camera.capturing()},
            {"suspended", camera.suspended()},   {"activePreset", camera.activePreset()},
            {"changesToUndo", changes},          {"settings", settingsOf(camera)},
            {"status", statusesOf(camera)},      {"radio", roles.radio.state()},
            {"control", roles.control.state()},  {"network", roles.network.state()},
            {"metadata", roles.metadata.state()}};
}

const ConsoleRow* findRow(const std::string& word) {
    for (const auto rows : {cameraRows(), serviceRows(), partRows()}) {
        for (const ConsoleRow& row : rows) {
            if (word == row.word) {
                return &row;
            }
        }
    }
    return nullptr;
}

std::string joined(const Words& words) {
    std::string line;
    for (const std::string& word : words) {
        line += (line.empty() ? "" : " ") + word;
    }
    return line;
}

Words split(ByteView record) {
    Words words;
    std::string word;
    for (const uint8_t byte : record) {
        if (byte == 0) {
            words.push_back(std::exchange(word, {}));
        } else {
            word += static_cast<char>(byte);
        }
    }
    return words;
}

}  // namespace

// A whole decimal or 0x number, also negative.
std::optional<int64_t> number(const std::string& word) {
    const bool negative = !word.empty() && word[0] == '-';
    const char* first = word.data() + (negative ? 1 : 0);
    const char* const last = word.data() + word.size();
    const bool hexadecimal = last - first > 2 && first[0] == '0' && first[1] == 'x';
    uint64_t value = 0;
    const auto parsed = std::from_chars(hexadecimal ? first + 2 : first, last, value, hexadecimal ? 16 : 10);
    if (parsed.ec != std::errc() || parsed.ptr != last || value > static_cast<uint64_t>(INT64_MAX)) {
        return std::nullopt;
    }
    return negative ? -static_cast<int64_t>(value) : static_cast<int64_t>(value);
}

// The number of a word that must lie in 0 to `highest`.
std::optional<uint32_t> numberUpTo(const std::string& word, uint32_t highest) {
    const auto value = number(word);
    if (!value.has_value() || *value < 0 || *value > highest) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(*value);
}

ConsoleAnswer Console::execute(const Words& words) {
    try {
        return executeRow(words);
    } catch (const std::runtime_error& error) {  // it needs a part that is killed
        return refused(error.what());
    }
}

ConsoleAnswer Console::executeRow(const Words& words) {
    const std::string command = words.empty() ? "" : words[0];
    if (words.size() == 1 && command == "state") {
        return done(stateOf(m_roles, m_undo.size()));
    }
    if (words.size() == 1 && command == "undo") {
        const auto undone = m_undo.undo(m_roles);
        return undone.has_value() ? done({{"undone", *undone}}) : refused("there is no change left to undo");
    }
    const ConsoleRow* const row = findRow(command);
    if (row == nullptr) {
        return wrongUse("there is no command " + command);
    }
    if (words.size() - 1 < row->fewest || words.size() - 1 > row->most) {
        return wrongUse(command + " has too few or too many arguments");
    }
    const CameraSnapshot before(m_roles);
    ConsoleAnswer answer = row->execute(m_roles, words);
    if (row->canBeUndone) {
        m_undo.note(joined(words), before, m_roles);
    }
    return answer;
}

Console::Console(EventLoop& loop, const Roles& roles)
    : m_roles(roles), m_server(loop, kConsoleEndpoint.address(), kConsoleRecordLimit, [this](ByteView record) {
          const Words words = split(record);
          const ConsoleAnswer answer = execute(words);
          const std::string value = answer.value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
          report("console", "%s: %s", words.empty() ? "" : words[0].c_str(),
                 answer.outcome == Outcome::Done ? "done" : value.c_str());
          Bytes reply{static_cast<uint8_t>(answer.outcome)};
          appendBytes(reply, viewOf(value));
          return reply;
      }) {}

}  // namespace kzsim
