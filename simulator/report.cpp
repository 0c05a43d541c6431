#include "report.h"

#include <time.h>

#include <cstdarg>
#include <cstdio>

namespace kzsim {
namespace {

bool g_verbose = false;

__attribute__((format(printf, 3, 0))) void write(const char* mark, const char* role, const char* format,
                                                 va_list arguments) {
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    char text[1024];
    vsnprintf(text, sizeof text, format, arguments);
    fprintf(stderr, "[%6ld.%03ld] %s%-8s %s\n", static_cast<long>(now.tv_sec), now.tv_nsec / 1000000, mark, role, text);
}

}  // namespace

void setVerbose(bool verbose) {
    g_verbose = verbose;
}

void report(const char* role, const char* format, ...) {
    if (!g_verbose) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    write("", role, format, arguments);
    va_end(arguments);
}

void warn(const char* role, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    write("! ", role, format, arguments);
    va_end(arguments);
}

}  // namespace kzsim
