// The camera of a soak: the simulator and the real daemon as child processes, in the private world that scripts/soak
// made and furnished. Throws std::runtime_error when one does not start.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <deque>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace soak {

// Runs until it is stopped or dies; always reaped.
class Process {
  public:
    // Standard output and error go to `output` (-1: left as they are).
    void start(const std::vector<std::string>& command, int output = -1);
    ~Process();
    pid_t id() const { return m_id; }
    bool running();
    // Waits for the end; its exit status, or 128 + signal. -1 when it goes on after that many seconds.
    int wait(int seconds);

  private:
    pid_t m_id = -1;
    int m_status = -1;
};

// What the daemon takes of the machine.
struct Footprint {
    long residentKb = 0;
    long descriptors = 0;
};

class Camera {
  public:
    // The daemon's log is kept in that file, unless it has no name.
    explicit Camera(const std::string& logFile);
    ~Camera();

    // One command as kzcamctl gives it; its answer. Any thread. What the camera refuses, for example to
    // break connections when there are none, is not done; throws when the simulator has another problem.
    std::string command(const std::vector<std::string>& words) const;

    bool daemonRuns() { return m_daemon.running(); }
    Footprint footprint() const;
    // Asks the daemon to stop in order; its exit status.
    int stopDaemon();

    uint64_t logLines() const { return m_logLines; }
    std::string lastLogLines() const;
    // Writes a line of our own between those of the daemon.
    void note(const std::string& line);

  private:
    void readLog(int descriptor);

    Process m_simulator;
    Process m_daemon;
    std::thread m_logReader;
    std::atomic<uint64_t> m_logLines{0};
    mutable std::mutex m_mutex;
    std::ofstream m_logFile;
    std::deque<std::string> m_lastLines;
};

}  // namespace soak
