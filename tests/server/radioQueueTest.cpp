// The radio queue: bounded writes, whole responses or nothing, stored responses on the tick.
#include <chrono>

#include "serverFixture.h"
#include "utils.h"

namespace server_test {
namespace {

class RadioQueueTest : public ServerTest {};

TEST_F(RadioQueueTest, PacketForAFullQueueWaitsTwoSecondsAndFails) {
    FillRadio(0);
    ble_message_t record = NewDataRecord(1, KZ_STR_ID_OTA_DATA);
    const auto begin = std::chrono::steady_clock::now();
    const fakes::LogCapture log(KZ_LOG_ERROR);

    const bool sent = Server().PostPacket(record);

    EXPECT_FALSE(sent);
    EXPECT_TRUE(log.Has("Failed to send packet to ble client.", KZ_LOG_ERROR));
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(1900));
    EXPECT_LT(waited, std::chrono::seconds(10));
}

TEST_F(RadioQueueTest, ResponseGoesWholeOrNotAtAll) {
    const Bytes response = Counting(50);  // three packets
    ble_message_t record = NewDataRecord(4, KZ_STR_ID_QUERY_RESPONSE);

    FillRadio(2);
    EXPECT_FALSE(Server().PostResponse(record, response.data(), 50));
    EXPECT_TRUE(TakeSent().empty());
    FillRadio(3);
    EXPECT_TRUE(Server().PostResponse(record, response.data(), 50));

    const std::vector<Sent> sent = TakeSent();
    ASSERT_EQ(sent.size(), 3u);
    Bytes joined(sent[0].data.begin() + 2, sent[0].data.end());
    joined.insert(joined.end(), sent[1].data.begin() + 1, sent[1].data.end());
    joined.insert(joined.end(), sent[2].data.begin() + 1, sent[2].data.end());
    EXPECT_EQ(joined, response);
}

TEST_F(RadioQueueTest, StoredResponseWaitsForRoomForAllOfIt) {
    BleNotificationClient& client = Connect(4);
    const Bytes response = Counting(50);
    client.StoreCommandResponse(response.data(), 50);
    FillRadio(2);

    EXPECT_FALSE(Server().CheckClientsStoredResponses());
    EXPECT_TRUE(TakeSent().empty());
    EXPECT_TRUE(Server().CheckClientsStoredResponses());

    const std::vector<Sent> sent = TakeSent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0].streamId, KZ_STR_ID_COMMAND_RESPONSE);
    EXPECT_FALSE(Server().CheckClientsStoredResponses());
}

TEST_F(RadioQueueTest, HeldPacketsAreDroppedWhenHoldingEnds) {
    Server().SetPacketTimer(true);
    ble_message_t record = NewDataRecord(4, KZ_STR_ID_QUERY_RESPONSE);
    EXPECT_TRUE(Server().PostPacket(record));
    EXPECT_TRUE(Server().PostResponse(record, Counting(30).data(), 30));
    EXPECT_TRUE(TakeSent().empty());

    Server().SetPacketTimer(false);

    EXPECT_TRUE(TakeSent().empty());
    EXPECT_TRUE(Server().PostPacket(record));
    EXPECT_EQ(TakeSent().size(), 1u);
}

TEST_F(RadioQueueTest, StatisticsAreDueOnEveryThirdTickOfABusyQueue) {
    EXPECT_FALSE(Server().TrackBleQStats(3));
    FillRadio(5);
    EXPECT_FALSE(Server().TrackBleQStats(4));
    EXPECT_TRUE(Server().TrackBleQStats(6));
    int capacity = 0;
    EXPECT_EQ(Server().GetBleTxQueueAvailability(&capacity), 5u);
    EXPECT_EQ(capacity, kRadioDepth);
}

}  // namespace
}  // namespace server_test
