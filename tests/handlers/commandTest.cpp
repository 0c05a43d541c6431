// The plain commands: one row per request with what the camera is asked and what the client is answered.
#include "handlersFixture.h"

namespace {

using CommandTest = HandlersTest<BleCommandMessage>;

// Every command that becomes one command of the control daemon.
// clang-format off
const Exchange kForwarded[] = {
    {"eBleCommandShutter", "01 01 01", "command 3: 01", "01 00"},
    {"eBleCommandMode", "02 01 01", "command 4: 01 00 00 00", "02 00"},
    {"eBleCommandModeSubMode", "03 01 02 02 01 00", "command 5: 02 00 00 00 00 01 00 00", "03 00"},
    {"eBleCommandPower", "04", "command 35", "04 00"},
    {"eBleCommandSleep", "05", "command 36", "05 00"},
    {"eBleCommandCancelWifiRemotePair", "08", "command 26", "08 00"},
    {"eBleCommandVideoFulgradeReset", "0a 01 09", "command 27", "0a 00"},
    {"eBleCommandMultiShotFulgradeReset", "0b 01 09", "command 29", "0b 00"},
    {"eBleCommandPhotoFulgradeReset", "0c 01 09", "command 28", "0c 00"},
    {"eBleCommandSetDateAndTime", "0d 07 07 e8 02 1d 17 3b 3a", "command 6: e8 07 02 1d 17 3b 3a ff 7f 00", "0d 00"},
    {"eBleCommandSetDateAndTimeDST", "0f 0a 07 e8 02 1d 17 3b 3a fd 30 01",
     "command 6: e8 07 02 1d 17 3b 3a 30 fd 01", "0f 00"},  // the first offset there is, -720 minutes
    {"eBleCommandSetDateAndTimeDST", "0f 0a 07 e8 02 1d 17 3b 3a 03 48 00",
     "command 6: e8 07 02 1d 17 3b 3a 48 03 00", "0f 00"},  // the last one, 840
    {"eBleCommandLocate", "16 01 01", "command 37: 01", "16 00"},
    {"eBleCommandAPControl", "17 04 00 00 01 00", "command 16: 00 01 00 00", "17 00"},
    {"eBleCommandTagMoment", "18", "command 7", "18 00"},
    {"eBleCommandRemotePair", "19", "command 25", "19 00"},
    {"eBleCommandiVoiceEditMyStory", "1a", "command 62", "1a 00"},
    {"eBleCommandSetButton", "1b 04 aa bb 03 02", "csi_set 92: 0b, command 88: 03 00 00 00 02 00 00 00", "1b 00"},
    {"eBleCommandVoicePhotoTake", "20", "command 52", "20 00"},
    {"eBleCommandVoiceVideoStart", "21", "command 53", "21 00"},
    {"eBleCommandVoiceVideoStop", "22", "command 54", "22 00"},
    {"eBleCommandVoiceTimelapseStart", "23", "command 55", "23 00"},
    {"eBleCommandVoiceTimelapseStop", "24", "command 56", "24 00"},
    {"eBleCommandVoiceBurstTake", "25", "command 57", "25 00"},
    {"eBleCommandVoiceTag", "26", "command 58", "26 00"},
    {"eBleCommandiVoiceDeleteLast", "27", "command 63", "27 00"},
    {"eBleCommandBLEControl", "3d 01 05", "command 65: 05 00 00 00", "3d 00"},
    {"eBleCommandBLEControl", "3d", "command 65: 00 00 00 00", "3d 00"},
    {"eBleCommandSetMode", "3e 02 01 02", "command 67: 02 01", "3e 00"},
    {"eBleCommandFulgradeReset", "3f", "command 68", "3f 00"},
    {"eBleCommandSetPreset", "40 02 01 00", "command 76: 08 80 02", "40 00"},
    {"eBleCommandSetPreset", "40", "command 76: 08 00", "40 00"},
    {"optional parameter for this command, 2 provided!", "40 01 01 01 01", "command 76: 08 00", "40 00"},
    {"eBleCommandDeleteAllFiles", "41", "command 12", "41 00"},
    {"eBleCommandDeleteLastFile", "42", "command 10", "42 00"},
};
// The other modes are asked by voice of the running daemon.
const Exchange kOfAVoiceClient[] = {
    {"eBleCommandModeSubMode", "03 01 00 01 00", "command 59: 00", "03 00"},
    {"eBleCommandModeSubMode", "03 01 02 01 01", "command 59: 02", "03 00"},
};
// What a command refuses without a word to the camera; every number of parameters a command does not take is below.
const Exchange kRefused[] = {
    {"Need 2 parameters for this command, 1 provided!", "03 01 01", "", "03 02"},
    {"Need 1 parameters for this command, 2 provided!", "1b 01 01 01 01", "csi_set 92: 0b", "1b 02"},
    {"", "0d 06 07 e8 01 01 00 00", "", "0d 02"},
    {"", "3e 01 01", "", "3e 02"},
    {"Invalid param length, expected 10, got 7", "0f 07 07 e8 01 01 00 00 00", "", "0f 02"},
    {"Invalid DST / TZ range", "0f 0a 07 e8 01 01 00 00 00 fd 2f 00", "", "0f 02"},
    {"Invalid DST / TZ range", "0f 0a 07 e8 01 01 00 00 00 03 49 00", "", "0f 02"},
    {"Received invalid ble command:0 from a device", "00 01 01", "", "00 02"},
    {"", "", "", "00 02"},
    {"", "01 00", "", "01 02"},
    {"", "01 02 01", "", "01 02"},
    {"", "f1", "", "f1 02"},
};
// clang-format on

// The camera's record: a letter of its own at each field's offset.
Bytes CameraInfo(uint8_t model) {
    Bytes record(434, 0);
    record[0] = model;
    uint8_t letter = 'A';
    for (const size_t offset : {4, 69, 134, 199, 264, 297, 362, 368, 433}) {
        record[offset] = letter++;
    }
    return record;
}

}  // namespace

TEST_F(CommandTest, EachCommandReachesTheCameraWithItsArgument) {
    PlayAll(kForwarded);
    m_client.m_identity.m_deviceType = KZ_CALLER_VOICE;
    PlayAll(kOfAVoiceClient);
}

TEST_F(CommandTest, TheControlDaemonsRefusalIsTheAnswerAndAPresetsAPlainFailure) {
    for (uint32_t command = 0; command < KZCONTROL_CMD_LAST; ++command) {
        fakes::OnCommand(command, 6);
    }
    for (const Exchange& row : kForwarded) {
        Play({"", row.request, row.calls, row.request.substr(0, 2) + (row.request.starts_with("40") ? " 01" : " 06")});
    }
    Play({"Failed KZCONTROL_PRESET_LOAD", "40", "command 76: 08 00", "40 01"});
}

TEST_F(CommandTest, WhatACommandCannotTakeIsRefusedWithItsText) {
    PlayAll(kRefused);
    const struct {
        Bytes ids;
        std::string parameters;
        std::string text;
    } kWrongNumbers[] = {
        {{1, 2, 10, 11, 12, 13, 15, 22, 23, 28, 62}, "", "Need one parameter for this command, 0 provided!"},
        {{1, 13, 62}, " 01 01 01 01", "Need one parameter for this command, 2 provided!"},
        {{4, 5, 14, 16, 65, 66, 80, 81}, " 01 01", "Need zero parameters for this command, 1 provided!"},
        {{8, 24, 25, 26, 32, 33, 34, 35, 36, 37, 38, 39, 60, 63},
         " 01 01",
         "Need zero parameter for this command, 1 provided!"},
    };
    for (const auto& row : kWrongNumbers) {
        for (const uint8_t id : row.ids) {
            Play({row.text, ToHex({id}) + row.parameters, "", ToHex({id, 2})});
        }
    }
}

TEST_F(CommandTest, IdsWithoutAHandlerAreRefusedAndOnlyTheWithdrawnOnesSilently) {
    const auto expectRefused = [&](uint8_t id, const Texts& texts) {
        const fakes::LogCapture log(KZ_LOG_WARN);
        EXPECT_EQ(Run({id}), (Bytes{id, 2}));
        EXPECT_EQ(log.Texts(), texts) << int{id};
    };
    for (const uint8_t id : Bytes{9, 17, 29, 31, 40, 49, 67, 82, 239}) {
        expectRefused(id, {"Unrecognized/unhandled command from ble. command_id:" + std::to_string(id)});
    }
    for (const uint8_t withdrawn : Bytes{6, 7, 50, 51, 52, 53, 54, 55, 56, 57}) {
        expectRefused(withdrawn, {});
    }
}

TEST_F(CommandTest, AThirdPartyIsReportedAsAPhoneButItsButtonAsItsOwn) {
    m_client.m_identity.m_deviceType = KZ_CALLER_THIRD_PARTY;
    fakes::OnCsiSet(CSI_ANALYTICS_SOURCE, 9);
    const fakes::LogCapture log(KZ_LOG_ERROR);

    EXPECT_EQ(Answer("1b 02 01 01"), "1b 00");

    EXPECT_EQ(fakes::Calls()[0], fakes::CsiSet(92, {KZ_CALLER_BLE_RC}));
    EXPECT_EQ(fakes::Calls()[1], fakes::CsiSet(92, {KZ_CALLER_THIRD_PARTY}));
    EXPECT_EQ(log.Texts(), (Texts{"csi_set CSI_ANALYTICS_SOURCE failed - status 9",
                                  "csi_set CSI_ANALYTICS_SOURCE failed for KZ_CALLER_BLE_RC - status 9"}));
}

TEST_F(CommandTest, AThirdPartyIsRememberedAlsoWhenItsCommandIsRefused) {
    Play({"", "50 01 01", "", "50 02"});
    EXPECT_EQ(m_client.m_identity.m_deviceType, KZ_CALLER_THIRD_PARTY);
    Play({"", "50", "csi_set 87: 76 01 00 00", "50 00"});
    Play({"eBleCommandGetThirdPartyApiVersion", "51", "", "51 00 01 02 01 00"});
}

TEST_F(CommandTest, TheClockIsAnsweredWithAndWithoutItsZone) {
    fakes::OnCommand(KZCONTROL_GET_DATE_TIME, 0, FromHex("e8 07 02 1d 17 3b 3a 30 fd 01"));
    Play({"y=2024 m=2 d=29 h=23 m=59 s=58 day=na", "0e", "command 98", "0e 00 08 07 e8 02 1d 17 3b 3a 00"});
    Play({"y=2024 m=2 d=29 h=23 m=59 s=58 dstm=-720 dst_on=1", "10", "command 98",
          "10 00 0a 07 e8 02 1d 17 3b 3a fd 30 01"});

    fakes::OnCommand(KZCONTROL_GET_DATE_TIME, 4, {0xE8, 0x07});
    EXPECT_EQ(Answer("0e"), "0e 04");
}

TEST_F(CommandTest, CameraInformationIsAnsweredFieldByFieldInFieldsThatEndTheirTexts) {
    const std::string texts = " 01 41 01 42 01 43 01 44 01 45 01 46 01 47 01 ";
    fakes::SetCameraInfo(0, CameraInfo(58));
    m_client.m_identity.m_deviceType = KZ_CALLER_UNKNOWN;
    EXPECT_EQ(Answer("3c"), "3c 00 04 00 00 00 3a" + texts + "01 01 00 01 48 01 49");
    EXPECT_EQ(m_client.m_identity.m_deviceType, KZ_CALLER_BLE_RC);

    fakes::SetCameraInfo(0, CameraInfo(51));
    SetCsi(CSI_FORCED_UPDATE, 1);
    EXPECT_EQ(Answer("3c"), "3c 00 04 00 00 00 33" + texts + "02 01 01 01 48 01 49");

    fakes::SetCameraInfo(0, Bytes(434, 'x'));
    const size_t longest = 2 + 5 + 4 * 66 + 34 + 66 + 3 * 2 + 66 + 2;
    EXPECT_EQ(Run({60}, longest).size(), longest);
    EXPECT_EQ(Run({60}, longest - 1), (Bytes{60, 1})) << "longer than its buffer";
    EXPECT_EQ(Run({5}, 1), Bytes());
}

TEST_F(CommandTest, TheStateOfCameraAndAccessoryMayRefuse) {
    m_client.m_identity.m_accessoryUpdatePending = true;
    SetCsi(CSI_SYSTEM_STATE, SYS_SUSPENDED_UNSAFE);
    m_services.transferSlot.Take();

    Play({"Accessory updateing, ignore button press", "1b", "csi_set 92: 0b", "1b 01"});
    Play({"Camera Info command while still resuming, return error, mobile should retry", "3c", "", "3c 01"});
    Play({"No File transfer slot available", "3b", "", "3b 01"});

    m_services.transferSlot.ReleaseFileTransferSlot();
    Play({"Starting file transfer", "3b 01 01", "", ""});
    m_client.SetTransferringSettingsJSON(false);
}

TEST_F(CommandTest, TheSettingsVersionIsTheModelsAndFitsAParameter) {
    BleSDK::GetInstance()->m_pSettingsMapping->version = "1.3";
    EXPECT_EQ(Answer("3a 01 01"), "3a 00 03 31 2e 33");

    BleSDK::GetInstance()->m_pSettingsMapping->version = std::string(300, 'v');
    EXPECT_EQ(Run({58}), (Bytes{58, 0, 255} + Bytes(255, 'v')));
}
