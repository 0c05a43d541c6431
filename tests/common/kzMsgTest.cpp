// Whole exchanges between two mailboxes.
#include "kzMsg.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <functional>
#include <thread>

#include "kzTlv.h"
#include "logCapture.h"
#include "testQueue.h"
#include "utils.h"

namespace {

class Message : public testing::Test {
  protected:
    Message() { build("\x03"); }
    ~Message() override { g_timedreceive = 10; }

    void build(const std::string& argument, uint8_t category = 16) {
        kzmsg_build(&m_message, "CR", argument.data(), static_cast<uint32_t>(argument.size()), category);
    }
    std::string used() const { return {reinterpret_cast<const char*>(m_message.buf), m_message.length}; }

    fakes::LogCapture m_log{KZ_LOG_TRACE};
    kzmsg m_message;
};

// Hands a message to the mailbox a request names.
void answer(const std::string& request, const std::string& reply) {
    char source[64] = {};
    sntlv_find(source, sizeof(source), TLV_SRC, reinterpret_cast<const unsigned char*>(request.data()));
    EXPECT_EQ(kzMbox_try_send(source, reply.data(), static_cast<uint32_t>(reply.size())), KZ_SEND_OK);
}

// The well-formed reply to a request.
std::string accept(std::string request) {
    request.resize(KZMSG_MAX);
    auto* reply = reinterpret_cast<unsigned char*>(request.data());
    sntlv_remove(reply, KZMSG_MAX, TLV_END);
    ++reply[3];
    sntlv_add_bin(reply, KZMSG_MAX, TLV_RSPARG, 2, "ok");
    sntlv_add_bin(reply, KZMSG_MAX, TLV_END, 0, nullptr);
    request.resize(sntlv_msg_len(reply));
    return request;
}

class Exchange : public Message {
  protected:
    Exchange() { g_timedreceive = 60; }

    // One exchange with a peer that answers the request with what `reply` makes of it.
    int exchange(const std::function<std::string(const std::string&)>& reply) {
        std::thread peer([this, &reply] {
            pollfd waiting = {m_peer.mqd(), POLLIN, 0};
            poll(&waiting, 1, -1);
            const std::string request = m_peer.take();
            answer(request, reply(request));
        });
        const int result = kzmsg_send_timedreceive(&m_message, m_own.c_str(), "/to_kznet", m_peer.c_str(), 0);
        peer.join();
        EXPECT_EQ(mq_open(m_own.c_str(), O_RDONLY), -1) << "the own mailbox is gone";
        return result;
    }

    const TestQueue m_peer{"peer", 2};
    const TestQueue m_own{"own"};
};

}  // namespace

TEST_F(Message, ArrivesCompleteAtItsDestinationOrOnTheRoadThatIsNamed) {
    const TestQueue queue("dst", 2);
    const std::string name = queue.name();
    const auto element = [](int type, const std::string& data) {
        return std::string{0, 0, static_cast<char>(data.size()), static_cast<char>(type)} + data;
    };
    const std::string start = element(TLV_CMD, "CR") + element(TLV_CMDARG, "\x03") + element(TLV_SRC, "/src");
    const std::string whole = start + element(TLV_DST, name) + element(TLV_END, "");
    const std::string header = {0, static_cast<char>(4 + whole.size()), 0, 16};
    for (const auto send : {kzmsg_send, kzmsg_try_send}) {
        build("\x03");
        EXPECT_EQ(send(&m_message, "/src", name.c_str(), nullptr, 0), 0);
        EXPECT_EQ(queue.take(), header + whole);
        build("\x03");
        EXPECT_EQ(send(&m_message, "/src", "/elsewhere", name.c_str(), 0), 0);
        EXPECT_EQ(queue.take().substr(4, start.size()), start);
    }
    EXPECT_EQ(m_log.Texts(), std::vector<std::string>{});
}

TEST_F(Message, FailingPeerIsReportedByTheTrySendAloneWhichCanBeRepeated) {
    const TestQueue queue("retry", 1);
    const TestQueue missing("retrymissing");
    queue.fill("occupied");
    const std::string built = used();

    EXPECT_EQ(kzmsg_try_send(&m_message, "/src", missing.c_str(), nullptr, 0), KZ_SEND_GONE);
    EXPECT_EQ(used(), built);
    EXPECT_EQ(kzmsg_try_send(&m_message, "/src", queue.c_str(), nullptr, 0), KZ_SEND_FULL);
    EXPECT_EQ(used(), built);
    queue.take();
    EXPECT_EQ(kzmsg_try_send(&m_message, "/src", queue.c_str(), nullptr, 0), KZ_SEND_OK);
    build("");
    EXPECT_EQ(kzmsg_send(&m_message, "/src", queue.c_str(), nullptr, 0), 0) << "though it is full";
}

TEST_F(Message, TrySendReportsAnInvalidMessage) {
    const TestQueue queue("invalid", 1);
    const auto expectInvalid = [&](const char* from, const char* to) {
        m_log.Clear();
        EXPECT_EQ(kzmsg_try_send(&m_message, from, to, queue.c_str(), 0), KZ_SEND_INVALID);
        EXPECT_EQ(m_log.Count("[ERROR] message"), 1u);
    };
    expectInvalid("", "/to");
    expectInvalid("/src", nullptr);
    build(std::string(KZMSG_MAX, 'x'));  // does not fit
    expectInvalid("/src", "/to");
    build(std::string(KZMSG_MAX - 20, 'x'));  // leaves no room for the rest
    expectInvalid("/src", "/to");
    build("", 240);
    expectInvalid("/src", "/to");
    EXPECT_EQ(queue.take(), "");
}

TEST_F(Message, IsDumpedWhenTheBitOfItsLabelIsSet) {
    const TestQueue queue("dump", 1);
    g_debug_level = 32 | kDebugDumpMessages;
    std::string bits;
    for (int label = -1; label <= 29; ++label) {
        for (int bit = 0; bit < 32; ++bit) {
            g_debug = 1u << bit;
            m_log.Clear();
            build("");
            kzmsg_try_send(&m_message, "/src", queue.c_str(), nullptr, label);
            queue.take();
            bits += m_log.Count("00000000  ") != 0 ? std::to_string(bit) : "";
        }
        bits += ' ';
    }
    g_debug = 0x30000000;
    EXPECT_EQ(bits, "  0 1 2 3 4 5 6 7 8 9 10 11 16 17 18 19 20 21 22 23 24 25 26 27 28 29 26 27  ");
}

TEST_F(Exchange, ReplyReplacesTheRequest) {
    uint8_t* data = nullptr;
    uint32_t length = 99;
    EXPECT_EQ(kzmsg_response(&m_message, &data, &length), nullptr);
    EXPECT_EQ(length, 0u);

    const int result = exchange(accept);

    EXPECT_EQ(result, static_cast<int>(m_message.length));
    EXPECT_EQ(m_message.buf[3], 17);
    EXPECT_EQ(kzmsg_response(&m_message, &data, &length), data);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(data), length), "ok");
}

TEST_F(Exchange, CallingErrorsOfTheWrittenSendsAbort) {
    const auto exchangeWith = [this](const char* from) {
        kzmsg_send_timedreceive(&m_message, from, m_peer.c_str(), nullptr, 0);
    };
    EXPECT_DEATH(kzmsg_send(&m_message, "/src", m_own.c_str(), nullptr, 0),
                 "ASSERT:libkzCommon/src/kzMsg/kzmsg_send:[0-9]+:kzMbox_txopen\\(via, &txq\\) == 0");
    EXPECT_DEATH(exchangeWith(m_peer.c_str()), "kzMbox_rxopen_shared\\(from, KZMSG_MAX_COUNT_SM, &rxq\\) == 0");
    build("", 240);
    EXPECT_DEATH(exchangeWith("/src"), "kzmsg_send_timedreceive:[0-9]+:0 == tlv_validate\\(iobuf->buf\\)");
}

TEST_F(Exchange, SilenceIsATimeoutThatKeepsTheRequest) {
    g_timedreceive = 0;

    EXPECT_EQ(kzmsg_send_timedreceive(&m_message, m_own.c_str(), m_peer.c_str(), nullptr, 0), kExchangeTimeout);

    EXPECT_EQ(m_message.length, 0xFFFFFFFFu);
    EXPECT_EQ(tlv_validate(m_message.buf), 0);
    EXPECT_EQ(m_log.Count("Warning: 0 seconds timeout expired"), 1u);
    EXPECT_NE(m_peer.take(), "");
}

TEST_F(Exchange, InvalidReplyIsDumpedAndReported) {
    const std::function<std::string(const std::string&)> replies[] = {
        [](const std::string& request) { return request.substr(0, request.size() - 1); },
        [](const std::string&) { return std::string(); },
        [](const std::string&) { return std::string(20, '\xFF'); },
        [](const std::string& request) { return accept(request).replace(3, 1, "\xF0"); },
    };
    for (const auto& reply : replies) {
        m_log.Clear();
        build("\x03");
        EXPECT_EQ(exchange(reply), kExchangeInvalidReply);
        EXPECT_EQ(m_log.Count("[         DMSGERR: 261] kzmsg_send_timedreceive:\n\n"), 1u);
        EXPECT_EQ(m_log.Count("ERROR      00000000  "), m_message.length > 0 ? 1u : 0u);
    }
}
