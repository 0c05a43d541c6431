// The client record: stored responses, copies and streams.
#include "kzmfWriter.h"
#include "serverFixture.h"
#include "utils.h"

namespace server_test {
namespace {

using Client = BleNotificationClient;

class ClientRecordTest : public testing::Test {
  protected:
    ClientRecordTest() {
        g_logLevel = KZ_LOG_OFF;
        fakes::Reset();
    }
    ~ClientRecordTest() override { KzBleServer::Destroy(); }

    Client m_client{7, 3, KZ_CALLER_BLE_RC};
};

TEST_F(ClientRecordTest, NewerResponseReplacesTheHeldOneWhateverItsLength) {
    m_client.SetSensorCCCEnabled();
    for (const size_t length : {size_t{3}, size_t{300}, size_t{1}}) {
        const Bytes data = Counting(length);

        m_client.StoreQueryResponse(data.data(), static_cast<int>(length));

        const Client::StoredResponse* stored = m_client.GetHighestPriorityStoredResponse();
        ASSERT_NE(stored, nullptr);
        EXPECT_EQ(Bytes(stored->m_data.get(), stored->m_data.get() + stored->m_length), data);
    }
}

TEST_F(ClientRecordTest, CopyKeepsWhoThePeerIsAndStartsAnew) {
    const Bytes data = {1};
    m_client.m_blockSize = 200;
    m_client.m_bytesRemaining = 20;
    m_client.m_inCount = 5;
    m_client.m_accessoryUpdatePending = true;
    m_client.m_statusInterest = {1, 2};
    m_client.m_lcdInterest = {7};
    m_client.m_interestedCSIs = {97};
    m_client.m_metadataDeviceName = "HRM";
    m_client.m_metadataStreamCount = 1;
    void* const buffer = m_client.AddStreamBuffer(0);
    m_client.SetSensorCCCEnabled();
    m_client.StoreCommandResponse(data.data(), 1);
    m_client.m_queryMessage.m_waitingForStart = false;
    Client assigned(9, 9, 9);
    assigned.m_inCount = 8;
    assigned.m_interestedCSIs = {1};
    assigned.StoreQueryResponse(data.data(), 1);

    const Client copy(m_client);
    assigned = m_client;

    for (const Client* client : {&copy, static_cast<const Client*>(&assigned)}) {
        EXPECT_EQ(client->m_connectionId, 7u);
        EXPECT_EQ(client->m_deviceId, 3);
        EXPECT_EQ(client->m_blockSize, 200);
        EXPECT_EQ(client->m_bytesRemaining, 20);
        EXPECT_EQ(client->m_statusInterest, (std::vector<int>{1, 2}));
        EXPECT_EQ(client->m_lcdInterest, std::vector<int>{7});
        EXPECT_EQ(client->m_metadataDeviceName, "HRM");
        EXPECT_EQ(client->MetadataStream(0), buffer);
        EXPECT_EQ(client->m_inCount, 0u);
        EXPECT_FALSE(client->m_accessoryUpdatePending);
        EXPECT_TRUE(client->m_interestedCSIs.empty());
        EXPECT_TRUE(client->m_queryMessage.m_waitingForStart);
        for (const Client::StoredResponse& stored : client->m_storedResponses) {
            EXPECT_EQ(stored.m_length, 0);
            EXPECT_FALSE(stored.m_enabled);
        }
    }
}

TEST_F(ClientRecordTest, StreamsAreClosedOnDisconnectionAndByTheLastOwner) {
    m_client.m_metadataStreamCount = 2;
    for (const auto index : std::initializer_list<uint8_t>{0, 1}) {
        void* buffer = m_client.AddStreamBuffer(index);
        ASSERT_NE(MetadataStreamOpen(1, "HRM", buffer, Client::kMetadataStreamBufferSize), nullptr);
    }
    auto copy = std::make_unique<Client>(m_client);

    m_client.RemoveStreams();
    EXPECT_EQ(m_client.m_metadataStreamCount, 2);
    EXPECT_EQ(m_client.MetadataStream(0), nullptr);
    EXPECT_FALSE(MetadataHasStreams());
    copy.reset();

    auto forgotten = std::make_unique<Client>(8, uint8_t{1}, uint8_t{12});
    ASSERT_NE(MetadataStreamOpen(1, "HRM", forgotten->AddStreamBuffer(0), Client::kMetadataStreamBufferSize), nullptr);
    forgotten.reset();
    EXPECT_FALSE(MetadataHasStreams());
    EXPECT_EQ(m_client.AddStreamBuffer(3), nullptr);
}

}  // namespace
}  // namespace server_test
