// Shell commands, run by the real shell.
#include "shellCommand.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>

TEST(ShellCommand, RunsInAFixedWorldAndReturnsItsStatus) {
    ASSERT_EQ(setenv("PATH", "/nowhere", 1), 0);
    signal(SIGPIPE, SIG_IGN);

    EXPECT_EQ(RunShellCommand("test $(umask) = 0077 && test -z \"$HOME\" && type ls >/dev/null; exit 3"), 3 << 8);
    EXPECT_EQ(WTERMSIG(RunShellCommand("kill -PIPE $$")), SIGPIPE);
}

TEST(ShellCommand, ThatHangsIsGivenUpAndOneInTheBackgroundIsNot) {
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(RunShellCommand("sleep 3 >/dev/null 2>&1 &"), 0);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));

    EXPECT_EQ(RunShellCommand("sleep 60; true"), -1);

    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8));
}
