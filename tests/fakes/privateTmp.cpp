#include "privateTmp.h"

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <fstream>
#include <string>

namespace fakes {
namespace {

bool WriteFile(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    return file.good();
}

bool EnterNamespaces() {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (user == 0 && unshare(CLONE_NEWNS) == 0) {
        return true;
    }
    return unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 && WriteFile("/proc/self/setgroups", "deny") &&
           WriteFile("/proc/self/uid_map", std::to_string(user) + " " + std::to_string(user) + " 1") &&
           WriteFile("/proc/self/gid_map", std::to_string(group) + " " + std::to_string(group) + " 1");
}

}  // namespace

bool EnterPrivateTmp(const char* options, const char* folder) {
    static const bool s_entered = EnterNamespaces() && mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    return s_entered && mount("kzTest", folder, "tmpfs", 0, options) == 0;
}

}  // namespace fakes
