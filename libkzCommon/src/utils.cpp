// The levelled log, the debug-print channel, the assertions, daemon start and the names of errors and models.
#include "utils.h"

#include <errno.h>
#include <execinfo.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>

#include "fileCloser.h"
#include "logWriter.h"

int g_logLevel = KZ_LOG_ERROR;
uint32_t g_debug_level = 0x00285420;

namespace {

constexpr const char* kLogTag = "utils.cpp";

// syslog.h, which is included behind utils.h, takes the names LOG_DEBUG and LOG_INFO: in this file they are priorities.
static_assert(LOG_DEBUG == 7);

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};

// Restores errno: callers print strerror(errno) after they have logged a line, which must not change it.
class ErrnoKeeper {
  public:
    ErrnoKeeper() : m_errno(errno) {}
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;
    ~ErrnoKeeper() { errno = m_errno; }

  private:
    int m_errno;
};

// ---------------------------------------------------------------- where no syslog listens

bool probeSyslog() {
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return false;
    }
    const sockaddr_un address = {AF_UNIX, "/dev/log"};
    // EPROTOTYPE means that somebody listens there on a stream socket. A socket that nobody serves refuses the
    // connection.
    const bool listens =
        connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0 || errno == EPROTOTYPE;
    close(fd);
    return listens;
}

// Asks at most once a second, so that a log that comes or goes is noticed at little cost.
bool syslogListens() {
    static std::atomic<int64_t> s_nextProbe{0};
    static std::atomic<bool> s_listens{false};
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int64_t milliseconds = int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
    int64_t due = s_nextProbe.load(std::memory_order_relaxed);
    if (milliseconds >= due && s_nextProbe.compare_exchange_strong(due, milliseconds + 1000)) {
        s_listens = probeSyslog();
    }
    return s_listens;
}

// One write, so that the lines of several processes do not mix. A failure is ignored: there is no place left to report
// it.
void writeStandardError(const char* text, size_t length) {
    if (write(STDERR_FILENO, text, length) < 0) {
        return;
    }
}

// ---------------------------------------------------------------- levelled log

constexpr const char* kLevelTags[] = {"[ OFF ]", "[FATAL]", "[ERROR]", "[WARN ]", "[DEBUG]", "[INFO ]", "[TRACE]"};
constexpr int kLevelCount = static_cast<int>(std::size(kLevelTags));

constexpr size_t kLineSize = 441;    // a log line with its terminator
constexpr size_t kMessageEnd = 349;  // a longer message is cut here, so that the location has room behind it

// Writes the location at `offset`, behind the message, or a blank when there is no room for it.
void appendLocation(char (&text)[kLineSize], size_t offset, const char* file, int line) {
    const size_t room = kLineSize - 1 - offset;
    const int length = std::snprintf(text + offset, room, " @%s:%d", file, line);
    if (length < 0 || static_cast<size_t>(length) >= room) {
        text[offset] = ' ';
        text[offset + 1] = '\0';
    }
}

void writeLine(char* text) {
    syslog(LOG_ERR, "%s", text);
    if (!syslogListens()) {
        const size_t textLength = std::strlen(text);
        text[textLength] = '\n';
        writeStandardError(text, textLength + 1);
    }
}

}  // namespace

void kzUtilKlogMsgLevel(int level, int line, const char* file, const char* format, ...) {
    const ErrnoKeeper keeper;
    if (!kzLogAdmit(level)) {
        return;
    }
    char text[kLineSize] = {};

    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    char prefix[64];
    std::snprintf(prefix, sizeof(prefix), "[%.5ld%.3ld] ", static_cast<long>(now.tv_sec), now.tv_nsec / 1'000'000);
    const char* tag = kLevelTags[std::clamp(level, 0, kLevelCount - 1)];
    const auto start = static_cast<size_t>(std::snprintf(text, sizeof(text), "%s%s ", prefix, tag));

    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(text + start, kMessageEnd + 1 - start, format, args);
    va_end(args);
    const bool whole = length >= 0 && start + static_cast<size_t>(length) <= kMessageEnd;
    appendLocation(text, whole ? start + static_cast<size_t>(length) : kMessageEnd, file, line);
    kzLogWrite(writeLine, text);
}

void kzUtilSetLogLevel(int level) {
    if (level >= 0 && level < kLevelCount) {
        std::atomic_ref<int>(g_logLevel).store(level, std::memory_order_relaxed);
    }
}

// ---------------------------------------------------------------- debug print

namespace {

constexpr const char* kDebugPrintPath = "/tmp/fuse_d/wifi_log.txt";
constexpr const char* kAssertionPath = "/tmp/kzlog.txt";
constexpr size_t kDebugTextSize = 2048;
constexpr int kAssertionFrames = 10;
constexpr int kStackTraceFrames = 100;

// Room for one text. The compiler cannot check the formats here; it has checked them at the callers of kzDebugPrint.
struct DebugText {
    char text[kDebugTextSize] = {};

    __attribute__((format(printf, 2, 0))) void format(const char* format, va_list args) {
        if (std::vsnprintf(text, sizeof(text), format, args) < 0) {
            text[0] = '\0';
        }
    }
};

void printTimed(const char* time, const DebugText& rest) {
    if ((g_debug_level & kDebugPrintStdout) != 0) {
        std::printf("%s%s", time, rest.text);
        std::fflush(stdout);
    }
    if ((g_debug_level & kDebugPrintFile) != 0) {
        if (const FileHandle file{std::fopen(kDebugPrintPath, "a+")}) {
            std::fprintf(file.get(), "%s%s", time, rest.text);
        }
    }
}

void writeDebugPrint(char* text) {
    openlog(nullptr, LOG_CONS | LOG_PERROR, LOG_USER);
    syslog(LOG_DEBUG, "%s", text);
    closelog();
    // closelog() leaves LOG_PERROR in force: without this every later line would be copied to standard error too.
    openlog(nullptr, 0, LOG_USER);
}

}  // namespace

void kzDebugPrint(unsigned threshold, const char* timedFormat, const char* plainFormat, ...) {
    if ((g_debug_level & 0xFFu) <= threshold) {
        return;
    }
    const ErrnoKeeper keeper;
    char time[20] = {};
    const time_t now = ::time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    strftime(time, sizeof(time), "%b%d %H:%M:%S", &local);

    DebugText text;
    va_list args;
    if ((g_debug_level & (kDebugPrintStdout | kDebugPrintFile)) != 0) {
        va_start(args, plainFormat);
        // printTimed prints the time, so the leading "%s" of the format is skipped.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        text.format(timedFormat + std::strlen("%s"), args);
#pragma GCC diagnostic pop
        va_end(args);
        printTimed(time, text);
    }
    va_start(args, plainFormat);
    text.format(plainFormat, args);
    va_end(args);

    kzLogWrite(writeDebugPrint, text.text);
}

// ---------------------------------------------------------------- assertions

void kzAssertFailed(const char* path, const char* function, int line, const char* condition) {
    kzDebugPrint(kDebugThresholdDump, "%s \033[31mASSERT:%s/%s:%d:%s\n\033[0m", "\033[31mASSERT:%s/%s:%d:%s\n\033[0m",
                 path, function, line, condition);
    kzLogFlush();
    raise(SIGABRT);
    exit(-1);
}

namespace {

// The folder is open to everybody: a link there must not have the text written into another file, nor a pipe hold up
// the end of the process.
void appendAssertion(const char* path, const char* function, int line, const char* condition) {
    const int fd = open(kAssertionPath, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644);
    struct stat status = {};
    if (fd >= 0 && fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && status.st_nlink == 1) {
        dprintf(fd, "ASSERT:%s/%s:%d:%s\n", path, function, line, condition);
    }
    if (fd >= 0) {
        close(fd);
    }
}

}  // namespace

void kzAssertFailedTraced(const char* path, const char* function, int line, const char* condition) {
    appendAssertion(path, function, line, condition);
    kzDebugPrint(kDebugThresholdDump, "%s \033[31mASSERT:%s/%s:%d:%s\033[0m", "\033[31mASSERT:%s/%s:%d:%s\033[0m", path,
                 function, line, condition);
    void* frames[kAssertionFrames];
    const int count = backtrace(frames, kAssertionFrames);
    const std::unique_ptr<char*, FreeMemory> symbols{backtrace_symbols(frames, count)};
    for (int i = 0; symbols && i < count; ++i) {
        kzDebugPrint(kDebugThresholdDump, "%s \033[31mTRACE %s %s\033[0m", "\033[31mTRACE %s %s\033[0m",
                     symbols.get()[i], condition);
    }
    kzLogFlush();
    raise(SIGABRT);
    exit(-1);
}

void print_stack_trace() {
    void* frames[kStackTraceFrames];
    const int count = backtrace(frames, kStackTraceFrames);
    const std::unique_ptr<char*, FreeMemory> symbols{backtrace_symbols(frames, count)};
    if (!symbols) {
        LOG_ERROR("backtrace_symbols err");
        return;
    }
    for (int i = 0; i < count; ++i) {
        std::printf("        %s\n", symbols.get()[i]);
    }
}

// ---------------------------------------------------------------- process

int daemon_init() {
    return daemon_init_ext(0);
}

int daemon_init_ext(int core) {
    if (getppid() == 1) {
        return 0;
    }
    const pid_t pid = fork();
    if (pid < 0) {
        return -1;
    }
    if (pid > 0) {
        exit(0);
    }
    setsid();
    int result = 0;
    if (core != 0) {
        const rlimit unlimited = {RLIM_INFINITY, RLIM_INFINITY};
        if (setrlimit(RLIMIT_CORE, &unlimited) != 0) {
            std::printf("%s: Error: unable to set core limit in order to generate core dump!", "daemon_init_ext");
        }
        result = chdir("/tmp/fuse_b/");
        std::printf("%s: Note: Daemon can generate core dump.", "daemon_init_ext");
    } else {
        result = chdir("/");
    }
    umask(0);
    return result;
}

// ---------------------------------------------------------------- names

namespace {

struct ErrnoName {
    const char* name;
    int32_t code;
};
#define KZ_ERRNO_NAME(code) \
    { #code, code }
constexpr ErrnoName kzErrnoStrMap[] = {
    KZ_ERRNO_NAME(KZ_OK),
    KZ_ERRNO_NAME(KZ_ERR),
    KZ_ERRNO_NAME(KZ_ERR_OUTOFMEM),
    KZ_ERRNO_NAME(KZ_ERR_INVALID_PARAM),
    KZ_ERRNO_NAME(KZ_ERR_INCOMPLETE_CGI_PARAM),
    KZ_ERRNO_NAME(KZ_ERR_MQ_FAIL),
    KZ_ERRNO_NAME(KZ_ERR_NO_SDCARD),
    KZ_ERRNO_NAME(KZ_ERR_SDCARD_FULL),
    KZ_ERRNO_NAME(KZ_ERR_CREATING_MISC_DIR),
    KZ_ERRNO_NAME(KZ_ERR_UPLOADED_FILE),
    KZ_ERRNO_NAME(KZ_ERR_FILE_OPEN),
    KZ_ERRNO_NAME(KZ_ERR_FILE_READ),
    KZ_ERRNO_NAME(KZ_ERR_FILE_WRITE),
    KZ_ERRNO_NAME(KZ_ERR_REMOTE_FILE_OPEN),
    KZ_ERRNO_NAME(KZ_ERR_REMOTE_FILE_READ),
    KZ_ERRNO_NAME(KZ_ERR_REMOTE_FILE_WRITE),
    KZ_ERRNO_NAME(KZ_ERR_ACCESS_DENIED),
    KZ_ERRNO_NAME(KZ_ERR_NAK),
    KZ_ERRNO_NAME(KZ_ERR_RESPONSE_ALREADY_SENT),
    KZ_ERRNO_NAME(KZ_ERR_NAK_OFF),
    KZ_ERRNO_NAME(KZ_ERR_NOT_SUPPORTED),
    KZ_ERRNO_NAME(KZ_ERR_DOWNLOAD_FAILED),
};
#undef KZ_ERRNO_NAME
static_assert(std::size(kzErrnoStrMap) == 22);

struct ModelName {
    int model;
    const char* name;
};
constexpr ModelName kModelNames[] = {
    {61, "61"}, {60, "60"}, {58, "58"}, {57, "57"}, {55, "55"}, {51, "tamarind"}, {50, "kelp"},
};

}  // namespace

const char* kzErrno2Str(int code) {
    const auto* entry = std::find_if(std::begin(kzErrnoStrMap), std::end(kzErrnoStrMap),
                                     [code](const ErrnoName& candidate) { return candidate.code == code; });
    return entry != std::end(kzErrnoStrMap) ? entry->name : "UNKNOWN";
}

const char* get_model_name(int model) {
    const auto* entry = std::find_if(std::begin(kModelNames), std::end(kModelNames),
                                     [model](const ModelName& candidate) { return candidate.model == (model & 0xFF); });
    return entry != std::end(kModelNames) ? entry->name : nullptr;
}
