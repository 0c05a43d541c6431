// Stands in for the parts of the system that the common library writes to: the system log, the clock since boot, and
// the files under /tmp. Linked into the test program, where its functions take precedence over the C library's.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace fake {

struct LogLine {
    int priority;
    std::string text;
};

// What the process sent to syslog since the last clear(). Like the real one it copies lines to standard error once it
// was opened with LOG_PERROR.
std::vector<LogLine>& systemLog();
// The texts alone.
std::vector<std::string> logTexts();
// The lines of the levelled log that contain `text`.
size_t countLogged(const std::string& text);

// Whether somebody listens behind /dev/log.
void setSystemLogListens(bool listens);
// The time since boot that the log shows; the real one when empty.
struct BootTime {
    long seconds;
    long nanoseconds;
};
void setBootTime(std::optional<BootTime> time);

// Clears the log and restores log level and debug mask before and after a test.
class CleanLog {
  public:
    explicit CleanLog(int level = 6, unsigned debugLevel = 0x00285420);
    CleanLog(const CleanLog&) = delete;
    CleanLog& operator=(const CleanLog&) = delete;
    ~CleanLog();
};

// While it lives, the files of /tmp/fuse_d, /tmp/fuse_i and /tmp/kzlog.txt are in a private folder of this process,
// which it removes.
class PrivateFiles {
  public:
    PrivateFiles();
    PrivateFiles(const PrivateFiles&) = delete;
    PrivateFiles& operator=(const PrivateFiles&) = delete;
    ~PrivateFiles();

    // Where a path such as "/tmp/fuse_d/messages.txt" really is.
    std::filesystem::path at(const std::string& path) const;
    std::string read(const std::string& path) const;
    void write(const std::string& path, const std::string& content) const;
};

}  // namespace fake
