// ParseProblems: limits what the problems of one file may write into the log. A file that is broken all over would
// otherwise bury everything else that the log holds.
#pragma once

#include "utils.h"

class ParseProblems {
  public:
    static constexpr int kMaxLines = 150;

    // While it lives, problems are counted, and those beyond the limit are left out; at the end one line says how many.
    // One at a time in the process, which has one thread that parses.
    ParseProblems();
    ~ParseProblems();
    ParseProblems(const ParseProblems&) = delete;
    ParseProblems& operator=(const ParseProblems&) = delete;

    // Counts a problem; whether it may be logged. Always without a living object.
    static bool MayLog();

  private:
    static ParseProblems* s_current;
    int m_count = 0;
};

// Logs a problem of the file as an error. The arguments are evaluated only when the line is written.
#define LOG_PROBLEM(...)               \
    do {                               \
        if (ParseProblems::MayLog()) { \
            LOG_ERROR(__VA_ARGS__);    \
        }                              \
    } while (false)
