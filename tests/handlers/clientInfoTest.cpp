// Command 28: what the daemon makes of an accessory that introduces itself; updates are played on the
// whole daemon. A record is schema, device type, firmware
// version (3), and perhaps battery level and connect reason.
#include "handlersFixture.h"

namespace {

using ClientInfoTest = HandlersTest<BleCommandMessage>;

// How an accessory with a battery of 80 percent is published. "command 33" is the update check's question to the
// camera, which here permits no update.
const std::string kBirch = "csi_set 11: 04 00 00 00, csi_set 162: 50 18 00 00";
const std::string kCapturing = kBirch + ", command 99: 01";

const Exchange kIntroductions[] = {
    {"UNKNOWN DEVICE TYPE", "1c 07 01 09 02 03 04 50 00", "csi_set 162: 50 0b 00 00", "1c 00"},
    {"BIRCH DEVICE CONNECTED", "1c 07 01 04 02 03 04 50 00", kBirch, "1c 00"},
    {"MAPLE DEVICE CONNECTED", "1c 07 01 05 02 03 04 50 00",
     "command 33, csi_set 11: 05 00 00 00, csi_set 162: 50 1b 00 00", "1c 00"},
    {"ALDER DEVICE CONNECTED", "1c 07 01 03 02 03 04 50 00",
     "command 33, csi_set 11: 03 00 00 00, csi_set 162: 50 17 00 00", "1c 00"},
    {"Invalid length = 4", "1c 04 01 04 02 03", "", "1c 02"},
    {"Connect Reason 0  - no action", "1c 06 01 04 02 03 04 50", kBirch, "1c 00"},

    // The update check is skipped.
    {"accessory battery low = 0, skip accessory update check", "1c 05 01 05 02 03 04",
     "csi_set 11: 05 00 00 00, csi_set 162: 00 1b 00 00", "1c 00"},
    {"larch battery low = 9, skip accessory update check", "1c 07 01 03 02 03 04 09 03",
     "csi_set 11: 03 00 00 00, csi_set 162: 09 17 00 00, command 99: 01", "1c 00"},
    {"Quick capture, skip accessory update check", "1c 07 01 03 02 03 04 0a 04",
     "csi_set 11: 03 00 00 00, csi_set 162: 0a 17 00 00, command 99: 01", "1c 00"},

    // The connect reason may start a capture.
    {"Connect Reason 1 button mode, short press", "1c 07 01 04 02 03 04 50 01", kBirch, "1c 00"},
    {"Connect Reason 2 button mode, long press", "1c 07 01 04 02 03 04 50 02", kBirch, "1c 00"},
    {"Connect Reason 3  button shutter, short press", "1c 07 01 04 02 03 04 50 03", kCapturing, "1c 00"},
    {"Connect Reason 4  button shutter, long press", "1c 07 01 04 02 03 04 50 04", kCapturing, "1c 00"},
    {"", "1c 07 01 04 02 03 04 50 05", kBirch, "1c 02"},
};

}  // namespace

TEST_F(ClientInfoTest, AnAccessoryIsPublishedUnderItsCallerIdAndItsReasonActedOn) {
    PlayAll(kIntroductions);
    fakes::OnCommand(KZCONTROL_QUICK_CAPTURE_START, 8);
    EXPECT_EQ(Answer("1c 07 01 04 02 03 04 50 03"), "1c 08");
}

TEST_F(ClientInfoTest, AnAccessoryThatIsBackFromItsUpdateEndsTheWait) {
    m_camera.SetWaitingAccReconnect(true);
    Play({"Accessory Connected in Waiting to Connect State", "1c 06 01 05 02 03 04 50",
          "csi_set 150: 03 00 1b 00, csi_set 150: 00 00 00 00, command 33, csi_set 11: 05 00 00 00, "
          "csi_set 162: 50 1b 00 00",
          "1c 00"});
    EXPECT_FALSE(m_camera.GetWaitingAccReconnect());
}

TEST_F(ClientInfoTest, AnUpdateThatIsDueGoesFirst) {
    SetCsi(CSI_FORCED_UPDATE, 1);  // of the camera
    Play({"Forced Update, skip accessory update check", "1c 06 01 05 02 03 04 0a",
          "csi_set 11: 05 00 00 00, csi_set 162: 0a 1b 00 00", "1c 00"});

    SetCsi(CSI_FORCED_UPDATE, 0);
    m_client.m_identity.m_accessoryUpdatePending = true;  // an alder's own: it is not published
    Play({"", "1c 06 01 03 02 03 04 50", "command 33, csi_set 162: 50 17 00 00", "1c 00"});
}
