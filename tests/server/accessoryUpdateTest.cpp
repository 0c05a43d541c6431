// Firmware updates of accessories: the decision, the reboot request, the exchange on stream 27 and the image.
#include <algorithm>

#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "serverFixture.h"
#include "utils.h"

namespace server_test {
namespace {

constexpr uint32_t kRemoteState = uint32_t{KZ_CALLER_ALDER} << 16;
constexpr uint32_t kBlockState = uint32_t{KZ_CALLER_MAPLE} << 16;
constexpr const char* kRemoteImage = "KZ_REMOTE_FW.bin";
constexpr const char* kBlockImage = "KZ_SHUTTER_REMOTE_FW.bin";

class AccessoryUpdateTest : public ServerTest {
  protected:
    // The image bytes among what was sent.
    static Bytes ImageBytes(const std::vector<Sent>& sent) {
        Bytes image;
        for (const Sent& packet : sent) {
            if (packet.streamId == KZ_STR_ID_OTA_DATA) {
                image.insert(image.end(), packet.data.begin(), packet.data.end());
            }
        }
        return image;
    }
    static bool Check(uint8_t deviceType, uint8_t patch = 0) {
        std::string path;
        return Server().LarchUpdateCheck(deviceType, &path, 1, 2, patch);
    }
};

TEST_F(AccessoryUpdateTest, CameraDecidesByItsStateAndTheImage) {
    WriteImage(kRemoteImage, Counting(30), 5);
    const struct {
        uint8_t battery;
        uint8_t busy;
        uint8_t accessoryPatch;
        bool update;
        const char* text;
        int level;
    } rows[] = {
        {50, 0, 4, true, "accessory version = 1 2 4", KZ_LOG_DEBUG},
        {10, 0, 6, true, "file verion = 1 2 5", KZ_LOG_DEBUG},
        {9, 0, 4, false, "zorvik batt percentage low 9, do not update accessory now", KZ_LOG_DEBUG},
        {200, 0, 4, false, "zorvik batt percentage low -56, do not update accessory now", KZ_LOG_DEBUG},
        {50, 1, 4, false, "sytem busy, do not update accessory now", KZ_LOG_ERROR},
        {50, 0, 5, false, "Versions match, do not preform accessory Update", KZ_LOG_ERROR},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        CameraStatus(row.battery, row.busy);
        const fakes::LogCapture log(KZ_LOG_DEBUG);

        EXPECT_EQ(Check(KZ_CALLER_ALDER, row.accessoryPatch), row.update);

        EXPECT_TRUE(log.Has(row.text, row.level));
    }
    fakes::OnCommand(KZCONTROL_GET_ALL_STATUS, -1);
    EXPECT_FALSE(Check(KZ_CALLER_ALDER));
}

TEST_F(AccessoryUpdateTest, DamagedImageIsRefused) {
    EXPECT_FALSE(Check(KZ_CALLER_ALDER)) << "no image";
    Bytes file = ImageFile(Counting(1000), 1, 2, 5);
    const std::string path = std::string("/tmp/fuse_d/") + kRemoteImage;
    WriteFile(path, file);
    EXPECT_TRUE(Check(KZ_CALLER_ALDER));

    file[500] ^= 1;
    WriteFile(path, file);
    EXPECT_FALSE(Check(KZ_CALLER_ALDER)) << "a changed byte";
    file[500] ^= 1;
    file.pop_back();
    WriteFile(path, file);
    EXPECT_FALSE(Check(KZ_CALLER_ALDER)) << "a missing byte";
    WriteFile(path, {1, 2, 3});
    EXPECT_FALSE(Check(KZ_CALLER_ALDER)) << "no header";
    WriteFile(path, ImageFile(Bytes(307181), 1, 2, 5));
    EXPECT_FALSE(Check(KZ_CALLER_ALDER)) << "longer than can be checked";
    WriteFile(path, ImageFile(Bytes(307180), 1, 2, 5));
    EXPECT_TRUE(Check(KZ_CALLER_ALDER)) << "the longest";
}

TEST_F(AccessoryUpdateTest, RemoteGetsItsImageTickByTick) {
    const Bytes image = Counting(200);  // ten full packets: only the end of the file shows the end
    WriteImage(kRemoteImage, image);
    BleNotificationClient& client = Connect(1, KZ_CALLER_BLE_RC);

    Receive(1, KZ_STR_ID_START_OTA, {0});
    std::vector<Sent> sent = TakeSent();
    EXPECT_EQ(sent, (std::vector<Sent>{{1, KZ_STR_ID_OTA_RESPONSE, {1, 2, 0x3A, 0x03}}}));
    EXPECT_EQ(client.m_deviceType, KZ_CALLER_ALDER);
    for (int tick = 0; tick < 10 && client.IsTransferringLarch(); ++tick) {
        Server().CheckClientsForLarchOTA();
        const std::vector<Sent> more = TakeSent();
        sent.insert(sent.end(), more.begin(), more.end());
    }

    EXPECT_EQ(ImageBytes(sent), image);
    EXPECT_EQ(sent.back(), (Sent{1, KZ_STR_ID_OTA_RESPONSE, {7}}));
    EXPECT_EQ(TakeAccessoryStates(),
              (std::vector<uint32_t>{kRemoteState | 1, kRemoteState | 1, kRemoteState | 50 << 8 | 1,
                                     kRemoteState | 100 << 8 | 1, kRemoteState | 2}));
    EXPECT_TRUE(Server().GetWaitingAccReconnect());
    EXPECT_TRUE(Server().IsFileTransferSlotAvailable());
}

TEST_F(AccessoryUpdateTest, BlockAccessoryGetsTheBlocksItNames) {
    const Bytes image = Counting(130);
    WriteImage(kBlockImage, image);
    BleNotificationClient& client = Connect(1, KZ_CALLER_MAPLE);
    std::vector<size_t> packetSizes;
    Bytes received;
    const auto request = [&](const Bytes& data) {
        Receive(1, KZ_STR_ID_START_OTA, data);
        for (const Sent& packet : TakeSent()) {
            packetSizes.push_back(packet.data.size());
            if (packet.streamId == KZ_STR_ID_OTA_DATA) {
                received.insert(received.end(), packet.data.begin(), packet.data.end());
            }
        }
    };

    request({1, 0, 50});
    EXPECT_EQ(packetSizes, (std::vector<size_t>{20, 20, 10}));
    EXPECT_EQ(client.m_bytesRemaining, 0);
    request({2, 0});
    EXPECT_EQ(packetSizes.size(), 6u);
    request({2, 0});

    EXPECT_EQ(received, image);
    EXPECT_EQ(packetSizes, (std::vector<size_t>{20, 20, 10, 20, 20, 10, 20, 10, 1}));
    EXPECT_FALSE(client.IsTransferringLarch());
    EXPECT_TRUE(Server().IsFileTransferSlotAvailable());
}

TEST_F(AccessoryUpdateTest, StartThatNamesNoBlockSizeWaitsForTheFirstBlockRequest) {
    WriteImage(kBlockImage, Counting(130));
    BleNotificationClient& client = Connect(1, KZ_CALLER_MAPLE);
    client.m_bytesRemaining = 33;  // of an earlier transfer

    Receive(1, KZ_STR_ID_START_OTA, {1});
    EXPECT_TRUE(client.IsTransferringLarch());
    EXPECT_TRUE(TakeSent().empty());
    Receive(1, KZ_STR_ID_START_OTA, {1, 0, 0});
    EXPECT_TRUE(TakeSent().empty()) << "a block of no bytes";
    Receive(1, KZ_STR_ID_START_OTA, {2, 0});

    EXPECT_EQ(TakeSent().size(), 8u);  // seven of the image, one that ends it
}

TEST_F(AccessoryUpdateTest, StrangerCannotEndOrChargeTheTransferOfAnother) {
    WriteImage(kBlockImage, Counting(130));
    BleNotificationClient& owner = Connect(1, KZ_CALLER_MAPLE);
    Connect(2, KZ_CALLER_MAPLE);
    Receive(1, KZ_STR_ID_START_OTA, {1, 0, 20});
    TakeSent();
    TakeAccessoryStates();
    fakes::ForgetCalls();

    for (const Bytes& data : {Bytes{1}, Bytes{1, 0, 20}, Bytes{2, 0}, Bytes{2, 1}, Bytes{2, 2}, Bytes{9}, Bytes{}}) {
        Receive(2, KZ_STR_ID_START_OTA, data);
    }

    EXPECT_TRUE(TakeSent().empty());
    EXPECT_TRUE(TakeAccessoryStates().empty());
    EXPECT_TRUE(fakes::Calls("csi_set").empty());
    EXPECT_TRUE(owner.IsTransferringLarch());
    EXPECT_EQ(KzBleServerTestAccess::TransfersRunning(), 1u);
    EXPECT_FALSE(Server().GetWaitingAccReconnect());
}

TEST_F(AccessoryUpdateTest, ErrorReportEndsTheOwnTransfer) {
    WriteImage(kBlockImage, Counting(130));
    BleNotificationClient& client = Connect(1, KZ_CALLER_MAPLE);
    Receive(1, KZ_STR_ID_START_OTA, {1, 0, 20});
    TakeSent();

    Receive(1, KZ_STR_ID_START_OTA, {2, 1});

    EXPECT_FALSE(client.IsTransferringLarch());
    EXPECT_EQ(client.m_file, nullptr);
    EXPECT_TRUE(Server().IsFileTransferSlotAvailable());
    EXPECT_TRUE(TakeSent().empty());
    EXPECT_EQ(fakes::Calls("csi_set"),
              (std::vector<fakes::Call>{fakes::CsiSet(CSI_ACCESSORY_UPDATE, fakes::Le32(kBlockState | 4)),
                                        fakes::CsiSet(CSI_ACCESSORY_UPDATE, fakes::Le32(0))}));
}

TEST_F(AccessoryUpdateTest, DisconnectionDuringAnUpdateReportsTheFailure) {
    WriteImage(kBlockImage, Counting(130));
    Connect(1, KZ_CALLER_MAPLE);
    Receive(1, KZ_STR_ID_START_OTA, {1, 0, 20});
    TakeAccessoryStates();

    Disconnect(1);

    EXPECT_EQ(TakeAccessoryStates(), (std::vector<uint32_t>{kBlockState | 4, 0}));
    EXPECT_TRUE(Server().IsFileTransferSlotAvailable());
    EXPECT_EQ(fakes::Calls("csi_set"),
              std::vector<fakes::Call>{fakes::CsiSet(CSI_CONNECTED_ACCESSORY, fakes::Le32(0))});
}

TEST_F(AccessoryUpdateTest, SendThatStaysBlockedAbortsTheTransferWithItsEndRecord) {
    WriteImage(kBlockImage, Counting(130));
    BleNotificationClient& client = Connect(1, KZ_CALLER_MAPLE);
    Receive(1, KZ_STR_ID_START_OTA, {1});
    FillRadio(6);  // below the half, so that the block is sent whole: more than there is room for

    Receive(1, KZ_STR_ID_START_OTA, {2, 0});

    EXPECT_FALSE(client.IsTransferringLarch());
    EXPECT_TRUE(Server().IsFileTransferSlotAvailable());
    EXPECT_TRUE(Server().GetWaitingAccReconnect());
    EXPECT_EQ(ImageBytes(TakeSent()).size(), 120u);
}

TEST_F(AccessoryUpdateTest, RemoteIsAskedToRebootOnEveryThirdTickUntilRecordingCancels) {
    BleNotificationClient& client = Connect(1, KZ_CALLER_ALDER);
    client.m_accessoryUpdatePending = true;
    std::vector<int> ticks;
    for (int tick = 1; tick <= 7; ++tick) {
        Server().CheckClientsForLarchOTA();
        if (TakeSent() == std::vector<Sent>{{1, KZ_STR_ID_REBOOT_OTA, {2}}}) {
            ticks.push_back(tick);
        }
    }
    EXPECT_EQ(ticks, (std::vector<int>{3, 6}));

    KzBleServerTestAccess::SetCsiValue(CSI_CAMERA_BUSY, 1);
    Server().CheckClientsForLarchOTA();

    EXPECT_FALSE(client.m_accessoryUpdatePending);
}

TEST_F(AccessoryUpdateTest, BlockAccessoryIsAskedToRebootOnce) {
    BleNotificationClient& client = Connect(1, KZ_CALLER_MAPLE);
    client.m_accessoryUpdatePending = true;

    for (int tick = 1; tick <= 6; ++tick) {
        Server().CheckClientsForLarchOTA();
    }

    EXPECT_EQ(TakeSent(), (std::vector<Sent>{{1, KZ_STR_ID_SENSOR_RESPONSE, {1}}}));
    EXPECT_FALSE(client.m_accessoryUpdatePending);
}

}  // namespace
}  // namespace server_test
