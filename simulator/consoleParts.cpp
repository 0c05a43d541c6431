// Parts of the camera that are killed, started anew, hung and woken.
#include "consoleCommand.h"

namespace kzsim {
namespace {

// False when there is no such action.
template <typename Role>
bool act(Part<Role>& part, const std::string& action) {
    if (action == "kill") {
        part.kill();
    } else if (action == "start") {
        part.start();
    } else if (action == "hang" || action == "go") {
        part->setHung(action == "hang");
    } else {
        return false;
    }
    return true;
}

// Nothing when the part has another name.
template <typename Role>
std::optional<bool> actIfNamed(Part<Role>& part, const std::string& name, const std::string& action) {
    return name == part.name() ? std::optional(act(part, action)) : std::nullopt;
}

// part NAME ACTION
ConsoleAnswer part(const Roles& roles, const Words& words) {
    for (const auto& known :
         {actIfNamed(roles.radio, words[1], words[2]), actIfNamed(roles.control, words[1], words[2]),
          actIfNamed(roles.network, words[1], words[2]), actIfNamed(roles.metadata, words[1], words[2])}) {
        if (known.has_value()) {
            return *known ? done() : wrongUse("a part is killed, started, hung or let go");
        }
    }
    return wrongUse("the camera has no part " + words[1]);
}

constexpr ConsoleRow kRows[] = {{"part", 2, 2, part, false}};

}  // namespace

std::span<const ConsoleRow> partRows() {
    return kRows;
}

}  // namespace kzsim
