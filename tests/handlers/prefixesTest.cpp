// Whatever arrives of a message, its client gets an answer: every prefix of every message is parsed, carried out or
// refused.
#include "handlersFixture.h"

namespace {

// Payloads that are well formed for some request and not for others.
const Bytes kPayloads[] = {
    FromHex("08 01"),
    FromHex("08 ff ff ff ff ff ff ff ff ff ff 01 10 01 18 01 20 01 28 01"),
    FromHex("9a 06 02 01 02 9d 06 01 02 03 04 99 06 01 02 03 04 05 06 07 08 98 06 01"),  // unknown, of every wire type
    FromHex("9b 06 08 01 9c 06 9b 06 08"),                                               // breaks off inside a group
    FromHex("0a 04 75 73 65 72 10 01"),                                                  // an association
    // A live stream: url, encode, window size, reserved text, minimum bitrate -1, lens.
    FromHex("0a 04 72 74 6d 70 10 01 18 07 32 01 72 38 ff ff ff ff ff ff ff ff ff 01 50 03"),
};

template <typename Expect>
void ForEachPrefix(const Bytes& whole, Expect expect) {
    for (size_t length = 0; length <= whole.size(); ++length) {
        expect(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
    }
}

}  // namespace

using CommandPrefixes = HandlersTest<BleCommandMessage>;

TEST_F(CommandPrefixes, EveryPrefixOfACommandIsAnsweredUnderItsId) {
    const auto expectAnswered = [&](const Bytes& request) {
        const Bytes answer = Run(request);
        if (request.empty() || request[0] != 59 || m_code != KZ_OK) {  // a transfer that starts has no answer
            ASSERT_GE(answer.size(), 2u) << ToHex(request);
            EXPECT_EQ(answer[0], request.empty() ? 0 : request[0]) << ToHex(request);
        }
    };
    for (int id = 0; id < 256; ++id) {
        ForEachPrefix(
            Bytes{static_cast<uint8_t>(id)} + FromHex("07 07 e8 01 02 03 04 05 01 09 0a 07 e8 01 02 03 04 05"),
            expectAnswered);
    }
    for (const Bytes& payload : kPayloads) {
        for (uint8_t action = 104; action < 128; ++action) {
            ForEachPrefix(Bytes{241, action} + payload, expectAnswered);
        }
    }
}

using SettingsPrefixes = HandlersTest<BleSettingsMessage>;

TEST_F(SettingsPrefixes, EveryPrefixOfASettingIsAnsweredUnderItsFeatureOrRefusedUnderZero) {
    testing::internal::CaptureStderr();
    for (const Bytes& payload : kPayloads) {
        for (uint8_t action = 113; action < 128; ++action) {
            ForEachPrefix(Bytes{243, action} + payload, [&](const Bytes& request) {
                const Bytes answer = Run(request);
                ASSERT_GE(answer.size(), 2u);
                EXPECT_EQ(answer[0], m_code == KZ_OK ? 243 : 0);
            });
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the protobuf runtime says nothing of its own";
}
