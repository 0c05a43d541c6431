// Firmware updates of accessories, and sensors: the conversations from the first report to the end.
#include <chrono>
#include <filesystem>

#include "fixture.h"

namespace e2e {
namespace {

constexpr uint8_t kRebootRequest = 25;  // streams of an update
constexpr uint8_t kUpdateRequest = 27;
constexpr uint8_t kUpdateReply = 28;
constexpr uint8_t kImageData = 30;
constexpr uint8_t kSensorAnswers = 19;

constexpr uint8_t kBusy = 3;  // CSI key

constexpr const char* kCardImage = "/tmp/fuse_d/KZ_REMOTE_FW_2.bin";
constexpr const char* kCameraImage = "/usr/local/zorvik/tftp/KZ_REMOTE_FW_2.bin";
constexpr const char* kShutterImage = "/usr/local/zorvik/tftp/KZ_SHUTTER_REMOTE_FW_2.bin";

// The client-information command of an accessory with a full battery, at version 1.2.5.
constexpr const char* kRemoteReports = "1c 07 01 03 01 02 05 64 00";
constexpr const char* kShutterReports = "1c 07 01 05 01 02 05 64 00";

uint32_t crcOf(const Bytes& bytes) {
    uint32_t crc = 0xFFFFFFFF;
    for (const uint8_t byte : bytes) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = crc >> 1 ^ ((crc & 1) != 0 ? 0xEDB88320u : 0u);
        }
    }
    return ~crc;
}

// An image of version 1.2.patch.
Bytes imageFile(uint32_t patch, const Bytes& image = ramp(100)) {
    return little32(crcOf(image)) + little32(1) + little32(2) + little32(patch) +
           little32(static_cast<uint32_t>(image.size())) + image;
}

// The control daemon's status, as far as updates look at it.
Step cameraIs(uint8_t battery, uint8_t busy) {
    Bytes status(394, 0);
    status[198] = battery;
    status[209] = busy;
    return replies("command 33", 0, status);
}

// Key 150: phase, percent, device type.
Step updateState(const std::string& valueHex) {
    return tellsNet("18 CI /to_kznet>/to_kznet: 96 04 00 00 00 " + valueHex);
}

// These bytes in packets of 20, the last of a block shorter.
Step sendsImage(uint32_t connection, const Bytes& bytes) {
    return [=](Rig& rig) {
        for (size_t at = 0; at < bytes.size(); at += 20) {
            const size_t end = std::min<size_t>(at + 20, bytes.size());
            const auto begin = bytes.begin();
            const Bytes part(begin + static_cast<long>(at), begin + static_cast<long>(end));
            play(rig, {packet(connection, kImageData, part)});
        }
    };
}

class Accessory : public E2e {
  protected:
    // A daemon on a camera that is idle and well charged, and a remote with shutter that has begun to fetch this image
    // in blocks of 20 bytes.
    void serveTransferOf(const Bytes& image, const Rig::Options& options = {}) {
        serve(options);
        writeFile(kShutterImage, imageFile(6, image));
        play({cameraIs(80, 0), joins(1), asks(1, kCommand, kShutterReports, "1c 00"), packet(1, kSensorAnswers, "01"),
              writesPacket(1, kUpdateRequest, "01 00 14"), sendsImage(1, ramp(20)), updateState("01 00 1b 00"),
              updateState("01 00 1b 00"), settles()});
        rig->camera.takeCalls();
    }
};

TEST_F(Accessory, IsNotUpdatedFromAnImageThatIsTooLongOrGoneOrWhileTheCameraRecords) {
    serve();
    writeFile(kCardImage, imageFile(6, Bytes(307181)));
    play({cameraIs(80, 0), joins(1), asks(1, kCommand, kRemoteReports, "1c 00"),
          logs("[ERROR] Image /tmp/fuse_d/KZ_REMOTE_FW_2.bin is shorter than its header says, or longer than 307200 "
               "bytes"),
          writesPacket(1, kUpdateRequest, "01"), packet(1, kUpdateReply, "01 02 3a 03"),
          logs("[ERROR] Unable to start a settings file transfer"), quiet()});
    EXPECT_EQ(rig->network->waiting(), 0);

    writeFile(kCardImage, imageFile(6));
    play({joins(2), asks(2, kCommand, kRemoteReports, "1c 00"), logs("[DEBUG] delay reboot 1"),
          notifies("CN", csiRecord(kBusy, 1u)), logs("[DEBUG] sytem recording, cancel accessory update"),
          notifies("CN", csiRecord(kBusy, 0u)), asks(2, kCommand, kRemoteReports, "1c 00"),
          logs("[DEBUG] delay reboot 1"), logs("[DEBUG] delay reboot 2"), packet(2, kRebootRequest, "02"), quiet()});
    EXPECT_EQ(rig->daemon.count("[DEBUG] delay reboot 3"), 0u);
}

TEST_F(Accessory, RemoteIsRebootedUpdatedAndWelcomedBack) {
    const Bytes image = ramp(1020);  // full packets: only the end of the file shows the end
    serve();
    writeFile(kCameraImage, imageFile(6, image));
    std::filesystem::create_directory("/tmp/fuse_d");
    std::filesystem::create_symlink(kCameraImage, kCardImage);  // from one directory to the other
    play({cameraIs(80, 0), joins(1), settles()});
    rig->camera.takeCalls();

    play({asks(1, kCommand, kRemoteReports, "1c 00"), calls("csi_set 92: 0b, command 33, csi_set 162: 64 17 00 00"),
          logs("[DEBUG] delay reboot 2"), packet(1, kRebootRequest, "02"), packet(1, kRebootRequest, "02"),
          disconnects(1)});

    play({joins(2), writesPacket(2, kUpdateRequest, "01 02 03 04"), packet(2, kUpdateReply, "01 02 3a 03"),
          updateState("01 00 17 00"), updateState("01 00 17 00"), sendsImage(2, image), packet(2, kUpdateReply, "07"),
          updateState("01 3a 17 00"), updateState("02 00 17 00"), quiet(), disconnects(2), settles()});

    writeFile(kCameraImage, imageFile(5, image));
    play({joins(3), settles()});
    rig->camera.takeCalls();
    play({asks(3, kCommand, kRemoteReports, "1c 00"),
          calls("csi_set 92: 0b, csi_set 150: 03 00 17 00, csi_set 150: 00 00 00 00, command 33, "
                "csi_set 11: 03 00 00 00, csi_set 162: 64 17 00 00"),
          quiet()});
}

TEST_F(Accessory, ShutterRemoteIsAskedToRebootOnce) {
    const Step tick = logs("[WARN ] ble tx message queue fullness 40 of 100, max:40");  // on every third
    serve();
    writeFile(kShutterImage, imageFile(6));
    play({cameraIs(80, 0), joins(1), asks(1, kCommand, kShutterReports, "1c 00"), packet(1, kSensorAnswers, "01"),
          writesPacket(1, kUpdateRequest, "01 00 00"), quiet(),  // no block size
          writesPacket(1, kUpdateRequest, "02 01"), logs("[ERROR] Error with transfer to Accessory"), occupies(40),
          tick, tick, tick, drains()});
    EXPECT_EQ(rig->daemon.count("sending OTA REBOOT REQUEST"), 1u);

    // After its error it may start again.
    play({writesPacket(1, kUpdateRequest, "01 00 14"), sendsImage(1, ramp(20)), quiet()});
}

TEST_F(Accessory, StrangerCannotEndOrChargeTheTransferOfAnother) {
    serveTransferOf(ramp(450));
    play({joins(2), asks(2, kCommand, kShutterReports, "1c 00"), packet(2, kSensorAnswers, "01"), settles()});
    rig->camera.takeCalls();

    for (const char* request : {"01", "01 00 14", "02 00", "02 01", "02 02", "09", ""}) {
        SCOPED_TRACE(request);
        play({writesPacket(2, kUpdateRequest, request), calls(""), quiet()});
    }

    EXPECT_EQ(rig->network->waiting(), 0);
    play({asks(2, kCommand, "3b", "3b 01"),  // the slot is taken
          writesPacket(1, kUpdateRequest, "02 00"), sendsImage(1, ramp(20, 20)), quiet()});
}

TEST_F(Accessory, DisconnectionDuringTheTransferFreesTheSlot) {
    serveTransferOf(ramp(450));
    writeFile(kSettingsGzPath, ramp(5));

    play({disconnects(1), logs("[DEBUG] A client with active file transfer disconnected."), updateState("04 00 1b 00"),
          updateState("00 00 00 00"), joins(2), asks(2, kCommand, "3b", "3b 00 00 01 02 03 04"), quiet()});
}

TEST_F(Accessory, RadioThatStopsReadingHoldsUpNothingAndLosesNothing) {
    serveTransferOf(ramp(1000), {.transmitDepth = 10});
    writeFile(kCameraImage, imageFile(6));
    const auto begin = std::chrono::steady_clock::now();

    // Below the half, so that the block is sent whole: more than there is room for.
    play({occupies(4), writesPacket(1, kUpdateRequest, "01 03 e8"), settles()});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    play({sendsImage(1, ramp(980, 20)), packet(1, kUpdateReply, "01"), drains()});

    // Nor does a reply wait, and the image comes behind it.
    play({joins(2), occupies(10), writesPacket(2, kUpdateRequest, "01"), settles()});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(6));
    play({packet(2, kUpdateReply, "01 02 3a 03"), sendsImage(2, ramp(100)), packet(2, kUpdateReply, "07"), drains(),
          quiet()});
    EXPECT_EQ(rig->daemon.count("Failed to send"), 0u);
}

TEST_F(Accessory, BeingUpdatedKeepsTheLightsFromThoseBehindIt) {
    const auto shows = [](const char* command, const Bytes& data) {
        return tells(kCsiQueue, TlvMessage{10, {{kTlvCommand, textBytes(command)}, {kTlvArgument, data}}}.encode());
    };
    serveTransferOf(ramp(450));
    play({joins(2), asks(2, kSensorData, "50 01", "50 00"), asks(2, kSensorData, "52 01", "52 00")});

    play({shows("AL", ramp(5)), shows("LB", ramp(6)), answers(2, kSensorData, "51 00 01 02 03 04 05"), quiet()});
}

// ---------------------------------------------------------------- sensors

using Sensor = E2e;

TEST_F(Sensor, SamplesReachTheMetadataServiceEvenAfterTheDisconnection) {
    serve();
    // A strap with one stream and the key HRTE of one 16-bit value.
    play({joins(1, kSensor), asks(1, kSensorData, "02 01 48 52 4d", "02 00"),
          asks(1, kSensorData, "03 48 52 54 45 00 00 53 02 01 00", "03 00"), writes(1, kSensorData, "01 00 12 34"),
          disconnects(1)});

    std::string calls;
    EXPECT_TRUE(waitUntil([&] {
        calls += rig->camera.takeCalls();
        return calls.find("ipc-send") != std::string::npos && calls.find("44 45 56 43") != std::string::npos &&
               calls.find("48 52 54 45 53 02 00 01") != std::string::npos;
    })) << calls;
}

}  // namespace
}  // namespace e2e
