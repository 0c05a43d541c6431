// Splitting changed values into JSON documents of a limited size.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "sampleCamera.h"
#include "statePush.h"

using namespace kzsim;
using Json = nlohmann::json;

namespace {

PendingPush everything(const CameraModel& camera) {
    PendingPush pending;
    for (const auto& [id, value] : camera.settings()) {
        pending.settings.insert(id);
    }
    for (const auto& [id, value] : camera.statuses()) {
        pending.statuses.insert(id);
    }
    return pending;
}

}  // namespace

TEST(StatePush, EveryDocumentFitsItsLimitAndTogetherTheyTellEverythingOnce) {
    SampleCamera sample;
    sample.camera.setStatus(30, std::string(100, '"'));  // escapes double it
    sample.camera.setStatus(54, uint64_t{18446744073709551615u});
    for (const size_t limit : {size_t{300}, size_t{512}, size_t{1400}, size_t{5000}}) {
        PendingPush pending = everything(sample.camera);
        Json told = {{"settings", Json::object()}, {"status", Json::object()}};
        size_t members = 0;
        while (!pending.empty()) {
            const std::string document = takePush(pending, sample.camera, limit);
            ASSERT_FALSE(document.empty());
            ASSERT_LE(document.size(), limit);
            const Json parsed = Json::parse(document);
            for (const auto& [section, values] : parsed.items()) {
                members += values.size();
                told[section].update(values);
            }
        }

        EXPECT_EQ(told["settings"].size(), sample.camera.settings().size());
        EXPECT_EQ(told["status"].size(), sample.camera.statuses().size());
        EXPECT_EQ(members, sample.camera.settings().size() + sample.camera.statuses().size());
        EXPECT_EQ(told["status"]["30"], std::string(100, '"'));
        EXPECT_EQ(told["status"]["54"], uint64_t{18446744073709551615u});
    }
}

TEST(StatePush, SmallChangeIsOneCompactDocumentWithItsLastValue) {
    SampleCamera sample;
    PendingPush pending;
    pending.settings = {2};
    pending.statuses = {8, 29};
    sample.camera.forceSetting(2, 4);
    sample.camera.setStatus(8, uint64_t{1});
    sample.camera.setStatus(8, uint64_t{0});
    sample.camera.setStatus(29, std::string("home"));

    EXPECT_EQ(takePush(pending, sample.camera, 1400), R"({"settings":{"2":4},"status":{"8":0,"29":"home"}})");
    EXPECT_TRUE(pending.empty());
    pending.statuses = {70};
    EXPECT_EQ(takePush(pending, sample.camera, 1400), R"({"status":{"70":80}})");
    EXPECT_EQ(takePush(pending, sample.camera, 1400), "");
}

TEST(StatePush, ValueThatFitsNoDocumentAndIdsWithoutValueAreDropped) {
    SampleCamera sample;
    sample.camera.setStatus(29, std::string(90, 'x'));
    PendingPush pending;
    pending.settings = {200};
    pending.statuses = {29, 70};

    EXPECT_EQ(takePush(pending, sample.camera, 50), R"({"status":{"70":80}})");

    EXPECT_TRUE(pending.empty());
}

TEST(StatePush, TextThatIsNoUtf8DoesNotStopAPush) {
    SampleCamera sample;
    sample.camera.setStatus(29, std::string("a\xff\x01z"));
    PendingPush pending;
    pending.statuses = {29};

    const Json parsed = Json::parse(takePush(pending, sample.camera, 1400));

    EXPECT_EQ(parsed["status"]["29"].get<std::string>().front(), 'a');
}
