// Runs the tests inside a world; listing them needs none.
#include <gtest/gtest.h>

#include <cstring>

#include "world.h"

int main(int argc, char** argv) {
    bool listing = false;
    for (int i = 1; i < argc; ++i) {
        listing = listing || std::strcmp(argv[i], "--gtest_list_tests") == 0;
    }
    if (!listing) {
        e2e::enterWorld(argv);
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
