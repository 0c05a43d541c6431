// The transfer of settings.json.gz: every packet of it, the share of the radio queue it takes, and how it ends.
#include <filesystem>

#include "fixture.h"

namespace e2e {
namespace {

constexpr const char* kFetch = "3b";
constexpr const char* kAskVersion = "3a";
constexpr const char* kVersion = "3a 00 04 31 2e 32 35";
constexpr const char* kRefused = "3b 01";

Bytes fileOf(size_t size) {
    Bytes content(size);
    for (size_t i = 0; i < size; ++i) {
        content[i] = static_cast<uint8_t>(i * 7 + i / 251);
    }
    return content;
}

Step arrives(uint32_t connection, const Bytes& file) {
    return answers(connection, kCommandAnswer, fromHex("3b 00") + file);
}

struct Size {
    size_t bytes;
    long queueDepth;  // deep for long files: half of it goes with each tick

    friend void PrintTo(const Size& row, std::ostream* out) { *out << row.bytes; }
};

class TransferSize : public E2e, public testing::WithParamInterface<Size> {};

// The radio stack of the tests checks header form, counters and that every packet but the last is full.
TEST_P(TransferSize, ArrivesByteForByte) {
    Rig::Options options;
    options.transmitDepth = GetParam().queueDepth;
    Rig& rig = serve(options);
    const Bytes file = fileOf(GetParam().bytes);
    writeFile(kSettingsGzPath, file);

    play(rig, {connects(1), opensAll(1), sets(2), writes(1, kCommand, kFetch), arrives(1, file), quiet()});
}

INSTANTIATE_TEST_SUITE_P(, TransferSize,
                         testing::Values(Size{0, 100}, Size{15, 100}, Size{17, 100}, Size{18, 100}, Size{100, 100},
                                         Size{8186, 400}, Size{8187, 400}, Size{9000, 400}, Size{65532, 1000}),
                         [](const auto& row) { return std::to_string(row.param.bytes); });

using Transfer = E2e;

TEST_F(Transfer, LeavesInTheseBytes) {
    Rig& rig = serve();
    writeFile(kSettingsGzPath, ramp(40, 0x41));

    play(rig, {connects(1), opensAll(1), writes(1, kCommand, kFetch),
               packet(1, kCommandAnswer, "20 2a 3b 00 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50"),
               packet(1, kCommandAnswer, "80 51 52 53 54 55 56 57 58 59 5a 5b 5c 5d 5e 5f 60 61 62 63"),
               packet(1, kCommandAnswer, "81 64 65 66 67 68"), quiet()});
}

TEST_F(Transfer, LongFileStartsWithTheThreeByteHeader) {
    Rig& rig = serve();
    writeFile(kSettingsGzPath, ramp(9000));

    play(rig, {connects(1), opensAll(1), writes(1, kCommand, kFetch),
               packet(1, kCommandAnswer, "40 23 2a 3b 00 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e"),
               packet(1, kCommandAnswer, "80 0f 10 11 12 13 14 15 16 17 18 19 1a 1b 1c 1d 1e 1f 20 21")});
}

struct Unsendable {
    const char* name;
    std::function<void()> prepare;
    const char* text;

    friend void PrintTo(const Unsendable& row, std::ostream* out) { *out << row.name; }
};

class UnsendableFile : public E2e, public testing::WithParamInterface<Unsendable> {};

TEST_P(UnsendableFile, IsReportedAndTheSlotStaysFree) {
    Rig& rig = serve();
    GetParam().prepare();

    play(rig, {connects(1), opensAll(1), writes(1, kCommand, kFetch), logs("[ERROR]", GetParam().text, "bleDevice.cpp"),
               logs("[ERROR]", "Unable to start a settings file transfer", "kzBleServer"), settles()});
    while (rig.radio->tryReceive(std::chrono::milliseconds(0))) {
    }

    const Bytes file = fileOf(30);
    std::filesystem::remove_all(kSettingsGzPath);
    writeFile(kSettingsGzPath, file);
    play(rig, {writes(1, kCommand, kFetch), arrives(1, file), quiet()});
}

INSTANTIATE_TEST_SUITE_P(, UnsendableFile,
                         testing::Values(Unsendable{"Missing", [] {}, "Cannot find settings.json.gz file"},
                                         Unsendable{"TooLarge", [] { writeFile(kSettingsGzPath, fileOf(65533)); },
                                                    "File:65533 too large to send with extended header, cannot send."}),
                         [](const auto& row) { return row.param.name; });

TEST_F(Transfer, NeedsAnOpenCommandGate) {
    Rig& rig = serve();
    writeFile(kSettingsGzPath, fileOf(30));

    play(rig, {connects(1), writes(1, kCommand, kFetch),
               logs("[ERROR]", "This stream ID cannot send responses, it is blocked", "bleDevice.cpp"),
               opens(1, kCommandGate), quiet(), writes(1, kCommand, kFetch), arrives(1, fileOf(30))});
}

struct Depth {
    long depth;
    std::vector<std::string> budgets;  // of the first ticks while nobody reads the queue

    friend void PrintTo(const Depth& row, std::ostream* out) { *out << row.depth; }
};

class QueueDepth : public E2e, public testing::WithParamInterface<Depth> {};

TEST_P(QueueDepth, LeavesRoomForOtherTraffic) {
    Rig::Options options;
    options.transmitDepth = GetParam().depth;
    Rig& rig = serve(options);
    writeFile(kSettingsGzPath, fileOf(9000));
    play(rig, {connects(1), opensAll(1), sets(5), writes(1, kCommand, kFetch)});

    for (const std::string& budget : GetParam().budgets) {
        play(rig, {logs("[INFO ]", budget, "kzBleServer")});
    }
}

std::string budget(int available, int used) {
    return std::to_string(available) + " slots available for file transfer, using " + std::to_string(used);
}

INSTANTIATE_TEST_SUITE_P(, QueueDepth,
                         testing::Values(Depth{4, {budget(4, 2), budget(2, 1), budget(1, 0)}},
                                         Depth{10,
                                               {budget(10, 5), budget(5, 1), budget(4, 1), budget(3, 1), budget(2, 0)}},
                                         Depth{100, {budget(100, 50), budget(50, 1), budget(49, 1)}}),
                         [](const auto& row) { return std::to_string(row.param.depth); });

TEST_F(Transfer, OneRunsAtATime) {
    Rig::Options options;
    options.transmitDepth = 10;
    Rig& rig = serve(options);
    const Bytes file = fileOf(200);
    writeFile(kSettingsGzPath, file);

    play(rig, {connects(1), opensAll(1), connects(2), opensAll(2), writes(1, kCommand, kFetch),
               writes(2, kCommand, kFetch), answers(2, kCommandAnswer, kRefused),
               logs("[ERROR]", "No File transfer slot available", "bleCommandMessage.cpp"),
               // Ordinary answers go in between.
               writes(2, kCommand, kAskVersion), answers(2, kCommandAnswer, kVersion), arrives(1, file),
               writes(2, kCommand, kFetch), arrives(2, file), quiet()});
}

TEST_F(Transfer, DisconnectionInEveryPhaseFreesTheSlot) {
    Rig::Options options;
    options.transmitDepth = 10;
    Rig& rig = serve(options);
    writeFile(kSettingsGzPath, fileOf(9000));
    play(rig, {connects(1), opensAll(1), sets(5)});

    // Before the first packet.
    play(rig, {writes(1, kCommand, kFetch), disconnects(1),
               logs("[INFO ]", "A client with active file transfer disconnected.", "kzBleServer")});
    // In the middle.
    play(rig, {connects(1), opensAll(1), writes(1, kCommand, kFetch),
               packet(1, kCommandAnswer,
                      toHex(fromHex("40 23 2a 3b 00") +
                            [] {
                                Bytes start = fileOf(15);
                                return start;
                            }())),
               disconnects(1), logs("[INFO ]", "A client with active file transfer disconnected.", "kzBleServer")});
    // Its last packets are still on their way.
    rig.settle();
    while (rig.radio->tryReceive(std::chrono::milliseconds(0))) {
    }

    writeFile(kSettingsGzPath, fileOf(100));
    play(rig, {connects(2), opensAll(2), writes(2, kCommand, kFetch), arrives(2, fileOf(100)), quiet()});
    EXPECT_EQ(rig.daemon.count("File still open when client destroyed."), 0u);
    EXPECT_EQ(rig.daemon.count("Attempt to Release file slot when none taken"), 0u);
}

}  // namespace
}  // namespace e2e
