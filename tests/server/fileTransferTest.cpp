// settings.json.gz to a client: packets, budget, and every way a transfer can end.
#include <filesystem>

#include "serverFixture.h"
#include "utils.h"

namespace server_test {
namespace {

class FileTransferTest : public ServerTest {
  protected:
    // Ticks until the transfer ends and takes everything that was sent.
    std::vector<Sent> RunToTheEnd(const BleNotificationClient& client) {
        std::vector<Sent> all;
        for (int tick = 0; tick < 2000 && client.IsTransferringSettingsJSON(); ++tick) {
            Server().CheckClientsForFileTransfer();
            const std::vector<Sent> sent = TakeSent();
            all.insert(all.end(), sent.begin(), sent.end());
        }
        EXPECT_FALSE(client.IsTransferringSettingsJSON());
        return all;
    }
};

TEST_F(FileTransferTest, FileArrivesByteForByteBehindTheShortestHeader) {
    const struct {
        size_t size;
        Bytes start;
    } rows[] = {
        {0, {0x02}},
        {15, {0x11}},
        {17, {0x13}},
        {18, {0x20, 0x14}},
        {100, {0x20, 0x66}},
        {8186, {0x3F, 0xFC}},
        {8187, {0x40, 0x1F, 0xFD}},
        {9000, {0x40, 0x23, 0x2A}},
        {65532, {0x40, 0xFF, 0xFE}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.size);
        const Bytes file = Counting(row.size);
        WriteSettings(file);
        BleNotificationClient& client = Connect(static_cast<uint32_t>(row.size));
        ASSERT_TRUE(Server().StartSettingsJSONFileTransfer(&client));

        const std::vector<Sent> sent = RunToTheEnd(client);

        Bytes message;
        for (size_t i = 0; i < sent.size(); ++i) {
            EXPECT_EQ(sent[i].streamId, KZ_STR_ID_COMMAND_RESPONSE);
            const size_t header = i == 0 ? row.start.size() : 1;
            if (i > 0) {
                EXPECT_EQ(sent[i].data[0], 0x80 | ((i - 1) & 0x0F));
            }
            message.insert(message.end(), sent[i].data.begin() + static_cast<ptrdiff_t>(header), sent[i].data.end());
        }
        Bytes expected = {0x3B, 0x00};
        expected.insert(expected.end(), file.begin(), file.end());
        EXPECT_EQ(message, expected);
        EXPECT_EQ(Bytes(sent[0].data.begin(), sent[0].data.begin() + static_cast<ptrdiff_t>(row.start.size())),
                  row.start);
        EXPECT_EQ(KzBleServerTestAccess::TransfersRunning(), 0u);
    }
}

TEST_F(FileTransferTest, TransferTakesItsBudgetATick) {
    WriteSettings(Counting(1000));
    BleNotificationClient& client = Connect(1);
    ASSERT_TRUE(Server().StartSettingsJSONFileTransfer(&client));

    EXPECT_TRUE(Server().CheckClientsForFileTransfer());
    EXPECT_EQ(TakeSent().size(), 5u);
    FillRadio(4);
    EXPECT_TRUE(Server().CheckClientsForFileTransfer());
    EXPECT_EQ(TakeSent().size(), 1u);
    FillRadio(2);
    Server().CheckClientsForFileTransfer();
    EXPECT_TRUE(TakeSent().empty());
    EXPECT_TRUE(client.IsTransferringSettingsJSON());
}

TEST_F(FileTransferTest, StartThatFailsLeavesNothingBehind) {
    BleNotificationClient& client = Connect(1);
    const std::string path = WriteSettings(Bytes(65533));
    const fakes::LogCapture log(KZ_LOG_ERROR);

    EXPECT_FALSE(Server().StartSettingsJSONFileTransfer(&client));
    EXPECT_TRUE(log.Has("File:65533 too large to send with extended header, cannot send.", KZ_LOG_ERROR));

    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    EXPECT_FALSE(Server().StartSettingsJSONFileTransfer(&client));
    EXPECT_TRUE(log.Has("Cannot find settings.json.gz file", KZ_LOG_ERROR));

    std::filesystem::remove(path);
    WriteSettings(Counting(10));
    client.SetCCCEnabled(KZ_STR_ID_COMMAND_CCC, 0);
    EXPECT_FALSE(Server().StartSettingsJSONFileTransfer(&client));
    EXPECT_TRUE(log.Has("This stream ID cannot send responses, it is blocked", KZ_LOG_ERROR));

    EXPECT_EQ(client.m_file, nullptr);
    EXPECT_EQ(KzBleServerTestAccess::TransfersRunning(), 0u);
    client.SetCCCEnabled(KZ_STR_ID_COMMAND_CCC, 1);
    EXPECT_TRUE(Server().StartSettingsJSONFileTransfer(&client));
}

TEST_F(FileTransferTest, OneTransferRunsInTheWholeDaemon) {
    WriteSettings(Counting(100));
    BleNotificationClient& first = Connect(1);
    BleNotificationClient& second = Connect(2);
    ASSERT_TRUE(Server().StartSettingsJSONFileTransfer(&first));

    EXPECT_FALSE(Server().IsFileTransferSlotAvailable());
    EXPECT_FALSE(Server().StartSettingsJSONFileTransfer(&second));
    EXPECT_FALSE(Server().StartLarchFileTransfer(&second));

    EXPECT_FALSE(second.IsTransferringSettingsJSON());
    RunToTheEnd(first);
    EXPECT_TRUE(Server().StartSettingsJSONFileTransfer(&second));
}

TEST_F(FileTransferTest, TransferEndsAlsoForAClientThatClosedItsGateMeanwhile) {
    WriteSettings(Counting(300));
    BleNotificationClient& client = Connect(1);
    ASSERT_TRUE(Server().StartSettingsJSONFileTransfer(&client));
    Server().CheckClientsForFileTransfer();
    client.SetCCCEnabled(KZ_STR_ID_COMMAND_CCC, 0);

    RunToTheEnd(client);

    EXPECT_EQ(client.m_file, nullptr);
    EXPECT_TRUE(Server().IsFileTransferSlotAvailable());
}

TEST_F(FileTransferTest, DisconnectionFreesTheSlotWhateverTheGate) {
    for (const auto gate : std::initializer_list<uint8_t>{1, 0}) {
        WriteSettings(Counting(300));
        BleNotificationClient& client = Connect(1);
        ASSERT_TRUE(Server().StartSettingsJSONFileTransfer(&client));
        client.SetCCCEnabled(KZ_STR_ID_COMMAND_CCC, gate);
        const fakes::LogCapture log(KZ_LOG_ERROR);

        Disconnect(1);

        EXPECT_TRUE(Server().IsFileTransferSlotAvailable());
        EXPECT_FALSE(log.Has("File still open when client destroyed."));
    }
}

TEST_F(FileTransferTest, FileThatChangesEndsItsTransfer) {
    for (const size_t newSize : {size_t{400}, size_t{50}, size_t{1000}}) {
        SCOPED_TRACE(newSize);
        const std::string path = WriteSettings(Counting(400));
        std::filesystem::last_write_time(path, std::filesystem::file_time_type::clock::now() - std::chrono::hours(1));
        BleNotificationClient& client = Connect(static_cast<uint32_t>(newSize));
        ASSERT_TRUE(Server().StartSettingsJSONFileTransfer(&client));
        Server().CheckClientsForFileTransfer();
        TakeSent();

        WriteSettings(Bytes(newSize));
        Server().CheckClientsForFileTransfer();

        EXPECT_TRUE(TakeSent().empty());
        EXPECT_FALSE(client.IsTransferringSettingsJSON());
        EXPECT_EQ(client.m_file, nullptr);
        EXPECT_TRUE(Server().IsFileTransferSlotAvailable());
    }
}

TEST_F(FileTransferTest, SlotThatNobodyTookCannotBeReleased) {
    const fakes::LogCapture log(KZ_LOG_ERROR);

    EXPECT_FALSE(Server().ReleaseFileTransferSlot());

    EXPECT_TRUE(log.Has("Attempt to Release file slot when none taken", KZ_LOG_ERROR));
    EXPECT_TRUE(Server().IsFileTransferSlotAvailable());
}

}  // namespace
}  // namespace server_test
