// The server's decisions, as the functions over plain numbers that they are.
#include <gtest/gtest.h>

#include "accessoryState.h"
#include "statusByte.h"
#include "transmitPlan.h"

namespace {

TEST(TransmitPlanTest, ResponseTakesAsManyPacketsAsItsBytesFill) {
    for (unsigned length = 0; length <= kMaxExtendedLength; ++length) {
        // Counted the slow way: 19 bytes a packet, one byte less in the first of several.
        long packets = length == 0 ? 0 : 1;
        for (unsigned sent = length <= 19 ? length : 18; sent < length; sent += 19) {
            ++packets;
        }
        ASSERT_EQ(PacketsNeeded(length), packets) << length;
        ASSERT_GE(LongestResponse(packets), length);
        ASSERT_LT(LongestResponse(packets - 1), std::max(length, 1u));
    }
}

TEST(TransmitPlanTest, TransferLeavesHalfOfTheQueueAndCreepsAboveIt) {
    const struct {
        QueueFill queue;
        long budget;
    } rows[] = {
        {{10, 0}, 5},   {{10, 5}, 1},   {{10, 7}, 1}, {{10, 8}, 0}, {{10, 10}, 0}, {{100, 49}, 1},
        {{100, 74}, 1}, {{100, 75}, 0}, {{0, 0}, 0},  {{1, 0}, 1},  {{1, 1}, 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(TransferBudget(row.queue), row.budget) << row.queue.used << " of " << row.queue.capacity;
    }
}

TEST(TransmitPlanTest, ImageTakesThirtyPacketsOrItsBlockAtMost) {
    EXPECT_EQ(StreamedImageBudget({100, 0}), 30);
    EXPECT_EQ(StreamedImageBudget({100, 30}), 20);
    EXPECT_EQ(StreamedImageBudget({100, 80}), 0);
    EXPECT_EQ(BlockImageBudget({100, 0}, 501), 26);
    EXPECT_EQ(BlockImageBudget({100, 0}, 65535), 50);
    EXPECT_EQ(BlockImageBudget({100, 49}, 500), 25);
    EXPECT_EQ(BlockImageBudget({100, 80}, 500), 0);
    EXPECT_EQ(BlockImageBudget({100, 60}, 0), 0);
}

TEST(TransmitPlanTest, PercentCountsTheImageWithoutItsHeader) {
    EXPECT_EQ(PercentDone(0, 220), 0);
    EXPECT_EQ(PercentDone(100, 220), 50);
    EXPECT_EQ(PercentDone(200, 220), 100);
    EXPECT_EQ(PercentDone(0, 20), 0);
    EXPECT_EQ(PercentDone(0, 0), 0);
    EXPECT_EQ(PercentDone(4000000000u, 4000000020u), 100);
}

TEST(CameraStateTest, StatusByteIsTheSumOfItsInputsAtTheirPlaces) {
    const struct {
        StInputs inputs;
        uint8_t state;
    } rows[] = {
        {{}, 0x00},
        {{.batteryGood = 1}, 0x04},
        {{.sdCardGood = 1}, 0x08},
        {{.busy = 1}, 0x10},
        {{.paused = 1}, 0x20},
        {{.paused = 8}, 0x00},
        {{.newMedia = 1}, 0x02},
        {{.batteryGood = 1, .sdCardGood = 1, .newMedia = 1, .st = 1}, 0x0F},
        {{.busy = 255, .paused = 1}, 0x10},  // modulo 256
    };
    for (const auto& row : rows) {
        EXPECT_EQ(CsiStState(row.inputs), row.state);
    }
}

TEST(CameraStateTest, TransferIsPermittedOnlyWhenEverythingIsInOrder) {
    const StInputs good{.batteryGood = 1, .sdCardGood = 1, .newMedia = 1};
    EXPECT_EQ(StReady(good), 1);
    for (uint8_t StInputs::*const needed : {&StInputs::batteryGood, &StInputs::sdCardGood, &StInputs::newMedia}) {
        StInputs inputs = good;
        inputs.*needed = 0;
        EXPECT_EQ(StReady(inputs), 0);
    }
    for (uint8_t StInputs::*const hindrance : {&StInputs::busy, &StInputs::paused}) {
        StInputs inputs = good;
        inputs.*hindrance = 1;
        EXPECT_EQ(StReady(inputs), 0);
    }
}

TEST(CameraStateTest, ExternalPowerMakesUpForAnEmptyBattery) {
    EXPECT_EQ(BatteryGood(0, 19), 0);
    EXPECT_EQ(BatteryGood(0, 20), 1);
    EXPECT_EQ(BatteryGood(1, 0), 1);
}

}  // namespace
