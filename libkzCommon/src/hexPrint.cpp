// Hex dumps of buffers on the debug-print channel.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "utils.h"

namespace {

constexpr unsigned kLineBytes = 16;
constexpr unsigned kGroupBytes = 4;
constexpr int64_t kShortenedHead = 80;  // bytes shown at the start of a shortened dump
constexpr int64_t kShortenedTail = 32;  // most bytes shown at its end
constexpr size_t kLabelSize = 64;       // room for the label and the address at the beginning of a line

void printLine(const char* line) {
    KZ_DEBUG_PRINT(kDebugThresholdDump, "%s\n", line);
}

bool isDumping() {
    return (g_debug_level & 0xFFu) > kDebugThresholdDump;
}

char printable(uint8_t byte) {
    return byte >= 32 && byte <= 126 ? static_cast<char>(byte) : '.';
}

// Writes the columns of one line: 16 bytes in hexadecimal in groups of four, two blanks, the same bytes as characters.
// The first column is for offset `first` of the data; columns for offsets outside the data stay blank.
void formatColumns(char* out, const uint8_t* data, int64_t length, int64_t first) {
    constexpr unsigned kHexWidth = kLineBytes * 2 + kLineBytes / kGroupBytes - 1;
    constexpr unsigned kWidth = kHexWidth + 2 + kLineBytes;
    std::memset(out, ' ', kWidth);
    out[kWidth] = '\0';
    for (unsigned column = 0; column < kLineBytes; ++column) {
        const int64_t offset = first + column;
        if (offset < 0 || offset >= length) {
            continue;
        }
        constexpr const char* kDigits = "0123456789abcdef";
        char* hex = out + (column * size_t{2} + column / kGroupBytes);
        hex[0] = kDigits[data[offset] >> 4];
        hex[1] = kDigits[data[offset] & 0x0F];
        out[kHexWidth + 2 + column] = printable(data[offset]);
    }
}

// Prints the bytes without addresses and characters, 16 a line. A blank precedes every byte whose index in the data
// modulo the size of a group equals `phase`.
void printGroups(const char* label, const uint8_t* data, uint32_t length, uint32_t phase) {
    constexpr size_t kLongestLine = 97;
    for (uint32_t first = 0; first < length; first += kLineBytes) {
        char line[kLongestLine + 1];
        size_t used = static_cast<size_t>(std::snprintf(line, sizeof(line), "%s", label));
        const uint32_t end = first + std::min(kLineBytes, length - first);
        for (uint32_t i = first; i < end && used < sizeof(line); ++i) {
            const char* gap = i % kGroupBytes == phase ? " " : "";
            used += static_cast<size_t>(std::snprintf(line + used, sizeof(line) - used, "%s%02x", gap, data[i]));
        }
        printLine(line);
    }
}

}  // namespace

void hexprint(const char* label, uint32_t address, const void* data, uint32_t length) {
    if (!isDumping()) {
        return;
    }
    const bool shortened = (g_debug_level & kDebugWholeHexDumps) == 0 && int64_t{length} > kShortenedHead;
    printLine("");
    // `first` is an offset into the data. It is negative in the first line unless the address is a multiple of 16.
    for (int64_t first = -int64_t{address % kLineBytes}; first < int64_t{length}; first += kLineBytes) {
        if (shortened && first >= kShortenedHead && int64_t{length} - first > kShortenedTail) {
            continue;
        }
        char line[kLabelSize + size_t{4} * kLineBytes];
        const auto lineAddress = static_cast<uint32_t>(int64_t{address} + first);
        const int used = std::snprintf(line, kLabelSize, "%-11s%08x  ", label, lineAddress);
        formatColumns(line + std::min(static_cast<size_t>(used), kLabelSize - 1), static_cast<const uint8_t*>(data),
                      length, first);
        printLine(line);
    }
}

void hexprint_noaddr(const char* label, uint32_t /*address*/, const void* data, uint32_t length) {
    if (isDumping()) {
        printGroups(label, static_cast<const uint8_t*>(data), length, length >= kGroupBytes ? length % kGroupBytes : 0);
    }
}

void hexprint_noaddr2(const char* label, uint32_t /*address*/, const void* data, uint32_t length) {
    if (isDumping()) {
        printGroups(label, static_cast<const uint8_t*>(data), length, 0);
    }
}

void hexprint_noaddr3(const char* label, uint32_t address, const void* data, uint32_t length) {
    hexprint_noaddr2(label, address, data, length);
}
