// Plain decisions of the server: how much may be sent, which image an accessory gets, and who is known again.
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include "accessoryImage.h"
#include "cameraFakes.h"
#include "clientTable.h"
#include "privateTmp.h"
#include "transmitPlan.h"
#include "utils.h"

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
        bool isBusy;
    } rows[] = {
        {{10, 0}, 5, false},  {{10, 3}, 2, false},  {{10, 4}, 1, true},   {{10, 5}, 1, true},
        {{10, 7}, 1, true},   {{10, 8}, 0, true},   {{10, 10}, 0, true},  {{100, 25}, 25, false},
        {{100, 49}, 1, true}, {{100, 74}, 1, true}, {{100, 75}, 0, true}, {{100, 33}, 17, false},
        {{0, 0}, 0, false},   {{1, 0}, 1, false},   {{1, 1}, 0, true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(TransferBudget(row.queue), row.budget) << row.queue.used << " of " << row.queue.capacity;
        EXPECT_EQ(row.queue.IsBusy(), row.isBusy) << row.queue.used << " of " << row.queue.capacity;
    }
}

TEST(TransmitPlanTest, ImageTakesThirtyPacketsOrItsBlockAtMostAndPercentCountsItWithoutItsHeader) {
    EXPECT_EQ(StreamedImageBudget({100, 0}), 30);
    EXPECT_EQ(StreamedImageBudget({100, 30}), 20);
    EXPECT_EQ(BlockImageBudget({100, 0}, 501), 26);
    EXPECT_EQ(BlockImageBudget({100, 0}, 65535), 50);
    EXPECT_EQ(BlockImageBudget({100, 49}, 500), 25);
    EXPECT_EQ(BlockImageBudget({100, 60}, 0), 0);
    EXPECT_EQ(PercentDone(100, 220), 50);
    EXPECT_EQ(PercentDone(200, 220), 100);
    EXPECT_EQ(PercentDone(0, 20), 0);
    EXPECT_EQ(PercentDone(0, 0), 0);
    EXPECT_EQ(PercentDone(4000000000u, 4000000020u), 100);
}

TEST(ClientTableTest, TheLast4096DevicesAreKnownAgain) {
    g_logLevel = KZ_LOG_OFF;
    ClientTable table(DetachedServices());
    const auto idOf = [&](uint32_t device) {
        uint8_t address[kBleAddressSize] = {};
        std::memcpy(address, &device, sizeof(device));
        return table.DeviceIdOfAddress(address);
    };
    for (uint32_t device = 1; device <= kMaxDeviceHistory + 1; ++device) {
        EXPECT_EQ(idOf(device), static_cast<uint8_t>(device));
    }
    EXPECT_EQ(idOf(2), 2);
    EXPECT_EQ(idOf(1), static_cast<uint8_t>(kMaxDeviceHistory + 2)) << "forgotten";
}

// ---------------------------------------------------------------- accessory images

TEST(AccessoryImageTest, FieldsAreReadFromTheHeaderOfAFileThatHoldsTheWholeImage) {
    // Checksum, version 1.2.3, length, an image of five bytes.
    fakes::Bytes file = fakes::Le32({0x11223344, 1, 2, 3, 5});
    file.insert(file.end(), {1, 2, 3, 4, 5, 0xFF});  // with a byte behind it
    const std::optional<AccessoryImage> image = ParseAccessoryImage(file);

    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(image->version.AsNumber(), 0x010203u);
    EXPECT_EQ(fakes::Bytes(image->image.begin(), image->image.end()), (fakes::Bytes{1, 2, 3, 4, 5}));
    EXPECT_EQ(image->storedCrc, 0x11223344u);
    EXPECT_EQ(JudgeImageVersion({0, 255, 255}, image->version, false), ImageVerdict::kAccept);
    EXPECT_EQ(JudgeImageVersion({2, 0, 0}, image->version, false), ImageVerdict::kOlder);
    for (ptrdiff_t length = 0; length < std::ssize(file) - 1; ++length) {
        // In a buffer of its own, so that a step beyond it shows.
        EXPECT_FALSE(ParseAccessoryImage(fakes::Bytes(file.begin(), file.begin() + length))) << length;
    }
}

std::string ImagePath(uint8_t deviceType) {
    return OpenAccessoryImage(deviceType).path;
}

// As on an older kernel.
bool RefuseConfinedOpening() {
    sock_filter program[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
                             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
                             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog filter = {std::size(program), program};
    const auto isRefused = [] { return syscall(SYS_openat2, -1, nullptr, nullptr, 0) == -1 && errno == ENOSYS; };
    return isRefused() || (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
                           prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0 && isRefused());
}

TEST(AccessoryImageTest, TheFirstRegularFileInByteOrderIsTheImage) {
    if (!fakes::EnterPrivateTmp()) {
        GTEST_SKIP() << "the system allows no namespaces";
    }
    const auto make = [](const char* path) { std::ofstream(path) << "content"; };
    std::filesystem::create_directories("/tmp/fuse_d/KZ_REMOTE_FW_0.bin");
    ASSERT_EQ(mkfifo("/tmp/fuse_d/KZ_REMOTE_FW_1.bin", 0600), 0);
    make("/tmp/secret");
    std::filesystem::create_symlink("/tmp/secret", "/tmp/fuse_d/KZ_REMOTE_FW_2.bin");
    std::filesystem::create_symlink("../secret", "/tmp/fuse_d/KZ_REMOTE_FW_3.bin");
    std::filesystem::create_symlink("nowhere", "/tmp/fuse_d/KZ_REMOTE_FW_4.bin");
    make("/tmp/fuse_d/xKZ_REMOTE_FW_0.bin");
    make("/tmp/fuse_d/KZ_REMOTE_FW_a.img");
    make("/tmp/fuse_d/KZ_SHUTTER_REMOTE_FW.bin");
    EXPECT_EQ(ImagePath(KZ_CALLER_ALDER), "");

    // Whichever way the directory lists them, the first made and the last are not the first by name.
    for (const char* name : {"b.bin", "a.bin.old", "c.bin"}) {
        make((std::string("/tmp/fuse_d/KZ_REMOTE_FW_") + name).c_str());
    }
    EXPECT_EQ(ImagePath(KZ_CALLER_ALDER), "/tmp/fuse_d/KZ_REMOTE_FW_a.bin.old");
    std::filesystem::create_directory("/tmp/fuse_d/images");
    make("/tmp/fuse_d/images/c.bin");
    std::filesystem::create_symlink("images/c.bin", "/tmp/fuse_d/KZ_REMOTE_FW_5.bin");
    EXPECT_EQ(ImagePath(KZ_CALLER_ALDER), "/tmp/fuse_d/KZ_REMOTE_FW_5.bin");
    EXPECT_EQ(ImagePath(KZ_CALLER_MAPLE), "/tmp/fuse_d/KZ_SHUTTER_REMOTE_FW.bin");
    EXPECT_EQ(ImagePath(KZ_CALLER_BIRCH), "/tmp/fuse_d/KZ_SHUTTER_REMOTE_FW.bin");
    EXPECT_EXIT(
        _exit(RefuseConfinedOpening() && ImagePath(KZ_CALLER_ALDER) == "/tmp/fuse_d/KZ_REMOTE_FW_5.bin" ? 0 : 1),
        testing::ExitedWithCode(0), "");
}

// Somebody puts a link to a secret in the place of the image and back, all the time.
TEST(AccessoryImageTest, FlippingLinkNeverLeadsOutside) {
    if (!fakes::EnterPrivateTmp()) {
        GTEST_SKIP() << "the system allows no namespaces";
    }
    std::filesystem::create_directory("/tmp/fuse_d");
    std::ofstream("/tmp/secret") << "secret";
    std::atomic<bool> flips = true;
    std::thread flipper([&] {
        const std::string next = "/tmp/fuse_d/next";
        while (flips) {
            std::ofstream(next) << "content";
            std::filesystem::rename(next, "/tmp/fuse_d/KZ_REMOTE_FW_1.bin");
            std::filesystem::create_symlink("/tmp/secret", next);
            std::filesystem::rename(next, "/tmp/fuse_d/KZ_REMOTE_FW_1.bin");
        }
    });
    std::map<std::string, int> seen;
    for (int i = 0; i < 5000; ++i) {
        const AccessoryImageFile image = OpenAccessoryImage(KZ_CALLER_ALDER);
        char content[16] = "";
        ++seen[image.file != nullptr ? fgets(content, sizeof(content), image.file.get()) : "none"];
    }
    flips = false;
    flipper.join();
    EXPECT_GT(seen["content"], 0);
    EXPECT_GT(seen["none"], 0);
    EXPECT_EQ(seen["secret"], 0);
}

}  // namespace
