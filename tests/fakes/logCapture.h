// Collects what the daemon logs: syslog(3) is played inside the test program. While no capture lives, lines are
// dropped. Like the real one it copies lines to standard error once it was opened with LOG_PERROR.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fakes {

struct LogLine {
    std::string level;  // "ERROR", "WARN ", "DEBUG", "INFO ", "TRACE"; empty for a debug print
    std::string text;   // without time, level and location
    std::string whole;
};

// Sets the log level and collects lines for its own life, at the end of which it restores log level and debug mask; one
// at a time. Thread-safe towards the logging code.
class LogCapture {
  public:
    explicit LogCapture(int level);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<LogLine> Lines() const;
    std::vector<std::string> Texts() const;
    // Whether a line has exactly this text, at this level where one is given (2 to 6).
    bool Has(std::string_view text, int level = 0) const;
    // How many lines contain this, with level and location.
    size_t Count(std::string_view part) const;
    void Clear();

  private:
    int m_savedLevel;
    unsigned m_savedDebugLevel;
};

}  // namespace fakes
