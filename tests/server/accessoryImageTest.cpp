#include "accessoryImage.h"

#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <numeric>
#include <thread>

#include "cameraFakes.h"
#include "privateTmp.h"
#include "skylark/bleMessage.h"

namespace {

using fakes::Bytes;

constexpr uint8_t kRemote = KZ_CALLER_ALDER;

// Checksum, version 1.2.3, length and an image of 30 bytes.
Bytes ImageFile() {
    Bytes file = fakes::Le32({0x11223344, 1, 2, 3, 30});
    file.resize(file.size() + 30);
    std::iota(file.end() - 30, file.end(), uint8_t{1});
    return file;
}

TEST(AccessoryImageParseTest, FieldsAreReadFromTheHeader) {
    Bytes file = ImageFile();
    file.push_back(0xFF);  // behind the image

    const std::optional<AccessoryImage> image = ParseAccessoryImage(file);

    ASSERT_TRUE(image.has_value());
    EXPECT_EQ(image->version.AsNumber(), 0x010203u);
    EXPECT_EQ(Bytes(image->image.begin(), image->image.end()), Bytes(file.begin() + 20, file.end() - 1));
    EXPECT_EQ(image->storedCrc, 0x11223344u);
}

TEST(AccessoryImageParseTest, FileShorterThanItsHeaderSaysIsNoImage) {
    const Bytes file = ImageFile();
    for (size_t length = 0; length < file.size(); ++length) {
        // In a buffer of its own, so that a step beyond it shows.
        const Bytes cut(file.begin(), file.begin() + static_cast<ptrdiff_t>(length));
        EXPECT_FALSE(ParseAccessoryImage(cut).has_value()) << length;
    }
    Bytes huge = file;
    std::fill(huge.begin() + 16, huge.begin() + 20, uint8_t{0xFF});
    EXPECT_FALSE(ParseAccessoryImage(huge).has_value());
}

TEST(AccessoryImageVersionTest, CardMayGoBackTheCameraOnlyForward) {
    const AccessoryVersion accessory{1, 2, 3};
    const struct {
        AccessoryVersion image;
        ImageVerdict fromCard;
        ImageVerdict fromCamera;
    } rows[] = {
        {{1, 2, 3}, ImageVerdict::kSameVersion, ImageVerdict::kSameVersion},
        {{1, 2, 2}, ImageVerdict::kAccept, ImageVerdict::kOlder},
        {{1, 2, 4}, ImageVerdict::kAccept, ImageVerdict::kAccept},
        {{0, 255, 255}, ImageVerdict::kAccept, ImageVerdict::kOlder},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(JudgeImageVersion(accessory, row.image, true), row.fromCard) << row.image.AsNumber();
        EXPECT_EQ(JudgeImageVersion(accessory, row.image, false), row.fromCamera) << row.image.AsNumber();
    }
}

// As on an older kernel.
bool RefuseConfinedOpening() {
    sock_filter program[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                             BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_openat2, 0, 1),
                             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS),
                             BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
    const sock_fprog filter = {std::size(program), program};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0 &&
           syscall(SYS_openat2, -1, nullptr, nullptr, 0) == -1 && errno == ENOSYS;
}

class AccessoryImageSearchTest : public testing::Test {
  protected:
    void SetUp() override {
        if (!fakes::EnterPrivateTmp()) {
            GTEST_SKIP() << "the system allows no namespaces";
        }
        std::filesystem::create_directory("/tmp/fuse_d");
    }
    static void MakeFile(const std::string& path) { std::ofstream(path) << "content"; }
};

TEST_F(AccessoryImageSearchTest, FirstMatchingNameInByteOrderIsTheImage) {
    for (const char* name : {"KZ_REMOTE_FW_b.bin", "KZ_REMOTE_FW_a.bin.old", "KZ_REMOTE_FW_a.img",
                             "xKZ_REMOTE_FW_0.bin", "kz_remote_fw_0.bin", "KZ_SHUTTER_REMOTE_FW.bin"}) {
        MakeFile(std::string("/tmp/fuse_d/") + name);
    }

    EXPECT_EQ(OpenAccessoryImage(kRemote).path, "/tmp/fuse_d/KZ_REMOTE_FW_a.bin.old");
    EXPECT_EQ(OpenAccessoryImage(KZ_CALLER_MAPLE).path, "/tmp/fuse_d/KZ_SHUTTER_REMOTE_FW.bin");
    EXPECT_EQ(OpenAccessoryImage(KZ_CALLER_BIRCH).path, "/tmp/fuse_d/KZ_SHUTTER_REMOTE_FW.bin");
}

TEST_F(AccessoryImageSearchTest, OnlyRegularFilesWithinTheDirectoriesCount) {
    MakeFile("/tmp/secret");
    std::filesystem::create_directory("/tmp/fuse_d/KZ_REMOTE_FW_0.bin");
    ASSERT_EQ(mkfifo("/tmp/fuse_d/KZ_REMOTE_FW_1.bin", 0600), 0);
    std::filesystem::create_symlink("/tmp/secret", "/tmp/fuse_d/KZ_REMOTE_FW_2.bin");
    std::filesystem::create_symlink("../secret", "/tmp/fuse_d/KZ_REMOTE_FW_3.bin");
    std::filesystem::create_symlink("nowhere", "/tmp/fuse_d/KZ_REMOTE_FW_4.bin");
    EXPECT_EQ(OpenAccessoryImage(kRemote).path, "");

    MakeFile("/tmp/fuse_d/image");
    std::filesystem::create_symlink("image", "/tmp/fuse_d/KZ_REMOTE_FW_5.bin");

    const auto findsTheImage = [] {
        return OpenAccessoryImage(kRemote).path == "/tmp/fuse_d/KZ_REMOTE_FW_5.bin" ? 0 : 1;
    };
    EXPECT_EQ(findsTheImage(), 0);
    EXPECT_EXIT(_exit(RefuseConfinedOpening() ? findsTheImage() : 2), testing::ExitedWithCode(0), "");
}

// Somebody puts a link to a secret in the place of the image and back, all the time.
TEST_F(AccessoryImageSearchTest, FlippingLinkNeverLeadsOutside) {
    const std::string kImage = "/tmp/fuse_d/KZ_REMOTE_FW_1.bin";
    std::ofstream("/tmp/secret") << "secret";
    std::atomic<bool> flips = true;
    std::thread flipper([&] {
        while (flips) {
            MakeFile("/tmp/fuse_d/next");
            std::filesystem::rename("/tmp/fuse_d/next", kImage);
            std::filesystem::create_symlink("/tmp/secret", "/tmp/fuse_d/next");
            std::filesystem::rename("/tmp/fuse_d/next", kImage);
        }
    });
    std::map<std::string, int> seen;
    for (int i = 0; i < 5000; ++i) {
        const AccessoryImageFile image = OpenAccessoryImage(kRemote);
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
