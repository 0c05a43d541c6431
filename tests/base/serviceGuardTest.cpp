// Which calls count as ended by their deadline. What a hung service costs is tested with the whole daemon.
#include "serviceGuard.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <utility>

TEST(ServiceGuardTest, ServiceThatTakesItsTimeToRefuseDoesNotHang) {
    ServiceGuard guard("The service");
    int asked = 0;
    for (const int error : {0, ENOENT, ETIMEDOUT, 0}) {
        guard.Ask([&] {
            ++asked;
            usleep(1'200'000);
            errno = error;
            return -1;
        });
    }
    EXPECT_EQ(asked, 3) << "not again in the turn in which its deadline ended a call";
    EXPECT_FALSE(guard.Answers());
}

TEST(ServiceGuardTest, CallIsMadeAgainOnlyWhenTheServiceHadHungUpBefore) {
    for (const auto& [wait, calls] : {std::pair{0, 2}, {1'600'000, 1}}) {
        ServiceGuard guard("The service");
        ServiceGuard::BeginTurn();
        int asked = 0;
        guard.Ask([&, wait = wait] {
            ++asked;
            usleep(static_cast<useconds_t>(wait));
            errno = EPIPE;
            return -1;
        });
        EXPECT_EQ(asked, calls) << "after " << wait << " us";
    }
}
