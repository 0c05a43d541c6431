// The byte layouts of the answers.
#include "bleResponses.h"

#include "handlersFixture.h"

namespace {

class ResponsesTest : public HandlersTest<BleSettingsMessage> {
  protected:
    template <typename Response>
    static Bytes Written(const Response& response) {
        uint8_t buffer[1024] = {};
        MemoryStream stream(buffer, sizeof(buffer));
        stream << response;
        return {buffer, buffer + stream.getLength()};
    }

    static SettingsStatusMapping::IdNums Options(int id, std::vector<int> numbers) {
        SettingsStatusMapping::IdNums entry;
        entry.id = id;
        entry.numbers = std::move(numbers);
        return entry;
    }

    static FlexValue Value(const Bytes& bytes) {
        FlexValue value(eValueWidthString, static_cast<int>(bytes.size()));
        value.SetValue(bytes.data());
        return value;
    }

    // Ids whose values are one and four bytes wide on the test's model.
    static int IdOfWidth(eValueWidth width) {
        for (int id = 0; id < SettingsStatusMapping::kSettingsTableSize; ++id) {
            if (kzSettingWidth(SettingsStatusMapping::kDefaultModelNumber, id) == width) {
                return id;
            }
        }
        return -1;
    }
};

uint8_t Byte(int value) {
    return static_cast<uint8_t>(value);
}

}  // namespace

TEST_F(ResponsesTest, CommandAndSettingsAnswersAreIdAndResult) {
    BleCommandResponse command(60, 0);
    command.m_params.push_back(Value({1, 2, 3, 4, 5}));
    command.m_params.push_back(Value({}));

    EXPECT_EQ(Written(command), (Bytes{60, 0, 5, 1, 2, 3, 4, 5, 0}));
    EXPECT_EQ(WireSize(command), 9u);
    EXPECT_EQ(Written(BleSettingsResponseMessage(2, 1)), (Bytes{2, 1}));
}

TEST_F(ResponsesTest, AQueryAnswerStartsWithCategoryAndType) {
    EXPECT_EQ(Written(BleQueryResponse(2, 3, 1)), (Bytes{0x32, 1}));
}

TEST_F(ResponsesTest, ValuesComeInAscendingIds) {
    BleQueryCurrentValueResponse response(2, 1, 0);
    response.m_values[9] = Value({7, 8});
    response.m_values[2] = Value({});

    EXPECT_EQ(Written(response), (Bytes{0x12, 0, 2, 0, 9, 2, 7, 8}));
}

TEST_F(ResponsesTest, CapabilitiesAreWrittenInTheWidthOfTheirId) {
    const int narrow = IdOfWidth(eValueWidth1Byte);
    const int wide = IdOfWidth(eValueWidth4Bytes);
    const int none = SettingsStatusMapping::kSettingsTableSize;
    ASSERT_GE(narrow, 0);
    BleQueryCurrentCapabilitiesResponse response(2, 3, 0);
    BleQueryCurrentCapabilitiesAndNamesResponse named(2, 4, 0);
    response.m_capabilities[narrow] = Options(narrow, {1, 300});
    response.m_capabilities[none] = Options(none, {5});
    response.m_capabilities[none + 1] = Options(none + 1, {});
    named.m_capabilities = response.m_capabilities;

    EXPECT_EQ(Written(response),
              (Bytes{0x32, 0, Byte(narrow), 1, 1, Byte(narrow), 1, 44, Byte(none), 0, Byte(none + 1), 0}));
    EXPECT_EQ(Written(named),
              (Bytes{0x42, 0, Byte(narrow), 1, 1} + fakes::BytesOf("TODO") + Bytes{Byte(narrow), 1, 44} +
               fakes::BytesOf("TODO") + Bytes{Byte(none), 0} + fakes::BytesOf("TODO") + Bytes{Byte(none + 1), 0, 0}));
    if (wide >= 0) {
        BleQueryCurrentCapabilitiesResponse four(2, 3, 0);
        four.m_capabilities[wide] = Options(wide, {258});
        EXPECT_EQ(Written(four), (Bytes{0x32, 0, Byte(wide), 4, 0, 0, 1, 2}));
    }
}

TEST_F(ResponsesTest, AFieldIsAtMostWhatItsLengthByteCanSay) {
    BleCommandResponse response(58, 0);
    response.m_params.push_back(Value(Bytes(300, 'v')));

    EXPECT_EQ(Written(response), (Bytes{58, 0, 255} + Bytes(255, 'v')));
    EXPECT_EQ(WireSize(response), 258u);
}
