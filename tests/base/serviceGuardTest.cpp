// Which calls count as ended by their deadline. What a hung service costs is tested with the whole daemon.
#include "serviceGuard.h"

#include <gtest/gtest.h>
#include <unistd.h>

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
