// The client record: gates, stored responses, copies, the dump, and what each interface makes of a packet.
#include <algorithm>
#include <map>

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

    // A whole packet of these bytes, the rest filled with what must not be read.
    Bytes Packet(Bytes bytes) {
        bytes.resize(kBlePacketSize, 0xEE);
        return bytes;
    }

    Client m_client{7, 3, KZ_CALLER_BLE_RC};
};

TEST_F(ClientRecordTest, DescriptorGatesAllAnswersOfItsInterfaceAndNoOther) {
    const std::map<uint8_t, uint8_t> gateOfDescriptor = {{5, 2}, {10, 7}, {15, 12}, {20, 17}};
    for (const auto& [descriptor, gate] : gateOfDescriptor) {
        Client client(7, 3, KZ_CALLER_BLE_RC);

        client.SetCCCEnabled(descriptor, 1);

        for (const Client::StoredResponse& stored : client.m_storedResponses) {
            EXPECT_EQ(stored.m_enabled, stored.m_streamId == gate) << "descriptor " << int(descriptor);
        }
        for (const int stream : {2, 7, 12, 17, 0, 4, 255}) {
            EXPECT_EQ(client.GetEnabledByStreamId(static_cast<uint8_t>(stream)), stream == gate) << stream;
        }
        client.SetCCCEnabled(descriptor, 2);
        EXPECT_FALSE(client.GetEnabledByStreamId(gate)) << "only 1 enables";
    }
}

TEST_F(ClientRecordTest, GateChangesAreLoggedPerEntryAndUnknownDescriptorsChangeNothing) {
    const fakes::LogCapture log(KZ_LOG_INFO);

    m_client.SetCCCEnabled(15, 1);
    m_client.SetCCCEnabled(5, 0);
    m_client.SetCCCEnabled(9, 1);

    EXPECT_EQ(log.Texts(), (std::vector<std::string>{
                               "CCC stream ID 15",
                               "StoredResponse[1] Enabling streamId:12 for connection: 7",
                               "StoredResponse[2] Enabling streamId:12 for connection: 7",
                               "StoredResponse[3] Enabling streamId:12 for connection: 7",
                               "StoredResponse[5] Enabling streamId:12 for connection: 7",
                               "CCC stream ID 5",
                               "StoredResponse[0] Disabling streamId:2 for connection:7",
                               "CCC stream ID 9",
                               "Invalid CCC stream ID 9",
                           }));
    EXPECT_TRUE(log.Has("Invalid CCC stream ID 9", KZ_LOG_DEBUG));
}

TEST_F(ClientRecordTest, SensorEventOpensEveryGate) {
    m_client.SetSensorCCCEnabled();

    for (const auto stream : std::initializer_list<uint8_t>{2, 7, 12, 17}) {
        EXPECT_TRUE(m_client.GetEnabledByStreamId(stream));
    }
}

TEST_F(ClientRecordTest, StoredResponsesLeaveByPriorityThroughOpenGatesOnly) {
    const Bytes command = {1}, settings = {2, 2}, query = {3, 3, 3}, sensor = {4, 4, 4, 4};
    m_client.StoreSensorResponse(sensor.data(), 4);
    m_client.StoreQueryResponse(query.data(), 3);
    m_client.StoreSettingsResponse(settings.data(), 2);
    m_client.StoreCommandResponse(command.data(), 1);
    EXPECT_EQ(m_client.GetHighestPriorityStoredResponse(), nullptr);
    m_client.SetSensorCCCEnabled();
    m_client.SetCCCEnabled(KZ_STR_ID_COMMAND_CCC, 0);

    std::vector<int> lengths;
    while (Client::StoredResponse* stored = m_client.GetHighestPriorityStoredResponse()) {
        lengths.push_back(stored->m_length);
        stored->Clear();
    }

    EXPECT_EQ(lengths, (std::vector<int>{2, 3, 4}));
    m_client.SetCCCEnabled(KZ_STR_ID_COMMAND_CCC, 1);
    ASSERT_NE(m_client.GetHighestPriorityStoredResponse(), nullptr);
    EXPECT_EQ(m_client.GetHighestPriorityStoredResponse()->m_length, 1);
}

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

TEST_F(ClientRecordTest, DumpListsCountersEntriesAndInterests) {
    const Bytes data(9);
    m_client.StoreSettingsResponse(data.data(), 9);
    m_client.SetCCCEnabled(10, 1);
    m_client.m_inCount = 4;
    m_client.m_statusInterest = {1, 2, 10};
    const fakes::LogCapture log(KZ_LOG_INFO);

    m_client.Dump();

    EXPECT_EQ(log.Texts(), (std::vector<std::string>{
                               "========= DEVICE INFO =============",
                               "connection_id         :7",
                               "SDK in message count  :4",
                               "SDK out message count :0",
                               "SDK push message count:0",
                               "SDK Notify stream_id:2 enabled:0",
                               "    Bytes of stored response:0",
                               "SDK Notify stream_id:12 enabled:0",
                               "    Bytes of stored response:0",
                               "SDK Notify stream_id:12 enabled:0",
                               "    Bytes of stored response:0",
                               "SDK Notify stream_id:12 enabled:0",
                               "    Bytes of stored response:0",
                               "SDK Notify stream_id:7 enabled:1",
                               "    Bytes of stored response:9",
                               "SDK Notify stream_id:12 enabled:0",
                               "    Bytes of stored response:0",
                               "SDK Notify stream_id:17 enabled:0",
                               "    Bytes of stored response:0",
                               "status interest       : 1 2 10 ",
                               "settings interest     : NONE",
                               "capabilities interest : NONE",
                           }));
}

// One packet through one interface.
struct Interface {
    const char* name;
    bool (Client::*process)(unsigned char*, unsigned char*, unsigned short*, int*);
    void (Client::*store)(const unsigned char*, int);
    int entry;
    bool oneOutstanding;
};
const Interface kInterfaces[] = {
    {"command", &Client::ProcessCommandMessage, &Client::StoreCommandResponse, Client::eStoredCommand, true},
    {"settings", &Client::ProcessSettingMessage, &Client::StoreSettingsResponse, Client::eStoredSettings, true},
    {"query", &Client::ProcessQueryMessage, &Client::StoreQueryResponse, Client::eStoredQuery, true},
    {"sensor", &Client::ProcessMetadataMessage, &Client::StoreSensorResponse, Client::eStoredSensor, false},
};

TEST_F(ClientRecordTest, PacketThatFailsIsAnsweredWithAnErrorOnEveryInterface) {
    const struct {
        const char* what;
        Bytes packet;
    } rows[] = {
        {"a continuation without a message", {0x80, 1, 2}},
        {"a message of no bytes", {0x00}},
        {"an unsupported length type", {0x45, 1, 2}},
    };
    for (const Interface& interface : kInterfaces) {
        for (const auto& row : rows) {
            SCOPED_TRACE(testing::Message() << row.what << " on the " << interface.name << " interface");
            Bytes packet = Packet(row.packet);
            Bytes response(kMessageBufferSize);
            unsigned short length = kMessageBufferSize;
            int kzErrno = 0;

            const bool answer = (m_client.*interface.process)(packet.data(), response.data(), &length, &kzErrno);

            EXPECT_TRUE(answer);
            EXPECT_EQ(kzErrno, KZ_ERR_INVALID_PARAM);
            ASSERT_EQ(length, 2);
            EXPECT_EQ(response[1], 2);
        }
    }
}

TEST_F(ClientRecordTest, PacketDropsTheUnsentAnswerOfItsInterfaceButNeverASensorAnswer) {
    for (const Interface& interface : kInterfaces) {
        SCOPED_TRACE(interface.name);
        const Bytes held = {9, 9};
        for (const Interface& each : kInterfaces) {
            (m_client.*each.store)(held.data(), 2);
        }
        Bytes packet = Packet({0x20, 40});
        Bytes response(kMessageBufferSize);
        unsigned short length = kMessageBufferSize;
        int kzErrno = 1;

        const bool answer = (m_client.*interface.process)(packet.data(), response.data(), &length, &kzErrno);

        EXPECT_FALSE(answer);
        EXPECT_EQ(kzErrno, KZ_OK);
        for (const Interface& each : kInterfaces) {
            const bool dropped = each.entry == interface.entry && interface.oneOutstanding;
            EXPECT_EQ(m_client.m_storedResponses[static_cast<size_t>(each.entry)].m_length, dropped ? 0 : 2)
                << each.name;
        }
    }
}

TEST_F(ClientRecordTest, AcceptedSensorSampleHasNoAnswer) {
    Bytes response(kMessageBufferSize);
    const auto process = [&](Bytes message) {
        Bytes packet = Packet(std::move(message));
        unsigned short length = kMessageBufferSize;
        int kzErrno = 0;
        return m_client.ProcessMetadataMessage(packet.data(), response.data(), &length, &kzErrno);
    };

    EXPECT_TRUE(process({5, 2, 1, 'H', 'R', 'M'}));
    EXPECT_TRUE(process({11, 3, 'H', 'R', 'T', 'E', 0, 0, 'B', 1, 1, 0}));
    EXPECT_FALSE(process({3, 1, 0, 70}));
}

}  // namespace
}  // namespace server_test
