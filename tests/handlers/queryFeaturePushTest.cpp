// Feature notifications: which CSI change tells what, in bytes.
#include "queryFixture.h"

namespace {

class FeaturePush : public QueryTest {
  protected:
    FeaturePush() { m_client.AddInterest(kCsi, 42); }

    // The notification of a change of `key` that is told under `field`; empty when there is none.
    std::string FeatureOf(uint8_t key, const Ints& field, size_t capacity = kPushBufferSize) {
        NotifyCsi(key, {});  // the last notified key
        return PushOf(kCsi, field, capacity);
    }
};

// A message as a field of another one.
Bytes Field(uint8_t tag, const Bytes& message) {
    return Bytes{tag, static_cast<uint8_t>(message.size())} + message;
}

// A camera with presets 10 and 11 in one group and 20 in another; the presets of `full` with all that they have, the
// others with their id.
Bytes Presets(const Ints& full) {
    const auto preset = [&](uint8_t id) {
        const bool isFull = std::find(full.begin(), full.end(), id) != full.end();
        const Bytes details = FromHex("10 0f 18 01 20 01 28 01 30 14 3a 06 08 02 10 09 18 01 40 00 48 01");
        return Field(0x12, Bytes{8, id} + (isFull ? details : Bytes{}));
    };
    return Field(10, FromHex("08 e8 07") + preset(10) + preset(11) + FromHex("18 01 20 01")) +
           Field(10, FromHex("08 e9 07") + preset(20) + FromHex("18 01 20 01"));
}

// Preset 11 is the current one.
class PresetPush : public FeaturePush {
  protected:
    PresetPush() {
        m_client.AddInterest(kCsi, 7);
        PushValues(R"({"status": {"96": 1000, "97": 11}})");
        SetCsi(CSI_PRESETS_MODIFIED, 1);
        SetCsi(CSI_MODEL_NUMBER, 58);
        CameraHas(Presets({10, 11, 20}));
    }
    static void CameraHas(const Bytes& presets) { fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, 0, presets); }
    std::string PushOfPresets(size_t capacity = kPushBufferSize) { return FeatureOf(7, {}, capacity); }
};

}  // namespace

TEST_F(FeaturePush, NeedsInterestInAnyKeyAndAFeatureOfTheKey) {
    const fakes::LogCapture log(KZ_LOG_INFO);
    EXPECT_EQ(FeatureOf(104, {}), "");
    EXPECT_TRUE(log.Has("CSI notification not found key=104 field=0 ", KZ_LOG_ERROR));
    EXPECT_EQ(FeatureOf(97, {2}), "");
    EXPECT_TRUE(log.Has("No CAH Status 2") && log.Has("CSI CAH triggered, but no match of status 2"));

    m_client.RemoveInterest(kCsi, 42);
    EXPECT_EQ(FeatureOf(97, {1}), "");
    EXPECT_TRUE(log.Has("m_interestedCSIs.size() == 0)", KZ_LOG_INFO));
}

TEST_F(FeaturePush, CahFieldsComeFromTheirKeys) {
    SetCsi(97, 0x04030201);
    SetCsi(98, 0x08070605);
    SetCsi(99, 0xFFFE0C0B);  // no values of the enumerations
    SetCsi(108, 2);
    SetCsi(109, 0x80000000);
    NotifyCsi(94, fakes::BytesOf("2:300:66"));
    const std::tuple<uint8_t, int, std::string> kRows[] = {
        {97, 1, "08 01 10 02 18 03 20 04"},
        {98, 5, "28 05 30 06 38 07 40 08 80 01 00"},
        {99, 9, "48 0b 50 0c 58 fe 01 60 ff 01"},
        {108, 13, "68 01"},
        {109, 15, "78 80 80 80 80 f8 ff ff ff ff 01"},
        {97, 19, "88 01 02 90 01 ac 02 98 01 42"},
    };
    for (const auto& [key, field, message] : kRows) {
        EXPECT_EQ(FeatureOf(key, {field}), "f5 ff " + message);
    }
}

TEST_F(FeaturePush, OtaErrorIsToldWithTheStatesThatFailed) {
    SetCsi(CSI_OTA_ERROR, 8);
    SetCsi(CSI_OTA_PERCENTAGE, 99);
    for (uint8_t state = 0; state <= 12; ++state) {
        SetCsi(CSI_OTA_STATE, state);
        const bool failed = state == 3 || state == 4 || state == 8 || state == 9;
        EXPECT_EQ(FeatureOf(42, {1}), "f5 f7 08 " + ToHex({state}) + (failed ? " 18 08" : ""));
    }
    EXPECT_EQ(FeatureOf(41, {2}), "f5 f7 10 63");
    EXPECT_EQ(FeatureOf(41, {3}), "");
}

TEST_F(FeaturePush, LiveStreamTellsStateErrorEncodeAndBitrate) {
    const struct {
        uint32_t wms, encode, sdCard;
        std::string push;  // the kept error is 6, the bitrate 5
        std::string log;
    } kRows[] = {
        {0, 1, 1, "f5 f5 08 00 10 06 18 01 20 05", "csi_wms_state = WSDK_LIVE_STREAM_STATE_IDLE"},
        {17, 0, 1, "f5 f5 08 01 10 06 18 00 20 05", ""},
        {17, 1, 1, "f5 f5 08 01 10 28 18 01 20 05", "WSDK_LIVE_STREAM_ERROR_SD_CARD_FULL"},
        {18, 1, 2, "f5 f5 08 02 10 06 18 01 20 05", "WSDK_LIVE_STREAM_ERROR_SD_CARD_REMOVED"},
        {19, 1, 2, "f5 f5 08 03 10 29 18 01 20 05", "WSDK_LIVE_STREAM_ERROR_SD_CARD_REMOVED"},
        {5, 1, 2, "f5 f5 08 04 10 29 18 01 20 05", "csi_wms_state = WSDK_LIVE_STREAM_STATE_IDLE"},
        {7, 1, 3, "f5 f5 08 05 10 06 18 01 20 05", "sd card status ok, value = 3"},
        {21, 2, 1, "f5 f5 08 06 10 06 18 00 20 05", "csi_wms_state = WSKD_LIVE_STREAM_STATE_RECONNECTING"},
        {20, 1, 0, "", "csi_wms_state = 20, dont push status"},
    };
    SetCsi(CSI_LIVE_STREAM_ERROR, 6);
    SetCsi(CSI_LIVE_STREAM_BITRATE, 5);
    for (const auto& row : kRows) {
        SetCsi(CSI_WMS_STATE, row.wms);
        SetCsi(CSI_LIVE_STREAM_ENCODE, row.encode);
        SetCsi(CSI_SD_CARD_STATE, row.sdCard);
        const fakes::LogCapture log(KZ_LOG_INFO);

        EXPECT_EQ(FeatureOf(CSI_LIVE_STREAM_BITRATE, {1}), row.push);
        EXPECT_TRUE(row.log.empty() || log.Has(row.log, KZ_LOG_INFO)) << row.log;
    }
}

TEST_F(PresetPush, CarriesTheCurrentPresetInFullAndAfterSomeChangesAll) {
    const std::tuple<uint32_t, uint32_t, Ints> kRows[] = {
        {1, 58, {11}},          {0x07000000, 58, {10, 11, 20}}, {0x08000001, 58, {10, 11, 20}},
        {0x06FFFFFF, 58, {11}}, {0x09000000, 58, {11}},         {1, 51, {10, 11, 20}},
    };
    for (const auto& [modified, model, full] : kRows) {
        SetCsi(CSI_PRESETS_MODIFIED, modified);
        SetCsi(CSI_MODEL_NUMBER, model);
        EXPECT_EQ(PushOfPresets(), "f5 f3 " + ToHex(Presets(full))) << modified;
    }
}

TEST_F(PresetPush, IsNotToldWithoutChangeInterestOrAnswer) {
    SetCsi(CSI_PRESETS_MODIFIED, 0);
    EXPECT_EQ(PushOfPresets(), "");
    SetCsi(CSI_PRESETS_MODIFIED, 1);
    m_client.RemoveInterest(kCsi, 7);
    EXPECT_EQ(PushOfPresets(), "");
    m_client.AddInterest(kCsi, 7);
    fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, 4);
    EXPECT_EQ(PushOfPresets(), "");
}

TEST_F(PresetPush, ThatDoesNotFitCarriesLess) {
    SetCsi(CSI_MODEL_NUMBER, 51);
    const Bytes all = Presets({10, 11, 20});
    const Bytes current = Presets({11});
    const Bytes ids = Presets({});

    EXPECT_EQ(PushOfPresets(2 + all.size()), "f5 f3 " + ToHex(all));
    EXPECT_EQ(PushOfPresets(1 + all.size()), "f5 f3 " + ToHex(current));
    EXPECT_EQ(PushOfPresets(1 + current.size()), "f5 f3 " + ToHex(ids));
    EXPECT_EQ(PushOfPresets(1 + ids.size()), "");
}

TEST_F(PresetPush, NumbersOutsideTheirEnumerationsStayAndATitleNumberOfZeroGoes) {
    // Group 1234 with icon 99; preset 11 with mode 200, title 300 number 0, icon 2000.
    CameraHas(FromHex("0a 16 08 d2 09 12 0d 08 0b 10 c8 01 18 ac 02 20 00 30 d0 0f 18 01 20 63"));
    EXPECT_EQ(PushOfPresets(),
              "f5 f3 0a 1a 12 11 08 0b 28 00 40 00 48 00 10 c8 01 18 ac 02 30 d0 0f 18 01 08 d2 09 20 63");
}
