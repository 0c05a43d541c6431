// The client record: stored responses, copies and streams.
#include <gtest/gtest.h>

#include <vector>

#include "bleDevice.h"
#include "kzmfWriter.h"
#include "skylark/bleMessage.h"
#include "utils.h"

namespace {

using Client = BleNotificationClient;

class ClientRecordTest : public testing::Test {
  protected:
    ClientRecordTest() { g_logLevel = KZ_LOG_OFF; }

    void OpenStream(Client& client, uint8_t index) {
        void* buffer = client.AddStreamBuffer(index);
        EXPECT_NE(MetadataStreamOpen(1, "HRM", buffer, SensorStreams::kMetadataStreamBufferSize), nullptr);
    }

    Client m_client{7, 3, KZ_CALLER_BLE_RC};
};

TEST_F(ClientRecordTest, NewerResponseReplacesTheHeldOneWhateverItsLength) {
    m_client.SetSensorCCCEnabled();
    for (const size_t length : {size_t{3}, size_t{300}, size_t{1}}) {
        const std::vector<unsigned char> data(length, static_cast<unsigned char>(length));

        m_client.StoreQueryResponse(data.data(), static_cast<int>(length));

        const Client::StoredResponse* stored = m_client.GetHighestPriorityStoredResponse();
        ASSERT_NE(stored, nullptr);
        EXPECT_EQ(std::vector<unsigned char>(stored->m_data.get(), stored->m_data.get() + stored->m_length), data);
    }
}

TEST_F(ClientRecordTest, CopyKeepsWhoThePeerIsAndStartsAnew) {
    const unsigned char data = 1;
    m_client.m_file.m_blockSize = 200;
    m_client.m_file.m_bytesRemaining = 20;
    m_client.m_identity.m_accessoryUpdatePending = true;
    m_client.AddInterest(Client::eNotifyStatus, 2);
    m_client.AddInterest(Client::eNotifyCSI, 97);
    m_client.m_streams.m_metadataDeviceName = "HRM";
    void* const buffer = m_client.AddStreamBuffer(0);
    m_client.SetSensorCCCEnabled();
    m_client.StoreCommandResponse(&data, 1);
    m_client.m_queryMessage.m_waitingForStart = false;
    Client assigned(9, 9, 9);
    assigned.AddInterest(Client::eNotifyCSI, 1);
    assigned.SetSensorCCCEnabled();
    assigned.StoreQueryResponse(&data, 1);
    assigned.m_queryMessage.m_waitingForStart = false;

    Client copy(m_client);
    assigned = m_client;

    for (Client* client : {&copy, &assigned}) {
        EXPECT_EQ(client->m_identity.m_connectionId, 7u);
        EXPECT_EQ(client->m_identity.m_deviceId, 3);
        EXPECT_EQ(client->m_file.m_blockSize, 200);
        EXPECT_EQ(client->m_file.m_bytesRemaining, 20);
        EXPECT_EQ(client->m_interests.Of(Client::eNotifyStatus), std::vector<int>{2});
        EXPECT_EQ(client->m_streams.m_metadataDeviceName, "HRM");
        EXPECT_EQ(client->m_streams.MetadataStream(0), buffer);
        EXPECT_FALSE(client->m_identity.m_accessoryUpdatePending);
        EXPECT_TRUE(client->m_interests.Of(Client::eNotifyCSI).empty());
        EXPECT_TRUE(client->m_queryMessage.m_waitingForStart);
        EXPECT_FALSE(client->GetEnabledByStreamId(KZ_STR_ID_QUERY));
        client->SetSensorCCCEnabled();
        EXPECT_EQ(client->GetHighestPriorityStoredResponse(), nullptr);
    }
}

TEST_F(ClientRecordTest, StreamsAreClosedOnDisconnectionAndByTheLastOwner) {
    m_client.m_streams.m_metadataStreamCount = 3;
    for (const uint8_t index : {uint8_t{0}, uint8_t{1}, uint8_t{2}}) {
        OpenStream(m_client, index);
    }
    m_client.m_streams.DropStreamBuffer(1);
    m_client.m_streams.DropStreamBuffer(2);
    EXPECT_TRUE(MetadataHasStreams()) << "the first is still listed";
    auto copy = std::make_unique<Client>(m_client);

    m_client.RemoveStreams();
    EXPECT_EQ(m_client.m_streams.m_metadataStreamCount, 3);
    EXPECT_EQ(m_client.m_streams.MetadataStream(0), nullptr);
    EXPECT_FALSE(MetadataHasStreams());
    copy.reset();

    OpenStream(*std::make_unique<Client>(8, uint8_t{1}, uint8_t{12}), 0);
    EXPECT_FALSE(MetadataHasStreams());
    EXPECT_EQ(m_client.AddStreamBuffer(3), nullptr);
}

}  // namespace
