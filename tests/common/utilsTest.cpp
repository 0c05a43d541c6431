// Names, strings, the card id, JSON readers, the checksum and the start of a daemon.
#include "utils.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <climits>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>

#include "kzControlCommands.h"
#include "privateTmp.h"

TEST(Names, UnknownCodesModelsAndCommandsHaveNone) {
    std::string known;
    for (int code = 1; code >= -105; --code) {
        known += std::string_view(kzErrno2Str(code)) != "UNKNOWN" ? std::to_string(-code) + " " : "";
    }
    EXPECT_EQ(known, "0 1 2 3 4 5 6 7 8 9 10 11 12 14 15 16 17 100 101 102 103 104 ");
    EXPECT_STREQ(kzErrno2Str(-17), "KZ_ERR_ACCESS_DENIED");
    std::string models;
    for (int model = 0x100; model < 0x200; ++model) {  // the low byte counts
        const char* name = get_model_name(model);
        models += name != nullptr ? std::to_string(model - 0x100) + "=" + name + " " : "";
    }
    EXPECT_EQ(models, "50=kelp 51=tamarind 55=55 57=57 58=58 60=60 61=61 ");
    EXPECT_STREQ(kzControlCommandName(0), "KZCONTROL_EVENT_REGISTER_MQUEUE");
    EXPECT_STREQ(kzControlCommandName(67), "KZCONTROL_MODE_SET_MODE");
    EXPECT_STREQ(kzControlCommandName(103), "UNKNOWN");
}

TEST(Text, IsTrimmedUnescapedAndJudgedInPlace) {
    char text[] = " \t a b ";
    char blank[] = " \t";
    EXPECT_STREQ(trim(text), "a b ");
    EXPECT_EQ(trim(blank), nullptr);
    EXPECT_EQ(trim(nullptr), nullptr);
    const std::map<std::string, std::string> kRows = {{"", ""},
                                                      {"plain", "plain"},
                                                      {"a%20b%2Fc%2f", "a b/c/"},
                                                      {"%41", "A"},
                                                      {"ab%4", "ab"},
                                                      {"ab%", "ab"},
                                                      {"%zz%41", "%zzA"},
                                                      {"a%00b", std::string("a\0b", 3)},
                                                      {"%%341", "%41"},
                                                      {"%aF%fA%09%90", "\xAF\xFA\t\x90"},
                                                      {"%@0%G0%/0%:0%`0%g0", "%@0%G0%/0%:0%`0%g0"}};
    for (const auto& [given, decoded] : kRows) {
        std::string url = given;
        int length = static_cast<int>(url.size());
        unescapeUrl(url.data(), &length);
        EXPECT_EQ(url.substr(0, static_cast<size_t>(length)), decoded) << given;
        EXPECT_EQ(url.c_str()[length], '\0');
    }
    unescapeUrl(nullptr, nullptr);
    EXPECT_TRUE(validateCardID("", 10) && validateCardID("0123456789", 32) && validateCardID("12x", 2));
    EXPECT_FALSE(validateCardID("12x", 3) || validateCardID("12\n", 32));
}

// ---------------------------------------------------------------- card id

TEST(CardId, IsMadeWhenThereIsNoneOrItIsNoNumberAndThenKept) {
    if (!fakes::EnterPrivateTmp()) {
        GTEST_SKIP() << "no private /tmp on this system";
    }
    char first[32] = "99999999";
    char second[32] = {};
    EXPECT_FALSE(messages_txt_exists());
    EXPECT_EQ(getCardIDStr(nullptr), -1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(getCardIDStrFromCard(first, 1), -1);
    EXPECT_STREQ(first, "0");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to create folder:/tmp/fuse_i/MISC/\n");
    std::filesystem::create_directories("/tmp/fuse_i/MISC");
    std::filesystem::create_directories("/tmp/fuse_d/MISC");
    std::ofstream("/tmp/fuse_d/messages.txt") << "";
    EXPECT_TRUE(messages_txt_exists());
    std::ofstream("/tmp/fuse_i/MISC/card") << "4711";
    EXPECT_EQ(getCardIDStrFromCard(first, 1), 0);
    EXPECT_STREQ(first, "4711");
    for (const char* stored : {"", "12a4", "4711\n"}) {
        std::ofstream("/tmp/fuse_d/MISC/card") << stored;
        EXPECT_EQ(getCardIDStr(first), 0);
        EXPECT_EQ(getCardIDStrFromCard(second, 0), 0);
        EXPECT_TRUE(*first != '\0' && validateCardID(first, sizeof(first)));
        EXPECT_STREQ(first, second);
    }
}

// ---------------------------------------------------------------- JSON

TEST(Json, IntegersAreReadFromEveryFormThatHoldsOneAndStringsPointIntoTheTree) {
    const std::unique_ptr<cJSON, decltype(&cJSON_Delete)> tree(
        cJSON_Parse(R"({"n":42,"neg":-1,"frac":2.9,"big":1e30,"s":"17","hex":"12ab","text":"abc",)"
                    R"("huge":"99999999999999999999","t":true,"f":false,"null":null,"a":[1],"o":{}})"),
        cJSON_Delete);
    constexpr int kUntouched = -99;
    // Key, required, result, value.
    // clang-format off
    const std::tuple<const char*, int, int, int> kIntegers[] = {
        {"n", 1, 0, 42}, {"neg", 1, 0, -1}, {"frac", 1, 0, 2}, {"big", 1, 0, INT_MAX}, {"s", 1, 0, 17},
        {"huge", 1, 0, INT_MAX}, {"hex", 1, -1, 12}, {"text", 0, -1, 0}, {"t", 0, 0, 1}, {"f", 0, 0, 0},
        {"null", 1, -1, kUntouched}, {"null", 0, 0, kUntouched}, {"a", 0, -1, kUntouched}, {"o", 0, -1, kUntouched},
        {"none", 1, -1, kUntouched}, {"none", 0, 0, kUntouched}, {nullptr, 0, -3, kUntouched},
    };
    // clang-format on
    for (const auto& [key, required, result, number] : kIntegers) {
        int value = kUntouched;
        EXPECT_EQ(Utils::cjson_parse_int(tree.get(), key, &value, required), result) << number;
        EXPECT_EQ(value, number);
    }
    const std::tuple<const char*, int, int> kTexts[] = {{"text", 1, 0},  {"null", 1, 0}, {"n", 0, -1},
                                                        {"none", 1, -1}, {"none", 0, 0}, {nullptr, 0, -3}};
    for (const auto& [key, required, result] : kTexts) {
        const char* text = "untouched";
        EXPECT_EQ(Utils::cjson_parse_string(tree.get(), key, &text, required), result);
        EXPECT_STREQ(text,
                     required == 0 || result != 0 ? "untouched" : cJSON_GetObjectItem(tree.get(), key)->valuestring);
    }
    EXPECT_EQ(Utils::cjson_parse_int(nullptr, "n", nullptr, 0), -3);
}

// ---------------------------------------------------------------- checksum and daemon

TEST(Crc32, AgreesWithTheStandardForEveryLengthAndAlignment) {
    std::vector<uint8_t> data(300);
    for (size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<uint8_t>(i * i * 7 + i / 3);
    }
    for (uint32_t start = 0; start < 8; ++start) {
        for (uint32_t length = 0; start + length <= data.size(); ++length) {
            ASSERT_EQ(Utils::crc32(data.data() + start, length), ::crc32(0, data.data() + start, length));
        }
    }
    EXPECT_EQ(Utils::crc32(nullptr, 0), 0u);
}

TEST(Daemon, LeavesItsSessionItsFolderAndItsParent) {
    int channel[2];
    ASSERT_EQ(pipe(channel), 0);
    const pid_t child = fork();
    if (child == 0) {
        const bool done =
            daemon_init() == 0 && getsid(0) == getpid() && std::filesystem::current_path() == "/" && umask(0) == 0;
        _exit(write(channel[1], &done, 1) == 1 ? 0 : 1);
    }
    close(channel[1]);
    int status = -1;
    waitpid(child, &status, 0);
    bool done = false;
    EXPECT_EQ(read(channel[0], &done, 1), 1);
    close(channel[0]);
    EXPECT_TRUE(done);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the parent returns";
}
