// The way from an item of a JSON tree back to its text.
#include "jsonText.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

// What stands in the text from the value of each member on.
std::vector<std::string> TextsOfMembers(const std::string& json) {
    const JsonTree root(cJSON_Parse(json.c_str()));
    EXPECT_NE(root, nullptr) << json;
    std::vector<std::string> texts;
    if (root != nullptr) {
        ObjectText members(json.c_str(), root.get());
        for (const cJSON* member = root->child; member != nullptr; member = member->next) {
            texts.emplace_back(members.ValueOf(member));
        }
    }
    return texts;
}

TEST(ObjectText, FindsEachValueWhateverStandsBetween) {
    const struct {
        std::string json;
        std::vector<std::string> expected;
    } kRows[] = {
        {"{}", {}},
        {"{\"a\":1}", {"1}"}},
        {"\xEF\xBB\xBF \t{ \"a\" :\r\n 1 , \"a\":2 } tail", {"1 , \"a\":2 } tail", "2 } tail"}},
        {R"({"{\"a\":":[1,{"x":"]}"}],"b,":"\\","c":-3.5e1})",
         {R"([1,{"x":"]}"}],"b,":"\\","c":-3.5e1})", R"("\\","c":-3.5e1})", "-3.5e1}"}},
        {R"({"a":{"b":{"c":[[],{}]}},"d":"\",\"","e":true})",
         {R"({"b":{"c":[[],{}]}},"d":"\",\"","e":true})", R"("\",\"","e":true})", "true}"}},
        {"{\"a\":1\x01,\x02\"b\"\x03:\x1F"
         "2}",
         {"1\x01,\x02\"b\"\x03:\x1F"
          "2}",
          "2}"}},
    };
    for (const auto& row : kRows) {
        EXPECT_EQ(TextsOfMembers(row.json), row.expected) << row.json;
    }
}

TEST(ObjectText, MembersMayBeLeftOut) {
    const std::string json = R"({"a":1,"b":[2,2],"c":3,"d":4})";
    const JsonTree root(cJSON_Parse(json.c_str()));
    ObjectText members(json.c_str(), root.get());
    const cJSON* last = root->child->prev;

    EXPECT_EQ(std::string(members.ValueOf(last->prev)), R"(3,"d":4})");
    EXPECT_EQ(std::string(members.ValueOf(last->prev)), R"(3,"d":4})");
    EXPECT_EQ(std::string(members.ValueOf(last)), "4}");
}

TEST(HasFractionOrExponent, IsFalseOnlyForPlainIntegers) {
    EXPECT_FALSE(HasFractionOrExponent(R"({"settings":{"2":1,"30":-18446744073709551615},"E":["e"]})"));
    for (const char* json : {"1.5", "[1,2e3]", "{\"settings\":1E5}", "1.e5", "[\"e\",0e0]"}) {
        EXPECT_TRUE(HasFractionOrExponent(json)) << json;
    }
}

}  // namespace
