// Stands in for the system log in fuzzers: texts are formatted, so that a read past their data shows, and dropped.
#include <syslog.h>

#include <cstdarg>
#include <cstdio>

extern "C" {

void openlog(const char* /*ident*/, int /*options*/, int /*facility*/) {}
void closelog() {}

__attribute__((format(printf, 2, 3))) void syslog(int /*priority*/, const char* format, ...) {
    char text[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof(text), format, args);
    va_end(args);
}

}  // extern "C"
