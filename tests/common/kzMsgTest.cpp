// Whole exchanges between two mailboxes.
#include "kzMsg.h"

#include <gtest/gtest.h>
#include <poll.h>

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

// The well-formed reply to a request.
std::string Accepted(std::string request) {
    request.resize(KZMSG_MAX);
    auto* reply = reinterpret_cast<unsigned char*>(request.data());
    sntlv_remove(reply, KZMSG_MAX, TLV_END);
    ++reply[3];
    sntlv_add_bin(reply, KZMSG_MAX, TLV_RSPARG, 2, "ok");
    sntlv_add_bin(reply, KZMSG_MAX, TLV_END, 0, nullptr);
    request.resize(sntlv_msg_len(reply));
    return request;
}

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
    // The third does not fit; the fourth leaves no room for the rest.
    const std::tuple<const char*, const char*, std::string, uint8_t> kRows[] = {
        {"", "/to", "", 16},
        {"/src", nullptr, "", 16},
        {"/src", "/to", std::string(KZMSG_MAX, 'x'), 16},
        {"/src", "/to", std::string(KZMSG_MAX - 20, 'x'), 16},
        {"/src", "/to", "", 240}};
    for (const auto& [from, to, argument, category] : kRows) {
        m_log.Clear();
        build(argument, category);
        EXPECT_EQ(kzmsg_try_send(&m_message, from, to, queue.c_str(), 0), KZ_SEND_INVALID);
        EXPECT_EQ(m_log.Count("[ERROR] message"), 1u);
    }
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

TEST_F(Message, ExchangeEndsWithTheReplyOrWithTheReasonWhyThereIsNone) {
    const TestQueue peer("peer", 2);
    const TestQueue own("own");
    using Reply = std::string (*)(const std::string& request);
    const std::pair<Reply, int> kRows[] = {
        {[](const std::string& request) { return Accepted(request); }, KZ_SEND_OK},
        {[](const std::string& request) { return request.substr(0, request.size() - 1); }, kExchangeInvalidReply},
        {[](const std::string&) { return std::string(); }, kExchangeInvalidReply},
        {[](const std::string&) { return std::string(20, '\xFF'); }, kExchangeInvalidReply},
        {[](const std::string& request) { return Accepted(request).replace(3, 1, "\xF0"); }, kExchangeInvalidReply},
        {nullptr, kExchangeTimeout}};
    for (const auto& [reply, result] : kRows) {
        m_log.Clear();
        build("\x03");
        uint8_t* data = nullptr;
        uint32_t length = 99;
        EXPECT_EQ(kzmsg_response(&m_message, &data, &length), nullptr);
        EXPECT_EQ(length, 0u);
        g_timedreceive = reply != nullptr ? 60 : 0;
        std::thread answering([&, reply = reply] {
            pollfd waiting = {peer.mqd(), POLLIN, 0};
            poll(&waiting, 1, -1);
            const std::string answer = reply != nullptr ? reply(peer.take()) : peer.take();
            if (reply != nullptr) {
                EXPECT_EQ(kzMbox_try_send(own.c_str(), answer.data(), static_cast<uint32_t>(answer.size())), 0);
            }
        });

        const int received = kzmsg_send_timedreceive(&m_message, own.c_str(), "/to_kznet", peer.c_str(), 0);

        answering.join();
        EXPECT_EQ(mq_open(own.c_str(), O_RDONLY), -1) << "the own mailbox is gone";
        EXPECT_EQ(m_log.Count("Warning: 0 seconds timeout expired"), result == kExchangeTimeout ? 1u : 0u);
        const bool isDumped = result == kExchangeInvalidReply;
        EXPECT_EQ(m_log.Count("[         DMSGERR: 261] kzmsg_send_timedreceive:\n\n"), isDumped ? 1u : 0u);
        EXPECT_EQ(m_log.Count("ERROR      00000000  "), isDumped && m_message.length > 0 ? 1u : 0u);
        EXPECT_EQ(received, result == KZ_SEND_OK ? static_cast<int>(m_message.length) : result);
        if (result == KZ_SEND_OK) {
            EXPECT_EQ(m_message.buf[3], 17);
            EXPECT_EQ(kzmsg_response(&m_message, &data, &length), data);
            EXPECT_EQ(std::string(reinterpret_cast<char*>(data), length), "ok");
        }
    }
    EXPECT_EQ(m_message.length, 0xFFFFFFFFu);
    EXPECT_EQ(tlv_validate(m_message.buf), 0) << "a timeout keeps the request";
    build("");
    EXPECT_DEATH(kzmsg_send(&m_message, "/src", own.c_str(), nullptr, 0), "kzMbox_txopen\\(via, &txq\\) == 0");
    build("", 240);
    EXPECT_DEATH(kzmsg_send(&m_message, "/src", own.c_str(), nullptr, 0), "0 == tlv_validate\\(iobuf->buf\\)");
}
