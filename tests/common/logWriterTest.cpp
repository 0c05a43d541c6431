// What waits for the log's writer, what is held back, and what comes out before the process aborts.
#include "logWriter.h"

#include <gtest/gtest.h>

#include "logLimit.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "tag";

using Texts = std::vector<std::string>;

void Sink(char*) {}

Texts TakeAll(LogQueue& queue) {
    Texts texts;
    for (LogEntry entry; queue.Take(entry);) {
        EXPECT_EQ(entry.sink, Sink);
        texts.push_back(entry.text);
    }
    return texts;
}

}  // namespace

TEST(LogQueue, KeepsOrderAcrossItsEndAndLosesEverythingBehindALostLineUntilItIsEmpty) {
    const std::string older(20, 'o');
    const std::string newer(20, 'n');
    LogQueue queue(100);
    for (size_t first = 10; first <= 48; ++first) {  // the newer line lies across the end at another place each time
        LogEntry entry;
        queue.Put(Sink, std::string(first, 'x'));
        queue.Put(Sink, older);
        ASSERT_TRUE(queue.Take(entry));
        queue.Put(Sink, newer);
        queue.Put(Sink, std::string(20, 'l'));  // finds no room
        queue.Put(Sink, "short");
        EXPECT_EQ(TakeAll(queue), (Texts{older, newer}));
        EXPECT_EQ(queue.TakeLost(), 2u);
        EXPECT_EQ(queue.TakeLost(), 0u);
    }
}

TEST(LogQueue, CutsWhatIsLongerThanAnEntry) {
    LogQueue queue(3 * kLogTextSize);
    queue.Put(Sink, std::string(kLogTextSize, 'x'));
    EXPECT_EQ(TakeAll(queue), Texts{std::string(kLogTextSize - 1, 'x')});
}

TEST(LogLimit, EachConnectionHasItsLinesASecondAndOthersShareTheirs) {
    using Held = std::vector<std::pair<int, unsigned>>;  // connection, or -1
    constexpr int kOthers = -1;
    constexpr int kBeyond = 100 + LogLimit::kConnections;  // finds no count of its own once the others are counted
    const struct {
        std::vector<std::pair<int, unsigned>> lines;  // connection, how many
        unsigned admitted;
        Held held;
    } seconds[] = {
        {{{1, 100}, {2, 99}, {kOthers, 400}}, 599, {}},
        {{{1, 101}, {2, 3}, {1, 2}, {kOthers, 405}}, 503, {{kOthers, 5}, {1, 3}}},
        {{{1, 100}}, 100, {}},
        {{{1, 1}, {kOthers, 1}, {kBeyond, 300}}, 102, {{kBeyond, 200}}},
    };
    LogLimit limit;
    LogLimit::Time now{};
    const auto lines = [&](int connection, unsigned count) {
        unsigned admitted = 0;
        for (unsigned i = 0; i < count; ++i) {
            admitted += limit.Admit(connection < 0 ? std::nullopt : std::optional<uint32_t>(connection), now) ? 1 : 0;
        }
        return admitted;
    };
    const auto close = [&] {
        Held held;
        limit.Close([&](const LogLimit::Count& count) {
            held.emplace_back(count.connection ? static_cast<int>(*count.connection) : kOthers, count.held);
        });
        return held;
    };
    for (const auto& second : seconds) {
        unsigned admitted = 0;
        for (const auto& [connection, count] : second.lines) {
            admitted += lines(connection, count);
        }
        EXPECT_EQ(admitted, second.admitted);
        EXPECT_FALSE(limit.IsOver(now + std::chrono::milliseconds(999)));
        now += std::chrono::seconds(1);
        EXPECT_TRUE(limit.IsOver(now));
        EXPECT_EQ(close(), second.held);
        EXPECT_FALSE(limit.IsOver(now));
    }
    for (int connection = 100; connection < kBeyond; ++connection) {
        lines(connection, 1);
    }
    EXPECT_EQ(lines(kBeyond, 500), LogLimit::kOtherLines);
    EXPECT_EQ(close(), (Held{{kOthers, 100}}));
}

TEST(LogWriter, LastLinesComeOutBeforeAnAssertionAborts) {
    const auto failBehindManyLines = [] {
        kzLogStartWriter();
        for (int i = 0; i < 300; ++i) {
            LOG_ERROR("line");
        }
        kzAssertFailed("path", "function", 1, "condition");
    };
    EXPECT_EXIT(failBehindManyLines(), testing::KilledBySignal(SIGABRT), "ASSERT:path/function:1:condition");
}
