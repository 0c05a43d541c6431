// The packet path allocates nothing once it is warm: counted in the unchanged daemon by a preloaded library.
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>

#include "fakes/allocationCounter.h"
#include "fixture.h"

namespace e2e {
namespace {

class AllocationCount {
  public:
    AllocationCount() {
        const int fd = open(fakes::kAllocationCountPath, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
        if (fd < 0 || ftruncate(fd, sizeof(*m_count)) != 0) {
            throw std::runtime_error("cannot make the allocation count");
        }
        m_count = static_cast<std::atomic<uint64_t>*>(
            mmap(nullptr, sizeof(*m_count), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
        close(fd);
    }
    ~AllocationCount() { munmap(m_count, sizeof(*m_count)); }
    AllocationCount(const AllocationCount&) = delete;
    AllocationCount& operator=(const AllocationCount&) = delete;

    uint64_t value() const { return m_count->load(); }

  private:
    std::atomic<uint64_t>* m_count;
};

struct Traffic {
    const char* name;
    Script script;

    friend void PrintTo(const Traffic& row, std::ostream* out) { *out << row.name; }
};

class PacketPath : public E2e, public testing::WithParamInterface<Traffic> {};

TEST_P(PacketPath, AllocatesNothingOnceWarm) {
    constexpr int kRounds = 200;
    const AllocationCount allocations;
    Rig::Options options;
    options.environment = {{"LD_PRELOAD", KZ_ALLOCATION_COUNTER}};
    Rig& rig = serve(options);
    rig.camera.setRecording(false);
    play(rig,
         {connects(1), opensAll(1), pushes(R"({"settings": {"2": 4}, "status": {"29": "a camera with a long name"}})"),
          writes(1, kSensorRequest, "02 01 48 52 4d"), answers(1, kSensorAnswer, "02 00"),
          writes(1, kSensorRequest, "03 48 52 54 45 00 00 53 02 01 00"), answers(1, kSensorAnswer, "03 00"), sets(2)});
    ASSERT_GT(allocations.value(), 0u) << "nothing is counted";
    for (int i = 0; i < kRounds; ++i) {
        play(rig, GetParam().script);
    }

    const uint64_t before = allocations.value();
    for (int i = 0; i < kRounds; ++i) {
        play(rig, GetParam().script);
    }

    EXPECT_EQ(allocations.value() - before, 0u) << "in " << kRounds << " rounds";
}

const Bytes kLongName = textBytes("a camera with a long name");

INSTANTIATE_TEST_SUITE_P(
    , PacketPath,
    testing::Values(Traffic{"ValueQueries",
                            {writes(1, kQuery, "12 02"), answers(1, kQueryAnswer, "12 00 02 01 04"),
                             writes(1, kQuery, "13 1d"), answers(1, kQueryAnswer, fromHex("13 00 1d 19") + kLongName)}},
                    Traffic{"Commands",
                            {writes(1, kCommand, "01 01 01"), answers(1, kCommandAnswer, "01 00"),
                             writes(1, kCommand, "3a"), answers(1, kCommandAnswer, "3a 00 04 31 2e 32 35"),
                             writes(1, kCommand, "02 04 00 00 00 01"), answers(1, kCommandAnswer, "02 00")}},
                    Traffic{"Settings", {writes(1, kSettings, "02 01 04"), answers(1, kSettingsAnswer, "02 00")}},
                    Traffic{"MessageOfManyPackets",
                            {writes(1, kCommand, fromHex("f1 6f") + Bytes(1000, 0)),
                             answers(1, kCommandAnswer, "f1 ef 08 01")}},
                    Traffic{"SensorSamples",
                            {writes(1, kSensorRequest, "01 00 12 34"), writes(1, kSensorRequest, "50 01"),
                             answers(1, kSensorAnswer, "50 00")}}),
    [](const auto& row) { return row.param.name; });

}  // namespace
}  // namespace e2e
