#include "promise.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace kzcheck {
namespace {

[[gnu::format(printf, 1, 0)]] std::string formatted(const char* format, va_list arguments) {
    char text[400];
    std::vsnprintf(text, sizeof text, format, arguments);
    return text;
}

// Never the same in both fillings, and no run of one value.
uint8_t patternAt(size_t filling, size_t offset) {
    return static_cast<uint8_t>(offset * 37 + (filling == 0 ? 0xA5 : 0x5A));
}

}  // namespace

Outcome kept(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Outcome outcome{Result::Kept, formatted(format, arguments)};
    va_end(arguments);
    return outcome;
}

Outcome broken(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Outcome outcome{Result::Broken, formatted(format, arguments)};
    va_end(arguments);
    return outcome;
}

Outcome notTried(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Outcome outcome{Result::NotTried, formatted(format, arguments)};
    va_end(arguments);
    return outcome;
}

std::string describe(const Call& call) {
    char text[160];
    if (call.result != 0 && call.error != 0) {
        std::snprintf(text, sizeof text, "%d (%s) after %.1f ms", call.result, std::strerror(call.error),
                      call.milliseconds);
    } else {
        std::snprintf(text, sizeof text, "%d after %.1f ms", call.result, call.milliseconds);
    }
    return text;
}

bool answered(const Call& call) {
    return call.result == 0 && call.milliseconds < kReplyDeadlineMs;
}

ReplyBuffer::ReplyBuffer(size_t size) : m_size(size) {
    for (size_t filling = 0; filling < 2; ++filling) {
        m_storage[filling].resize(size + 2 * kMargin);
        fill(filling);
    }
}

void ReplyBuffer::fill(size_t filling) {
    for (size_t i = 0; i < m_storage[filling].size(); ++i) {
        m_storage[filling][i] = patternAt(filling, i);
    }
}

bool ReplyBuffer::written(size_t offset, size_t length) const {
    const uint8_t* const first = m_storage[0].data() + kMargin + offset;
    return std::memcmp(first, bytes() + offset, length) == 0;
}

bool ReplyBuffer::writtenOutside() const {
    for (size_t filling = 0; filling < 2; ++filling) {
        for (size_t i = 0; i < m_storage[filling].size(); ++i) {
            const bool inside = i >= kMargin && i < kMargin + m_size;
            if (!inside && m_storage[filling][i] != patternAt(filling, i)) {
                return true;
            }
        }
    }
    return false;
}

}  // namespace kzcheck
