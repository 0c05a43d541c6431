// What keeps the only transfer slot: the passing of time, which no test at the daemon's edges can wait for.
#include "fileTransfers.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "kzControlCommands.h"
#include "logCapture.h"
#include "privateTmp.h"
#include "serverParts.h"
#include "utils.h"

namespace {

constexpr const char* kNetworkQueue = "/to_kznet";

TEST(FileTransfersTest, TransferInWhichNothingMovesForAMinuteEndsAsByADisconnection) {
    if (!fakes::EnterPrivateTmp()) {
        GTEST_SKIP() << "the system allows no namespaces";
    }
    std::filesystem::create_directory("/tmp/fuse_d");
    std::string image(120, '\0');  // nothing in it is checked
    image[4] = 1;                  // version
    std::ofstream("/tmp/fuse_d/KZ_SHUTTER_REMOTE_FW.bin") << image;
    fakes::Reset();
    fakes::Bytes status(394, 0);
    status[198] = 80;  // percent of the battery
    fakes::OnCommand(KZCONTROL_GET_ALL_STATUS, 0, status);
    ServerParts parts(10);
    played::SetDepth(kNetworkQueue, 10);
    FileTransfers transfers(parts.clients, parts.radio, parts.transferSlot, parts.camera);
    BleNotificationClient& silent = parts.Connect(1);
    silent.m_identity.m_deviceType = KZ_CALLER_MAPLE;
    const fakes::LogCapture log(KZ_LOG_ERROR);
    const auto passTicks = [&](int count) {
        for (int i = 0; i < count; ++i) {
            transfers.KeepMoving();
        }
        return parts.transferSlot.IsTaken();
    };
    ASSERT_TRUE(transfers.StartLarchFileTransfer(&silent));

    EXPECT_TRUE(passTicks(120));
    silent.m_file.m_bytesRemaining = 20;
    EXPECT_TRUE(transfers.SendFileChunk(&silent));
    EXPECT_TRUE(passTicks(120));
    played::Take(kNetworkQueue);
    EXPECT_FALSE(passTicks(1));

    EXPECT_FALSE(silent.m_file.IsTransferringLarch());
    EXPECT_EQ(played::Take(kNetworkQueue).size(), 2u) << "failed, and idle";
    EXPECT_TRUE(log.Has("Nothing of the file for connection_id:1 moved for 60 seconds, ending its transfer"));
    EXPECT_EQ(parts.clients.GetClientCount(), 1u);
}

}  // namespace
