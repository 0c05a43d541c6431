// Names, strings, the card id, JSON readers, the checksum and the start of a daemon.
#include "utils.h"

#include <cjson/cJSON.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <zlib.h>

#include <climits>
#include <cstring>
#include <memory>
#include <random>

#include "fakeSystem.h"
#include "kzControlCommands.h"

namespace {

TEST(Names, UnknownCodesAndModelsHaveNone) {
    EXPECT_STREQ(kzErrno2Str(0), "KZ_OK");
    EXPECT_STREQ(kzErrno2Str(-17), "KZ_ERR_ACCESS_DENIED");
    EXPECT_STREQ(kzErrno2Str(-104), "KZ_ERR_NOT_SUPPORTED");
    for (const int code : {-13, 1, -105, INT_MIN}) {
        EXPECT_STREQ(kzErrno2Str(code), "UNKNOWN");
    }
    EXPECT_STREQ(get_model_name(58), "58");
    EXPECT_STREQ(get_model_name(51), "tamarind");
    EXPECT_STREQ(get_model_name(0x100 + 50), "kelp");
    for (const int model : {0, 59, 255, -1}) {
        EXPECT_EQ(get_model_name(model), nullptr);
    }
}

TEST(Names, ControlCommandsAreNumberedInTheirOrder) {
    const struct {
        uint32_t id;
        const char* name;
    } cases[] = {
        {0, "KZCONTROL_EVENT_REGISTER_MQUEUE"},      {30, "KZCONTROL_SET_SETTING_ID"}, {67, "KZCONTROL_MODE_SET_MODE"},
        {83, "KZCONTROL_PRESET_SET_TITLE_AND_ICON"}, {102, "KZCONTROL_CMD_LAST"},      {103, "UNKNOWN"},
    };
    for (const auto& row : cases) {
        EXPECT_STREQ(kzControlCommandName(row.id), row.name);
    }
}

TEST(Text, TrimSkipsLeadingBlanksAlone) {
    char text[] = " \t a b ";
    EXPECT_STREQ(trim(text), "a b ");
    char blank[] = " \t";
    EXPECT_EQ(trim(blank), nullptr);
    EXPECT_EQ(trim(nullptr), nullptr);
}

TEST(Text, PercentEscapesAreDecodedInPlace) {
    const struct {
        const char* given;
        std::string decoded;
    } cases[] = {
        {"", ""},      {"plain", "plain"}, {"a%20b%2Fc%2f", "a b/c/"},        {"%41", "A"},     {"ab%4", "ab"},
        {"ab%", "ab"}, {"%zz%41", "%zzA"}, {"a%00b", std::string("a\0b", 3)}, {"%%341", "%41"},
    };
    for (const auto& row : cases) {
        char text[32] = {};
        std::strncpy(text, row.given, sizeof(text) - 1);
        int length = static_cast<int>(std::strlen(text));

        unescapeUrl(text, &length);

        EXPECT_EQ(std::string(text, static_cast<size_t>(length)), row.decoded) << row.given;
        EXPECT_EQ(text[length], '\0');
    }
    testing::internal::CaptureStderr();
    unescapeUrl(nullptr, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Cannot escape url, pointer is null\n");
}

TEST(Text, CardIdIsDigitsUpToTerminatorOrLength) {
    EXPECT_TRUE(validateCardID("", 10));
    EXPECT_TRUE(validateCardID("0123456789", 32));
    EXPECT_TRUE(validateCardID("12x", 2));
    EXPECT_FALSE(validateCardID("12x", 3));
    EXPECT_FALSE(validateCardID("12\n", 32));
}

// ---------------------------------------------------------------- card id

TEST(CardId, IsMadeOnceAndThenKept) {
    const fake::PrivateFiles files;
    char first[32] = {};
    char second[32] = {};

    ASSERT_EQ(getCardIDStr(first), 0);
    ASSERT_EQ(getCardIDStrFromCard(second, 0), 0);

    EXPECT_TRUE(validateCardID(first, sizeof(first)));
    EXPECT_STRNE(first, "");
    EXPECT_STREQ(first, second);
    EXPECT_EQ(files.read("/tmp/fuse_d/MISC/card"), first);
    EXPECT_FALSE(std::filesystem::exists(files.at("/tmp/fuse_i/MISC")));
}

TEST(CardId, OfTheInternalStorageIsReadFromThere) {
    const fake::PrivateFiles files;
    files.write("/tmp/fuse_i/MISC/card", "4711");
    char id[32] = {};

    EXPECT_EQ(getCardIDStrFromCard(id, 1), 0);

    EXPECT_STREQ(id, "4711");
}

TEST(CardId, StoredTextThatIsNotANumberIsReplaced) {
    for (const char* stored : {"12a4", "", "4711\n"}) {
        const fake::PrivateFiles files;
        files.write("/tmp/fuse_d/MISC/card", stored);
        char id[32] = {};

        EXPECT_EQ(getCardIDStr(id), 0);

        EXPECT_TRUE(validateCardID(id, sizeof(id)));
        EXPECT_EQ(files.read("/tmp/fuse_d/MISC/card"), id);
    }
}

TEST(CardId, FailureGivesZeroAndItsReason) {
    const fake::PrivateFiles files;
    const auto reason = [](int which) {
        char id[32] = "unchanged";
        testing::internal::CaptureStderr();
        EXPECT_EQ(getCardIDStrFromCard(id, which), -1);
        EXPECT_STREQ(id, "0");
        return testing::internal::GetCapturedStderr();
    };
    files.write("/tmp/fuse_d/MISC", "a file");
    std::filesystem::remove_all(files.at("/tmp/fuse_i"));

    EXPECT_EQ(reason(0), "Path:/tmp/fuse_d/MISC/ exists and is a NOT folder\n");
    EXPECT_EQ(reason(1), "Failed to create folder:/tmp/fuse_i/MISC/\n");

    std::filesystem::remove(files.at("/tmp/fuse_d/MISC"));
    std::filesystem::create_directories(files.at("/tmp/fuse_d/MISC/card"));
    files.write("/tmp/fuse_d/MISC/card/occupied", "");
    EXPECT_EQ(reason(0), "Failed to create file  /tmp/fuse_d/MISC/card\n");

    EXPECT_EQ(getCardIDStr(nullptr), -1);
}

TEST(CardId, MessagesFileIsSeen) {
    const fake::PrivateFiles files;
    EXPECT_FALSE(messages_txt_exists());
    files.write("/tmp/fuse_d/messages.txt", "");
    EXPECT_TRUE(messages_txt_exists());
}

// ---------------------------------------------------------------- JSON

class Json : public testing::Test {
  protected:
    struct Delete {
        void operator()(cJSON* tree) const { cJSON_Delete(tree); }
    };
    std::unique_ptr<cJSON, Delete> m_tree{cJSON_Parse(
        R"({"n":42,"neg":-1,"frac":2.9,"big":1e30,"s":"17","hex":"12ab","text":"abc","huge":"99999999999999999999",)"
        R"("t":true,"f":false,"null":null,"a":[1],"o":{}})")};
};

TEST_F(Json, IntegersAreReadFromEveryFormThatHoldsOne) {
    constexpr int kUntouched = -99;
    const struct {
        const char* key;
        int required;
        int result;
        int value;
    } cases[] = {
        {"n", 1, 0, 42},
        {"neg", 1, 0, -1},
        {"frac", 1, 0, 2},
        {"big", 1, 0, INT_MAX},
        {"s", 1, 0, 17},
        {"huge", 1, 0, INT_MAX},
        {"hex", 1, -1, 12},
        {"text", 0, -1, 0},
        {"t", 0, 0, 1},
        {"f", 0, 0, 0},
        {"null", 1, -1, kUntouched},
        {"null", 0, 0, kUntouched},
        {"none", 1, -1, kUntouched},
        {"none", 0, 0, kUntouched},
        {"a", 0, -1, kUntouched},
        {"o", 0, -1, kUntouched},
    };
    for (const auto& row : cases) {
        int value = kUntouched;
        EXPECT_EQ(Utils::cjson_parse_int(m_tree.get(), row.key, &value, row.required), row.result) << row.key;
        EXPECT_EQ(value, row.value) << row.key;
    }
}

TEST_F(Json, StringsPointIntoTheTree) {
    const char* value = "untouched";
    EXPECT_EQ(Utils::cjson_parse_string(m_tree.get(), "text", &value, 1), 0);
    EXPECT_EQ(value, cJSON_GetObjectItem(m_tree.get(), "text")->valuestring);
    EXPECT_EQ(Utils::cjson_parse_string(m_tree.get(), "null", &value, 1), 0);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(Utils::cjson_parse_string(m_tree.get(), "n", &value, 0), -1);
    EXPECT_EQ(Utils::cjson_parse_string(m_tree.get(), "none", &value, 1), -1);
    EXPECT_EQ(Utils::cjson_parse_string(m_tree.get(), "none", &value, 0), 0);
}

TEST_F(Json, NullArgumentsAreRefused) {
    int number = 0;
    const char* text = nullptr;
    EXPECT_EQ(Utils::cjson_parse_int(nullptr, "n", &number, 0), -3);
    EXPECT_EQ(Utils::cjson_parse_int(m_tree.get(), nullptr, &number, 0), -3);
    EXPECT_EQ(Utils::cjson_parse_int(m_tree.get(), "n", nullptr, 0), -3);
    EXPECT_EQ(Utils::cjson_parse_string(nullptr, "n", &text, 0), -3);
    EXPECT_EQ(Utils::cjson_parse_string(m_tree.get(), nullptr, &text, 0), -3);
    EXPECT_EQ(Utils::cjson_parse_string(m_tree.get(), "n", nullptr, 0), -3);
}

// ---------------------------------------------------------------- checksum

TEST(Crc32, AgreesWithTheStandardForEveryLengthAndAlignment) {
    std::minstd_rand random(1);
    std::vector<uint8_t> data(300);
    for (uint8_t& byte : data) {
        byte = static_cast<uint8_t>(random());
    }
    for (uint32_t start = 0; start < 8; ++start) {
        for (uint32_t length = 0; start + length <= data.size(); ++length) {
            ASSERT_EQ(Utils::crc32(data.data() + start, length), ::crc32(0, data.data() + start, length))
                << start << ' ' << length;
        }
    }
    EXPECT_EQ(Utils::crc32(reinterpret_cast<const uint8_t*>("123456789"), 9), 0xCBF43926u);
    EXPECT_EQ(Utils::crc32(nullptr, 0), 0u);
}

// ---------------------------------------------------------------- daemon

TEST(Daemon, LeavesItsSessionItsFolderAndItsParent) {
    struct {
        int result;
        bool ownSession;
        bool inRoot;
        mode_t mask;
    } seen = {};
    int channel[2];
    ASSERT_EQ(pipe(channel), 0);

    const pid_t child = fork();
    if (child == 0) {
        seen.result = daemon_init();
        char folder[64] = {};
        seen.ownSession = getsid(0) == getpid();
        seen.inRoot = getcwd(folder, sizeof(folder)) != nullptr && std::string(folder) == "/";
        seen.mask = umask(0);
        _exit(write(channel[1], &seen, sizeof(seen)) == sizeof(seen) ? 0 : 1);
    }
    close(channel[1]);
    int status = -1;
    waitpid(child, &status, 0);
    const ssize_t length = read(channel[0], &seen, sizeof(seen));
    close(channel[0]);

    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    ASSERT_EQ(length, static_cast<ssize_t>(sizeof(seen)));
    EXPECT_EQ(seen.result, 0);
    EXPECT_TRUE(seen.ownSession);
    EXPECT_TRUE(seen.inRoot);
    EXPECT_EQ(seen.mask, 0u);
}

}  // namespace
