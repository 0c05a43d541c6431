// Plain queries: the bytes that answer them and the interests they change.
#include "queryFixture.h"

namespace {

constexpr auto kStatus = NotificationClient::eNotifyStatus;
constexpr auto kSettings = NotificationClient::eNotifySettings;
constexpr auto kCapabilities = NotificationClient::eNotifyCapabilities;

const Bytes kAllSettings = {2, 1, 9, 5, 1, 4, 30, 4, 0, 0, 0x03, 0xE8};
const Bytes kAllStatus = {8, 1, 1, 13, 4, 0, 1, 0x11, 0x70, 29, 3, 'c', 'a', 'm', 33, 1, 255};
const Bytes kAllCapabilities = {2, 1, 1, 2, 1, 9, 5, 1, 3, 30, 4, 0, 0, 0x03, 0xE8, 59, 1, 0};

struct ReadCase {
    const char* what;
    Bytes request;
    Bytes answer;
};

class QueryReads : public QueryTest, public testing::WithParamInterface<ReadCase> {};

TEST_P(QueryReads, AnswersTheBytes) {
    const Outcome outcome = Run(GetParam().request);

    EXPECT_EQ(outcome.answer, GetParam().answer);
    EXPECT_EQ(fakes::Calls(), Calls{});
}

INSTANTIATE_TEST_SUITE_P(
    Plain, QueryReads,
    testing::Values(
        ReadCase{"values of two settings, ascending", {0x12, 5, 2}, {0x12, 0, 2, 1, 9, 5, 1, 4}},
        ReadCase{"values of all settings", {0x12}, Bytes{0x12, 0} + kAllSettings},
        ReadCase{"a setting without a value", {0x12, 59}, {0x12, 0, 59, 0}},
        ReadCase{"an id asked for twice is found once", {0x12, 2, 2}, {0x12, 2, 2, 1, 9}},
        ReadCase{"an unknown id is dropped", {0x12, 2, 77}, {0x12, 0, 2, 1, 9}},
        ReadCase{"ids that are all unknown are not all ids", {0x12, 77, 181}, {0x12, 0}},
        ReadCase{"names", {0x22, 2, 5}, {0x22, 0, 2, 4, 'T', 'O', 'D', 'O', 5, 4, 'T', 'O', 'D', 'O'}},
        ReadCase{"names of no ids", {0x22}, {0x22, 0}},
        ReadCase{"capabilities without the blacklisted option", {0x32, 5, 2}, {0x32, 0, 2, 1, 1, 2, 1, 9, 5, 1, 3}},
        ReadCase{"all capabilities", {0x32}, Bytes{0x32, 0} + kAllCapabilities},
        ReadCase{"capabilities of unknown ids", {0x32, 99}, {0x32, 0}},
        ReadCase{"capabilities and names", {0x42, 5}, {0x42, 0, 5, 1, 3, 'T', 'O', 'D', 'O'}},
        ReadCase{"status values", {0x13, 29, 8}, {0x13, 0, 8, 1, 1, 29, 3, 'c', 'a', 'm'}},
        ReadCase{"all status values", {0x13}, Bytes{0x13, 0} + kAllStatus},
        ReadCase{"unknown status ids", {0x13, 200}, {0x13, 0}}, ReadCase{"an unknown category", {0x14, 2}, {0x14, 2}},
        ReadCase{"an unknown type of settings", {0x92, 2}, {0x92, 2}},
        ReadCase{"an unknown type of status", {0x23, 8}, {0x23, 2}}, ReadCase{"an empty message", {}, {0x00, 2}},
        ReadCase{"a protobuf query without action", {0xF5}, {0xF5, 2}}));

struct InterestCase {
    Bytes request;
    NotificationClient::eNotificationType_t type;
    Ints interest;  // of a client that had 2 and 5, or 8 and 13, before
    Bytes answer;
};

class QueryInterests : public QueryTest, public testing::WithParamInterface<InterestCase> {};

TEST_P(QueryInterests, ChangeWhatTheClientIsToldOf) {
    const InterestCase& test = GetParam();
    m_client.AddInterest(kSettings, Ints{2, 5});
    m_client.AddInterest(kCapabilities, Ints{2, 5});
    m_client.AddInterest(kStatus, Ints{8, 13});

    const Outcome outcome = Run(test.request);

    EXPECT_EQ(outcome.answer, test.answer);
    EXPECT_EQ(Interest(test.type), test.interest);
    for (auto other : {kSettings, kCapabilities, kStatus}) {
        if (other != test.type) {
            EXPECT_EQ(Interest(other), (other == kStatus ? Ints{8, 13} : Ints{2, 5}));
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Plain, QueryInterests,
    testing::Values(InterestCase{{0x52}, kSettings, {2, 5, 30, 59}, Bytes{0x52, 0} + kAllSettings},
                    InterestCase{{0x52, 59, 2}, kSettings, {2, 5, 59}, {0x52, 0, 2, 1, 9, 59, 0}},
                    InterestCase{{0x52, 66}, kSettings, {2, 5}, {0x52, 0}},
                    InterestCase{{0x62}, kCapabilities, {2, 5, 30, 59}, Bytes{0x62, 0} + kAllCapabilities},
                    InterestCase{{0x62, 30}, kCapabilities, {2, 5, 30}, {0x62, 0, 30, 4, 0, 0, 0x03, 0xE8}},
                    InterestCase{{0x72}, kSettings, {}, {0x72, 0}}, InterestCase{{0x72, 5}, kSettings, {2}, {0x72, 0}},
                    InterestCase{{0x72, 66}, kSettings, {2, 5}, {0x72, 0}},
                    InterestCase{{0x82}, kCapabilities, {}, {0x82, 0}},
                    InterestCase{{0x82, 2, 5}, kCapabilities, {}, {0x82, 0}},
                    InterestCase{{0x53}, kStatus, {8, 13, 29, 33, 96, 97}, Bytes{0x53, 0} + kAllStatus},
                    InterestCase{{0x53, 29}, kStatus, {8, 13, 29}, {0x53, 0, 29, 3, 'c', 'a', 'm'}},
                    InterestCase{{0x53, 250}, kStatus, {8, 13}, {0x53, 0}},
                    InterestCase{{0x73}, kStatus, {}, {0x73, 0}}, InterestCase{{0x73, 8}, kStatus, {13}, {0x73, 0}},
                    InterestCase{{0x73, 250}, kStatus, {8, 13}, {0x73, 0}}));

TEST_F(QueryTest, SaysWhatItDoesInTheLog) {
    const struct {
        Bytes request;
        std::vector<std::string> texts;
    } cases[] = {
        {{0x12, 2, 66},
         {"Query first byte = 18", "Parsed category:2 type:1", "Skipping invalid id:66 passed by user",
          "Executing Query Category:2 type:1", "Get settings values. Count 1", "Got 1 values back"}},
        {{0x12, 2, 2},
         {"Query first byte = 18", "Parsed category:2 type:1", "Executing Query Category:2 type:1",
          "Get settings values. Count 2", "Possible request for setting with invalid id", "Got 1 values back"}},
        {{0x52},
         {"Query first byte = 82", "Parsed category:2 type:5", "Executing Query Category:2 type:5",
          "Settings Register When Value Changes", "Registering interest in all settings as no ids specified in command",
          "Got 3 values back"}},
        {{0x53, 8},
         {"Query first byte = 83", "Parsed category:3 type:5", "Executing Query Category:3 type:5",
          "Status Register When Value Changes", "Registering interest in 1 ids", "Got 1 values back"}},
        {{0x53},
         {"Query first byte = 83", "Parsed category:3 type:5", "Executing Query Category:3 type:5",
          "Status Register When Value Changes", "Adding interest in all as no id's specified", "Got 4 values back"}},
        {{0x95},
         {"Query first byte = 149", "Parsed category:5 type:9", "Executing Query Category:5 type:9",
          "Unsupported query category:5"}},
        {{0x93},
         {"Query first byte = 147", "Parsed category:3 type:9", "Executing Query Category:3 type:9",
          "Invalid category:3 and type:9"}},
    };
    for (const auto& test : cases) {
        const fakes::LogCapture log(5);

        Run(test.request);

        EXPECT_EQ(log.Texts(), test.texts);
    }
}

TEST_F(QueryTest, MoreIdsThanTheTableHasAreAParseError) {
    const Bytes most(182, 2);

    const Outcome taken = Run(Bytes{0x12} + most);
    const Outcome refused = Run(Bytes{0x12} + most + Bytes{2});
    const Outcome withUnknown = Run(Bytes{0x12} + most + Bytes{66, 66});
    const Outcome status = Run(Bytes{0x13} + Bytes(119, 8));

    EXPECT_EQ(taken.answer, (Bytes{0x12, 2, 2, 1, 9}));
    EXPECT_EQ(refused.answer, (Bytes{0x12, 2}));
    EXPECT_EQ(withUnknown.answer, (Bytes{0x12, 2, 2, 1, 9}));
    EXPECT_EQ(status.answer, (Bytes{0x13, 2}));
}

TEST_F(QueryTest, ATextLongerThanItsLengthByteIsCut) {
    Push(R"({"status": {"29": ")" + std::string(300, 'x') + R"("}})");
    const fakes::LogCapture log(2);

    const Outcome outcome = Run({0x13, 29});

    EXPECT_EQ(outcome.answer, (Bytes{0x13, 0, 29, 255}) + Bytes(255, 'x'));
    EXPECT_EQ(log.Lines().size(), 1u);
}

TEST_F(QueryTest, ErrorAnswersRepeatTheHeader) {
    const struct {
        int error;
        uint8_t result;
    } cases[] = {{KZ_ERR, 1}, {KZ_ERR_INVALID_PARAM, 2}, {KZ_ERR_ACCESS_DENIED, 1}, {5, 5}, {15, 1}};
    Run({0x32, 2});
    for (const auto& test : cases) {
        uint8_t answer[2] = {};
        uint16_t length = sizeof(answer);

        EXPECT_EQ(m_message.HandleError(test.error, answer, &length), 0);

        EXPECT_EQ(length, 2);
        EXPECT_EQ(answer[0], 0x32);
        EXPECT_EQ(answer[1], test.result);
    }
}

TEST_F(QueryTest, WithoutAModelEveryQueryIsAnError) {
    BleSDK::Destroy();

    const Outcome outcome = Run({0x12, 2});

    EXPECT_EQ(outcome.answer, (Bytes{0x12, 1}));
}

// A catalogue in which every setting offers every option its width can carry.
class LargeCatalogue : public QueryTest {
  protected:
    LargeCatalogue() {
        std::string settings;
        for (int id = 1; id < 182; ++id) {
            std::string options;
            for (int option = 0; option < 256; ++option) {
                options +=
                    (option == 0 ? "" : ",") + (R"({"id":)" + std::to_string(option) + R"(,"display_name":"O"})");
            }
            settings += (id == 1 ? "" : ",") +
                        (R"({"id":)" + std::to_string(id) + R"(,"display_name":"S","options":[)" + options + "]}");
        }
        Load(R"({"modes":[],"settings":[)" + settings + R"(],"status":{"groups":[{"fields":[{"id":8,"name":"B"}]}]},
            "filters":[{"activated_by":[{"status_id":8,"values":[1]}],"blacklist":[]}]})");
        Push(R"({"status":{"8":1}})");
    }
};

TEST_F(LargeCatalogue, AnAnswerThatDoesNotFitHoldsWholeEntriesAndSaysFailure) {
    for (const uint8_t first : {uint8_t{0x32}, uint8_t{0x42}}) {
        const fakes::LogCapture log(2);

        const Outcome all = Run({first});

        // 256 options of 3 bytes, or of 7 with a name.
        const size_t settingSize = first == 0x32 ? 256 * 3 : 256 * 7;
        EXPECT_EQ(all.code, KZ_OK);
        ASSERT_EQ(all.answer.size(), 2 + (8188 - 2) / settingSize * settingSize);
        EXPECT_EQ(all.answer[1], 1);
        EXPECT_EQ(all.answer[2], 1);
        EXPECT_EQ(log.Lines().size(), 1u);
    }
}

TEST_F(LargeCatalogue, SmallerGroupsTellEverything) {
    size_t entries = 0;
    for (uint8_t id = 1; id < 182; ++id) {
        const Outcome outcome = Run({0x42, id});

        const size_t entrySize = 2 + (kzSettingWidth(58, id) == eValueWidth4Bytes ? 4 : 1) + 4;
        ASSERT_EQ(outcome.answer[1], 0);
        entries += (outcome.answer.size() - 2) / entrySize;
    }
    EXPECT_EQ(entries, 181u * 256);
}

}  // namespace
