// The packet path allocates nothing once it is warm: counted in the unchanged daemon by a preloaded library.
#include <cstdlib>
#include <fstream>

#include "fakes/paths.h"
#include "fixture.h"

namespace e2e {
namespace {

uint64_t allocations() {
    uint64_t count = 0;
    std::ifstream(fakes::kAllocationCount, std::ios::binary).read(reinterpret_cast<char*>(&count), sizeof(count));
    return count;
}

using Allocation = E2e;

TEST_F(Allocation, PacketPathAllocatesNothingOnceWarm) {
    constexpr int kRounds = 200;
    const Bytes longName = textBytes("a camera with a long name");
    const std::pair<const char*, Script> traffic[] = {
        {"value queries",
         {asks(1, kQuery, "12 02", "12 00 02 01 04"), asks(1, kQuery, "13 1d", fromHex("13 00 1d 19") + longName)}},
        {"commands",
         {asks(1, kCommand, "01 01 01", "01 00"), asks(1, kCommand, kAskVersion, kVersion),
          asks(1, kCommand, "02 04 00 00 00 01", "02 00")}},
        {"settings", {asks(1, kSettings, "02 01 04", "02 00")}},
        {"a message of many packets", {asks(1, kCommand, fromHex("f1 6f") + Bytes(1000, 0), "f1 ef 08 01")}},
        {"sensor samples", {writes(1, kSensorData, "01 00 12 34"), asks(1, kSensorData, "50 01", "50 00")}},
    };
    writeFile(fakes::kAllocationCount, Bytes(8));
    setenv("LD_PRELOAD", KZ_ALLOCATION_COUNTER, 1);
    serve();
    unsetenv("LD_PRELOAD");
    play({joins(1), pushes(R"({"settings": {"2": 4}, "status": {"29": "a camera with a long name"}})"),
          asks(1, kSensorData, "02 01 48 52 4d", "02 00"),
          asks(1, kSensorData, "03 48 52 54 45 00 00 53 02 01 00", "03 00"), sets(2)});
    ASSERT_GT(allocations(), 0u) << "nothing is counted";

    for (const auto& [name, script] : traffic) {
        SCOPED_TRACE(name);
        const auto round = [&] {
            for (int i = 0; i < kRounds; ++i) {
                play(script);
            }
        };
        round();
        const uint64_t before = allocations();
        round();
        EXPECT_EQ(allocations() - before, 0u) << "in " << kRounds << " rounds";
    }
}

}  // namespace
}  // namespace e2e
