#include "places.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace kzdesk {
namespace {

std::string shared(const char* name) {
    std::error_code problem;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", problem);
    return program.parent_path().parent_path() / "share/kzdesk" / name;
}

}  // namespace

std::string protocolPlace() {
    return shared("protocol.json");
}

std::string webPlace() {
    return shared("web");
}

std::string cataloguePlace() {
    const char* const named = std::getenv("KZ_CATALOGUE");
    return named != nullptr && *named != '\0' ? named : "/usr/local/zorvik/etc/58/settings.json";
}

}  // namespace kzdesk
