#include "eventLoop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <string>

#include "logCapture.h"
#include "utils.h"

namespace {

TEST(EventLoop, ReadyDescriptorsAreHandledInTheirOrderOncePerRoundAndOnlyWhileWatched) {
    std::array<std::array<int, 2>, 3> pipes{};
    for (auto& ends : pipes) {
        ASSERT_EQ(pipe(ends.data()), 0);
        ASSERT_EQ(write(ends[1], "abcd", 4), 4);
    }
    EventLoop loop;
    std::string handled;
    const auto add = [&](size_t which, const char* name) {
        loop.Add(pipes[which][0], [&loop, &handled, name, fd = pipes[which][0]] {
            char byte = 0;
            EXPECT_EQ(read(fd, &byte, 1), 1);
            handled += name + std::string(1, byte) + " ";
            loop.SetWatched(fd, byte != 'b' || *name != 'y');
        });
    };
    add(2, "x");
    add(0, "y");
    add(1, "z");

    for (int round = 0; round < 3; ++round) {
        loop.RunOnce();
    }

    EXPECT_EQ(handled, "xa ya za xb yb zb xc zc ");
    // A closed descriptor is left out, and another one comes in its place.
    loop.Replace(1, -1);
    ASSERT_EQ(write(pipes[0][1], "e", 1), 1);
    loop.RunOnce();
    loop.Replace(1, pipes[0][0]);
    loop.RunOnce();
    EXPECT_TRUE(handled.ends_with("xd zd yc ")) << handled;
    const fakes::LogCapture log(KZ_LOG_ERROR);
    close(pipes[1][0]);
    loop.RunOnce();
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"Select failed and not handled"}) << "and nothing is handled";
    for (const auto& ends : pipes) {
        close(ends[1]);
    }
    close(pipes[0][0]);
    close(pipes[2][0]);
}

}  // namespace
