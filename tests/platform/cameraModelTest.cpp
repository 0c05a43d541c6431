// The camera's rules: which options it takes, what a capture changes, how it keeps time, what its presets hold.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cameraIds.h"
#include "controlCommands.h"
#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "metadataService.h"
#include "sampleCamera.h"
#include "utils.h"
#include "wsdkCommands/WSDK_NotifyPresetStatus.pb.h"

using namespace kzsim;
using testing::Contains;

namespace {

constexpr uint32_t kResolution53K = 100;
constexpr uint32_t kRate60 = 5;
constexpr uint32_t kRate120 = 1;
constexpr uint32_t kVideoGroup = 1000;
constexpr uint32_t kActivity = 0x00001;
constexpr uint32_t kPhotoPreset = 0x10000;

class Camera : public testing::Test {
  protected:
    int32_t command(uint32_t id, const Bytes& parameter = {}) {
        Bytes reply;
        return executeControlCommand(camera, id, parameter, reply);
    }
    uint32_t setting(uint32_t id) const { return camera.settings().at(id); }

    SampleCamera sample;
    CameraModel& camera = sample.camera;
};

}  // namespace

TEST_F(Camera, SampleStateIsOneThatTheCatalogueAccepts) {
    for (const auto& [id, value] : camera.settings()) {
        EXPECT_TRUE(camera.accepts(id, value)) << "setting " << id << " = " << value;
    }
    EXPECT_FALSE(camera.accepts(setting::kFrameRate, 99));
    EXPECT_FALSE(camera.accepts(0xffffffff, 0));
}

TEST_F(Camera, FilterForbidsAnOptionWhileItHoldsAndTheSettingMovesToTheFirstOneLeft) {
    constexpr uint32_t kHindsight = 66;
    ASSERT_EQ(camera.chooseSetting(setting::kFrameRate, kRate120), KZ_OK);
    EXPECT_TRUE(camera.accepts(kHindsight, 15));

    Bytes choice = bytesOf(setting::kVideoResolution);
    append(choice, kResolution53K);
    ASSERT_EQ(command(KZCONTROL_SET_SETTING_ID, choice), KZ_OK);
    camera.setCard(kCardRemoved);

    EXPECT_EQ(setting(setting::kFrameRate), kRate60);
    EXPECT_THAT(sample.settings, Contains(setting::kVideoResolution));
    EXPECT_THAT(sample.settings, Contains(setting::kFrameRate));
    EXPECT_EQ(camera.chooseSetting(setting::kFrameRate, kRate120), KZ_ERR_INVALID_PARAM);
    EXPECT_FALSE(camera.accepts(kHindsight, 15)) << "forbidden by a status";
}

TEST_F(Camera, CatalogueOrStateThatMakesNoSenseIsRefusedWithAReason) {
    for (const char* text : {"{", "{}", R"({"settings":[{"id":"2"}],"status":{"groups":[]}})"}) {
        EXPECT_THROW(Catalogue::parse(text), std::exception) << text;
    }
    EXPECT_THROW(Catalogue::load("/nowhere/settings.json"), std::runtime_error);
    EXPECT_THROW(camera.applyState("[1]"), std::runtime_error);
    EXPECT_THROW(camera.applyState(R"({"status":{"x":1}})"), std::runtime_error);
}

TEST_F(Camera, CaptureMakesItBusyUntilItIsStoppedOrTheCardIsPulled) {
    const uint32_t videos = camera.statusNumber(status::kVideos);

    EXPECT_EQ(command(KZCONTROL_COMMAND_SHUTTER, {1}), KZ_OK);
    camera.second();
    EXPECT_EQ(camera.statusNumber(status::kBusy), 1u);
    EXPECT_EQ(camera.statusNumber(status::kSecondsRecorded), 1u);
    EXPECT_EQ(camera.csiNumber(CSI_CAMERA_BUSY), 1u);
    EXPECT_EQ(camera.setMode(kModePhoto), KZ_ERR);
    EXPECT_EQ(command(KZCONTROL_COMMAND_SHUTTER, bytesOf(uint32_t{0})), KZ_OK);
    EXPECT_EQ(camera.csiNumber(CSI_CAMERA_BUSY), 0u);
    EXPECT_EQ(camera.csiNumber(CSI_NEW_MEDIA), 1u);
    EXPECT_EQ(camera.statusNumber(status::kVideos), videos + 1);

    EXPECT_EQ(camera.startCapture(), KZ_OK);
    camera.setCard(kCardRemoved);
    EXPECT_FALSE(camera.capturing());
    EXPECT_EQ(camera.startCapture(), KZ_ERR_NO_SDCARD);
    camera.setCard(kCardFull);
    EXPECT_EQ(camera.startCapture(), KZ_ERR_SDCARD_FULL);
}

TEST_F(Camera, PhotoEndsByItself) {
    const uint32_t photos = camera.statusNumber(status::kPhotos);

    ASSERT_EQ(command(KZCONTROL_MODE, bytesOf(uint32_t{kModePhoto})), KZ_OK);
    ASSERT_EQ(command(KZCONTROL_COMMAND_SHUTTER, {1}), KZ_OK);
    camera.second();

    EXPECT_FALSE(camera.capturing());
    EXPECT_EQ(camera.statusNumber(status::kPhotos), photos + 1);
}

TEST_F(Camera, CommandsThatMakeNoSenseChangeNothing) {
    EXPECT_EQ(command(KZCONTROL_FW_UPDATE_START), KZ_ERR_NOT_SUPPORTED);
    EXPECT_EQ(command(0xffffffff), KZ_ERR_NOT_SUPPORTED);
    EXPECT_EQ(command(KZCONTROL_COMMAND_SHUTTER), KZ_ERR_INVALID_PARAM);
    EXPECT_EQ(command(KZCONTROL_SET_DATE_TIME, Bytes(9)), KZ_ERR_INVALID_PARAM);
    EXPECT_EQ(command(KZCONTROL_PRESET_LOAD, {0xff, 0xff}), KZ_ERR_INVALID_PARAM);
    EXPECT_EQ(camera.loadPreset(0x12345), KZ_ERR_INVALID_PARAM);

    EXPECT_TRUE(sample.settings.empty());
    EXPECT_TRUE(sample.statuses.empty());
}

TEST_F(Camera, ClockKeepsTimeAndZoneAndRefusesImpossibleDates) {
    CameraClock& clock = camera.clock();

    ASSERT_TRUE(clock.set({2024, 2, 29, 7, 8, 9, -480, 1}));
    EXPECT_FALSE(clock.set({2023, 2, 29, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(clock.set({2023, 13, 1, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(clock.set({2023, 1, 1, 24, 0, 0, 0, 0}));
    EXPECT_EQ(clock.now().year, 2024);
    EXPECT_EQ(clock.now().day, 29);
    ASSERT_TRUE(clock.set({2025, 1, 2, 3, 4, 5, kNoTimeZone, 0}));
    EXPECT_EQ(clock.now().year, 2025);
    EXPECT_EQ(clock.now().zoneMinutes, -480);
    EXPECT_EQ(clock.now().daylightSaving, 1);
}

// ---------------------------------------------------------------- presets

TEST_F(Camera, PresetBringsItsModeAndGroupAndIsFoundAgainWithItsGroup) {
    ASSERT_EQ(camera.loadPreset(kActivity), KZ_OK);
    ASSERT_EQ(camera.loadPreset(kPhotoPreset), KZ_OK);

    EXPECT_EQ(camera.statusNumber(status::kPresetGroup), 1001u);
    EXPECT_EQ(camera.statusNumber(status::kCaptureMode), kModePhoto);
    EXPECT_EQ(camera.csiNumber(CSI_PRESETS_MODIFIED) >> 24, static_cast<uint32_t>(PresetChange::Loaded));
    ASSERT_EQ(camera.selectGroup(kVideoGroup), KZ_OK);
    EXPECT_EQ(camera.activePreset(), kActivity);
}

TEST_F(Camera, PresetIsModifiedByItsSettingsUntilItIsResetOrTheEditIsCancelled) {
    const auto choose = [this] { ASSERT_EQ(camera.chooseSetting(setting::kVideoResolution, 9), KZ_OK); };
    ASSERT_EQ(camera.loadPreset(kActivity), KZ_OK);
    const uint32_t original = setting(setting::kVideoResolution);

    choose();
    EXPECT_TRUE(camera.presets().find(kActivity)->modified);
    ASSERT_EQ(camera.factoryResetPreset(kActivity), KZ_OK);
    EXPECT_EQ(setting(setting::kVideoResolution), original);

    ASSERT_EQ(camera.startPresetEdit(kActivity), KZ_OK);
    EXPECT_NE(camera.startPresetEdit(kPhotoPreset), KZ_OK);
    choose();
    ASSERT_EQ(camera.cancelPresetEdit(), KZ_OK);
    EXPECT_EQ(setting(setting::kVideoResolution), original);
    EXPECT_FALSE(camera.presets().find(kActivity)->modified);

    ASSERT_EQ(camera.startPresetEdit(kActivity), KZ_OK);
    choose();
    ASSERT_EQ(camera.storePresetEdit(), KZ_OK);
    EXPECT_NE(camera.cancelPresetEdit(), KZ_OK);
    EXPECT_EQ(setting(setting::kVideoResolution), 9u);
}

TEST_F(Camera, PresetsAreMadeUntilTheirAnswerIsFullAndOnlyTheseCanBeRemoved) {
    std::vector<uint32_t> made;
    while (const auto created = camera.createPreset(kVideoGroup, 12, 18, 18, 3)) {
        made.push_back(*created);
        ASSERT_LT(made.size(), 100u);
    }

    wsdk_commands::WSDK_NotifyPresetStatus status;
    ASSERT_TRUE(status.ParseFromString(camera.presets().serialised()));
    EXPECT_LT(camera.presets().serialised().size(), PresetStore::kStatusSizeLimit);
    EXPECT_EQ(status.preset_group_array(0).preset_array_size(), static_cast<int>(5 + made.size()));
    EXPECT_FALSE(camera.createPreset(999, 12, 18, 18, 0).has_value());
    EXPECT_NE(camera.removePreset(kActivity), KZ_OK);
    EXPECT_EQ(camera.removePreset(made.at(0)), KZ_OK);
    EXPECT_NE(camera.removePreset(made.at(0)), KZ_OK);
}

TEST(Presets, OrderMovesOneWithinItsGroupInBothDirections) {
    PresetStore presets;
    const auto order = [&presets] {
        std::string ids;
        for (const Preset& preset : presets.group(kVideoGroup)->presets) {
            ids += std::to_string(preset.id);
        }
        return ids;
    };

    EXPECT_TRUE(presets.move(0, 2));
    EXPECT_EQ(order(), "12034");
    EXPECT_TRUE(presets.move(4, 0));
    EXPECT_EQ(order(), "41203");
    EXPECT_TRUE(presets.move(4, 0xffffffff));
    EXPECT_EQ(order(), "12034");
    EXPECT_FALSE(presets.move(99, 0));
}

// ---------------------------------------------------------------- metadata

TEST(KzmfForm, OnlyDevicesOfWholeRecordsAreAccepted) {
    const auto container = [](const std::string& key, const std::string& content) {
        return key + std::string({0, 1, 0, static_cast<char>(content.size())}) + content;
    };
    const auto accepted = [](const std::string& text) { return isKzmf(viewOf(text)); };
    const std::string record("HRATS\2\0\1\0H\0\0", 12);
    const std::string device = container("DEVC", container("STRM", record));
    std::string innerTooLong = device;
    innerTooLong[15] = 100;

    EXPECT_TRUE(accepted(device));
    EXPECT_TRUE(accepted(device + device));
    EXPECT_FALSE(accepted(""));
    EXPECT_FALSE(accepted(record));
    EXPECT_FALSE(accepted(device.substr(0, device.size() - 1)));
    EXPECT_FALSE(accepted(innerTooLong));
    EXPECT_FALSE(accepted(container("DEVC", container("S\1RM", record))));
}
