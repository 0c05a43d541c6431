// The log's writer: a thread that hands lines to the system's log, so that nobody who logs waits for it. A log that
// nobody reads costs lines, never an answer.
//
// A process has a writer from kzLogStartWriter() on. Without one every line is written by the thread that logs it, and
// none is held back.
#pragma once

#include <cstdint>

#include "logQueue.h"

// Starts the writer, once a process and behind the fork that makes it a daemon. The end of the process by exit() waits
// up to half a second for the lines that are still to be written. A child that is forked later has no writer. When the
// thread cannot be made, everything stays as it was.
void kzLogStartWriter();

// Attributes the lines of this thread to a connection for its own life: a connection may cause 100 lines a second at
// the levels up to KZ_LOG_DEBUG, everything else together 400. What is beyond is counted, and reported in one line when
// the second is over. At the log level KZ_LOG_TRACE nothing is held back.
class LogSource {
  public:
    explicit LogSource(uint32_t connection);
    ~LogSource();
    LogSource(const LogSource&) = delete;
    LogSource& operator=(const LogSource&) = delete;
};

// ---------------------------------------------------------------- for the log itself

// Whether a line of this level comes out; one that does not is counted.
bool kzLogAdmit(int level);
// Has `sink` called with this line: by the writer, in the order of the calls, or at once without one.
void kzLogWrite(LogSink sink, char* line);
// Waits until everything is written, also what was held back so far, but no longer than half a second.
void kzLogFlush();
