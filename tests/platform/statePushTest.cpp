// Splitting changed values into JSON documents of a limited size.
#include "statePush.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "sampleCamera.h"

using namespace kzsim;
using Json = nlohmann::json;

TEST(StatePush, EveryDocumentFitsItsLimitAndTogetherTheyTellEverythingOnce) {
    SampleCamera sample;
    sample.camera.setStatus(30, std::string(100, '"'));  // escapes double it
    sample.camera.setStatus(54, uint64_t{18446744073709551615u});
    const auto& settings = sample.camera.settings();
    const auto& statuses = sample.camera.statuses();
    PendingPush pending;
    for (const auto& [id, value] : settings) {
        pending.settings.insert(id);
    }
    for (const auto& [id, value] : statuses) {
        pending.statuses.insert(id);
    }

    Json told = {{"settings", Json::object()}, {"status", Json::object()}};
    size_t members = 0;
    while (!pending.empty()) {
        const std::string document = takePush(pending, sample.camera, 300);
        ASSERT_FALSE(document.empty());
        ASSERT_LE(document.size(), 300u);
        const Json parsed = Json::parse(document);
        for (const auto& [section, values] : parsed.items()) {
            members += values.size();
            told[section].update(values);
        }
    }

    EXPECT_EQ(told["settings"].size(), settings.size());
    EXPECT_EQ(told["status"].size(), statuses.size());
    EXPECT_EQ(members, settings.size() + statuses.size());
    EXPECT_EQ(told["status"]["30"], std::string(100, '"'));
    EXPECT_EQ(told["status"]["54"], uint64_t{18446744073709551615u});
}

TEST(StatePush, ChangesAreOneCompactDocumentOfLastValuesWithoutWhatDoesNotFit) {
    SampleCamera sample;
    sample.camera.forceSetting(2, 4);
    sample.camera.setStatus(8, uint64_t{1});
    sample.camera.setStatus(8, uint64_t{0});
    sample.camera.setStatus(29, std::string("a\xff\x01z"));
    sample.camera.setStatus(30, std::string(90, 'x'));

    PendingPush pending{{2, 200}, {8, 30}};  // 200 has no value
    EXPECT_EQ(takePush(pending, sample.camera, 60), R"({"settings":{"2":4},"status":{"8":0}})");
    EXPECT_TRUE(pending.empty());
    EXPECT_EQ(takePush(pending, sample.camera, 60), "");
    pending.statuses = {29};
    EXPECT_TRUE(Json::accept(takePush(pending, sample.camera, 60))) << "text that is no UTF-8";
}
