#include "logCapture.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "utils.h"

namespace fakes {
namespace {

std::mutex s_mutex;
bool s_capturing = false;
bool s_copies = false;  // to standard error
std::vector<LogLine> s_lines;

constexpr const char* kLevelNames[] = {" OFF ", "FATAL", "ERROR", "WARN ", "DEBUG", "INFO ", "TRACE"};

// "[time] [LEVEL] text @file:line"; anything else is kept whole.
LogLine Split(const std::string& line) {
    const size_t open = line.find("] [");
    const size_t close = open == std::string::npos ? open : line.find(']', open + 3);
    const size_t at = line.rfind(" @");
    if (close == std::string::npos || at == std::string::npos || at < close + 2) {
        return {"", line, line};
    }
    return {line.substr(open + 3, close - open - 3), line.substr(close + 2, at - close - 2), line};
}

size_t CountIf(const std::vector<LogLine>& lines, const auto& matches) {
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), matches));
}

}  // namespace

LogCapture::LogCapture(int level) : m_savedLevel(g_logLevel), m_savedDebugLevel(g_debug_level) {
    g_logLevel = level;
    Clear();
    s_capturing = true;
}

LogCapture::~LogCapture() {
    g_logLevel = m_savedLevel;
    g_debug_level = m_savedDebugLevel;
    Clear();
    s_capturing = false;
}

std::vector<LogLine> LogCapture::Lines() const {
    const std::lock_guard<std::mutex> lock(s_mutex);
    return s_lines;
}

std::vector<std::string> LogCapture::Texts() const {
    std::vector<std::string> texts;
    for (const LogLine& line : Lines()) {
        texts.push_back(line.text);
    }
    return texts;
}

bool LogCapture::Has(std::string_view text, int level) const {
    return CountIf(Lines(), [&](const LogLine& line) {
               return line.text == text && (level == 0 || line.level == kLevelNames[level]);
           }) > 0;
}

size_t LogCapture::Count(std::string_view part) const {
    return CountIf(Lines(), [&](const LogLine& line) { return line.whole.find(part) != std::string::npos; });
}

void LogCapture::Clear() {
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_lines.clear();
}

}  // namespace fakes

// Without <syslog.h>, whose priority names are those of our levels.
extern "C" {

void openlog(const char* /*ident*/, int options, int /*facility*/) {
    constexpr int kPerror = 0x20;
    fakes::s_copies = (options & kPerror) != 0;
}
void closelog() {}

__attribute__((format(printf, 2, 0))) void vsyslog(int /*priority*/, const char* format, va_list args) {
    char text[4096];
    std::vsnprintf(text, sizeof(text), format, args);
    const std::lock_guard<std::mutex> lock(fakes::s_mutex);
    if (fakes::s_copies) {
        std::fprintf(stderr, "library: %s\n", text);
    }
    if (fakes::s_capturing) {
        fakes::s_lines.push_back(fakes::Split(text));
    }
}

__attribute__((format(printf, 2, 3))) void syslog(int priority, const char* format, ...) {
    va_list args;
    va_start(args, format);
    vsyslog(priority, format, args);
    va_end(args);
}

// What a build with _FORTIFY_SOURCE calls instead.
__attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int /*flag*/, const char* format, ...) {
    va_list args;
    va_start(args, format);
    vsyslog(priority, format, args);
    va_end(args);
}

}  // extern "C"
