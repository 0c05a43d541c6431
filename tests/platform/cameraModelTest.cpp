// The camera's rules: which options it takes, what a capture changes, what its presets hold, and how it tells changes.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "cameraIds.h"
#include "controlCommands.h"
#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "metadataService.h"
#include "statePush.h"
#include "utils.h"

using namespace kzsim;

namespace {

constexpr uint32_t kActivity = 0x00001;
constexpr uint32_t kPhotoPreset = 0x10000;

std::string sample(const std::string& name) {
    std::ifstream stream(KZ_SAMPLE_CATALOGUE "/" + name);
    return {std::istreambuf_iterator<char>(stream), {}};
}

// With the sample catalogue, as the simulator starts with it.
class Camera : public testing::Test {
  protected:
    Camera() {
        camera.applyState(sample("state.json"));
        camera.onSetting = [this](uint32_t id) { announced.push_back(id); };
        camera.onStatus = camera.onSetting;
    }
    int32_t command(uint32_t id, const Bytes& parameter = {}) {
        Bytes reply;
        return executeControlCommand(camera, id, parameter, reply);
    }
    uint32_t resolution() const { return camera.settings().at(setting::kVideoResolution); }

    CameraModel camera{Catalogue::parse(sample("settings.json")), 58};
    std::vector<uint32_t> announced;
};

}  // namespace

TEST_F(Camera, FilterForbidsAnOptionWhileItHoldsAndTheSettingMovesToTheFirstOneLeft) {
    constexpr uint32_t kResolution53K = 100;
    constexpr uint32_t kRate60 = 5;
    constexpr uint32_t kRate120 = 1;
    ASSERT_EQ(camera.chooseSetting(setting::kFrameRate, kRate120), KZ_OK);

    ASSERT_EQ(camera.chooseSetting(setting::kVideoResolution, kResolution53K), KZ_OK);

    EXPECT_EQ(camera.settings().at(setting::kFrameRate), kRate60);
    EXPECT_THAT(announced, testing::IsSupersetOf({setting::kVideoResolution, setting::kFrameRate}));
    EXPECT_EQ(camera.chooseSetting(setting::kFrameRate, kRate120), KZ_ERR_INVALID_PARAM);
}

TEST_F(Camera, WhatMakesNoSenseIsRefusedAndChangesNothing) {
    for (const char* text : {"{", "{}", R"({"settings":[{"id":"2"}],"status":{"groups":[]}})"}) {
        EXPECT_THROW(Catalogue::parse(text), std::exception) << text;
    }
    EXPECT_THROW(camera.applyState(R"({"status":{"x":1}})"), std::runtime_error);
    EXPECT_EQ(command(KZCONTROL_FW_UPDATE_START), KZ_ERR_NOT_SUPPORTED);
    EXPECT_EQ(command(KZCONTROL_COMMAND_SHUTTER), KZ_ERR_INVALID_PARAM);
    EXPECT_EQ(command(KZCONTROL_SET_DATE_TIME, Bytes(9)), KZ_ERR_INVALID_PARAM);
    EXPECT_EQ(command(KZCONTROL_PRESET_LOAD, {0xff, 0xff}), KZ_ERR_INVALID_PARAM);

    EXPECT_TRUE(announced.empty());
}

TEST_F(Camera, CaptureMakesItBusyUntilItIsStoppedOrTheCardIsPulled) {
    const uint32_t videos = camera.statusNumber(status::kVideos);

    EXPECT_EQ(camera.startCapture(), KZ_OK);
    camera.second();
    EXPECT_EQ(camera.statusNumber(status::kSecondsRecorded), 1u);
    EXPECT_EQ(camera.csiNumber(CSI_CAMERA_BUSY), 1u);
    EXPECT_EQ(camera.setMode(kModePhoto), KZ_ERR);
    EXPECT_EQ(camera.stopCapture(), KZ_OK);
    EXPECT_EQ(camera.csiNumber(CSI_CAMERA_BUSY), 0u);
    EXPECT_EQ(camera.statusNumber(status::kVideos), videos + 1);

    EXPECT_EQ(camera.startCapture(), KZ_OK);
    camera.setCard(kCardRemoved);
    EXPECT_FALSE(camera.capturing());
    EXPECT_EQ(camera.startCapture(), KZ_ERR_NO_SDCARD);
}

TEST_F(Camera, PresetIsModifiedByItsSettingsUntilTheEditIsCancelledOrStored) {
    ASSERT_EQ(camera.loadPreset(kActivity), KZ_OK);
    const uint32_t original = resolution();

    ASSERT_EQ(camera.startPresetEdit(kActivity), KZ_OK);
    EXPECT_NE(camera.startPresetEdit(kPhotoPreset), KZ_OK);
    ASSERT_EQ(camera.chooseSetting(setting::kVideoResolution, 9), KZ_OK);
    EXPECT_TRUE(camera.presets().find(kActivity)->modified);
    ASSERT_EQ(camera.cancelPresetEdit(), KZ_OK);
    EXPECT_EQ(resolution(), original);
    EXPECT_FALSE(camera.presets().find(kActivity)->modified);

    ASSERT_EQ(camera.startPresetEdit(kActivity), KZ_OK);
    ASSERT_EQ(camera.chooseSetting(setting::kVideoResolution, 9), KZ_OK);
    ASSERT_EQ(camera.storePresetEdit(), KZ_OK);
    EXPECT_NE(camera.cancelPresetEdit(), KZ_OK);
    EXPECT_EQ(resolution(), 9u);
}

TEST_F(Camera, PushedDocumentsFitTheirLimitAndTogetherTellEverythingOnce) {
    using Json = nlohmann::json;
    camera.setStatus(29, std::string("a\xff\x01z"));  // no UTF-8
    camera.setStatus(30, std::string(60, '"'));       // escapes double it
    camera.setStatus(54, std::string(100, '"'));      // never fits
    PendingPush pending{{200}, {}};                   // has no value
    for (const auto& [id, value] : camera.settings()) {
        pending.settings.insert(id);
    }
    for (const auto& [id, value] : camera.statuses()) {
        pending.statuses.insert(id);
    }

    size_t members = 0;
    Json told;
    while (!pending.empty()) {
        const std::string document = takePush(pending, camera, 150);
        ASSERT_LE(document.size(), 150u);
        const Json parsed = Json::parse(document);
        for (const auto& [section, values] : parsed.items()) {
            members += values.size();
            told[section].update(values);
        }
    }

    EXPECT_EQ(told["settings"].size(), camera.settings().size());
    EXPECT_EQ(told["status"].size(), camera.statuses().size() - 1);
    EXPECT_EQ(members, told["settings"].size() + told["status"].size());
    EXPECT_EQ(told["status"]["30"], std::string(60, '"'));
    EXPECT_EQ(takePush(pending, camera, 150), "");
}

TEST(KzmfForm, OnlyDevicesOfWholeRecordsAreAccepted) {
    const auto container = [](const std::string& key, const std::string& content) {
        return key + std::string({0, 1, 0, static_cast<char>(content.size())}) + content;
    };
    const std::string record("HRATS\2\0\1\0H\0\0", 12);
    const std::string device = container("DEVC", container("STRM", record));
    std::string innerTooLong = device;
    innerTooLong[15] = 100;

    EXPECT_TRUE(isKzmf(viewOf(device + device)));
    for (const std::string& bad : {std::string(), record, device.substr(0, device.size() - 1), innerTooLong,
                                   container("DEVC", container("S\1RM", record))}) {
        EXPECT_FALSE(isKzmf(viewOf(bad))) << bad;
    }
}
