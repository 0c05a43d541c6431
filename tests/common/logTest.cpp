// The log line, the debug-print channel and the assertions, as the system log sees them.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <time.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>

#include "logCapture.h"
#include "privateTmp.h"
#include "utils.h"

namespace {

using Texts = std::vector<std::string>;

constexpr const char* kLogTag = "tag";

std::optional<long> s_bootTime;  // in milliseconds; the real one when empty

class Log : public testing::Test {
  protected:
    Log() { s_bootTime = 12045; }
    ~Log() override { s_bootTime.reset(); }
    Texts wholeLines() const {
        Texts lines;
        for (const fakes::LogLine& line : m_log.Lines()) {
            lines.push_back(line.whole);
        }
        return lines;
    }
    fakes::LogCapture m_log{KZ_LOG_TRACE};
};

std::string ReadFile(const char* path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

}  // namespace

// Stands before the C library's.
extern "C" int clock_gettime(clockid_t clock, timespec* now) noexcept {
    if (clock == CLOCK_BOOTTIME && s_bootTime) {
        *now = {*s_bootTime / 1000, *s_bootTime % 1000 * 1'000'000 + 999'999};
        return 0;
    }
    static auto* const next = reinterpret_cast<int (*)(clockid_t, timespec*)>(dlsym(RTLD_NEXT, "clock_gettime"));
    return next(clock, now);
}

TEST_F(Log, LineShowsBootTimeTagMessageAndLocation) {
    kzUtilKlogMsgLevel(KZ_LOG_INFO, 77, "kzBleServer", "received %d bytes at server\n", 5);
    s_bootTime = 1234567000;
    for (int level = 0; level <= 6; ++level) {
        kzUtilKlogMsgLevel(level, 1, "f", "m");
    }
    EXPECT_EQ(wholeLines(),
              (Texts{"[00012045] [INFO ] received 5 bytes at server\n @kzBleServer:77", "[1234567000] [ OFF ] m @f:1",
                     "[1234567000] [FATAL] m @f:1", "[1234567000] [ERROR] m @f:1", "[1234567000] [WARN ] m @f:1",
                     "[1234567000] [DEBUG] m @f:1", "[1234567000] [INFO ] m @f:1", "[1234567000] [TRACE] m @f:1"}));
}

TEST_F(Log, MessageIsCutOnlyWhenItPassesItsEndAndKeepsItsLocationWhereItFits) {
    const std::string start = "[00012045] [INFO ] ";
    const std::string message(330, 'x');
    const std::string longest(86, 'f');  // with it the line is full to its last byte
    const std::tuple<size_t, std::string, std::string> kRows[] = {
        {329, "file", message.substr(1) + " @file:1"}, {330, "file", message + " @file:1"},
        {331, "file", message + " @file:1"},           {5000, longest, message + " @" + longest + ":1"},
        {5000, longest + "f", message + " "},
    };
    for (const auto& [length, file, text] : kRows) {
        kzUtilKlogMsgLevel(KZ_LOG_INFO, 1, file.c_str(), "%s", std::string(length, 'x').c_str());
        EXPECT_EQ(wholeLines().back(), start + text) << length;
    }
}

TEST_F(Log, LineThatIsOffEvaluatesNothingAndOnlyLevelsZeroToSixCanBeSet) {
    int evaluated = 0;
    kzUtilSetLogLevel(KZ_LOG_DEBUG);
    for (const int level : {7, -1, 1 << 30}) {
        kzUtilSetLogLevel(level);
    }
    LOG_INFO("%d", ++evaluated);
    LOG_DEBUG("%d", evaluated);
    EXPECT_EQ(m_log.Texts(), Texts{"0"});
}

// ---------------------------------------------------------------- debug print

TEST_F(Log, DebugPrintNeedsALowByteAboveItsThresholdAndPutsTheTimeInFrontOnStandardOutputAndInTheFile) {
    if (!fakes::EnterPrivateTmp()) {
        GTEST_SKIP() << "no private /tmp on this system";
    }
    std::filesystem::create_directory("/tmp/fuse_d");
    testing::internal::CaptureStdout();

    g_debug_level = 0xFFFFFF00u | kDebugThresholdTlv;
    KZ_DEBUG_PRINT(kDebugThresholdTlv, "value %d\n", 6);
    g_debug_level = kDebugPrintStdout | kDebugPrintFile | (kDebugThresholdTlv + 1);
    KZ_DEBUG_PRINT(kDebugThresholdTlv, "value %d\n", 7);

    const std::string printed = testing::internal::GetCapturedStdout();
    tm time = {};
    EXPECT_STREQ(strptime(printed.c_str(), "%b%d %H:%M:%S", &time), " value 7\n");
    EXPECT_EQ(ReadFile("/tmp/fuse_d/wifi_log.txt"), printed);
    EXPECT_EQ(wholeLines(), Texts{"value 7\n"});

    testing::internal::CaptureStderr();
    LOG_ERROR("later");
    EXPECT_EQ(testing::internal::GetCapturedStderr().find("library:"), std::string::npos) << "no copy any more";
}

// ---------------------------------------------------------------- assertions

TEST_F(Log, AssertionNamesTheConditionAndAbortsWhateverTheMaskAndATracedOneLeavesAFileAndABacktrace) {
    if (!fakes::EnterPrivateTmp()) {
        GTEST_SKIP() << "no private /tmp on this system";
    }
    const testing::KilledBySignal aborts(SIGABRT);
    EXPECT_EXIT(kzAssertFailed("kzBleSdkD/src/kzBleServer", "Start", 12, "a == b"), aborts,
                "\x1b\\[31mASSERT:kzBleSdkD/src/kzBleServer/Start:12:a == b\n\x1b\\[0m");
    EXPECT_EXIT(kzAssertFailedTraced("path", "function", 3, "x > 1"), aborts,
                "\x1b\\[31mASSERT:path/function:3:x > 1\x1b\\[0m\n.*\x1b\\[31mTRACE .+ x > 1\x1b\\[0m");
    EXPECT_EQ(ReadFile("/tmp/kzlog.txt"), "ASSERT:path/function:3:x > 1\n");
    std::filesystem::rename("/tmp/kzlog.txt", "/tmp/elsewhere");
    std::filesystem::create_symlink("/tmp/elsewhere", "/tmp/kzlog.txt");
    EXPECT_EXIT(kzAssertFailedTraced("p", "f", 1, "c"), aborts, "");
    EXPECT_EQ(ReadFile("/tmp/elsewhere"), "ASSERT:path/function:3:x > 1\n");
    g_debug_level = 0;
    EXPECT_EXIT(kzAssertFailed("p", "f", 1, "c"), aborts, "^(qemu: .*)?$") << "an emulator may";
}
