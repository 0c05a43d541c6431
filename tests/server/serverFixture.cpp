#include "serverFixture.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/stat.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <numeric>

#include "bleSDK.h"
#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "kzTlv.h"
#include "privateTmp.h"
#include "utils.h"

void KzBleServerTestAccess::Open() {
    KzBleServer* server = KzBleServer::GetInstance();
    server->m_bleTxMq = QueueHandle(mq_open(kMqToSkylark, O_WRONLY));
    server->m_timer_fd = FileDescriptor(timerfd_create(CLOCK_MONOTONIC, 0));
    server->m_msgBuffer = std::make_unique<unsigned char[]>(kMessageBufferSize);
}

BleNotificationClient& KzBleServerTestAccess::Connect(uint32_t connectionId, uint8_t deviceType) {
    auto& clients = KzBleServer::GetInstance()->m_clients;
    return *clients.emplace_back(std::make_unique<BleNotificationClient>(connectionId, uint8_t{1}, deviceType));
}

uint32_t KzBleServerTestAccess::TransfersRunning() {
    return KzBleServer::GetInstance()->m_fileTransferSlots;
}

void KzBleServerTestAccess::SetCsiValue(uint8_t key, uint32_t value) {
    KzBleServer::GetInstance()->m_csiCache[key] = value;
}

namespace server_test {
namespace {

constexpr uint8_t kFillerStream = 99;

QueueHandle CreateQueue(const char* name, long depth, long messageSize) {
    mq_attr attributes{};
    attributes.mq_maxmsg = depth;
    attributes.mq_msgsize = messageSize;
    return QueueHandle(mq_open(name, O_RDONLY | O_CREAT | O_NONBLOCK, 0600, &attributes));
}

bool EnterPrivateQueues() {
    static const bool s_entered = unshare(CLONE_NEWIPC) == 0;
    return s_entered;
}

void Append32(Bytes& bytes, uint32_t value) {
    const Bytes word = fakes::Le32(value);
    bytes.insert(bytes.end(), word.begin(), word.end());
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const Sent& sent) {
    out << "client " << sent.connectionId << " stream " << sent.streamId << ":";
    for (const int byte : sent.data) {
        out << ' ' << byte;
    }
    return out;
}

void ServerTest::SetUp() {
    if (!fakes::EnterPrivateTmp() || !EnterPrivateQueues()) {
        GTEST_SKIP() << "the system allows no namespaces";
    }
    g_logLevel = KZ_LOG_OFF;
    std::filesystem::create_directories("/tmp/fuse_d");
    fakes::Reset();
    CameraStatus(50, 0);
    m_radio = CreateQueue(kMqToSkylark, kRadioDepth, kBleRecordSize);
    m_network = CreateQueue(kMqKzNet, 10, kEventMessageSize);
    ASSERT_TRUE(m_radio.IsOpen() && m_network.IsOpen());
    KzBleServerTestAccess::Open();
}

void ServerTest::TearDown() {
    KzBleServer::Destroy();
    mq_unlink(kMqToSkylark);
    mq_unlink(kMqKzNet);
}

BleNotificationClient& ServerTest::Connect(uint32_t connectionId, uint8_t deviceType) {
    BleNotificationClient& client = KzBleServerTestAccess::Connect(connectionId, deviceType);
    client.SetCCCEnabled(KZ_STR_ID_COMMAND_CCC, 1);
    return client;
}

void ServerTest::Disconnect(uint32_t connectionId) {
    ble_message_t record{};
    record.eventType = KZBLE_SDK_EVENT_Disconn;
    record.connectionId = connectionId;
    EXPECT_TRUE(Server().UpdateBleDeviceStatus(record));
}

bool ServerTest::Receive(uint32_t connectionId, uint8_t streamId, const Bytes& data) {
    ble_message_t record = NewDataRecord(connectionId, streamId);
    record.dataLength = static_cast<uint8_t>(data.size());
    std::copy(data.begin(), data.end(), record.data);
    int kzErrno = 0;
    return Server().HandleSDKMessage(record, &kzErrno);
}

std::vector<Sent> ServerTest::TakeSent() {
    std::vector<Sent> all;
    ble_message_t record{};
    while (mq_receive(m_radio, reinterpret_cast<char*>(&record), sizeof(record), nullptr) == sizeof(record)) {
        if (record.streamId != kFillerStream) {
            all.push_back({record.connectionId, record.streamId, Bytes(record.data, record.data + record.dataLength)});
        }
    }
    return all;
}

void ServerTest::FillRadio(long free) {
    const QueueHandle writer(mq_open(kMqToSkylark, O_WRONLY | O_NONBLOCK));
    const ble_message_t filler = NewDataRecord(0, kFillerStream);
    while (QueueAttributes(writer)->mq_curmsgs < kRadioDepth - free) {
        ASSERT_EQ(mq_send(writer, reinterpret_cast<const char*>(&filler), sizeof(filler), 0), 0);
    }
}

std::vector<uint32_t> ServerTest::TakeAccessoryStates() {
    std::vector<uint32_t> states;
    unsigned char message[kEventMessageSize];
    while (mq_receive(m_network, reinterpret_cast<char*>(message), sizeof(message), nullptr) > 0) {
        const unsigned char* argument = tlv_find(message, TLV_CMDARG);
        if (argument != nullptr && tlv_length(argument) == 9 && tlv_data(argument)[0] == CSI_ACCESSORY_UPDATE) {
            const unsigned char* value = tlv_data(argument) + 5;
            states.push_back(static_cast<uint32_t>(value[0] | value[1] << 8 | value[2] << 16 | value[3] << 24));
        }
    }
    return states;
}

void ServerTest::WriteFile(const std::string& path, const Bytes& content) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
    ASSERT_TRUE(file.flush().good()) << path;
}

void ServerTest::WriteImage(const std::string& name, Bytes image, uint8_t patch) {
    WriteFile("/tmp/fuse_d/" + name, ImageFile(image, 1, 2, patch));
}

std::string ServerTest::WriteSettings(const Bytes& content) {
    BleSDK::GetInstance()->m_settingsPath = "/tmp/settings.json";
    WriteFile("/tmp/settings.json.gz", content);
    return "/tmp/settings.json.gz";
}

void ServerTest::CameraStatus(uint8_t battery, uint8_t busy) {
    Bytes status(394);
    status[198] = battery;
    status[209] = busy;
    fakes::OnCommand(KZCONTROL_GET_ALL_STATUS, 0, status);
}

Bytes Counting(size_t length) {
    Bytes bytes(length);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    return bytes;
}

Bytes ImageFile(const Bytes& image, uint8_t major, uint8_t minor, uint8_t patch) {
    Bytes file;
    Append32(file, Utils::crc32(image.data(), static_cast<uint32_t>(image.size())));
    Append32(file, major);
    Append32(file, minor);
    Append32(file, patch);
    Append32(file, static_cast<uint32_t>(image.size()));
    file.insert(file.end(), image.begin(), image.end());
    return file;
}

}  // namespace server_test
