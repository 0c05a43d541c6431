// Whole exchanges between two mailboxes.
#include "kzMsg.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <cstring>
#include <functional>
#include <thread>

#include "fakeSystem.h"
#include "kzTlv.h"
#include "testQueue.h"
#include "utils.h"

namespace {

using Bytes = std::vector<unsigned char>;

class Message : public testing::Test {
  protected:
    Message() { kzmsg_build(&m_message, "CR", "\x03", 1, 16); }
    ~Message() override { g_timedreceive = 10; }

    Bytes used() const { return {m_message.buf, m_message.buf + m_message.length}; }
    static size_t hexDumps() { return fake::countLogged("00000000  "); }

    fake::CleanLog m_clean;
    kzmsg m_message;
};

TEST_F(Message, IsBuiltFromCommandAndArgument) {
    EXPECT_EQ(used(), (Bytes{0, 15, 0, 16, 0, 0, 2, TLV_CMD, 'C', 'R', 0, 0, 1, TLV_CMDARG, 3}));
}

TEST_F(Message, ArrivesCompleteAtItsDestination) {
    const TestQueue queue("dst", 2);
    Bytes expected = {0, 0,          0, 16, 0, 0, 2,       TLV_CMD, 'C', 'R', 0,  0,
                      1, TLV_CMDARG, 3, 0,  0, 4, TLV_SRC, '/',     's', 'r', 'c'};
    expected.insert(expected.end(), {0, 0, static_cast<unsigned char>(queue.name().size()), TLV_DST});
    expected.insert(expected.end(), queue.name().begin(), queue.name().end());
    expected.insert(expected.end(), {0, 0, 0, TLV_END});
    expected[1] = static_cast<unsigned char>(expected.size());

    EXPECT_EQ(kzmsg_send(&m_message, "/src", queue.c_str(), nullptr, 0), 0);
    EXPECT_EQ(queue.take(), expected);
    EXPECT_EQ(used(), expected);

    kzmsg_build(&m_message, "CR", "\x03", 1, 16);
    EXPECT_EQ(kzmsg_try_send(&m_message, "/src", queue.c_str(), nullptr, 0), KZ_SEND_OK);
    EXPECT_EQ(queue.take(), expected);
    EXPECT_TRUE(fake::systemLog().empty());
}

TEST_F(Message, TakesAnotherRoadWhenOneIsNamed) {
    const TestQueue via("via", 2);

    kzmsg_send(&m_message, "/src", "/elsewhere", via.c_str(), 0);
    kzmsg_build(&m_message, "CR", nullptr, 0, 16);
    kzmsg_try_send(&m_message, "/src", "/elsewhere", via.c_str(), 0);

    EXPECT_EQ(via.waiting(), 2);
}

TEST_F(Message, FullDestinationIsNotReportedByTheWrittenSend) {
    const TestQueue queue("full", 1);
    queue.fill("occupied");

    EXPECT_EQ(kzmsg_send(&m_message, "/src", queue.c_str(), nullptr, 0), 0);

    EXPECT_EQ(
        fake::countLogged("[ERROR] No Longer an ASSERT: Mailbox Full: mbox=\"" + queue.name() + "\" >= 1 messages"),
        1u);
}

TEST_F(Message, TrySendReportsAFailingPeerAndCanBeRepeated) {
    const TestQueue queue("retry", 1);
    const TestQueue missing("retrymissing");
    queue.fill("occupied");
    const Bytes built = used();

    EXPECT_EQ(kzmsg_try_send(&m_message, "/src", missing.c_str(), nullptr, 0), KZ_SEND_GONE);
    EXPECT_EQ(fake::countLogged("[ERROR] target Mbox=\"" + missing.name() + "\" errno=\"No such file"), 1u);
    EXPECT_EQ(used(), built);
    EXPECT_EQ(kzmsg_try_send(&m_message, "/src", queue.c_str(), nullptr, 0), KZ_SEND_FULL);
    EXPECT_EQ(used(), built);
    queue.take();
    EXPECT_EQ(kzmsg_try_send(&m_message, "/src", queue.c_str(), nullptr, 0), KZ_SEND_OK);
    const Bytes sent = queue.take();
    EXPECT_EQ(tlv_validate_received(sent.data(), static_cast<uint32_t>(sent.size())), 0);
}

TEST_F(Message, TrySendReportsAnInvalidMessage) {
    const TestQueue queue("invalid", 1);
    const auto expectInvalid = [&](const char* from, const char* to) {
        fake::systemLog().clear();
        EXPECT_EQ(kzmsg_try_send(&m_message, from, to, queue.c_str(), 0), KZ_SEND_INVALID);
        EXPECT_EQ(fake::countLogged("[ERROR] message"), 1u);
    };
    expectInvalid("", "/to");
    expectInvalid("/src", nullptr);
    kzmsg_build(&m_message, "CR", Bytes(KZMSG_MAX).data(), KZMSG_MAX, 16);  // does not fit
    expectInvalid("/src", "/to");
    kzmsg_build(&m_message, "CR", Bytes(KZMSG_MAX).data(), KZMSG_MAX - 20, 16);  // leaves no room for the rest
    expectInvalid("/src", "/to");
    kzmsg_build(&m_message, "CR", nullptr, 0, 240);
    expectInvalid("/src", "/to");
    EXPECT_EQ(queue.waiting(), 0);
}

TEST_F(Message, IsDumpedWhenItsLabelIsEnabled) {
    const TestQueue queue("dump", 10);
    const auto dumpsOf = [&](int index, uint32_t labels, uint32_t debugLevel) {
        g_debug = labels;
        g_debug_level = debugLevel;
        fake::systemLog().clear();
        kzmsg_build(&m_message, "CR", nullptr, 0, 16);
        EXPECT_EQ(kzmsg_try_send(&m_message, "/src", queue.c_str(), nullptr, index), KZ_SEND_OK);
        queue.take();
        return hexDumps();
    };
    constexpr uint32_t kDumping = 32 | kDebugDumpMessages;
    const struct {
        int index;
        uint32_t bit;
    } labels[] = {{1, 1},           {2, 2},           {12, 0x800},     {13, 0x10000},
                  {25, 0x10000000}, {26, 0x20000000}, {27, 0x4000000}, {28, 0x8000000}};
    for (const auto& label : labels) {
        EXPECT_EQ(dumpsOf(label.index, label.bit, kDumping), 1u) << label.index;
        EXPECT_EQ(dumpsOf(label.index, ~label.bit, kDumping), 0u) << label.index;
        EXPECT_EQ(dumpsOf(label.index, label.bit, 32), 0u) << label.index;
    }
    for (const int index : {0, 29, -1}) {
        EXPECT_EQ(dumpsOf(index, 0xFFFFFFFF, kDumping), 0u) << index;
    }
    g_debug = 0x30000000;
}

TEST_F(Message, ResponseArgumentPointsIntoTheMessage) {
    uint8_t* data = m_message.buf;
    uint32_t length = 99;
    EXPECT_EQ(kzmsg_response(&m_message, &data, &length), nullptr);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(length, 0u);

    sntlv_add_bin(m_message.buf, m_message.size, TLV_RSPARG, 2, "ok");
    EXPECT_EQ(kzmsg_response(&m_message, &data, &length), m_message.buf + 19);
    EXPECT_EQ(data, m_message.buf + 19);
    EXPECT_EQ(length, 2u);
}

// ---------------------------------------------------------------- exchanges

class Exchange : public Message {
  protected:
    // Waits for the request and sends what `reply` makes of it to the mailbox the request names.
    std::thread answerWith(const std::function<Bytes(const Bytes&)>& reply) {
        return std::thread([this, reply] {
            pollfd waiting = {m_peer.mqd(), POLLIN, 0};
            poll(&waiting, 1, 5000);
            const Bytes request = m_peer.take();
            ASSERT_FALSE(request.empty());
            char source[64] = {};
            sntlv_find(source, sizeof(source), TLV_SRC, request.data());
            Bytes answer = reply(request);
            answer.reserve(1);  // an empty message has an address too
            EXPECT_EQ(kzMbox_try_send(source, answer.data(), static_cast<uint32_t>(answer.size())), KZ_SEND_OK);
        });
    }
    // The well-formed reply to a request.
    static Bytes accept(const Bytes& request) {
        Bytes reply = request;
        reply.resize(KZMSG_MAX);
        sntlv_remove(reply.data(), KZMSG_MAX, TLV_END);
        reply[3] = static_cast<unsigned char>(reply[3] + 1);
        sntlv_add_bin(reply.data(), KZMSG_MAX, TLV_RSPARG, 2, "ok");
        sntlv_add_bin(reply.data(), KZMSG_MAX, TLV_END, 0, nullptr);
        reply.resize(sntlv_msg_len(reply.data()));
        return reply;
    }
    int exchange() { return kzmsg_send_timedreceive(&m_message, m_own.c_str(), m_peer.c_str(), nullptr, 0); }

    const TestQueue m_peer{"peer", 2};
    const TestQueue m_own{"own"};
};

TEST_F(Exchange, ReplyReplacesTheRequest) {
    std::thread peer = answerWith(accept);

    const int length = exchange();

    peer.join();
    EXPECT_EQ(length, static_cast<int>(sntlv_msg_len(m_message.buf)));
    EXPECT_EQ(m_message.length, static_cast<uint32_t>(length));
    EXPECT_EQ(m_message.buf[3], 17);
    uint8_t* data = nullptr;
    uint32_t dataLength = 0;
    ASSERT_NE(kzmsg_response(&m_message, &data, &dataLength), nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(data), dataLength), "ok");
    EXPECT_FALSE(m_own.exists());
}

TEST_F(Exchange, SilenceIsATimeoutThatKeepsTheRequest) {
    g_timedreceive = 0;

    EXPECT_EQ(exchange(), kExchangeTimeout);

    EXPECT_EQ(m_message.length, 0xFFFFFFFFu);
    EXPECT_EQ(m_message.buf[3], 16);
    EXPECT_EQ(tlv_validate(m_message.buf), 0);
    EXPECT_EQ(fake::countLogged("Warning: 0 seconds timeout expired"), 1u);
    EXPECT_FALSE(m_own.exists());
    EXPECT_EQ(m_peer.waiting(), 1);
}

TEST_F(Exchange, InvalidReplyIsDumpedAndReported) {
    const std::function<Bytes(const Bytes&)> replies[] = {
        [](const Bytes& request) {  // cut, with the request's bytes still behind it
            return Bytes(request.begin(), request.end() - 1);
        },
        [](const Bytes&) { return Bytes{}; },
        [](const Bytes&) { return Bytes(20, 0xFF); },
        [](const Bytes& request) {
            Bytes reply = accept(request);
            reply[3] = 240;
            return reply;
        },
    };
    for (const auto& reply : replies) {
        fake::systemLog().clear();
        kzmsg_build(&m_message, "CR", "\x03", 1, 16);
        std::thread peer = answerWith(reply);

        EXPECT_EQ(exchange(), kExchangeInvalidReply);

        peer.join();
        EXPECT_EQ(fake::countLogged("[         DMSGERR: 261] kzmsg_send_timedreceive:\n\n"), 1u);
        EXPECT_EQ(fake::countLogged("ERROR      00000000  "), m_message.length > 0 ? 1u : 0u);
        EXPECT_FALSE(m_own.exists());
    }
}

using MessageDeathTest = Message;

TEST_F(MessageDeathTest, CallingErrorsOfTheWrittenSendsAbort) {
    const TestQueue missing("gone");
    const TestQueue queue("there", 1);
    kzmsg invalid;
    kzmsg_build(&invalid, "CR", nullptr, 0, 240);

    EXPECT_DEATH(kzmsg_send(&m_message, "/src", missing.c_str(), nullptr, 0),
                 "ASSERT:libkzCommon/src/kzMsg/kzmsg_send:[0-9]+:kzMbox_txopen\\(via, &txq\\) == 0");
    EXPECT_DEATH(kzmsg_send(&invalid, "/src", queue.c_str(), nullptr, 0), "0 == tlv_validate\\(iobuf->buf\\)");
    EXPECT_DEATH(kzmsg_send_timedreceive(&invalid, "/src", queue.c_str(), nullptr, 0),
                 "kzmsg_send_timedreceive:[0-9]+:0 == tlv_validate\\(iobuf->buf\\)");
    EXPECT_DEATH(kzmsg_send_timedreceive(&m_message, queue.c_str(), queue.c_str(), nullptr, 0),
                 "kzMbox_rxopen_shared\\(from, KZMSG_MAX_COUNT_SM, &rxq\\) == 0");
}

}  // namespace
