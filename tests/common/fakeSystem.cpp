#include "fakeSystem.h"

// Before syslog.h, which takes over two of its names.
#include "utils.h"

#include <dlfcn.h>
#include <errno.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>

namespace {

std::mutex s_mutex;
std::vector<fake::LogLine> s_lines;
int s_logOptions = 0;
bool s_listens = true;
std::optional<fake::BootTime> s_bootTime;
std::string s_privateFolder;  // empty: files are where they say

template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::string redirected(const char* path) {
    const std::string given = path;
    const bool ours = given.starts_with("/tmp/fuse_") || given == "/tmp/kzlog.txt";
    return ours && !s_privateFolder.empty() ? s_privateFolder + given.substr(std::strlen("/tmp")) : given;
}

}  // namespace

extern "C" {

void openlog(const char* /*ident*/, int options, int /*facility*/) {
    s_logOptions = options;
}
void closelog() {}

__attribute__((format(printf, 2, 3))) void syslog(int priority, const char* format, ...) {
    char text[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
    const std::lock_guard lock(s_mutex);
    s_lines.push_back({priority, text});
    if ((s_logOptions & LOG_PERROR) != 0) {
        std::fprintf(stderr, "library: %s\n", text);
    }
}

int connect(int fd, const sockaddr* address, socklen_t length) {
    const auto* local = reinterpret_cast<const sockaddr_un*>(address);
    if (address->sa_family == AF_UNIX && std::strcmp(local->sun_path, "/dev/log") == 0) {
        errno = ENOENT;
        return s_listens ? 0 : -1;
    }
    return real<int(int, const sockaddr*, socklen_t)>("connect")(fd, address, length);
}

int clock_gettime(clockid_t clock, timespec* now) noexcept {
    if (clock == CLOCK_BOOTTIME && s_bootTime) {
        *now = {s_bootTime->seconds, s_bootTime->nanoseconds};
        return 0;
    }
    static auto* const next = real<int(clockid_t, timespec*)>("clock_gettime");
    return next(clock, now);
}

FILE* fopen(const char* path, const char* mode) {
    return real<FILE*(const char*, const char*)>("fopen")(redirected(path).c_str(), mode);
}
int mkdir(const char* path, mode_t mode) noexcept {
    return real<int(const char*, mode_t)>("mkdir")(redirected(path).c_str(), mode);
}
int stat(const char* path, struct stat* status) noexcept {
    return real<int(const char*, struct stat*)>("stat")(redirected(path).c_str(), status);
}
int remove(const char* path) noexcept {
    return real<int(const char*)>("remove")(redirected(path).c_str());
}

}  // extern "C"

namespace fake {

std::vector<LogLine>& systemLog() {
    return s_lines;
}

std::vector<std::string> logTexts() {
    const std::lock_guard lock(s_mutex);
    std::vector<std::string> texts;
    texts.reserve(s_lines.size());
    for (const LogLine& line : s_lines) {
        texts.push_back(line.text);
    }
    return texts;
}

size_t countLogged(const std::string& text) {
    const std::vector<std::string> texts = logTexts();
    return static_cast<size_t>(std::count_if(
        texts.begin(), texts.end(), [&](const std::string& line) { return line.find(text) != std::string::npos; }));
}

void setSystemLogListens(bool listens) {
    s_listens = listens;
}
void setBootTime(std::optional<BootTime> time) {
    s_bootTime = time;
}

CleanLog::CleanLog(int level, unsigned debugLevel) {
    s_lines.clear();
    g_logLevel = level;
    g_debug_level = debugLevel;
}

CleanLog::~CleanLog() {
    s_lines.clear();
    g_logLevel = KZ_LOG_ERROR;
    g_debug_level = 0x00285420;
}

PrivateFiles::PrivateFiles() {
    char folder[] = "/tmp/kzcommonXXXXXX";
    if (mkdtemp(folder) == nullptr) {
        std::perror("mkdtemp");
        std::abort();
    }
    s_privateFolder = folder;
    std::filesystem::create_directories(at("/tmp/fuse_d"));
    std::filesystem::create_directories(at("/tmp/fuse_i"));
}

PrivateFiles::~PrivateFiles() {
    std::filesystem::remove_all(s_privateFolder);
    s_privateFolder.clear();
}

std::filesystem::path PrivateFiles::at(const std::string& path) const {
    return redirected(path.c_str());
}

std::string PrivateFiles::read(const std::string& path) const {
    std::ostringstream content;
    content << std::ifstream(at(path)).rdbuf();
    return content.str();
}

void PrivateFiles::write(const std::string& path, const std::string& content) const {
    std::filesystem::create_directories(at(path).parent_path());
    std::ofstream(at(path)) << content;
}

}  // namespace fake
