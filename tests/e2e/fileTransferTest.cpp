// The transfer of settings.json.gz: every packet of it, the share of the radio queue it takes, and how it ends.
#include <filesystem>

#include "fixture.h"

namespace e2e {
namespace {

constexpr const char* kFetch = "3b";

Bytes fileOf(size_t size) {
    Bytes content(size);
    for (size_t i = 0; i < size; ++i) {
        content[i] = static_cast<uint8_t>(i * 7 + i / 251);
    }
    return content;
}

Bytes answerWith(const Bytes& file) {
    return fromHex("3b 00") + file;
}

class Transfer : public E2e {
  protected:
    // A daemon that has this file to give, and a client.
    void serveFile(const Bytes& file, const Rig::Options& options = {}) {
        serve(options);
        writeFile(kSettingsGzPath, file);
        play({joins(1)});
    }
};

TEST_F(Transfer, FilesOfEverySizeArriveByteForByte) {
    serve({.transmitDepth = 1000});  // half of it goes with each tick
    play({joins(1)});
    for (const size_t size : {0u, 15u, 17u, 18u, 100u, 8186u, 8187u, 9000u, 65532u}) {
        SCOPED_TRACE(size);
        writeFile(kSettingsGzPath, fileOf(size));

        play({asks(1, kCommand, kFetch, answerWith(fileOf(size))), quiet()});
    }
}

TEST_F(Transfer, ThatCannotStartIsReportedAndTheSlotStaysFree) {
    serveFile(fileOf(65533));
    const Step fails = logs("[ERROR] Unable to start a settings file transfer");

    play({writes(1, kCommand, kFetch),
          logs("[ERROR] File:65533 too large to send with extended header, cannot send.", "bleDevice.cpp"), fails});
    std::filesystem::remove(kSettingsGzPath);
    play({writes(1, kCommand, kFetch), logs("[ERROR] Cannot find settings.json.gz file", "bleDevice.cpp"), fails});
    std::filesystem::create_directory(kSettingsGzPath);
    play({writes(1, kCommand, kFetch), logs("[ERROR] Cannot find settings.json.gz file", "bleDevice.cpp"), fails});
    std::filesystem::remove(kSettingsGzPath);
    writeFile("/tmp/secret", fileOf(30));
    std::filesystem::create_symlink("/tmp/secret", kSettingsGzPath);
    play({writes(1, kCommand, kFetch), logs("[ERROR] Cannot find settings.json.gz file", "bleDevice.cpp"), fails});
    std::filesystem::remove(kSettingsGzPath);
    writeFile(kSettingsGzPath, fileOf(30));
    play({drains(), closes(1, kCommand), writes(1, kCommand, kFetch),
          logs("[ERROR] This stream ID cannot send responses, it is blocked", "bleDevice.cpp"), opens(1, kCommand),
          quiet()});

    play({asks(1, kCommand, kFetch, answerWith(fileOf(30))), quiet()});
}

TEST_F(Transfer, LeavesRoomForOtherTraffic) {
    const struct {
        long depth;
        std::vector<std::pair<int, int>>
            budgets;  // free places and packets sent, of the first ticks while nobody reads
    } rows[] = {
        {4, {{4, 2}, {2, 1}, {1, 0}}},
        {10, {{10, 5}, {5, 1}, {4, 1}, {3, 1}, {2, 0}}},
        {100, {{100, 50}, {50, 1}, {49, 1}}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.depth);
        serveFile(fileOf(9000), {.transmitDepth = row.depth});
        play({sets(5), writes(1, kCommand, kFetch)});
        for (const auto& [available, used] : row.budgets) {
            play({logs("[INFO ] " + std::to_string(available) + " slots available for file transfer, using " +
                       std::to_string(used))});
        }
    }
}

TEST_F(Transfer, OneRunsAtATimeAndOthersComeAndGoMeanwhile) {
    serveFile(fileOf(200), {.transmitDepth = 10});

    play({joins(2), writes(1, kCommand, kFetch), asks(2, kCommand, kFetch, "3b 01"),
          logs("[ERROR] No File transfer slot available", "bleCommandMessage.cpp"), joins(3),
          asks(3, kCommand, kAskVersion, kVersion), disconnects(3), asks(2, kCommand, kAskVersion, kVersion),
          closes(1, kCommand),  // tested at the start only
          answers(1, kCommand, answerWith(fileOf(200))), asks(2, kCommand, kFetch, answerWith(fileOf(200))), quiet()});
}

TEST_F(Transfer, DisconnectionInEveryPhaseFreesTheSlot) {
    const Step ends = logs("[INFO ] A client with active file transfer disconnected.");
    serveFile(fileOf(9000), {.transmitDepth = 10});

    play({sets(5), writes(1, kCommand, kFetch), disconnects(1), ends});  // before the first packet
    play({joins(1), writes(1, kCommand, kFetch), packet(1, 4, fromHex("40 23 2a 3b 00") + fileOf(15)), disconnects(1),
          ends, drains()});
    play({joins(1), writes(1, kCommand, kFetch), packet(1, 4, fromHex("40 23 2a 3b 00") + fileOf(15)),
          closes(1, kCommand), disconnects(1), ends, drains()});

    writeFile(kSettingsGzPath, fileOf(100));
    play({joins(2), asks(2, kCommand, kFetch, answerWith(fileOf(100))), quiet()});
    EXPECT_EQ(rig->daemon.count("File still open when client destroyed."), 0u);
    EXPECT_EQ(rig->daemon.count("Attempt to Release file slot when none taken"), 0u);
}

TEST_F(Transfer, FileThatChangesEndsItsTransfer) {
    serveFile(fileOf(9000), {.transmitDepth = 10});
    for (const size_t newSize : {9000u, 50u, 20000u}) {
        SCOPED_TRACE(newSize);
        writeFile(kSettingsGzPath, fileOf(9000));
        std::filesystem::last_write_time(kSettingsGzPath, {});  // long ago
        play({writes(1, kCommand, kFetch), packet(1, 4, fromHex("40 23 2a 3b 00") + fileOf(15))});

        writeFile(kSettingsGzPath, fileOf(newSize));

        play({logs("[ERROR] The file changed during its transfer, ending the transfer", "bleDevice.cpp"), drains()});
    }
    writeFile(kSettingsGzPath, fileOf(100));
    play({asks(1, kCommand, kFetch, answerWith(fileOf(100))), quiet()});
}

}  // namespace
}  // namespace e2e
