// Feature notifications: which CSI change tells what, in bytes.
#include "MemStream.h"
#include "featureStatus.h"
#include "queryFixture.h"
#include "wsdkCommands/WSDK_NotifyCAHStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyPresetStatus.pb.h"

namespace {

using wsdk_commands::WSDK_NotifyPresetStatus;

class FeaturePush : public QueryTest {
  protected:
    FeaturePush() { m_client.AddInterest(NotificationClient::eNotifyCSI, 42); }

    // The notification of a change of `key` that is told under `field`; empty when there is none.
    Bytes PushOf(uint8_t key, Ints field, size_t capacity = kPushBufferSize) {
        NotifyCsi(key, {});  // the last notified key
        const auto buffer = std::make_unique<uint8_t[]>(capacity);
        auto length = static_cast<unsigned short>(capacity);
        int kzErrno = -1;
        const bool built = m_client.ExecutePush(NotificationClient::eNotifyCSI, field, buffer.get(), &length, &kzErrno);
        return built ? Bytes(buffer.get(), buffer.get() + length) : Bytes{};
    }
};

TEST_F(FeaturePush, NeedsInterestInAnyKey) {
    m_client.RemoveInterest(NotificationClient::eNotifyCSI, 42);
    const fakes::LogCapture log(5);

    EXPECT_EQ(PushOf(97, {1}), Bytes{});
    EXPECT_TRUE(log.Has("m_interestedCSIs.size() == 0)", 5));
}

TEST_F(FeaturePush, OtherKeysAreLogged) {
    for (const uint8_t key : Bytes{4, 104, 130, 255}) {
        const fakes::LogCapture log(2);

        EXPECT_EQ(PushOf(key, {}), Bytes{});
        EXPECT_EQ(log.Texts(),
                  std::vector<std::string>{"CSI notification not found key=" + std::to_string(key) + " field=0 "});
    }
}

TEST_F(FeaturePush, CahFieldsComeFromTheirKeys) {
    SetCsi(97, 0x04030201);
    SetCsi(98, 0x08070605);
    SetCsi(99, 0xFFFE0C0B);  // no values of the enumerations
    SetCsi(108, 2);
    SetCsi(109, 0x80000000);
    SetCsi(157, 1);
    const struct {
        uint8_t key;
        int field;
        Bytes message;
    } cases[] = {
        {97, 1, {8, 1, 16, 2, 24, 3, 32, 4}},
        {98, 5, {40, 5, 48, 6, 56, 7, 64, 8, 0x80, 1, 0}},
        {99, 9, {72, 11, 80, 12, 88, 0xFE, 1, 96, 0xFF, 1}},
        {108, 13, {0x68, 1}},
        {102, 14, {0x70, 0}},
        {109, 15, {0x78, 0x80, 0x80, 0x80, 0x80, 0xF8, 0xFF, 0xFF, 0xFF, 0xFF, 1}},
        {157, 20, {0xA0, 1, 1}},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(PushOf(test.key, {test.field}), (Bytes{0xF5, 0xFF}) + test.message) << test.field;
    }
    SetCsi(98, 6);
    EXPECT_EQ(PushOf(98, {5}), (Bytes{0xF5, 0xFF, 40, 6, 48, 0, 56, 0, 64, 0, 0x80, 1, 1}));
}

TEST_F(FeaturePush, UploadProgressIsATriple) {
    NotifyCsi(94, fakes::BytesOf("2:300:66"));

    const Bytes push = PushOf(97, {19});

    EXPECT_EQ(push, (Bytes{0xF5, 0xFF, 0x88, 1, 2, 0x90, 1, 0xAC, 2, 0x98, 1, 66}));
}

TEST_F(FeaturePush, AnUnknownCahFieldTellsNothing) {
    const fakes::LogCapture log(2);

    EXPECT_EQ(PushOf(97, {2}), Bytes{});
    EXPECT_EQ(log.Texts(),
              (std::vector<std::string>{"No CAH Status 2", "CSI CAH triggered, but no match of status 2"}));
}

TEST_F(FeaturePush, OtaErrorIsToldWithTheStatesThatFailed) {
    SetCsi(CSI_OTA_ERROR, 8);
    SetCsi(CSI_OTA_PERCENTAGE, 99);
    for (uint8_t state = 0; state <= 12; ++state) {
        SetCsi(CSI_OTA_STATE, state);
        const bool failed = state == 3 || state == 4 || state == 8 || state == 9;

        EXPECT_EQ(PushOf(42, {1}), (Bytes{0xF5, 0xF7, 8, state} + (failed ? Bytes{24, 8} : Bytes{})));
    }
    EXPECT_EQ(PushOf(41, {2}), (Bytes{0xF5, 0xF7, 16, 99}));
    EXPECT_EQ(PushOf(41, {3}), Bytes{});
}

struct LiveCase {
    uint32_t wms;
    uint32_t encode;
    uint32_t sdCard;
    Bytes message;  // empty: not told
    const char* text;
};

class LiveStreamPush : public FeaturePush, public testing::WithParamInterface<LiveCase> {};

TEST_P(LiveStreamPush, TellsStateErrorEncodeAndBitrate) {
    const LiveCase& test = GetParam();
    SetCsi(CSI_WMS_STATE, test.wms);
    SetCsi(CSI_LIVE_STREAM_ENCODE, test.encode);
    SetCsi(CSI_SD_CARD_STATE, test.sdCard);
    SetCsi(CSI_LIVE_STREAM_ERROR, 6);
    SetCsi(CSI_LIVE_STREAM_BITRATE, 5);
    const fakes::LogCapture log(5);

    const Bytes push = PushOf(CSI_LIVE_STREAM_BITRATE, {1});

    EXPECT_EQ(push, (test.message.empty() ? Bytes{} : Bytes{0xF5, 0xF5} + test.message + Bytes{32, 5}));
    EXPECT_TRUE(log.Has(test.text, 5));
}

constexpr const char* kIdleText = "csi_wms_state = WSDK_LIVE_STREAM_STATE_IDLE";

INSTANTIATE_TEST_SUITE_P(
    States, LiveStreamPush,
    testing::Values(LiveCase{0, 0, 0, {8, 0, 16, 6, 24, 0}, kIdleText},
                    LiveCase{0, 1, 1, {8, 0, 16, 6, 24, 1}, kIdleText},
                    LiveCase{17, 0, 1, {8, 1, 16, 6, 24, 0}, kIdleText},
                    LiveCase{17, 1, 1, {8, 1, 16, 40, 24, 1}, "WSDK_LIVE_STREAM_ERROR_SD_CARD_FULL"},
                    LiveCase{18, 1, 2, {8, 2, 16, 6, 24, 1}, "WSDK_LIVE_STREAM_ERROR_SD_CARD_REMOVED"},
                    LiveCase{19, 1, 2, {8, 3, 16, 41, 24, 1}, "WSDK_LIVE_STREAM_ERROR_SD_CARD_REMOVED"},
                    LiveCase{5, 1, 2, {8, 4, 16, 41, 24, 1}, kIdleText},
                    LiveCase{7, 1, 2, {8, 5, 16, 41, 24, 1}, kIdleText},
                    LiveCase{7, 1, 3, {8, 5, 16, 6, 24, 1}, "sd card status ok, value = 3"},
                    LiveCase{21, 1, 2, {8, 6, 16, 6, 24, 1}, "csi_wms_state = WSKD_LIVE_STREAM_STATE_RECONNECTING"},
                    LiveCase{21, 2, 1, {8, 6, 16, 6, 24, 0}, "Notify Live Stream state=6 error=6 encode=0 bitrate=5"},
                    LiveCase{20, 1, 0, {}, "csi_wms_state = 20, dont push status"}));

TEST_F(FeaturePush, LiveStreamFieldsAreOneAndThree) {
    for (const uint8_t key : Bytes{6, 8, 26, 62, 74}) {
        EXPECT_NE(PushOf(key, {3}), Bytes{});
        EXPECT_EQ(PushOf(key, {2}), Bytes{});
        EXPECT_EQ(PushOf(key, {}), Bytes{});
    }
}

// The same bytes as the generated class gives, in field order, where it accepts the values.
TEST(FeatureStatus, IsWrittenAsTheGeneratedClassWrites) {
    CahStatus status;
    status.deviceManager = 0x04030201;
    status.wom = 0x0C7F7F07;
    status.caha = 0x7F020308;
    status.active = true;
    status.featureEnabled = false;
    status.authState = 6;
    status.busy = true;
    status.upload = CahUpload{0xFFFFFFFF, 200, 100};
    status.autoClear = true;
    uint8_t bytes[kMaxFeatureStatus];
    MemoryStream stream(bytes, sizeof(bytes));

    stream << status;

    wsdk_commands::WSDK_NotifyCAHStatus message;
    ASSERT_TRUE(message.ParseFromArray(bytes, stream.getLength()));
    EXPECT_TRUE(message.unknown_fields().empty());
    EXPECT_EQ(message.cah_current_file(), 0xFFFFFFFF);
    const std::string generated = message.SerializeAsString();
    EXPECT_EQ(Bytes(bytes, bytes + stream.getLength()), Bytes(generated.begin(), generated.end()));
}

// ---------------------------------------------------------------- presets

class PresetPush : public FeaturePush {
  protected:
    PresetPush() {
        m_client.AddInterest(NotificationClient::eNotifyCSI, 7);
        Push(R"({"status": {"96": 1000, "97": 11}})");
        SetCsi(CSI_PRESETS_MODIFIED, 1);
        SetCsi(CSI_MODEL_NUMBER, 58);
        AddGroup(wsdk_commands::WSDK_PRESET_GROUP_ID_VIDEO, 10, 2);
        AddGroup(wsdk_commands::WSDK_PRESET_GROUP_ID_PHOTO, 20, 1);
    }

    void AddGroup(wsdk_commands::WSDK_EnumPresetGroup id, int firstPreset, int presetCount) {
        auto* group = m_camera.add_preset_group_array();
        group->set_id(id);
        group->set_can_add_preset(true);
        group->set_icon(wsdk_commands::WSDK_PRESET_GROUP_PHOTO_ICON_ID);
        for (int i = 0; i < presetCount; ++i) {
            auto* preset = group->add_preset_array();
            preset->set_id(firstPreset + i);
            preset->set_mode(wsdk_commands::WSDK_FLAT_MODE_LOOPING);
            preset->set_title_id(wsdk_commands::WSDK_PRESET_TITLE_AIR);
            preset->set_title_number(i);
            preset->set_user_defined(true);
            preset->set_icon(wsdk_commands::WSDK_PRESET_ICON_BIKE);
            preset->set_is_modified(false);
            preset->set_is_fixed(true);
            auto* setting = preset->add_setting_array();
            setting->set_id(2);
            setting->set_value(9);
            setting->set_is_caption(true);
        }
    }

    void CameraHas(const std::string& presets) {
        fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, 0, fakes::BytesOf(presets));
    }
    Bytes PushOfPresets(size_t capacity = kPushBufferSize) { return PushOf(7, {}, capacity); }

    // What the camera has, with only the presets of `full` carried in full.
    Bytes Expected(const Ints& full) {
        WSDK_NotifyPresetStatus message = m_camera;
        for (auto& group : *message.mutable_preset_group_array()) {
            for (auto& preset : *group.mutable_preset_array()) {
                if (std::find(full.begin(), full.end(), preset.id()) == full.end()) {
                    const int id = preset.id();
                    preset.Clear();
                    preset.set_id(id);
                } else if (preset.title_number() == 0) {
                    preset.clear_title_number();
                }
            }
        }
        return Bytes{0xF5, 0xF3} + fakes::BytesOf(message.SerializeAsString());
    }

    WSDK_NotifyPresetStatus m_camera;
};

TEST_F(PresetPush, CarriesTheCurrentPresetInFullAndTheIdsOfTheOthers) {
    CameraHas(m_camera.SerializeAsString());
    fakes::ForgetCalls();

    EXPECT_EQ(PushOfPresets(), Expected({11}));
    EXPECT_EQ(fakes::Calls(), (Calls{Command(KZCONTROL_PRESET_GET_PRESETS)}));
}

TEST_F(PresetPush, SomeChangesAndOneModelCarryAllInFull) {
    CameraHas(m_camera.SerializeAsString());
    const struct {
        uint32_t modified;
        uint32_t model;
        bool all;
    } cases[] = {{0x07000000, 58, true},
                 {0x08000001, 58, true},
                 {0x06FFFFFF, 58, false},
                 {0x09000000, 58, false},
                 {1, 51, true}};
    for (const auto& test : cases) {
        SetCsi(CSI_PRESETS_MODIFIED, test.modified);
        SetCsi(CSI_MODEL_NUMBER, test.model);

        EXPECT_EQ(PushOfPresets(), Expected(test.all ? Ints{10, 11, 20} : Ints{11}));
    }
}

TEST_F(PresetPush, IsNotToldWithoutInterestChangeOrAnswer) {
    CameraHas(m_camera.SerializeAsString());
    SetCsi(CSI_PRESETS_MODIFIED, 0);
    EXPECT_EQ(PushOfPresets(), Bytes{});

    SetCsi(CSI_PRESETS_MODIFIED, 1);
    fakes::OnCommand(KZCONTROL_PRESET_GET_PRESETS, 4);
    const fakes::LogCapture log(2);
    EXPECT_EQ(PushOfPresets(), Bytes{});
    EXPECT_EQ(log.Texts(), std::vector<std::string>{"KZCONTROL_PRESET_GET_PRESETS err=4"});

    CameraHas(m_camera.SerializeAsString());
    m_client.RemoveInterest(NotificationClient::eNotifyCSI, 7);
    EXPECT_EQ(PushOfPresets(), Bytes{});
}

TEST_F(PresetPush, ThatDoesNotFitCarriesLess) {
    CameraHas(m_camera.SerializeAsString());
    SetCsi(CSI_MODEL_NUMBER, 51);

    EXPECT_EQ(PushOfPresets(Expected({10, 11, 20}).size()), Expected({10, 11, 20}));
    EXPECT_EQ(PushOfPresets(Expected({10, 11, 20}).size() - 1), Expected({11}));
    EXPECT_EQ(PushOfPresets(Expected({11}).size() - 1), Expected({}));
    EXPECT_EQ(PushOfPresets(Expected({}).size() - 1), Bytes{});
}

TEST_F(PresetPush, ValuesOutsideTheirEnumerationsStayAsTheyAre) {
    // Group 1234 with icon 99; preset 11 with mode 200, title 300 and icon 2000.
    const Bytes preset = {8, 11, 16, 0xC8, 1, 24, 0xAC, 2, 48, 0xD0, 0x0F};
    const Bytes group = Bytes{8, 0xD2, 9, 18, 11} + preset + Bytes{24, 1, 32, 99};
    const Bytes reply = Bytes{10, static_cast<uint8_t>(group.size())} + group;
    CameraHas(std::string(reply.begin(), reply.end()));

    const Bytes push = PushOfPresets();

    WSDK_NotifyPresetStatus message;
    ASSERT_GT(push.size(), 2u);
    ASSERT_TRUE(message.ParseFromArray(push.data() + 2, static_cast<int>(push.size()) - 2));
    ASSERT_EQ(message.preset_group_array_size(), 1);
    const auto& told = message.preset_group_array(0);
    EXPECT_FALSE(told.has_id());
    ASSERT_EQ(told.unknown_fields().field_count(), 2);
    EXPECT_EQ(told.unknown_fields().field(0).varint(), 1234u);
    EXPECT_EQ(told.unknown_fields().field(1).varint(), 99u);
    ASSERT_EQ(told.preset_array_size(), 1);
    const auto& unknown = told.preset_array(0).unknown_fields();
    ASSERT_EQ(unknown.field_count(), 3);
    EXPECT_EQ(unknown.field(0).varint(), 200u);
    EXPECT_EQ(unknown.field(1).varint(), 300u);
    EXPECT_EQ(unknown.field(2).varint(), 2000u);
}

TEST_F(PresetPush, AnAnswerThatIsNoMessageIsToldAsFarAsItGoes) {
    for (const std::string& reply : {std::string(), std::string("\xFF\xFF"), std::string(2400, '\x0A')}) {
        CameraHas(reply);

        const Bytes push = PushOfPresets();

        ASSERT_GE(push.size(), 2u);
        EXPECT_EQ(push[1], 0xF3);
    }
}

}  // namespace
