// The log line, the debug-print channel and the assertions, as the system log sees them.
#include <errno.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "fakeSystem.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "tag";
// The names of syslog.h are taken by the log macros.
constexpr int kSyslogError = 3;
constexpr int kSyslogDebug = 7;
constexpr size_t kMessageStart = 19;  // "[00012045] [INFO ] "
constexpr size_t kMessageEnd = 349;

std::string onlyLine() {
    const std::vector<std::string> texts = fake::logTexts();
    EXPECT_EQ(texts.size(), 1u);
    return texts.empty() ? "" : texts.back();
}

class Log : public testing::Test {
  protected:
    Log() { fake::setBootTime(fake::BootTime{12, 45'999'999}); }
    ~Log() override { fake::setBootTime(std::nullopt); }
    fake::CleanLog m_clean;
};

TEST_F(Log, LineShowsBootTimeTagMessageAndLocation) {
    kzUtilKlogMsgLevel(KZ_LOG_INFO, 77, "kzBleServer", "received %d bytes at server\n", 5);

    ASSERT_EQ(fake::systemLog().size(), 1u);
    EXPECT_EQ(fake::systemLog()[0].text, "[00012045] [INFO ] received 5 bytes at server\n @kzBleServer:77");
    EXPECT_EQ(fake::systemLog()[0].priority, kSyslogError);
}

TEST_F(Log, SecondsMayNeedMoreThanFiveDigits) {
    fake::setBootTime(fake::BootTime{1234567, 0});

    kzUtilKlogMsgLevel(KZ_LOG_ERROR, 1, "f", "m");

    EXPECT_EQ(onlyLine(), "[1234567000] [ERROR] m @f:1");
}

TEST_F(Log, EveryLevelHasItsTag) {
    const char* tags[] = {"[ OFF ]", "[FATAL]", "[ERROR]", "[WARN ]", "[DEBUG]", "[INFO ]", "[TRACE]"};
    for (int level = 0; level <= 6; ++level) {
        fake::systemLog().clear();
        kzUtilKlogMsgLevel(level, 1, "f", "m");
        EXPECT_EQ(onlyLine(), std::string("[00012045] ") + tags[level] + " m @f:1");
    }
}

TEST_F(Log, MessageIsCutOnlyWhenItPassesItsEndAndKeepsItsLocation) {
    for (const size_t length : {kMessageEnd - kMessageStart, kMessageEnd - kMessageStart + 1, size_t{5000}}) {
        fake::systemLog().clear();
        kzUtilKlogMsgLevel(KZ_LOG_INFO, 4711, "file", "%s", std::string(length, 'x').c_str());

        const std::string line = onlyLine();
        EXPECT_EQ(line.find_first_not_of('x', kMessageStart), kMessageEnd) << length;
        EXPECT_EQ(line.substr(kMessageEnd), " @file:4711");
    }
}

TEST_F(Log, LocationThatDoesNotFitBecomesABlank) {
    kzUtilKlogMsgLevel(KZ_LOG_INFO, 1, std::string(500, 'f').c_str(), "%s", std::string(500, 'x').c_str());

    EXPECT_EQ(onlyLine().substr(kMessageEnd), " ");
}

TEST_F(Log, LineThatIsOffEvaluatesNothing) {
    int evaluated = 0;
    g_logLevel = KZ_LOG_DEBUG;

    LOG_INFO("%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    EXPECT_TRUE(fake::systemLog().empty());

    LOG_DEBUG("%d", ++evaluated);
    EXPECT_EQ(evaluated, 1);
    EXPECT_EQ(fake::systemLog().size(), 1u);
}

TEST_F(Log, OnlyLevelsZeroToSixCanBeSet) {
    for (const int level : {0, 6, 3}) {
        kzUtilSetLogLevel(level);
        EXPECT_EQ(g_logLevel, level);
    }
    for (const int level : {7, -1, 1 << 30}) {
        kzUtilSetLogLevel(level);
        EXPECT_EQ(g_logLevel, 3);
    }
}

TEST_F(Log, LeavesErrnoAlone) {
    fake::setSystemLogListens(false);
    errno = ETIMEDOUT;

    LOG_ERROR("first");
    KZ_DEBUG_PRINT(kDebugThresholdDump, "second\n");

    EXPECT_EQ(errno, ETIMEDOUT);
    fake::setSystemLogListens(true);
}

// Each runs in a process of its own: what the first debug print changes stays.
class LogWithoutSyslog : public Log {
  protected:
    LogWithoutSyslog() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    // How often the texts reach standard error while `steps` runs.
    template <typename Steps>
    static size_t countOnStandardError(const std::string& text, Steps steps) {
        testing::internal::CaptureStderr();
        steps();
        const std::string captured = testing::internal::GetCapturedStderr();
        size_t count = 0;
        for (size_t at = captured.find(text); at != std::string::npos; at = captured.find(text, at + 1)) {
            ++count;
        }
        return count;
    }
};

TEST_F(LogWithoutSyslog, LinesReachStandardErrorUntilALogAppears) {
    const auto scenario = [] {
        fake::setSystemLogListens(false);
        const size_t absent = countOnStandardError("@tag:", [] {
            LOG_ERROR("one");
            LOG_ERROR("two");
        });
        fake::setSystemLogListens(true);
        usleep(1'100'000);
        const size_t present = countOnStandardError("@tag:", [] { LOG_ERROR("three"); });
        std::exit(absent == 2 && present == 0 && fake::countLogged("@tag:") == 3 ? 0 : 1);
    };
    EXPECT_EXIT(scenario(), testing::ExitedWithCode(0), "");
}

TEST_F(LogWithoutSyslog, NoLineReachesStandardErrorTwiceAfterADebugPrint) {
    const auto scenario = [] {
        fake::setSystemLogListens(false);
        const size_t count = countOnStandardError("text", [] {
            KZ_DEBUG_PRINT(kDebugThresholdDump, "text\n");
            LOG_ERROR("text");
        });
        std::exit(count == 2 ? 0 : 1);
    };
    EXPECT_EXIT(scenario(), testing::ExitedWithCode(0), "");
}

// ---------------------------------------------------------------- debug print

TEST_F(Log, DebugPrintNeedsALowByteAboveItsThreshold) {
    int evaluated = 0;
    g_debug_level = 0xFFFFFF00u | kDebugThresholdTlv;
    KZ_DEBUG_PRINT(kDebugThresholdTlv, "%d", ++evaluated);
    EXPECT_TRUE(fake::systemLog().empty());
    EXPECT_EQ(evaluated, 0);

    g_debug_level = kDebugThresholdTlv + 1;
    KZ_DEBUG_PRINT(kDebugThresholdTlv, "value %d\n", ++evaluated);
    ASSERT_EQ(fake::systemLog().size(), 1u);
    EXPECT_EQ(fake::systemLog()[0].text, "value 1\n");
    EXPECT_EQ(fake::systemLog()[0].priority, kSyslogDebug);
}

TEST_F(Log, DebugPrintPutsTheTimeInFrontOnStandardOutputAndInTheFile) {
    const fake::PrivateFiles files;
    g_debug_level |= kDebugPrintStdout | kDebugPrintFile;
    testing::internal::CaptureStdout();

    KZ_DEBUG_PRINT(kDebugThresholdDump, "value %d\n", 7);

    const std::string printed = testing::internal::GetCapturedStdout();
    tm time = {};
    const char* message = strptime(printed.c_str(), "%b%d %H:%M:%S", &time);
    EXPECT_STREQ(message, " value 7\n");
    EXPECT_EQ(files.read("/tmp/fuse_d/wifi_log.txt"), printed);
    EXPECT_EQ(onlyLine(), "value 7\n");
}

// ---------------------------------------------------------------- assertions

// Runs `steps` in a child and returns its wait status.
template <typename Steps>
int statusOf(Steps steps) {
    const pid_t child = fork();
    if (child == 0) {
        steps();
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

TEST_F(Log, PlainAssertionNamesTheConditionAndAborts) {
    EXPECT_EXIT(kzAssertFailed("kzBleSdkD/src/kzBleServer", "Start", 12, "a == b"), testing::KilledBySignal(SIGABRT),
                "\x1b\\[31mASSERT:kzBleSdkD/src/kzBleServer/Start:12:a == b\n\x1b\\[0m");
}

TEST_F(Log, AssertionAbortsWhateverTheMask) {
    g_debug_level = 0;
    EXPECT_EXIT(kzAssertFailed("p", "f", 1, "c"), testing::KilledBySignal(SIGABRT), "^$");
}

TEST_F(Log, TracedAssertionAlsoLeavesItsTextInAFileAndABacktrace) {
    const fake::PrivateFiles files;

    const int status = statusOf([] { kzAssertFailedTraced("path", "function", 3, "x > 1"); });

    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT);
    EXPECT_EQ(files.read("/tmp/kzlog.txt"), "ASSERT:path/function:3:x > 1\n");
    EXPECT_EXIT(kzAssertFailedTraced("path", "function", 3, "x > 1"), testing::KilledBySignal(SIGABRT),
                "\x1b\\[31mASSERT:path/function:3:x > 1\x1b\\[0m\n.*\x1b\\[31mTRACE .+ x > 1\x1b\\[0m");
}

TEST_F(Log, StackTraceIsPrintedIndentedOnStandardOutput) {
    testing::internal::CaptureStdout();

    print_stack_trace();

    const std::string printed = testing::internal::GetCapturedStdout();
    EXPECT_EQ(printed.substr(0, 8), "        ");
    EXPECT_EQ(printed.back(), '\n');
}

}  // namespace
