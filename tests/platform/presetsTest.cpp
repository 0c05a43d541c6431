// The camera's presets: loading, editing, making and ordering them, and what the BLE daemon is told.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cameraIds.h"
#include "csi/csiKeys.h"
#include "sampleCamera.h"
#include "utils.h"
#include "wsdkCommands/WSDK_NotifyPresetStatus.pb.h"

using namespace kzsim;
using testing::ElementsAre;

namespace {

constexpr uint32_t kVideoGroup = 1000;
constexpr uint32_t kActivity = 0x00001;
constexpr uint32_t kPhotoPreset = 0x10000;
constexpr int32_t kFlatVideo = 12;
constexpr uint32_t kCustomIcon = 18;
constexpr uint32_t kCustomTitle = 18;

PresetChange lastChange(const CameraModel& camera) {
    return static_cast<PresetChange>(camera.csiNumber(CSI_PRESETS_MODIFIED) >> 24);
}

std::vector<uint32_t> idsOf(const PresetStore& presets, uint32_t groupId) {
    std::vector<uint32_t> ids;
    for (const Preset& preset : presets.group(groupId)->presets) {
        ids.push_back(preset.id);
    }
    return ids;
}

}  // namespace

TEST(Presets, LoadingOneBringsItsSettingsModeAndGroup) {
    SampleCamera sample;

    ASSERT_EQ(sample.camera.loadPreset(kPhotoPreset), KZ_OK);

    EXPECT_EQ(sample.camera.statusNumber(status::kPresetGroup), 1001u);
    EXPECT_EQ(sample.camera.statusNumber(status::kPreset), kPhotoPreset);
    EXPECT_EQ(sample.camera.statusNumber(status::kCaptureMode), kModePhoto);
    EXPECT_EQ(lastChange(sample.camera), PresetChange::Loaded);
    EXPECT_EQ(sample.camera.loadPreset(0x12345), KZ_ERR_INVALID_PARAM);
    EXPECT_EQ(sample.camera.activePreset(), kPhotoPreset);
}

TEST(Presets, ReturningToAGroupFindsTheLastPresetOfIt) {
    SampleCamera sample;
    ASSERT_EQ(sample.camera.loadPreset(kActivity), KZ_OK);
    ASSERT_EQ(sample.camera.setMode(kModePhoto), KZ_OK);

    ASSERT_EQ(sample.camera.selectGroup(kVideoGroup), KZ_OK);

    EXPECT_EQ(sample.camera.activePreset(), kActivity);
}

TEST(Presets, ChangingASettingModifiesTheActivePresetAndFactoryResetUndoesIt) {
    SampleCamera sample;
    ASSERT_EQ(sample.camera.loadPreset(kActivity), KZ_OK);
    const uint32_t original = sample.camera.settings().at(setting::kVideoResolution);

    ASSERT_EQ(sample.camera.chooseSetting(setting::kVideoResolution, 9), KZ_OK);
    EXPECT_TRUE(sample.camera.presets().find(kActivity)->modified);
    EXPECT_EQ(lastChange(sample.camera), PresetChange::Modified);
    ASSERT_EQ(sample.camera.factoryResetPreset(kActivity), KZ_OK);

    EXPECT_FALSE(sample.camera.presets().find(kActivity)->modified);
    EXPECT_EQ(sample.camera.settings().at(setting::kVideoResolution), original);
}

TEST(Presets, CancelledEditBringsBackWhatWasAndAStoredOneStays) {
    SampleCamera sample;

    ASSERT_EQ(sample.camera.startPresetEdit(kActivity), KZ_OK);
    EXPECT_NE(sample.camera.startPresetEdit(kPhotoPreset), KZ_OK);
    ASSERT_EQ(sample.camera.chooseSetting(setting::kVideoResolution, 9), KZ_OK);
    ASSERT_EQ(sample.camera.cancelPresetEdit(), KZ_OK);
    EXPECT_EQ(sample.camera.settings().at(setting::kVideoResolution), 4u);
    EXPECT_FALSE(sample.camera.presets().find(kActivity)->modified);

    ASSERT_EQ(sample.camera.startPresetEdit(kActivity), KZ_OK);
    ASSERT_EQ(sample.camera.chooseSetting(setting::kVideoResolution, 9), KZ_OK);
    ASSERT_EQ(sample.camera.storePresetEdit(), KZ_OK);
    EXPECT_EQ(sample.camera.settings().at(setting::kVideoResolution), 9u);
    EXPECT_NE(sample.camera.cancelPresetEdit(), KZ_OK);
}

TEST(Presets, OnlyOnesThatUsersMadeCanBeRemoved) {
    SampleCamera sample;
    const auto created = sample.camera.createPreset(kVideoGroup, kFlatVideo, kCustomIcon, kCustomTitle, 2);
    ASSERT_TRUE(created.has_value());
    ASSERT_EQ(sample.camera.loadPreset(*created), KZ_OK);

    EXPECT_NE(sample.camera.removePreset(kActivity), KZ_OK);
    EXPECT_EQ(sample.camera.removePreset(*created), KZ_OK);

    EXPECT_EQ(sample.camera.presets().find(*created), nullptr);
    EXPECT_EQ(sample.camera.activePreset(), 0u);
    EXPECT_EQ(lastChange(sample.camera), PresetChange::Removed);
    EXPECT_NE(sample.camera.removePreset(*created), KZ_OK);
}

TEST(Presets, OrderMovesOneWithinItsGroupInBothDirections) {
    PresetStore presets;

    EXPECT_TRUE(presets.move(0, 2));
    EXPECT_THAT(idsOf(presets, kVideoGroup), ElementsAre(1, 2, 0, 3, 4));
    EXPECT_TRUE(presets.move(4, 0));
    EXPECT_THAT(idsOf(presets, kVideoGroup), ElementsAre(4, 1, 2, 0, 3));
    EXPECT_TRUE(presets.move(4, 0xffffffff));
    EXPECT_THAT(idsOf(presets, kVideoGroup), ElementsAre(1, 2, 0, 3, 4));
    EXPECT_FALSE(presets.move(99, 0));
}

TEST(Presets, UnknownGroupOrLookIsNotCreated) {
    PresetStore presets;

    EXPECT_FALSE(presets.create(999, kFlatVideo, kCustomIcon, kCustomTitle, 0).has_value());
    EXPECT_FALSE(presets.create(kVideoGroup, 999, kCustomIcon, kCustomTitle, 0).has_value());
    EXPECT_FALSE(presets.create(kVideoGroup, kFlatVideo, 999, kCustomTitle, 0).has_value());
    EXPECT_FALSE(presets.create(kVideoGroup, kFlatVideo, kCustomIcon, 999, 0).has_value());
}

TEST(Presets, StatusAnswerParsesAndStaysBelowItsLimitHoweverManyAreMadeAndChanged) {
    SampleCamera sample;
    size_t made = 0;
    while (const auto created = sample.camera.createPreset(kVideoGroup, kFlatVideo, kCustomIcon, kCustomTitle, 3)) {
        ASSERT_LT(++made, 100u);
    }
    for (const uint32_t id : idsOf(sample.camera.presets(), kVideoGroup)) {
        ASSERT_EQ(sample.camera.loadPreset(id), KZ_OK);
        sample.camera.chooseSetting(setting::kVideoResolution, 9);
    }

    const std::string status = sample.camera.presets().serialised();

    EXPECT_GE(made, 3u);
    EXPECT_LT(status.size(), PresetStore::kStatusSizeLimit);
    wsdk_commands::WSDK_NotifyPresetStatus parsed;
    ASSERT_TRUE(parsed.ParseFromString(status));
    ASSERT_EQ(parsed.preset_group_array_size(), 3);
    EXPECT_EQ(parsed.preset_group_array(0).preset_array_size(), static_cast<int>(5 + made));
    EXPECT_TRUE(parsed.preset_group_array(0).preset_array(5).user_defined());
}

TEST(Presets, StreamingPresetsExistBesideTheGroups) {
    SampleCamera sample;

    EXPECT_EQ(sample.camera.loadPreset(0x60000), KZ_OK);

    EXPECT_EQ(sample.camera.activePreset(), 0x60000u);
    EXPECT_EQ(sample.camera.statusNumber(status::kPresetGroup), kVideoGroup);
}
