// Collects what the daemon logs: syslog(3) is played inside the test program. While no capture lives, lines are
// dropped.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace fakes {

struct LogLine {
    std::string level;  // "ERROR", "WARN ", "DEBUG", "INFO ", "TRACE"
    std::string text;   // without location
    std::string file;
};

// Sets the log level and collects lines for its own life; one at a time. Thread-safe towards the logging code.
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
    void Clear();

  private:
    int m_savedLevel;
};

}  // namespace fakes
