// LogQueue: the lines that wait for the log's writer, in the order in which they came. It holds a bounded number of
// bytes; what finds no room is counted.
//
// Once a line was lost, those behind it are lost too until the queue is empty: so one report of the loss stands where
// the lines are missing, however long the log is stuck.
//
// Not synchronised. Allocates nothing after its construction, and touches no more of its memory than it needs: it
// starts at the beginning again whenever it is empty.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

// Writes one line, a terminated text, where it belongs. It may change the text.
using LogSink = void (*)(char* text);

constexpr size_t kLogTextSize = 2048;  // the longest text with its terminator

struct LogEntry {
    LogSink sink = nullptr;
    char text[kLogTextSize];
};

class LogQueue {
  public:
    explicit LogQueue(size_t capacity);

    // Appends a line, cut where it is longer than an entry.
    void Put(LogSink sink, std::string_view text);
    // Removes the oldest line; false when there is none.
    bool Take(LogEntry& entry);
    // How many lines were lost in front of those that will be put next; forgets them.
    unsigned TakeLost();

    bool IsEmpty() const { return m_used == 0; }
    bool HasLost() const { return m_lost > 0; }

  private:
    // Stands in front of each text.
    struct Head {
        LogSink sink;
        size_t length;
    };

    void Write(const void* bytes, size_t length);
    void Read(void* bytes, size_t length);

    const size_t m_capacity;
    const std::unique_ptr<char[]> m_bytes;  // a ring
    size_t m_begin = 0;
    size_t m_used = 0;
    unsigned m_lost = 0;
};
