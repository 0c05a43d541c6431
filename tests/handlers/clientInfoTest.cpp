// Command 28: what the daemon makes of an accessory that introduces itself. A record is schema, device type, firmware
// version (3), and perhaps battery level and connect reason.
#include <filesystem>
#include <fstream>

#include "handlersFixture.h"
#include "privateTmp.h"

namespace {

using ClientInfoTest = HandlersTest<BleCommandMessage>;

// "command 33" is the update check's question to the camera, which here permits no update.
// clang-format off
const Exchange kIntroductions[] = {
    {"BIRCH DEVICE CONNECTED", "1c 07 01 04 02 03 04 50 00", "csi_set 11: 04 00 00 00, csi_set 162: 50 18 00 00", "1c 00"},
    {"MAPLE DEVICE CONNECTED", "1c 07 01 05 02 03 04 50 00",
     "command 33, csi_set 11: 05 00 00 00, csi_set 162: 50 1b 00 00", "1c 00"},
    {"ALDER DEVICE CONNECTED", "1c 07 01 03 02 03 04 50 00",
     "command 33, csi_set 11: 03 00 00 00, csi_set 162: 50 17 00 00", "1c 00"},
    {"Invalid length = 4", "1c 04 01 04 02 03", "", "1c 02"},
    {"Connect Reason 0  - no action", "1c 06 01 04 02 03 04 32", "csi_set 11: 04 00 00 00, csi_set 162: 32 18 00 00", "1c 00"},

    // The update check is skipped.
    {"accessory battery low = 0, skip accessory update check", "1c 05 01 05 02 03 04",
     "csi_set 11: 05 00 00 00, csi_set 162: 00 1b 00 00", "1c 00"},
    {"accessory battery low = 9, skip accessory update check", "1c 07 01 05 02 03 04 09 00",
     "csi_set 11: 05 00 00 00, csi_set 162: 09 1b 00 00", "1c 00"},
    {"larch battery low = 9, skip accessory update check", "1c 07 01 03 02 03 04 09 03",
     "csi_set 11: 03 00 00 00, csi_set 162: 09 17 00 00, command 99: 01", "1c 00"},
    {"Quick capture, skip accessory update check", "1c 07 01 03 02 03 04 0a 04",
     "csi_set 11: 03 00 00 00, csi_set 162: 0a 17 00 00, command 99: 01", "1c 00"},

    // The connect reason may start a capture.
    {"Connect Reason 1 button mode, short press", "1c 07 01 04 02 03 04 50 01",
     "csi_set 11: 04 00 00 00, csi_set 162: 50 18 00 00", "1c 00"},
    {"Connect Reason 2 button mode, long press", "1c 07 01 04 02 03 04 50 02",
     "csi_set 11: 04 00 00 00, csi_set 162: 50 18 00 00", "1c 00"},
    {"Connect Reason 3  button shutter, short press", "1c 07 01 04 02 03 04 50 03",
     "csi_set 11: 04 00 00 00, csi_set 162: 50 18 00 00, command 99: 01", "1c 00"},
    {"Connect Reason 4  button shutter, long press", "1c 07 01 04 02 03 04 50 04",
     "csi_set 11: 04 00 00 00, csi_set 162: 50 18 00 00, command 99: 01", "1c 00"},
    {"", "1c 07 01 04 02 03 04 50 05", "csi_set 11: 04 00 00 00, csi_set 162: 50 18 00 00", "1c 02"},
};
// clang-format on

}  // namespace

TEST_F(ClientInfoTest, AnAccessoryIsPublishedUnderItsCallerIdAndItsReasonActedOn) {
    Play({"UNKNOWN DEVICE TYPE", "1c 07 01 09 02 03 04 50 00", "csi_set 162: 50 0b 00 00", "1c 00"});
    PlayAll(kIntroductions);
    EXPECT_FALSE(m_client.m_accessoryUpdatePending);
    fakes::OnCommand(KZCONTROL_QUICK_CAPTURE_START, 8);
    EXPECT_EQ(Answer("1c 07 01 04 02 03 04 50 03"), "1c 08");
}

TEST_F(ClientInfoTest, AForcedUpdateOfTheCameraGoesFirst) {
    SetCsi(CSI_FORCED_UPDATE, 1);

    Play({"Forced Update, skip accessory update check", "1c 06 01 05 02 03 04 0a",
          "csi_set 11: 05 00 00 00, csi_set 162: 0a 1b 00 00", "1c 00"});
}

TEST_F(ClientInfoTest, AnAccessoryThatIsBackFromItsUpdateEndsTheWait) {
    const std::string afterwards = ", csi_set 150: 00 00 00 00, command 33, csi_set 11: ";
    KzBleServer::GetInstance()->SetWaitingAccReconnect(true);
    Play({"Accessory Connected in Waiting to Connect State", "1c 06 01 05 02 03 04 50",
          "csi_set 150: 03 00 1b 00" + afterwards + "05 00 00 00, csi_set 162: 50 1b 00 00", "1c 00"});
    EXPECT_FALSE(KzBleServer::GetInstance()->GetWaitingAccReconnect());

    KzBleServer::GetInstance()->SetWaitingAccReconnect(true);
    Play({"Larch Connected in Waiting to Connect State", "1c 06 01 03 02 03 04 50",
          "csi_set 150: 03 00 17 00" + afterwards + "03 00 00 00, csi_set 162: 50 17 00 00", "1c 00"});
    EXPECT_FALSE(KzBleServer::GetInstance()->GetWaitingAccReconnect());
}

TEST_F(ClientInfoTest, AnAlderThatIsAlreadyToBeUpdatedIsNotPublished) {
    m_client.m_accessoryUpdatePending = true;

    Play({"", "1c 06 01 03 02 03 04 50", "command 33, csi_set 162: 50 17 00 00", "1c 00"});
}

TEST_F(ClientInfoTest, AnAccessoryWithOldFirmwareIsToBeUpdatedAndItsReasonForgotten) {
    if (!fakes::EnterPrivateTmp()) {
        GTEST_SKIP() << "no private /tmp on this system";
    }
    const uint8_t image[] = {'i', 'm', 'a', 'g', 'e'};
    const Bytes file = Le32({Utils::crc32(image, 5), 3, 0, 0, 5}) + Bytes(image, image + 5);
    std::filesystem::create_directory("/tmp/fuse_d");
    for (const char* name : {"/tmp/fuse_d/KZ_REMOTE_FW.bin", "/tmp/fuse_d/KZ_SHUTTER_REMOTE_FW.bin"}) {
        std::ofstream(name, std::ios::binary) << std::string(file.begin(), file.end());
    }
    Bytes permits(394, 0);
    permits[198] = 100;  // battery
    fakes::OnCommand(KZCONTROL_GET_ALL_STATUS, 0, permits);
    m_client.AddInterest(NotificationClient::eNotifyLcd, 7);

    Play({"Send Maple ota update request", "1c 07 01 05 02 00 00 50 05",
          "command 33, csi_set 11: 05 00 00 00, csi_set 162: 50 1b 00 00", "1c 00"});
    EXPECT_TRUE(std::exchange(m_client.m_accessoryUpdatePending, false));
    EXPECT_FALSE(m_client.m_lcdInterest.empty());

    Play({"SEND LARCH REBOOT OTA MODE REQUEST", "1c 07 01 03 02 00 00 50 05", "command 33, csi_set 162: 50 17 00 00",
          "1c 00"});
    EXPECT_TRUE(m_client.m_accessoryUpdatePending);
    EXPECT_TRUE(m_client.m_lcdInterest.empty());
}
