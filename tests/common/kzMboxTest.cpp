// Mailboxes over real queues: texts, retries, full and missing destinations.
#include "kzMbox.h"

#include <errno.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "fakeSystem.h"
#include "testQueue.h"
#include "utils.h"

namespace {

using namespace std::chrono_literals;

class Mbox : public testing::Test {
  protected:
    template <typename Steps>
    static std::chrono::milliseconds timeOf(Steps steps) {
        const auto start = std::chrono::steady_clock::now();
        steps();
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    }
    fake::CleanLog m_clean;
    kzMbox m_mbox = {};
};

TEST_F(Mbox, IsDescribedWithoutBeingOpened) {
    kzMbox_init("/to_kznet", 7, &m_mbox);

    EXPECT_EQ(m_mbox.attr.mq_flags, 0);
    EXPECT_EQ(m_mbox.attr.mq_maxmsg, 7);
    EXPECT_EQ(m_mbox.attr.mq_msgsize, 1500);
    EXPECT_EQ(m_mbox.attr.mq_curmsgs, 0);
    EXPECT_STREQ(m_mbox.name, "/to_kznet");
}

TEST_F(Mbox, MissingDestinationIsNamedInTheLog) {
    const TestQueue missing("missing");

    EXPECT_EQ(kzMbox_txopen(missing.c_str(), &m_mbox), -1);

    EXPECT_EQ(fake::countLogged("[ERROR] target Mbox=\"" + missing.name() + "\" errno=\"No such file or directory\" @"),
              1u);
}

TEST_F(Mbox, FullDestinationDropsTheMessageAndReportsSuccess) {
    const TestQueue queue("full", 2);
    ASSERT_EQ(kzMbox_txopen(queue.c_str(), &m_mbox), 0);

    EXPECT_EQ(kzMbox_send("one", 3, &m_mbox), 0);
    EXPECT_EQ(kzMbox_send("two", 3, &m_mbox), 0);
    EXPECT_TRUE(fake::systemLog().empty());
    EXPECT_EQ(kzMbox_send("three", 5, &m_mbox), 0);

    EXPECT_EQ(
        fake::countLogged("[ERROR] No Longer an ASSERT: Mailbox Full: mbox=\"" + queue.name() + "\" >= 2 messages @"),
        1u);
    EXPECT_EQ(queue.waiting(), 2);
    EXPECT_EQ(kzMbox_close(&m_mbox), 0);
}

TEST_F(Mbox, TrySendReportsEveryFailureOfThePeer) {
    const TestQueue queue("try", 1);
    const TestQueue missing("trymissing");
    const TestQueue narrow("trynarrow", 1, 4);

    EXPECT_EQ(kzMbox_try_send(queue.c_str(), "one", 3), KZ_SEND_OK);
    EXPECT_EQ(kzMbox_try_send(queue.c_str(), "two", 3), KZ_SEND_FULL);
    EXPECT_EQ(fake::countLogged("No Longer an ASSERT: Mailbox Full: mbox=\"" + queue.name() + "\" >= 1 messages"), 1u);
    EXPECT_EQ(kzMbox_try_send(missing.c_str(), "one", 3), KZ_SEND_GONE);
    EXPECT_EQ(kzMbox_try_send(narrow.c_str(), "12345", 5), KZ_SEND_GONE);
    EXPECT_EQ(kzMbox_try_send("no slash", "one", 3), KZ_SEND_GONE);
    EXPECT_EQ(kzMbox_try_send("", "one", 3), KZ_SEND_GONE);
    EXPECT_EQ(fake::countLogged("[ERROR] target Mbox=\""), 4u);
    EXPECT_EQ(kzMbox_try_send(queue.c_str(), "", KZMSG_MAX + 1), KZ_SEND_INVALID);
    EXPECT_EQ(kzMbox_try_send(nullptr, "", 0), KZ_SEND_INVALID);
    EXPECT_EQ(queue.take(), (std::vector<unsigned char>{'o', 'n', 'e'}));
}

TEST_F(Mbox, ReceiveQueueIsCreatedWithItsMode) {
    const TestQueue queue("create");

    EXPECT_EQ(kzMbox_create_ext(queue.c_str(), 3, 64), 0);
    EXPECT_EQ(kzMbox_create(queue.c_str(), 3), 0) << "an existing queue is opened as it is";

    EXPECT_EQ(kzMbox_rxopen(queue.c_str(), 3, &m_mbox), 0);
    mq_attr attributes = {};
    mq_getattr(m_mbox.mqd, &attributes);
    EXPECT_EQ(attributes.mq_maxmsg, 3);
    EXPECT_EQ(attributes.mq_msgsize, 64);
    kzMbox_close(&m_mbox);
    EXPECT_EQ(kzMbox_unlink(queue.c_str()), 0);
    EXPECT_EQ(kzMbox_unlink(queue.c_str()), -1);
    EXPECT_EQ(
        fake::countLogged("[ERROR] Mbox unlink fail=\"" + queue.name() + "\" errno=\"No such file or directory\""), 1u);
}

TEST_F(Mbox, ReceiveQueueThatCannotBeOpenedIsTriedFiveTimes) {
    const auto elapsed = timeOf([&] { EXPECT_EQ(kzMbox_create("no slash", 2), -1); });

    EXPECT_GE(elapsed, 50ms);
    const std::string error = std::to_string(EINVAL);
    for (int retry = 0; retry < 5; ++retry) {
        EXPECT_EQ(fake::countLogged("[INFO ] Warning: target Mbox=\"no slash\" errno=\"" + error + "\"  retry(" +
                                    std::to_string(retry) + ")"),
                  1u);
    }
    EXPECT_EQ(fake::countLogged("[ERROR] target Mbox=\"no slash\" errno=\"Invalid argument\""), 1u);
    EXPECT_EQ(fake::systemLog().size(), 6u);
}

TEST_F(Mbox, SharedQueueThatStaysInUseIsTriedSixTimes) {
    const TestQueue queue("shared", 1);

    const auto elapsed = timeOf([&] { EXPECT_EQ(kzMbox_rxopen_shared(queue.c_str(), 2, &m_mbox), -1); });

    EXPECT_GE(elapsed, 1500ms);
    for (int retry = 1; retry <= 5; ++retry) {
        EXPECT_EQ(fake::countLogged("[INFO ] Warning: Shared Mbox in use (retry) =\"" + queue.name() +
                                    "\" errno=\"File exists\"  retry(" + std::to_string(retry) + ")"),
                  1u);
    }
    EXPECT_EQ(fake::countLogged("[ERROR] Shared Mbox will not open =\"" + queue.name() + "\" errno=17\"File exists\""),
              1u);
    EXPECT_EQ(fake::systemLog().size(), 6u);
}

TEST_F(Mbox, SharedQueueOpensOnceItsNameIsFree) {
    const TestQueue queue("freed", 1);
    std::thread other([&] {
        std::this_thread::sleep_for(150ms);
        mq_unlink(queue.c_str());
    });

    EXPECT_EQ(kzMbox_rxopen_shared(queue.c_str(), 2, &m_mbox), 0);

    other.join();
    kzMbox_close(&m_mbox);
}

TEST_F(Mbox, TimedReceiveGivesAMessageOrATimeout) {
    const TestQueue queue("timed", 2);
    m_mbox.mqd = queue.mqd();
    char buffer[KZMSG_MAX];
    unsigned int priority = 9;
    const int seconds = 1;
    queue.fill("first");
    queue.fill("second");

    EXPECT_EQ(kz_mq_timedreceive(queue.mqd(), buffer, sizeof(buffer), &priority, &seconds), 5);
    EXPECT_EQ(priority, 0u);
    EXPECT_EQ(snkzMbox_timedreceive(buffer, sizeof(buffer), &m_mbox), 6);
    EXPECT_EQ(std::string(buffer, 6), "second");

    errno = 0;
    const auto elapsed =
        timeOf([&] { EXPECT_EQ(kz_mq_timedreceive(queue.mqd(), buffer, sizeof(buffer), nullptr, &seconds), -1); });
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_GE(elapsed, 990ms);
    EXPECT_LT(elapsed, 5s);
    EXPECT_EQ(fake::countLogged("[INFO ] Warning: 1 seconds timeout expired"), 1u);

    g_timedreceive = 0;
    EXPECT_EQ(snkzMbox_timedreceive(buffer, sizeof(buffer), &m_mbox), -1);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(kz_mq_timedreceive(-1, buffer, sizeof(buffer), nullptr, &g_timedreceive), -1);
    EXPECT_EQ(fake::countLogged("Warning: 0 seconds timeout expired"), 2u);
    g_timedreceive = 10;
}

using MboxDeathTest = Mbox;

TEST_F(MboxDeathTest, CallingErrorsAbort) {
    const TestQueue queue("death", 1);
    m_mbox.mqd = queue.mqd();
    char small[4];

    EXPECT_DEATH(kzMbox_send("", KZMSG_MAX + 1, &m_mbox),
                 "ASSERT:libkzCommon/src/kzMbox/kzMbox_send:[0-9]+:len <= KZMSG_MAX");
    EXPECT_DEATH(snkzMbox_receive(small, sizeof(small), &m_mbox),
                 "kzMbox/snkzMbox_receive:[0-9]+:\\(len = mq_receive\\(kzattr->mqd, buf, size, NULL\\)\\) >= 0");
}

}  // namespace
