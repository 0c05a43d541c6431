// Whatever arrives of a message, its client gets an answer: every prefix of every message is parsed, carried out or
// refused.
#include "handlersFixture.h"
#include "wsdkCommands/WSDK_RequestSetAssociationState.pb.h"
#include "wsdkCommands/WSDK_RequestSetLiveStreamMode.pb.h"

namespace {

Bytes LiveStream() {
    wsdk_commands::WSDK_RequestSetLiveStreamMode request;
    request.set_url("rtmp://host/key");
    request.set_encode(true);
    request.set_window_size(wsdk_commands::WSDK_WINDOW_SIZE_720);
    request.set_reserved1("reserved");
    request.set_minimum_bitrate(-1);
    request.set_lens(wsdk_commands::WSDK_LENS_PANOVA);
    return fakes::BytesOf(request.SerializeAsString());
}

Bytes Association() {
    wsdk_commands::WSDK_RequestSetAssociationState request;
    request.set_zorvik_user_id("user");
    request.set_association_state(wsdk_commands::WSDK_ASSOCIATION_STATE_ASSOCIATED);
    return fakes::BytesOf(request.SerializeAsString());
}

// Payloads that are well formed for some request and not for others; among them one with unknown fields of every wire
// type and one that breaks off inside a group.
const Bytes kPayloads[] = {
    {8, 1},
    {8, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 1, 16, 1, 24, 1, 32, 1, 40, 1},
    {0x9A, 6, 2, 1, 2, 0x9D, 6, 1, 2, 3, 4, 0x99, 6, 1, 2, 3, 4, 5, 6, 7, 8, 0x98, 6, 1},
    {0x9B, 6, 8, 1, 0x9C, 6, 0x9B, 6, 8},
    LiveStream(),
    Association(),
};

}  // namespace

class CommandPrefixes : public HandlersTest<BleCommandMessage> {
  protected:
    // The answer starts with what it answers: the id and a result, or the feature id and the marked action id.
    void ExpectAnswered(const Bytes& request) {
        SCOPED_TRACE(testing::PrintToString(request));
        const Outcome outcome = Run(request);
        const bool transfer = !request.empty() && request[0] == 59 && outcome.code == KZ_OK;
        ASSERT_EQ(outcome.answer.size() >= 2, !transfer);
        if (!transfer) {
            EXPECT_EQ(outcome.answer[0], request.empty() ? 0 : request[0]);
        }
    }
};

TEST_F(CommandPrefixes, EveryPrefixOfAPlainCommandIsAnswered) {
    const Bytes tail{7, 7, 232, 1, 2, 3, 4, 5, 1, 9, 10, 7, 232, 1, 2, 3, 4, 5, 0, 60, 1};
    for (int id = 0; id < 256; ++id) {
        const Bytes whole = Bytes{static_cast<uint8_t>(id)} + tail;
        for (size_t length = 0; length <= whole.size(); ++length) {
            ExpectAnswered(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
        }
    }
}

TEST_F(CommandPrefixes, EveryPrefixOfAProtobufCommandIsAnswered) {
    for (const Bytes& payload : kPayloads) {
        for (int action = 104; action < 128; ++action) {
            const Bytes whole = Bytes{241, static_cast<uint8_t>(action)} + payload;
            for (size_t length = 0; length <= whole.size(); ++length) {
                ExpectAnswered(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
            }
        }
    }
}

class SettingsPrefixes : public HandlersTest<BleSettingsMessage> {};

TEST_F(SettingsPrefixes, EveryPrefixOfASettingIsAnswered) {
    testing::internal::CaptureStderr();
    for (const Bytes& payload : kPayloads) {
        for (int action = 113; action < 128; ++action) {
            const Bytes whole = Bytes{243, static_cast<uint8_t>(action)} + payload;
            for (size_t length = 0; length <= whole.size(); ++length) {
                const Outcome outcome = Run(Bytes(whole.begin(), whole.begin() + static_cast<long>(length)));
                ASSERT_GE(outcome.answer.size(), 2u);
                EXPECT_EQ(outcome.answer[0], outcome.code == KZ_OK ? 243 : 0);
            }
        }
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "") << "the protobuf runtime says nothing of its own";

    const Bytes plain{2, 4, 0, 0, 1, 0};
    for (size_t length = 1; length <= plain.size(); ++length) {
        const Outcome outcome = Run(Bytes(plain.begin(), plain.begin() + static_cast<long>(length)));
        EXPECT_EQ(outcome.answer, (Bytes{2, static_cast<uint8_t>(length == plain.size() ? 0 : 2)}));
    }
}

TEST_F(SettingsPrefixes, PayloadsLongerThanAByteCanSayAreCarriedWhole) {
    wsdk_commands::WSDK_RequestSetAssociationState request;
    request.set_zorvik_user_id(std::string(1200, 'u'));

    const Outcome outcome = Run(Bytes{243, 127} + fakes::BytesOf(request.SerializeAsString()));

    EXPECT_EQ(CallsAfterReport(), Calls{CsiSet(104, Bytes(1200, 'u'))});
    EXPECT_EQ(outcome.answer, (Bytes{243, 0xFF, 8, 1}));
}
