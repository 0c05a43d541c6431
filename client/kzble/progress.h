// The progress of long work, on standard error.
#pragma once

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <string>

namespace kzble {

// A bar on a terminal; nothing in a pipe. Its line ends with it, also when the work failed.
class Progress {
  public:
    explicit Progress(std::string what) : m_what(std::move(what)), m_shown(isatty(STDERR_FILENO) != 0) {}

    ~Progress() { end(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void show(size_t done, size_t total) {
        if (!m_shown || total == 0) {
            return;
        }
        constexpr size_t kWidth = 40;
        const std::string bar(kWidth * done / total, '#');
        std::fprintf(stderr, "\r%s [%-40s] %3zu%% %.1f kB/s", m_what.c_str(), bar.c_str(), 100 * done / total,
                     rate(done));
        std::fflush(stderr);
        m_open = true;
    }
    void end() {
        if (m_open) {
            std::fputc('\n', stderr);
        }
        m_open = false;
    }
    // Kilobytes a second so far.
    double rate(size_t done) const {
        const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count();
        return seconds > 0 ? static_cast<double>(done) / 1000.0 / seconds : 0.0;
    }

  private:
    std::string m_what;
    bool m_shown;
    bool m_open = false;
    std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

}  // namespace kzble
