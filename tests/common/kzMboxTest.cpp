// Mailboxes over real queues: texts, retries, full and missing destinations.
#include "kzMbox.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>

#include "logCapture.h"
#include "testQueue.h"
#include "utils.h"

namespace {

std::function<void(useconds_t)> s_onPause = [](useconds_t) {};

class Mbox : public testing::Test {
  protected:
    bool logged(const std::string& text) const { return m_log.Count(text) == 1; }

    fakes::LogCapture m_log{KZ_LOG_TRACE};
    kzMbox m_mbox = {};
};

}  // namespace

// Stands before the C library's, so that no test waits.
extern "C" int usleep(useconds_t pause) {
    s_onPause(pause);
    return 0;
}

TEST_F(Mbox, FullDestinationDropsTheMessageAndReportsSuccessAndAMissingOneIsNamed) {
    const TestQueue queue("full", 2);
    const TestQueue missing("missing");
    EXPECT_EQ(kzMbox_txopen(missing.c_str(), &m_mbox), -1);
    EXPECT_TRUE(logged("[ERROR] target Mbox=\"" + missing.name() + "\" errno=\"No such file or directory\" @"));
    ASSERT_EQ(kzMbox_txopen(queue.c_str(), &m_mbox), 0);
    for (const char* message : {"one", "two", "six"}) {
        EXPECT_EQ(kzMbox_send(message, 3, &m_mbox), 0);
    }
    EXPECT_TRUE(logged("[ERROR] No Longer an ASSERT: Mailbox Full: mbox=\"" + queue.name() + "\" >= 2 messages @"));
    EXPECT_DEATH(kzMbox_send("", KZMSG_MAX + 1, &m_mbox), "kzMbox/kzMbox_send:[0-9]+:len <= KZMSG_MAX");
    for (const char* taken : {"one", "two", ""}) {
        EXPECT_EQ(queue.take(), taken);
    }
    EXPECT_EQ(kzMbox_close(&m_mbox), 0);
}

TEST_F(Mbox, TrySendReportsEveryFailureOfThePeer) {
    const TestQueue queue("try", 1);
    const TestQueue missing("trymissing");
    const TestQueue narrow("trynarrow", 1, 4);
    const std::tuple<const char*, uint32_t, int> kRows[] = {
        {queue.c_str(), 3, KZ_SEND_OK},     {queue.c_str(), 3, KZ_SEND_FULL},
        {missing.c_str(), 3, KZ_SEND_GONE}, {narrow.c_str(), 5, KZ_SEND_GONE},
        {"no slash", 3, KZ_SEND_GONE},      {"", 3, KZ_SEND_GONE},
        {nullptr, 0, KZ_SEND_INVALID},      {queue.c_str(), KZMSG_MAX + 1, KZ_SEND_INVALID}};
    const int lowestFree = dup(0);
    close(lowestFree);
    for (const auto& [name, length, result] : kRows) {
        EXPECT_EQ(kzMbox_try_send(name, "message", length), result);
    }
    EXPECT_EQ(dup(0), lowestFree) << "a queue stayed open";
    close(lowestFree);
    EXPECT_TRUE(logged("No Longer an ASSERT: Mailbox Full: mbox=\"" + queue.name() + "\" >= 1 messages"));
    EXPECT_EQ(m_log.Count("[ERROR] target Mbox=\""), 4u);
    EXPECT_EQ(queue.take(), "mes");
}

TEST_F(Mbox, ReceiveQueueIsCreatedAndRemovedAndTriedForFiveTimes) {
    const TestQueue queue("create");
    EXPECT_EQ(kzMbox_create_ext(queue.c_str(), 3, 64), 0);
    EXPECT_EQ(kzMbox_create(queue.c_str(), 3), 0) << "an existing queue is opened as it is";
    EXPECT_EQ(kzMbox_rxopen(queue.c_str(), 3, &m_mbox), 0);
    mq_attr attributes = {};
    mq_getattr(m_mbox.mqd, &attributes);
    EXPECT_TRUE(attributes.mq_maxmsg == 3 && attributes.mq_msgsize == 64);
    kzMbox_close(&m_mbox);
    EXPECT_EQ(kzMbox_unlink(queue.c_str()), 0);
    EXPECT_EQ(kzMbox_unlink(queue.c_str()), -1);
    EXPECT_TRUE(logged("[ERROR] Mbox unlink fail=\"" + queue.name() + "\" errno=\"No such file or directory\""));

    EXPECT_EQ(kzMbox_create("no slash", 2), -1);
    EXPECT_EQ(m_log.Count("[INFO ] Warning: target Mbox=\"no slash\" errno=\"22\"  retry("), 5u);
    EXPECT_TRUE(logged("[ERROR] target Mbox=\"no slash\" errno=\"Invalid argument\""));
}

TEST_F(Mbox, SharedQueueOpensOnceItsNameIsFreeAndIsTriedForSixTimes) {
    const TestQueue queue("freed", 1);
    std::string pauses;
    s_onPause = [&pauses](useconds_t pause) { pauses += std::to_string(pause / 1000) + " "; };
    EXPECT_EQ(kzMbox_rxopen_shared(queue.c_str(), 2, &m_mbox), -1);
    EXPECT_EQ(pauses, "100 200 300 400 500 ");
    EXPECT_TRUE(logged("[INFO ] Warning: Shared Mbox in use (retry) =\"" + queue.name() +
                       "\" errno=\"File exists\"  retry(5)"));
    EXPECT_TRUE(logged("[ERROR] Shared Mbox will not open =\"" + queue.name() + "\" errno=17\"File exists\""));
    s_onPause = [&queue](useconds_t) { mq_unlink(queue.c_str()); };
    EXPECT_EQ(kzMbox_rxopen_shared(queue.c_str(), 2, &m_mbox), 0);
    s_onPause = [](useconds_t) {};
    kzMbox_close(&m_mbox);
}

TEST_F(Mbox, TimedReceiveGivesAMessageOrATimeout) {
    const TestQueue queue("timed", 2);
    m_mbox.mqd = queue.mqd();
    char buffer[KZMSG_MAX];
    unsigned int priority = 9;
    const int atOnce = 0;
    queue.fill("first");
    queue.fill("second");
    EXPECT_EQ(kz_mq_timedreceive(queue.mqd(), buffer, sizeof(buffer), &priority, &atOnce), 5);
    EXPECT_EQ(priority, 0u);
    EXPECT_DEATH(snkzMbox_receive(buffer, 4, &m_mbox), "snkzMbox_receive:[0-9]+:\\(len = mq_receive\\(kzattr->mqd");
    EXPECT_EQ(snkzMbox_timedreceive(buffer, sizeof(buffer), &m_mbox), 6);
    EXPECT_EQ(std::string(buffer, 6), "second");
    errno = 0;
    EXPECT_EQ(kz_mq_timedreceive(queue.mqd(), buffer, sizeof(buffer), nullptr, &atOnce), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_TRUE(logged("[INFO ] Warning: 0 seconds timeout expired"));
}
