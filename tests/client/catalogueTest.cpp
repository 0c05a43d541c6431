// What the client reads of settings.json, of answers and of its user's words.
#include "catalogue.h"

#include <gtest/gtest.h>

#include "bleClient.h"

namespace {

using kzclient::Catalogue;
using kzclient::Error;

TEST(Catalogue, FindsIdsByNumberAndByNameInAnyWriting) {
    const auto catalogue = Catalogue::parse(R"({"version": 2, "modes": [],
        "settings": [{"id": 2, "display_name": "Video Resolution", "options": [{"id": 1, "display_name": "4K"}]}],
        "status": {"groups": [{"fields": [{"id": 70, "name": "battery_percent"}]}]}})");

    EXPECT_EQ(catalogue.settingId("video-resolution"), 2);
    EXPECT_EQ(catalogue.settingId("77"), 77) << "numbers need no name";
    EXPECT_EQ(catalogue.statusId("Battery Percent"), 70);
    EXPECT_EQ(catalogue.optionId(2, "4k"), 1u);
    EXPECT_EQ(catalogue.optionId(2, "300"), 300u);
    EXPECT_EQ(catalogue.optionName(2, 1), "4K");
    EXPECT_EQ(catalogue.optionName(2, 10), "10");
    EXPECT_THROW(catalogue.settingId("nothing"), Error);
    EXPECT_THROW(catalogue.settingId("256"), Error);
    EXPECT_THROW(catalogue.optionId(2, "8K"), Error);
}

TEST(Catalogue, RefusesWhatIsNoneAndWhatIsCut) {
    for (const char* text : {"", "[]", "{}", R"({"settings": 1, "status": {"groups": []}})", "\xff"}) {
        EXPECT_THROW(Catalogue::parse(text), Error) << text;
    }
    EXPECT_THROW(kzclient::gunzip("\x1f\x8b\x08"), Error);
    EXPECT_THROW(kzclient::gunzip(""), Error);
}

TEST(Entries, SplitIntoIdAndValueAndNeverReadPastTheEnd) {
    const std::vector<uint8_t> bytes = {2, 1, 9, 30, 4, 0, 0, 3, 0xE8, 7, 0};

    const auto entries = kzclient::parseEntries(bytes);

    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].id, 2);
    EXPECT_EQ(kzclient::bigEndian(entries[1].value), 1000u);
    EXPECT_TRUE(entries[2].value.empty());
    for (const size_t cut : {1u, 2u, 4u, 5u, 6u, 7u, 8u, 10u}) {
        EXPECT_THROW(kzclient::parseEntries({bytes.data(), cut}), Error) << cut;
    }
}

TEST(Addresses, AreTwelveDigits) {
    const kzclient::Address expected{0x02, 0, 0, 0, 0xAB, 0x01};
    EXPECT_EQ(kzclient::parseAddress("02:00:00:00:AB:01"), expected);
    EXPECT_EQ(kzclient::parseAddress("02000000ab01"), expected);
    for (const char* text : {"", "02:00:00:00:ab", "02:00:00:00:ab:0g", "02:00:00:00:ab:01:02"}) {
        EXPECT_THROW(kzclient::parseAddress(text), Error) << text;
    }
}

}  // namespace
