// Command 28: what the daemon makes of an accessory that introduces itself.
#include <filesystem>
#include <fstream>

#include "handlersFixture.h"
#include "privateTmp.h"

namespace {

class ClientInfoTest : public HandlersTest<BleCommandMessage> {
  protected:
    static Bytes Info(const Bytes& record) { return Bytes{28, static_cast<uint8_t>(record.size())} + record; }
};

// The update check starts with a question to the camera, which here does not permit one.
const Call kCheck = Command(KZCONTROL_GET_ALL_STATUS);

constexpr uint8_t kAlder = 3;
constexpr uint8_t kBirch = 4;
constexpr uint8_t kMaple = 5;

}  // namespace

TEST_F(ClientInfoTest, EachDeviceTypeIsPublishedUnderItsCallerId) {
    const struct {
        uint8_t type;
        uint8_t callerId;
        const char* log;
        Calls calls;
    } kRows[] = {
        {kBirch, 24, "BIRCH DEVICE CONNECTED", {CsiSet(11, Le32(4)), CsiSet(162, {80, 24, 0, 0})}},
        {kMaple, 27, "MAPLE DEVICE CONNECTED", {kCheck, CsiSet(11, Le32(5)), CsiSet(162, {80, 27, 0, 0})}},
        {kAlder, 23, "ALDER DEVICE CONNECTED", {kCheck, CsiSet(11, Le32(3)), CsiSet(162, {80, 23, 0, 0})}},
        {9, 11, "UNKNOWN DEVICE TYPE", {CsiSet(162, {80, 11, 0, 0})}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.log);
        m_client.m_deviceType = KZ_CALLER_BLE_RC;
        const fakes::LogCapture log(KZ_LOG_DEBUG);

        const Outcome outcome = Run(Info({1, row.type, 2, 3, 4, 80, 0}));

        EXPECT_EQ(outcome.answer, (Bytes{28, 0}));
        EXPECT_EQ(CallsAfterReport(), row.calls);
        EXPECT_EQ(m_client.m_deviceType, row.callerId);
        EXPECT_FALSE(m_client.m_accessoryUpdatePending);
        for (const char* text : {"length = 7 ", "schema 1", "fw maj 2", "fw min 3", "fw build 4", "batt lev = 80",
                                 row.log, "Connect Reason 0  - no action"}) {
            EXPECT_TRUE(log.Has(text, KZ_LOG_DEBUG)) << text;
        }
    }
}

TEST_F(ClientInfoTest, TheUpdateCheckIsSkippedForTheFirstReasonThatHolds) {
    const struct {
        uint8_t type;
        uint8_t battery;
        uint8_t reason;
        uint32_t forced;
        const char* log;
    } kRows[] = {
        {kMaple, 9, 3, 1, "accessory battery low = 9, skip accessory update check"},
        {kAlder, 9, 3, 1, "larch battery low = 9, skip accessory update check"},
        {kMaple, 10, 3, 1, "Forced Update, skip accessory update check"},
        {kAlder, 10, 4, 0, "Quick capture, skip accessory update check"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.log);
        KzBleServer::GetInstance()->m_csiCache[CSI_FORCED_UPDATE] = row.forced;
        const fakes::LogCapture log(KZ_LOG_DEBUG);

        Run(Info({1, row.type, 2, 3, 4, row.battery, row.reason}));

        EXPECT_TRUE(log.Has(row.log, KZ_LOG_DEBUG));
        EXPECT_EQ(fakes::Calls("command"), row.reason == 0 ? Calls() : Calls{Command(99, {1})});
        EXPECT_EQ(fakes::Calls("csi_set")[1], CsiSet(11, Le32(row.type)));
    }
}

TEST_F(ClientInfoTest, AnAccessoryThatIsBackFromItsUpdateEndsTheWait) {
    const struct {
        uint8_t type;
        uint32_t done;
        const char* log;
    } kRows[] = {{kMaple, 0x001B0003, "Accessory Connected in Waiting to Connect State"},
                 {kAlder, 0x00170003, "Larch Connected in Waiting to Connect State"}};
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.log);
        KzBleServer::GetInstance()->SetWaitingAccReconnect(true);
        const fakes::LogCapture log(KZ_LOG_DEBUG);

        Run(Info({1, row.type, 2, 3, 4, 80}));

        const Calls calls = CallsAfterReport();
        ASSERT_GE(calls.size(), 3u);
        EXPECT_EQ(calls[0], CsiSet(150, Le32(row.done)));
        EXPECT_EQ(calls[1], CsiSet(150, Le32(0)));
        EXPECT_FALSE(KzBleServer::GetInstance()->GetWaitingAccReconnect());
        EXPECT_TRUE(log.Has(row.log, KZ_LOG_DEBUG));
    }
}

TEST_F(ClientInfoTest, AnAlderThatIsAlreadyToBeUpdatedIsNotPublished) {
    m_client.m_accessoryUpdatePending = true;

    Run(Info({1, kAlder, 2, 3, 4, 80}));

    EXPECT_EQ(CallsAfterReport(), (Calls{kCheck, CsiSet(162, {80, 23, 0, 0})}));
}

TEST_F(ClientInfoTest, AnAccessoryWithOldFirmwareIsToBeUpdated) {
    if (!fakes::EnterPrivateTmp()) {
        GTEST_SKIP() << "no private /tmp on this system";
    }
    const std::string image = "image";
    const Bytes file =
        Le32({Utils::crc32(reinterpret_cast<const uint8_t*>(image.data()), 5), 3, 0, 0, 5}) + fakes::BytesOf(image);
    std::filesystem::create_directory("/tmp/fuse_d");
    for (const char* name : {"/tmp/fuse_d/KZ_REMOTE_FW.bin", "/tmp/fuse_d/KZ_SHUTTER_REMOTE_FW.bin"}) {
        std::ofstream(name, std::ios::binary).write(reinterpret_cast<const char*>(file.data()), 25);
    }
    Bytes permits(394, 0);
    permits[198] = 100;  // battery
    fakes::OnCommand(KZCONTROL_GET_ALL_STATUS, 0, permits);

    const struct {
        uint8_t type;
        const char* log;
        Calls calls;
    } kRows[] = {
        {kMaple, "Send Maple ota update request", {kCheck, CsiSet(11, Le32(5)), CsiSet(162, {80, 27, 0, 0})}},
        {kAlder, "SEND LARCH REBOOT OTA MODE REQUEST", {kCheck, CsiSet(162, {80, 23, 0, 0})}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.log);
        const fakes::LogCapture log(KZ_LOG_DEBUG);
        m_client.m_accessoryUpdatePending = false;
        m_client.AddInterest(NotificationClient::eNotifyLcd, 7);

        const Outcome outcome = Run(Info({1, row.type, 2, 0, 0, 80, 2}));

        EXPECT_EQ(outcome.answer, (Bytes{28, 0}));
        EXPECT_TRUE(m_client.m_accessoryUpdatePending);
        EXPECT_EQ(CallsAfterReport(), row.calls);
        EXPECT_TRUE(log.Has(row.log, KZ_LOG_DEBUG));
        EXPECT_TRUE(log.Has("Connect Reason 0  - no action")) << "the accessory restarts instead";
        EXPECT_EQ(m_client.m_lcdInterest.empty(), row.type == kAlder);
    }
}

TEST_F(ClientInfoTest, ShortRecordsMissTheirLastFields) {
    const fakes::LogCapture log(KZ_LOG_DEBUG);

    EXPECT_EQ(Run(Info({1, kBirch, 2, 3})).answer, (Bytes{28, 2}));
    EXPECT_TRUE(log.Has("Invalid length = 4", KZ_LOG_ERROR));
    EXPECT_EQ(CallsAfterReport(), Calls());

    EXPECT_EQ(Run(Info({1, kMaple, 2, 3, 4})).answer, (Bytes{28, 0}));
    EXPECT_TRUE(log.Has("accessory battery low = 0, skip accessory update check"));
    EXPECT_EQ(fakes::Calls("csi_set").back(), CsiSet(162, {0, 27, 0, 0}));

    EXPECT_EQ(Run(Info({1, kBirch, 2, 3, 4, 50})).answer, (Bytes{28, 0}));
    EXPECT_TRUE(log.Has("Connect Reason 0  - no action"));
}

TEST_F(ClientInfoTest, TheConnectReasonMayStartACapture) {
    const struct {
        uint8_t reason;
        bool captures;
        uint8_t result;
        const char* log;
    } kRows[] = {
        {1, false, 0, "Connect Reason 1 button mode, short press"},
        {2, false, 0, "Connect Reason 2 button mode, long press"},
        {3, true, 0, "Connect Reason 3  button shutter, short press"},
        {4, true, 0, "Connect Reason 4  button shutter, long press"},
        {5, false, 2, "BIRCH DEVICE CONNECTED"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.log);
        const fakes::LogCapture log(KZ_LOG_DEBUG);

        const Outcome outcome = Run(Info({1, kBirch, 2, 3, 4, 80, row.reason}));

        EXPECT_EQ(outcome.answer, (Bytes{28, row.result}));
        EXPECT_EQ(fakes::Calls("command"), row.captures ? Calls{Command(99, {1})} : Calls());
        EXPECT_EQ(fakes::Calls("csi_set").back(), CsiSet(162, {80, 24, 0, 0}));
        EXPECT_TRUE(log.Has(row.log));
    }
    fakes::OnCommand(KZCONTROL_QUICK_CAPTURE_START, 8);
    EXPECT_EQ(Run(Info({1, kBirch, 2, 3, 4, 80, 3})).answer, (Bytes{28, 8}));
}
