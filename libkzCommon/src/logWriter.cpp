#include "logWriter.h"

#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <optional>

#include "logLimit.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "logWriter.cpp";

// Room for all lines of the largest message that is refused entry by entry.
constexpr size_t kQueueSize = 1024 * 1024;
constexpr std::chrono::milliseconds kFlushPatience{500};

using Clock = std::chrono::steady_clock;

thread_local std::optional<uint32_t> t_source;
thread_local bool t_isWriter = false;

// Runs in the writer, so that the line gets its time and goes out where it stands.
void WriteReport(char* text) {
    LOG_ERROR("%s", text);
}

class LogWriter {
  public:
    bool Start();
    bool Admit(std::optional<uint32_t> source);
    void Put(LogSink sink, const char* line);
    void Flush();

  private:
    static void* Thread(void* writer);
    void Run();
    // Writes the oldest line, or else reports lines that were lost behind it; false when there is neither.
    bool WriteNext(std::unique_lock<std::mutex>& lock);
    void WaitForLines(std::unique_lock<std::mutex>& lock);
    void CloseSecond();
    bool HasWork() const { return !m_queue.IsEmpty() || m_queue.HasLost(); }

    // Never held while a line is written: who logs waits for a copy at most.
    std::mutex m_mutex;
    std::condition_variable m_hasWork;
    std::condition_variable m_becameIdle;
    LogQueue m_queue{kQueueSize};
    LogLimit m_limit;
    bool m_isIdle = false;
    LogEntry m_entry;  // the writer's own
};

// No signal is handled on the writer's thread.
bool LogWriter::Start() {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    pthread_t thread{};
    const bool started = pthread_create(&thread, nullptr, Thread, this) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (started) {
        pthread_detach(thread);
    }
    return started;
}

bool LogWriter::Admit(std::optional<uint32_t> source) {
    const std::lock_guard lock(m_mutex);
    const Clock::time_point now = Clock::now();
    if (m_limit.IsOver(now)) {
        CloseSecond();
    }
    return m_limit.Admit(source, now);
}

void LogWriter::Put(LogSink sink, const char* line) {
    {
        const std::lock_guard lock(m_mutex);
        m_queue.Put(sink, line);
    }
    m_hasWork.notify_one();
}

void LogWriter::Flush() {
    std::unique_lock lock(m_mutex);
    CloseSecond();
    m_hasWork.notify_one();
    m_becameIdle.wait_for(lock, kFlushPatience, [this] { return m_isIdle && !HasWork(); });
}

void LogWriter::CloseSecond() {
    m_limit.Close([this](const LogLimit::Count& count) {
        char text[100];
        if (count.connection) {
            std::snprintf(text, sizeof(text), "%u more log lines in a second because of connection_id:%u", count.held,
                          *count.connection);
        } else {
            std::snprintf(text, sizeof(text), "%u more log lines in a second", count.held);
        }
        m_queue.Put(WriteReport, text);
    });
}

// ---------------------------------------------------------------- the writer's thread

void* LogWriter::Thread(void* writer) {
    t_isWriter = true;
    static_cast<LogWriter*>(writer)->Run();
    return nullptr;
}

void LogWriter::Run() {
    std::unique_lock lock(m_mutex);
    while (true) {
        if (m_limit.IsOver(Clock::now())) {
            CloseSecond();
        }
        if (!WriteNext(lock)) {
            WaitForLines(lock);
        }
    }
}

bool LogWriter::WriteNext(std::unique_lock<std::mutex>& lock) {
    const bool taken = m_queue.Take(m_entry);
    const unsigned lost = taken ? 0 : m_queue.TakeLost();
    if (!taken && lost == 0) {
        return false;
    }
    lock.unlock();
    if (taken) {
        m_entry.sink(m_entry.text);
    } else {
        LOG_ERROR("%u log lines lost because the log is not read", lost);
    }
    lock.lock();
    return true;
}

// Until there is a line, or the second is over.
void LogWriter::WaitForLines(std::unique_lock<std::mutex>& lock) {
    m_isIdle = true;
    m_becameIdle.notify_all();
    const auto hasWork = [this] { return HasWork(); };
    if (const std::optional<LogLimit::Time> end = m_limit.End()) {
        m_hasWork.wait_until(lock, *end, hasWork);
    } else {
        m_hasWork.wait(lock, hasWork);
    }
    m_isIdle = false;
}

std::atomic<LogWriter*> s_writer{nullptr};

// What the writer itself logs goes out at once.
LogWriter* Writer() {
    return t_isWriter ? nullptr : s_writer.load(std::memory_order_acquire);
}

}  // namespace

// ---------------------------------------------------------------- interface

void kzLogStartWriter() {
    static LogWriter* const writer = new LogWriter;  // its thread runs until the process ends
    if (!writer->Start()) {
        return;
    }
    s_writer = writer;
    pthread_atfork(nullptr, nullptr, [] { s_writer = nullptr; });
    std::atexit(kzLogFlush);
}

LogSource::LogSource(uint32_t connection) {
    t_source = connection;
}

LogSource::~LogSource() {
    t_source.reset();
}

bool kzLogAdmit(int level) {
    LogWriter* writer = Writer();
    const bool limited = writer != nullptr && level <= KZ_LOG_DEBUG && kzUtilGetLogLevel() != KZ_LOG_TRACE;
    return !limited || writer->Admit(t_source);
}

void kzLogWrite(LogSink sink, char* line) {
    if (LogWriter* writer = Writer(); writer != nullptr) {
        writer->Put(sink, line);
    } else {
        sink(line);
    }
}

void kzLogFlush() {
    if (LogWriter* writer = Writer(); writer != nullptr) {
        writer->Flush();
    }
}
