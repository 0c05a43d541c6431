// The camera's rules: which options it takes, what a capture changes, how it keeps time.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cameraIds.h"
#include "controlCommands.h"
#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "sampleCamera.h"
#include "utils.h"

using namespace kzsim;
using testing::Contains;
using testing::Not;

namespace {

int32_t command(CameraModel& camera, uint32_t id, const Bytes& parameter = {}) {
    Bytes reply;
    return executeControlCommand(camera, id, parameter, reply);
}

Bytes settingAndValue(uint32_t id, uint32_t value) {
    Bytes bytes = bytesOf(id);
    append(bytes, value);
    return bytes;
}

constexpr uint32_t kResolution53K = 100;
constexpr uint32_t kRate60 = 5;
constexpr uint32_t kRate120 = 1;

}  // namespace

TEST(CameraOptions, SampleStateIsOneThatTheCatalogueAccepts) {
    const SampleCamera sample;

    for (const auto& [id, value] : sample.camera.settings()) {
        EXPECT_TRUE(sample.camera.accepts(id, value)) << "setting " << id << " = " << value;
    }
    EXPECT_GE(sample.camera.settings().size(), 40u);
    EXPECT_GE(sample.camera.statuses().size(), 60u);
}

TEST(CameraOptions, UnknownSettingsAndOptionsAreNotAccepted) {
    const SampleCamera sample;

    EXPECT_FALSE(sample.camera.accepts(setting::kFrameRate, 99));
    EXPECT_FALSE(sample.camera.accepts(1, 0));
    EXPECT_FALSE(sample.camera.accepts(0xffffffff, 0xffffffff));
}

TEST(CameraOptions, FilterForbidsAnOptionOnlyWhileItsCriteriaHold) {
    SampleCamera sample;

    EXPECT_TRUE(sample.camera.accepts(setting::kFrameRate, kRate120));
    ASSERT_EQ(sample.camera.chooseSetting(setting::kVideoResolution, kResolution53K), KZ_OK);
    EXPECT_FALSE(sample.camera.accepts(setting::kFrameRate, kRate120));
    EXPECT_EQ(sample.camera.chooseSetting(setting::kFrameRate, kRate120), KZ_ERR_INVALID_PARAM);
    EXPECT_EQ(sample.camera.settings().at(setting::kFrameRate), kRate60);
}

TEST(CameraOptions, StatusCriterionForbidsAnOptionToo) {
    SampleCamera sample;
    constexpr uint32_t kHindsight = 66;

    EXPECT_TRUE(sample.camera.accepts(kHindsight, 15));
    sample.camera.setCard(kCardRemoved);
    EXPECT_FALSE(sample.camera.accepts(kHindsight, 15));
}

TEST(CameraOptions, SettingThatLosesItsOptionMovesToTheFirstOneLeft) {
    SampleCamera sample;
    ASSERT_EQ(sample.camera.chooseSetting(setting::kFrameRate, kRate120), KZ_OK);
    sample.settings.clear();

    ASSERT_EQ(
        command(sample.camera, KZCONTROL_SET_SETTING_ID, settingAndValue(setting::kVideoResolution, kResolution53K)),
        KZ_OK);

    EXPECT_EQ(sample.camera.settings().at(setting::kFrameRate), kRate60);
    EXPECT_THAT(sample.settings, Contains(setting::kVideoResolution));
    EXPECT_THAT(sample.settings, Contains(setting::kFrameRate));
}

TEST(CameraOptions, CatalogueWithoutAPartOrWithNonsenseIsRefusedWithAReason) {
    EXPECT_THROW(Catalogue::parse("{"), std::exception);
    EXPECT_THROW(Catalogue::parse("{}"), std::exception);
    EXPECT_THROW(Catalogue::parse(R"({"settings":[{"id":"2"}],"status":{"groups":[]}})"), std::exception);
    EXPECT_THROW(Catalogue::load("/nowhere/settings.json"), std::runtime_error);
    SampleCamera sample;
    EXPECT_THROW(sample.camera.applyState("[1]"), std::runtime_error);
    EXPECT_THROW(sample.camera.applyState(R"({"status":{"x":1}})"), std::runtime_error);
}

TEST(CameraCapture, ShutterMakesTheCameraBusyUntilItIsReleased) {
    SampleCamera sample;
    const uint32_t videos = sample.camera.statusNumber(status::kVideos);

    EXPECT_EQ(command(sample.camera, KZCONTROL_COMMAND_SHUTTER, {1}), KZ_OK);
    sample.camera.second();
    sample.camera.second();
    EXPECT_EQ(sample.camera.statusNumber(status::kBusy), 1u);
    EXPECT_EQ(sample.camera.statusNumber(status::kEncoding), 1u);
    EXPECT_EQ(sample.camera.statusNumber(status::kSecondsRecorded), 2u);
    EXPECT_EQ(sample.camera.csiNumber(CSI_CAMERA_BUSY), 1u);
    EXPECT_EQ(sample.camera.allStatus()[209], 1);

    EXPECT_EQ(command(sample.camera, KZCONTROL_COMMAND_SHUTTER, bytesOf(uint32_t{0})), KZ_OK);
    EXPECT_EQ(sample.camera.statusNumber(status::kBusy), 0u);
    EXPECT_EQ(sample.camera.csiNumber(CSI_CAMERA_BUSY), 0u);
    EXPECT_EQ(sample.camera.csiNumber(CSI_NEW_MEDIA), 1u);
    EXPECT_EQ(sample.camera.statusNumber(status::kVideos), videos + 1);
}

TEST(CameraCapture, PhotoEndsByItself) {
    SampleCamera sample;
    const uint32_t photos = sample.camera.statusNumber(status::kPhotos);

    ASSERT_EQ(command(sample.camera, KZCONTROL_MODE, bytesOf(uint32_t{kModePhoto})), KZ_OK);
    ASSERT_EQ(command(sample.camera, KZCONTROL_COMMAND_SHUTTER, {1}), KZ_OK);
    sample.camera.second();

    EXPECT_FALSE(sample.camera.capturing());
    EXPECT_EQ(sample.camera.statusNumber(status::kPhotos), photos + 1);
}

TEST(CameraCapture, MissingOrFullCardIsRefusedAndPullingItEndsACapture) {
    SampleCamera sample;

    sample.camera.setCard(kCardFull);
    EXPECT_EQ(sample.camera.startCapture(), KZ_ERR_SDCARD_FULL);
    sample.camera.setCard(kCardUsable);
    EXPECT_EQ(sample.camera.startCapture(), KZ_OK);
    sample.camera.setCard(kCardRemoved);
    EXPECT_FALSE(sample.camera.capturing());
    EXPECT_EQ(sample.camera.startCapture(), KZ_ERR_NO_SDCARD);
    EXPECT_EQ(sample.camera.csiNumber(CSI_SD_CARD_STATE), kCardRemoved);
}

TEST(CameraCapture, ModeDoesNotChangeDuringACapture) {
    SampleCamera sample;
    ASSERT_EQ(sample.camera.startCapture(), KZ_OK);

    EXPECT_EQ(sample.camera.setMode(kModePhoto), KZ_ERR);
    EXPECT_EQ(sample.camera.setMode(7), KZ_ERR_INVALID_PARAM);

    EXPECT_EQ(sample.camera.statusNumber(status::kCaptureMode), kModeVideo);
}

TEST(CameraCommands, UnknownIdsAndWrongLengthsAreRefusedWithNothingChanged) {
    SampleCamera sample;

    EXPECT_EQ(command(sample.camera, KZCONTROL_FW_UPDATE_START), KZ_ERR_NOT_SUPPORTED);
    EXPECT_EQ(command(sample.camera, 0xffffffff), KZ_ERR_NOT_SUPPORTED);
    EXPECT_EQ(command(sample.camera, KZCONTROL_COMMAND_SHUTTER), KZ_ERR_INVALID_PARAM);
    EXPECT_EQ(command(sample.camera, KZCONTROL_SET_DATE_TIME, Bytes(9)), KZ_ERR_INVALID_PARAM);
    EXPECT_EQ(command(sample.camera, KZCONTROL_PRESET_LOAD, {0xff, 0xff}), KZ_ERR_INVALID_PARAM);

    EXPECT_TRUE(sample.settings.empty());
    EXPECT_TRUE(sample.statuses.empty());
    EXPECT_TRUE(sample.keys.empty());
}

TEST(CameraCommands, ValueThatDoesNotChangeIsNotAnnounced) {
    SampleCamera sample;
    sample.camera.setBattery(42);
    sample.statuses.clear();

    sample.camera.setBattery(42);

    EXPECT_THAT(sample.statuses, Not(Contains(status::kBatteryPercent)));
    EXPECT_EQ(sample.camera.csiNumber(CSI_BATTERY_LEVEL), 42u);
}

TEST(CameraClockTest, RunsOnFromWhatItWasSetTo) {
    CameraClock clock;
    const DateTime leapDay{2024, 2, 29, 23, 59, 58, -480, 1};

    ASSERT_TRUE(clock.set(leapDay));

    const DateTime now = clock.now();
    EXPECT_EQ(now.year, 2024);
    EXPECT_EQ(now.day, 29);
    EXPECT_EQ(now.zoneMinutes, -480);
    EXPECT_EQ(now.daylightSaving, 1);
}

TEST(CameraClockTest, DateWithoutTimeZoneKeepsTheFormerOneAndImpossibleDatesAreRefused) {
    CameraClock clock;
    ASSERT_TRUE(clock.set({2024, 5, 6, 7, 8, 9, 60, 1}));

    EXPECT_FALSE(clock.set({2023, 2, 29, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(clock.set({2023, 13, 1, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(clock.set({2023, 0, 1, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(clock.set({2023, 1, 1, 24, 0, 0, 0, 0}));
    EXPECT_EQ(clock.now().year, 2024);
    ASSERT_TRUE(clock.set({2025, 1, 2, 3, 4, 5, kNoTimeZone, 0}));

    EXPECT_EQ(clock.now().year, 2025);
    EXPECT_EQ(clock.now().zoneMinutes, 60);
    EXPECT_EQ(clock.now().daylightSaving, 1);
}
