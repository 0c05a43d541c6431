// Firmware updates of accessories, and sensors: the conversations from the first report to the end.
#include "fixture.h"

namespace e2e {
namespace {

constexpr uint8_t kAccessoryReports = 19;  // streams of an update
constexpr uint8_t kRebootRequest = 25;
constexpr uint8_t kUpdateRequest = 27;
constexpr uint8_t kUpdateReply = 28;
constexpr uint8_t kImageData = 30;

constexpr const char* kRemoteImage = "/usr/local/zorvik/tftp/KZ_REMOTE_FW_2.bin";
constexpr const char* kShutterImage = "/usr/local/zorvik/tftp/KZ_SHUTTER_REMOTE_FW_2.bin";

constexpr uint32_t kGetAllStatus = 33;

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

// Version 2.0.0.
Bytes imageFile(const Bytes& image) {
    return little32(crcOf(image)) + little32(2) + little32(0) + little32(0) +
           little32(static_cast<uint32_t>(image.size())) + image;
}

// The client-information command of an accessory with a full battery: device type and version.
std::string report(const std::string& deviceType, const std::string& version) {
    return "1c 07 01 " + deviceType + " " + version + " 64 00";
}

// Key 150: phase, percent, device type.
Step updateState(const std::string& valueHex) {
    return tellsNet("18 CI /to_kznet>/to_kznet: 96 04 00 00 00 " + valueHex);
}

class Accessory : public E2e {
  protected:
    // A daemon on a camera that is idle and well charged.
    Rig& serveIdleCamera() {
        Rig& rig = serve();
        Bytes status(394, 0);
        status[198] = 80;
        rig.camera.reply(fakes::Function::Command, kGetAllStatus, 0, status);
        return rig;
    }

    // Whole image packets of the connection, in order.
    static Bytes receiveImage(Rig& rig, size_t packets) {
        Bytes image;
        for (size_t i = 0; i < packets; ++i) {
            const ble_message_t record = rig.radio->receive();
            EXPECT_EQ(record.streamId, kImageData) << describe(record);
            image.insert(image.end(), record.data, record.data + record.dataLength);
        }
        return image;
    }
};

TEST_F(Accessory, RemoteIsRebootedUpdatedAndWelcomedBack) {
    Rig& rig = serveIdleCamera();
    const Bytes image = ramp(1010);
    writeFile(kRemoteImage, imageFile(image));

    play(rig, {connects(1), opensAll(1), settles(), calls({"command 0: 01 00 00 00 " + toHex([] {
                                                               Bytes name = textBytes("/to_kzBleD");
                                                               name.resize(260);
                                                               return name;
                                                           }())}),
               writes(1, kCommand, report("03", "01 00 00")), answers(1, kCommandAnswer, "1c 00"),
               calls({"csi_set 92: 0b", "command 33", "csi_set 162: 64 17 00 00"}), packet(1, kRebootRequest, "02"),
               packet(1, kRebootRequest, "02"), disconnects(1)});

    play(rig, {connects(2), opensAll(2), writesPacket(2, kUpdateRequest, "01 02 03 04"),
               packet(2, kUpdateReply, "01 02 3a 03"), updateState("01 00 17 00"), updateState("01 00 17 00")});
    EXPECT_EQ(receiveImage(rig, 51), image);
    play(rig, {packet(2, kUpdateReply, "07"), updateState("01 3b 17 00"), updateState("02 00 17 00"), quiet(),
               disconnects(2), settles()});
    rig.camera.takeCalls();

    play(rig, {connects(3), opensAll(3), settles()});
    rig.camera.takeCalls();
    play(rig, {writes(3, kCommand, report("03", "02 00 00")), answers(3, kCommandAnswer, "1c 00"),
               calls({"csi_set 92: 0b", "csi_set 150: 03 00 17 00", "csi_set 150: 00 00 00 00", "command 33",
                      "csi_set 11: 03 00 00 00", "csi_set 162: 64 17 00 00"}),
               logs("[ERROR]", "Versions match, do not preform accessory Update", "kzBleServer"), quiet()});
}

TEST_F(Accessory, ShutterRemoteFetchesItsImageBlockByBlock) {
    Rig& rig = serveIdleCamera();
    const Bytes image = ramp(450);
    writeFile(kShutterImage, imageFile(image));
    play(rig, {connects(1), opensAll(1), writes(1, kCommand, report("05", "01 00 00")),
               answers(1, kCommandAnswer, "1c 00"), packet(1, kAccessoryReports, "01")});

    play(rig, {writesPacket(1, kUpdateRequest, "01 00 c8")});
    Bytes received = receiveImage(rig, 10);
    play(rig, {quiet(), writesPacket(1, kUpdateRequest, "02 00")});
    received = received + receiveImage(rig, 10);
    play(rig, {quiet(), writesPacket(1, kUpdateRequest, "02 00")});
    received = received + receiveImage(rig, 3);

    EXPECT_EQ(received, image);
    play(rig, {packet(1, kUpdateReply, "01"), quiet(), updateState("01 00 1b 00"), updateState("01 00 1b 00"),
               updateState("01 2c 1b 00"), updateState("01 58 1b 00"), updateState("02 00 1b 00")});
}

TEST_F(Accessory, ErrorReportEndsTheTransferAndFreesTheSlot) {
    Rig& rig = serveIdleCamera();
    writeFile(kShutterImage, imageFile(ramp(450)));
    play(rig, {connects(1), opensAll(1), writes(1, kCommand, report("05", "01 00 00")),
               answers(1, kCommandAnswer, "1c 00"), packet(1, kAccessoryReports, "01"),
               writesPacket(1, kUpdateRequest, "01 00 14"), packet(1, kImageData, toHex(ramp(20))), settles()});
    rig.camera.takeCalls();

    play(rig,
         {writesPacket(1, kUpdateRequest, "02 01"), logs("[ERROR]", "Error with transfer to Accessory", "kzBleServer"),
          calls({"csi_set 150: 04 00 1b 00", "csi_set 150: 00 00 00 00"})});

    play(rig, {writesPacket(1, kUpdateRequest, "02 00"),
               logs("[DEBUG]", "ACCESSORY request chunk but not in OTA state", "kzBleServer"), quiet(),
               writesPacket(1, kUpdateRequest, "01 00 14"), packet(1, kImageData, toHex(ramp(20))), quiet()});
}

TEST_F(Accessory, DisconnectionDuringTheTransferFreesTheSlot) {
    Rig& rig = serveIdleCamera();
    writeFile(kShutterImage, imageFile(ramp(450)));
    writeFile(kSettingsGzPath, ramp(5));
    play(rig,
         {connects(1), opensAll(1), writes(1, kCommand, report("05", "01 00 00")), answers(1, kCommandAnswer, "1c 00"),
          packet(1, kAccessoryReports, "01"), writesPacket(1, kUpdateRequest, "01 00 14"),
          packet(1, kImageData, toHex(ramp(20))), updateState("01 00 1b 00"), updateState("01 00 1b 00")});

    play(rig, {disconnects(1), logs("[DEBUG]", "A client with active file transfer disconnected.", "kzBleServer"),
               updateState("04 00 1b 00"), updateState("00 00 00 00"), connects(2), opensAll(2),
               writes(2, kCommand, "3b"), answers(2, kCommandAnswer, "3b 00 00 01 02 03 04"), quiet()});
}

struct BadImage {
    const char* name;
    std::function<Bytes()> file;

    friend void PrintTo(const BadImage& row, std::ostream* out) { *out << row.name; }
};

class RefusedImage : public Accessory, public testing::WithParamInterface<BadImage> {};

TEST_P(RefusedImage, StartsNoTransfer) {
    Rig& rig = serveIdleCamera();
    writeFile(kRemoteImage, GetParam().file());

    play(rig, {connects(1), opensAll(1), writesPacket(1, kUpdateRequest, "01"), packet(1, kUpdateReply, "01 02 3a 03"),
               logs("[ERROR]", "Unable to start a settings file transfer", "kzBleServer"), quiet()});
    EXPECT_EQ(rig.network->waiting(), 0);
}

INSTANTIATE_TEST_SUITE_P(, RefusedImage,
                         testing::Values(BadImage{"Empty", [] { return Bytes(); }},
                                         BadImage{"HeaderCut", [] { return ramp(19); }},
                                         BadImage{"WrongChecksum",
                                                  [] {
                                                      Bytes file = imageFile(ramp(100));
                                                      file[0] ^= 1;
                                                      return file;
                                                  }},
                                         BadImage{"ImageCut",
                                                  [] {
                                                      Bytes file = imageFile(ramp(100));
                                                      file.pop_back();
                                                      return file;
                                                  }},
                                         BadImage{"LengthBeyondEverything",
                                                  [] {
                                                      Bytes file = imageFile(ramp(100));
                                                      std::fill(file.begin() + 16, file.begin() + 20, uint8_t{0xFF});
                                                      return file;
                                                  }}),
                         [](const auto& row) { return row.param.name; });

TEST_F(Accessory, RadioThatStopsReadingDelaysButNeverHangs) {
    Rig& rig = serveIdleCamera();
    play(rig, {connects(1), opensAll(1)});
    const ble_message_t filler = dataRecord(99, 4, fromHex("00"));
    for (long i = 0; i < RadioStack::kDepth; ++i) {
        rig.radio->fromDaemon().send(&filler, sizeof(filler));
    }

    // The reply is written without looking at the queue's room.
    play(rig, {writesPacket(1, kUpdateRequest, "01"),
               logs("[ERROR]", "Failed to send packet to ble client.", "kzBleServer"), settles()});

    for (long i = 0; i < RadioStack::kDepth; ++i) {
        rig.radio->receive();
    }
    play(rig, {writes(1, kCommand, "3a"), answers(1, kCommandAnswer, "3a 00 04 31 2e 32 35"), quiet()});
}

// ---------------------------------------------------------------- sensors

class Sensor : public E2e {
  protected:
    // A strap with one stream and the key HRTE of one 16-bit value.
    Rig& serveStrap() {
        Rig& rig = serve();
        rig.radio->connect(1, kSensor);
        rig.radio->enableSensor(1);
        play(rig, {writes(1, kSensorRequest, "02 01 48 52 4d"), answers(1, kSensorAnswer, "02 00"),
                   writes(1, kSensorRequest, "03 48 52 54 45 00 00 53 02 01 00"), answers(1, kSensorAnswer, "03 00")});
        return rig;
    }

    // The calls up to a record for the metadata service that contains these bytes, which begins with its number.
    static std::string waitForRecord(Rig& rig, const std::string& contained) {
        std::string record;
        waitUntil([&] {
            for (const std::string& call : rig.camera.takeCalls()) {
                if (call.starts_with("ipc-send") && call.find(contained) != std::string::npos) {
                    record = call;
                }
            }
            return !record.empty();
        });
        return record;
    }
};

TEST_F(Sensor, SamplesReachTheMetadataServiceOnATick) {
    Rig& rig = serveStrap();

    play(rig, {writes(1, kSensorRequest, "01 00 12 34"), quiet()});

    const std::string record = waitForRecord(rig, "48 52 54 45 53 02 00 01");
    EXPECT_NE(record.find("44 45 56 43"), std::string::npos) << record;  // inside a device's record
}

TEST_F(Sensor, UnsentSamplesSurviveTheDisconnection) {
    Rig& rig = serveStrap();

    play(rig, {writes(1, kSensorRequest, "01 00 12 34"), disconnects(1)});

    EXPECT_FALSE(waitForRecord(rig, "48 52 54 45 53 02 00 01").empty());
}

TEST_F(Sensor, RefusalsCarryTheirCode) {
    Rig& rig = serveStrap();
    const std::pair<const char*, const char*> rows[] = {
        {"02 01 48 52 4d", "02 03"},                    // registered already
        {"02 01 48 52", "02 02"},                       // name too short
        {"03 48 52 54 45 00 00 53 02 01 00", "03 08"},  // key present
        {"03 48 52 54 45 14 00 53 02 01 00", "03 0c"},  // no such key index
        {"03 48 52 54 45 01 02 53 02 01 00", "03 07"},  // no such stream
        {"03 48 52", "03 02"},                          // cut short
        {"01 05 00 00", "01 0a"},                       // sample of an unknown key
        {"50 03", "50 0d"},                             // display parameter
        {"52 03", "52 02"},                             // LED parameter
        {"07", "07 0b"},                                // unknown command
    };

    for (const auto& [request, answer] : rows) {
        play(rig, {writes(1, kSensorRequest, request), answers(1, kSensorAnswer, answer)});
    }
    play(rig, {quiet()});
}

}  // namespace
}  // namespace e2e
