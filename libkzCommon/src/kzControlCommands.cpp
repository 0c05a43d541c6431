// The names of the control daemon's commands.
#include "kzControlCommands.h"

#include <iterator>

namespace {

#define KZCONTROL_NAME(name) "KZCONTROL_" #name,
constexpr const char* kCommandNames[] = {KZCONTROL_COMMANDS(KZCONTROL_NAME)};
#undef KZCONTROL_NAME
static_assert(std::size(kCommandNames) == 103);

}  // namespace

const char* kzControlCommandName(uint32_t id) {
    return id < std::size(kCommandNames) ? kCommandNames[id] : "UNKNOWN";
}
