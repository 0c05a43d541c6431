// Logging and small utilities shared by the camera's daemons: the levelled log, the debug-print channel, the two fatal
// assertion forms, hex dumps, daemon start, error and model names, a few string and file functions.
//
// Everything here may be called from any thread. The log level may change at any time; the debug-print mask is only set
// before the threads start.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

struct cJSON;

// ---------------------------------------------------------------- levelled log

enum kzLogLevel : int {
    KZ_LOG_OFF = 0,
    KZ_LOG_FATAL = 1,
    KZ_LOG_ERROR = 2,
    KZ_LOG_WARN = 3,
    KZ_LOG_DEBUG = 4,
    KZ_LOG_INFO = 5,
    KZ_LOG_TRACE = 6,
};

// A message of level L is produced when g_logLevel is at least L. Initially KZ_LOG_ERROR.
extern int g_logLevel;

// The current threshold. Any thread may ask while another changes it; that costs no more than reading an integer.
inline int kzUtilGetLogLevel() {
    return std::atomic_ref<int>(g_logLevel).load(std::memory_order_relaxed);
}

// Emits one line, "[boot time] [LEVEL] message @file:line", to syslog with priority LOG_ERR; where nothing listens
// behind "/dev/log" the line reaches standard error too. It does not filter: use the LOG macros, which test g_logLevel
// first and evaluate their arguments only then. A message that does not fit the 441-byte line is cut and keeps its
// location. errno is left alone.
void kzUtilKlogMsgLevel(int level, int line, const char* file, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Sets the threshold, 0 to 6. Any other value is ignored.
void kzUtilSetLogLevel(int level);

// LOG_AT(level, format, ...) logs under the tag `kLogTag`, which every source file defines for itself:
//     namespace { constexpr const char* kLogTag = "kzBleServer"; }
// <syslog.h> takes the names LOG_DEBUG and LOG_INFO for itself: no file that logs includes it.
#define LOG_AT(level, ...)                                               \
    do {                                                                 \
        if (kzUtilGetLogLevel() >= (level)) {                            \
            kzUtilKlogMsgLevel((level), __LINE__, kLogTag, __VA_ARGS__); \
        }                                                                \
    } while (false)
#define LOG_ERROR(...) LOG_AT(KZ_LOG_ERROR, __VA_ARGS__)
#define LOG_WARN(...) LOG_AT(KZ_LOG_WARN, __VA_ARGS__)
#define LOG_DEBUG(...) LOG_AT(KZ_LOG_DEBUG, __VA_ARGS__)
#define LOG_INFO(...) LOG_AT(KZ_LOG_INFO, __VA_ARGS__)
#define LOG_TRACE(...) LOG_AT(KZ_LOG_TRACE, __VA_ARGS__)

// ---------------------------------------------------------------- debug print

// Mask of the debug-print channel: a level in the low byte, and the bits below. Initially 0x00285420.
extern uint32_t g_debug_level;

constexpr uint32_t kDebugPrintStdout = 1u << 30;   // copy to standard output, with the time in front
constexpr uint32_t kDebugPrintFile = 1u << 29;     // append to "/tmp/fuse_d/wifi_log.txt", with the time in front
constexpr uint32_t kDebugDumpMessages = 1u << 8;   // hex dumps of IPC messages
constexpr uint32_t kDebugWholeHexDumps = 1u << 9;  // long hex dumps are not shortened
// A text is printed when the low byte of the mask is above its threshold.
constexpr unsigned kDebugThresholdDump = 7;    // assertion texts and hex dumps
constexpr unsigned kDebugThresholdTlv = 15;    // texts of the TLV validation
constexpr unsigned kDebugThresholdStart = 31;  // start-up lines

// Prints a text when the low byte of g_debug_level is above `threshold`. `timedFormat` is used for standard output and
// the file; it begins with the "%s" that takes the time. `plainFormat` is used for syslog (LOG_DEBUG), which is opened
// with LOG_PERROR, so that the text reaches standard error as well. Both take the same arguments. A text is cut at 2047
// bytes. errno is left alone.
void kzDebugPrint(unsigned threshold, const char* timedFormat, const char* plainFormat, ...)
    __attribute__((format(printf, 3, 4)));

// Prints a text literal in its timed and its plain form; evaluates the arguments only when it does.
#define KZ_DEBUG_PRINT(threshold, text, ...)                                        \
    do {                                                                            \
        if ((g_debug_level & 0xFFu) > (threshold)) {                                \
            kzDebugPrint((threshold), "%s " text, text __VA_OPT__(, ) __VA_ARGS__); \
        }                                                                           \
    } while (false)

// ---------------------------------------------------------------- assertions: calling errors only, never bad input

// Plain form: debug-prints path, function, line and condition, then raises SIGABRT.
[[noreturn]] void kzAssertFailed(const char* path, const char* function, int line, const char* condition);
// Traced form: also appends the text to "/tmp/kzlog.txt" and debug-prints a backtrace of at most 10 frames.
[[noreturn]] void kzAssertFailedTraced(const char* path, const char* function, int line, const char* condition);

// `text` is what the operator sees of the condition. It is given apart from the condition, so that it stays the same
// when the code spells the condition differently.
#define KZ_ASSERT(condition, path, text) \
    ((condition) ? static_cast<void>(0) : kzAssertFailed((path), __func__, __LINE__, (text)))
#define KZ_ASSERT_TRACED(condition, path, text) \
    ((condition) ? static_cast<void>(0) : kzAssertFailedTraced((path), __func__, __LINE__, (text)))

// ---------------------------------------------------------------- hex dumps, on the debug-print channel

// One line per 16 bytes with address and characters. A dump longer than 80 bytes shows its first 80 and last 32 or
// fewer bytes unless kDebugWholeHexDumps is set.
void hexprint(const char* label, uint32_t address, const void* data, uint32_t length);
// The bytes without addresses and characters, 16 a line in groups of four. The groups of the first form are counted
// from the end of the data, those of the other two from its start.
void hexprint_noaddr(const char* label, uint32_t address, const void* data, uint32_t length);
void hexprint_noaddr2(const char* label, uint32_t address, const void* data, uint32_t length);
void hexprint_noaddr3(const char* label, uint32_t address, const void* data, uint32_t length);

// ---------------------------------------------------------------- process

// Makes the process a daemon: fork, new session, root directory, umask 0; the parent exits with status 0. Returns 0, or
// -1 when fork fails. A process whose parent is process 1 is taken for a daemon already: nothing is done and 0
// returned.
int daemon_init();
// The same; if `core` is not 0, core dumps are unlimited and go to "/tmp/fuse_b/".
int daemon_init_ext(int core);
// Prints up to 100 frames of the caller's backtrace on standard output.
void print_stack_trace();

// ---------------------------------------------------------------- names

enum kzErrnoCode : int {
    KZ_OK = 0,
    KZ_ERR = -1,
    KZ_ERR_OUTOFMEM = -2,
    KZ_ERR_INVALID_PARAM = -3,
    KZ_ERR_INCOMPLETE_CGI_PARAM = -4,
    KZ_ERR_MQ_FAIL = -5,
    KZ_ERR_NO_SDCARD = -6,
    KZ_ERR_SDCARD_FULL = -7,
    KZ_ERR_CREATING_MISC_DIR = -8,
    KZ_ERR_UPLOADED_FILE = -9,
    KZ_ERR_FILE_OPEN = -10,
    KZ_ERR_FILE_READ = -11,
    KZ_ERR_FILE_WRITE = -12,
    KZ_ERR_REMOTE_FILE_OPEN = -14,
    KZ_ERR_REMOTE_FILE_READ = -15,
    KZ_ERR_REMOTE_FILE_WRITE = -16,
    KZ_ERR_ACCESS_DENIED = -17,
    KZ_ERR_DOWNLOAD_FAILED = -100,
    KZ_ERR_NAK = -101,
    KZ_ERR_RESPONSE_ALREADY_SENT = -102,
    KZ_ERR_NAK_OFF = -103,
    KZ_ERR_NOT_SUPPORTED = -104,
};

// The name of an error code, for example "KZ_ERR_NAK"; "UNKNOWN" for any other.
const char* kzErrno2Str(int code);
// The name of a camera model, of whose number only the low byte counts; null for an unknown one.
const char* get_model_name(int model);

// ---------------------------------------------------------------- strings and files

// Returns the first character of `text` that is neither blank nor tab; null when there is none or `text` is null.
char* trim(char* text);
// Decodes percent escapes in place. `*length` becomes the decoded length, and a terminator is written there, for which
// the buffer must have room. A "%" that is less than two characters from the end ends the text; one that no two
// hexadecimal digits follow stays as it is.
void unescapeUrl(char* text, int* length);
// True when every character before the terminator or `length` is a decimal digit; true for an empty text.
bool validateCardID(const char* text, int length);
// Reads the card's id into `buffer` (at least 32 bytes). If there is none, or the stored one is no number, an id is
// made and stored. Returns 0, or -1 with "0" in the buffer and the reason on standard error.
int getCardIDStr(char* buffer);
int getCardIDStrFromCard(char* buffer, int which);  // `which`: 1 for the internal storage, else the card
// Whether the card holds "messages.txt".
bool messages_txt_exists();

namespace Utils {

// Reads the integer under `key` into `*out`: a number, a string that is a decimal number as a whole, true (1) or false
// (0). A value beyond int becomes the nearest int. Returns
//    0   when it was read, and when it is missing or JSON null and not `required` (`*out` stays as it was)
//   -1   when it is required and missing, or is no integer; of a string `*out` gets what the leading digits give
//   -3   when an argument is null
int cjson_parse_int(const cJSON* object, const char* key, int* out, int required);
// Sets `*out` to the string under `key`, inside the JSON tree, or to null for JSON null. Returns
//    0   when it was read, and when it is missing and not `required` (`*out` stays as it was)
//   -1   when it is required and missing, or is no string
//   -3   when an argument is null
int cjson_parse_string(const cJSON* object, const char* key, const char** out, int required);

// CRC-32 of IEEE 802.3 (reflected 0xEDB88320, initial and final complement); 0 for empty input.
uint32_t crc32(const uint8_t* data, uint32_t length);

}  // namespace Utils
