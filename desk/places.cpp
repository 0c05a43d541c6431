#include "places.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace kzdesk {
namespace {

std::string shared(const char* belowShare, const char* whereBuilt) {
    std::error_code problem;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", problem);
    const auto installed = program.parent_path().parent_path() / "share" / belowShare;
    return !problem && std::filesystem::exists(installed, problem) ? installed.string() : whereBuilt;
}

}  // namespace

std::string protocolPlace() {
    return shared("kzble/protocol/protocol.json", KZ_DESK_PROTOCOL);
}

std::string webPlace() {
    return shared("kzdesk/web", KZ_DESK_WEB);
}

std::string cataloguePlace() {
    const char* const named = std::getenv("KZ_CATALOGUE");
    return named != nullptr && *named != '\0' ? named : "/usr/local/zorvik/etc/58/settings.json";
}

}  // namespace kzdesk
