// Protobuf queries: request bytes, what the camera is asked, answer bytes.
#include "queryFixture.h"

namespace {

using QueryProtobuf = QueryTest;

const std::string kCahReads = "csi_get 97, csi_get 98, csi_get 99, csi_get 102, csi_get 108, csi_get 109, csi_get 157";

}  // namespace

TEST_F(QueryProtobuf, ShutterQueryMovesTheShutterWhateverIsReadAndAlwaysSucceeds) {
    fakes::OnCommand(KZCONTROL_COMMAND_SHUTTER, -1);
    Play({"", "f5 70 08 01", "command 3: 01 00 00 00", "f5 f0 08 01"});
    for (const char* unreadable : {"f5 70", "f5 70 08", "f5 70 08 05", "f5 70 ff ff"}) {
        Play({"", unreadable, "command 3: 00 00 00 00", "f5 f0 08 01"});
    }
    Play({"", "f5 71", "", "f5 02"});  // an unknown action
}

TEST_F(QueryProtobuf, PresetAnswerIsWhatTheCameraSays) {
    fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, 0, FromHex("0a 03 08 e8 07"));
    Play({"", "f5 72", "command 81", "f5 f2 0a 03 08 e8 07"});
    Play({"", "f5 73", "command 81", "f5 f3 0a 03 08 e8 07"});
    EXPECT_EQ(Interest(kCsi), Ints{});
    Play({"", "f5 72 08 01", "command 81", "f5 f2 0a 03 08 e8 07"});
    EXPECT_EQ(Interest(kCsi), Ints{7});
    Play({"", "f5 72 08 02 10 01", "", "f5 f2"});
    EXPECT_EQ(Interest(kCsi), Ints{});

    fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, 5);
    EXPECT_EQ(Answer("f5 72"), "f5 05");
    fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, -104);
    EXPECT_EQ(Answer("f5 72"), "f5 01");
}

TEST_F(QueryProtobuf, RegistrationMapsEveryEnumeratorToItsKey) {
    const std::pair<uint8_t, Ints> kKeys[] = {{126, {97, 98, 99, 102, 108, 104, 109}},
                                              {118, {42, 41}},
                                              {119, {42, 41}},
                                              {116, {74, 8, 6, 26}},
                                              {117, {74, 8, 6, 26}}};
    for (const auto& [action, keys] : kKeys) {
        for (uint8_t i = 0; i < keys.size(); ++i) {
            const auto enumerator = static_cast<uint8_t>(i + 1);
            Run({245, action, 8, enumerator, 8, 99});
            EXPECT_EQ(Interest(kCsi), Ints{keys[i]});
            Run({245, action, 16, enumerator});
            EXPECT_EQ(Interest(kCsi), Ints{});
        }
    }
}

TEST_F(QueryProtobuf, CahAnswerCarriesEveryStateAndTellsWhatCouldNotBeRead) {
    fakes::SetCsi(97, {3, 1, 2, 4});
    fakes::SetCsi(98, {5, 6, 7, 8});
    fakes::SetCsi(99, {5, 0, 1, 2});
    fakes::SetCsi(102, Le32(1));
    fakes::SetCsi(108, Le32(0));
    fakes::SetCsi(109, Le32(2));
    fakes::SetCsi(157, Le32(7));
    NotifyCsi(94, fakes::BytesOf("3:300:45"));
    Play({"", "f5 7e", kCahReads,
          "f5 fe 08 03 10 01 18 02 20 04 28 05 30 06 38 07 40 08 48 05 50 00 58 01 60 02 "
          "68 00 70 01 78 02 80 01 00 88 01 03 90 01 ac 02 98 01 2d a0 01 01"});

    for (const uint8_t key : Bytes{97, 98, 99, 102, 108, 109, 157}) {
        fakes::OnCsiGet(key, -1);
    }
    NotifyCsi(94, fakes::BytesOf("0:0:0"));
    Play({"", "f5 7e", kCahReads,
          "f5 fe 08 7f 10 7f 18 7f 20 7f 28 7f 30 7f 38 7f 40 7f 48 7f 50 7f 58 7f 60 7f "
          "68 00 70 00 78 00 88 01 00 90 01 00 98 01 00 a0 01 00"});
}

TEST_F(QueryProtobuf, KeptStatesAreToldAlsoOutsideTheirEnumeration) {
    fakes::SetCsi(122, Le32(300));
    Play({"", "f5 7a", "csi_get 122", "f5 fa 08 ac 02 10 01"});
    fakes::OnCsiGet(122, -1);
    Play({"", "f5 7a", "csi_get 122", "f5 fa 08 00 10 00"});

    SetCsi(CSI_OTA_STATE, 200);
    SetCsi(CSI_OTA_PERCENTAGE, 55);
    SetCsi(CSI_OTA_ERROR, 3);
    Play({"", "f5 77", "", "f5 f7 08 c8 01 10 37 18 03"});
}

TEST_F(QueryProtobuf, LiveStreamAnswerIsStatusErrorAndEncode) {
    const struct {
        uint32_t wms, encode, sdCard;
        std::string answer;  // the kept error is 6
    } kRows[] = {
        {17, 0, 1, "08 01 10 06 18 00"}, {18, 2, 2, "08 02 10 06 18 00"}, {5, 1, 1, "08 04 10 28 18 01"},
        {7, 1, 2, "08 05 10 29 18 01"},  {0, 1, 1, "08 00 10 28 18 01"},  {0, 1, 2, "08 00 10 06 18 01"},
        {99, 0, 0, "08 00 10 06 18 00"},
    };
    SetCsi(CSI_LIVE_STREAM_ERROR, 6);
    SetCsi(CSI_LIVE_STREAM_BITRATE, 800);
    for (const auto& row : kRows) {
        SetCsi(CSI_WMS_STATE, row.wms);
        SetCsi(CSI_LIVE_STREAM_ENCODE, row.encode);
        SetCsi(CSI_SD_CARD_STATE, row.sdCard);
        EXPECT_TRUE(Answer("f5 74").starts_with("f5 f4 " + row.answer + " 20 a0 06")) << row.answer << Answer("f5 74");
    }
}

TEST_F(QueryProtobuf, LiveStreamAbilitiesDependOnTheModel) {
    const std::string limits = "38 00 40 a0 06 48 90 4e";
    const std::string lenses = " 50 01 58 00 58 04 58 03";
    const std::pair<uint8_t, std::string> kRows[] = {
        {60, "28 07 30 01 " + limits + lenses}, {55, "30 00 " + limits}, {58, "28 0c 28 07 30 01 " + limits + lenses}};
    for (const auto& [model, abilities] : kRows) {
        NotifyCsi(CSI_MODEL_NUMBER, Le32(model));
        Play({"", "f5 75", "", "f5 f5 08 00 10 00 18 00 20 00 " + abilities});
    }
}

TEST_F(QueryProtobuf, MobileOffloadAnswerIsTheStatusWordInFieldsThenCountersReasonAndActivity) {
    SetCsi(CSI_BOOT_COUNT_BT, 1);
    SetCsi(CSI_BOOT_COUNT_RC, 2);
    SetCsi(CSI_BOOT_COUNT_AP, 3);
    SetCsi(CSI_WAKEUP_REASON, 90);  // no reason that the enumeration knows
    m_camera.SetLastSystemNotifyEvent(4);
    for (unsigned bit = 0; bit < 6; ++bit) {
        SetCsi(CSI_ST_STATE, 1u << bit);
        std::string fields = "10 00 18 00 20 00 28 00 30 00 38 00";
        fields[bit * 6 + 4] = '1';
        Play({"", "f5 78", "", "f5 f8 08 01 " + fields + " 40 01 48 02 50 03 58 5a 60 04"});
    }
    m_camera.SetLastSystemNotifyEvent(0);
    SetCsi(CSI_ST_STATE, 0);
    NotifyCsi(CSI_CAMERA_BUSY, Le32(1));
    Play({"", "f5 78", "", "f5 f8 08 01 10 00 18 00 20 00 28 00 30 01 38 00 40 01 48 02 50 03 58 5a 60 00"});
    NotifyCsi(CSI_CAMERA_BUSY, Le32(0));
}

TEST_F(QueryProtobuf, AssociationComparesTheStoredUser) {
    const std::pair<Bytes, std::string> kRows[] = {{fakes::BytesOf("anna"), "01"},  {fakes::BytesOf("ann"), "02"},
                                                   {fakes::BytesOf("annab"), "02"}, {{}, "00"},
                                                   {Bytes(1400, 'a'), "02"},        {Bytes(1401, 'a'), "00"}};
    for (const auto& [stored, state] : kRows) {
        fakes::SetCsi(104, stored);
        Play({"Command: eBleCommandRequestGetAssociationState", "f5 7c 0a 04 61 6e 6e 61", "csi_get 104",
              "f5 fc 08 " + state + " 10 01"});
    }
    fakes::SetCsi(104, {0xC3, 0x28, 0xFF});  // not UTF-8
    Play({"", "f5 7c 0a 03 c3 28 ff", "csi_get 104", "f5 fc 08 01 10 01"});
    fakes::OnCsiGet(104, -1);
    Play({"", "f5 7c 0a 04 61 6e 6e 61", "csi_get 104", "f5 fc 08 00 10 01"});
}

TEST_F(QueryProtobuf, ClientIdIsCarriedAsItIs) {
    fakes::SetCsi(105, {0xFF, 0, 0xC3});
    Play({"Command: eBleCommandRequestClientId", "f5 7d", "csi_get 105", "f5 fd 0a 03 ff 00 c3 10 01"});
    fakes::SetCsi(105, Bytes(1400, 'x'));
    Play({"", "f5 7d", "csi_get 105", "f5 fd 0a f8 0a " + ToHex(Bytes(1400, 'x')) + " 10 01"});
    fakes::OnCsiGet(105, -1);
    Play({"", "f5 7d", "csi_get 105", "f5 fd 0a 00 10 00"});
}

TEST_F(QueryProtobuf, UserAndClientIdsStayOutOfTheLogBelowItsInformationLevel) {
    fakes::SetCsi(104, fakes::BytesOf("anna"));
    fakes::SetCsi(105, fakes::BytesOf("anna"));
    const fakes::LogCapture log(KZ_LOG_DEBUG);

    Run(FromHex("f5 7c 0a 04 61 6e 6e 61"));
    Run({245, 125});

    EXPECT_EQ(log.Texts(),
              (Texts{"Command: eBleCommandRequestGetAssociationState", "Command: eBleCommandRequestClientId"}));
}
