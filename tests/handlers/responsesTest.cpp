// The answers as objects, written at once: what the messages themselves write piece by piece.
#include "bleResponses.h"

#include "MemStream.h"
#include "handlersFixture.h"

namespace {

using IdNums = SettingsStatusMapping::IdNums;
using Responses = HandlersTest<BleCommandMessage>;  // names come from the model

template <typename Response>
std::string Written(const Response& response) {
    uint8_t buffer[1024] = {};
    MemoryStream stream(buffer, sizeof(buffer));
    stream << response;
    return ToHex({buffer, buffer + stream.getLength()});
}

FlexValue Value(const Bytes& bytes) {
    FlexValue value(eValueWidthString, static_cast<int>(bytes.size()));
    value.SetValue(bytes.data());
    return value;
}

}  // namespace

TEST_F(Responses, ValuesComeInAscendingIdsAndOptionsInTheWidthOfTheirId) {
    BleQueryCurrentValueResponse values(2, 1, 0);
    values.m_values = {{9, Value({7, 8})}, {2, Value({})}};
    BleQueryCurrentCapabilitiesResponse options(2, 3, 0);
    options.m_capabilities = {{30, IdNums(30, {258})}, {2, IdNums(2, {1, 300})}, {200, IdNums(200, {5})}, {3, {}}};
    BleQueryCurrentCapabilitiesAndNamesResponse named(2, 4, 0);
    named.m_capabilities = {{2, IdNums(2, {1})}, {200, IdNums(200, {5})}, {3, {}}};

    EXPECT_EQ(Written(values), "12 00 02 00 09 02 07 08");
    EXPECT_EQ(Written(options), "32 00 02 01 01 02 01 2c 03 00 1e 04 00 00 01 02 c8 00");
    EXPECT_EQ(Written(named), "42 00 02 01 01 54 4f 44 4f 03 00 00 c8 00 54 4f 44 4f");
}

TEST_F(Responses, AFieldIsAtMostWhatItsLengthByteCanSay) {
    BleCommandResponse command(60, 0);
    command.m_params = {Value({1, 2}), Value({}), Value(Bytes(300, 'v'))};

    EXPECT_EQ(Written(command), "3c 00 02 01 02 00 ff " + ToHex(Bytes(255, 'v')));
    EXPECT_EQ(WireSize(command), 2u + 3 + 1 + 256);
}
