// Messages on the daemon's CSI queue: any bytes of the network daemon, to a server with two interested clients.
//
// Byte 0 of the input is the depth of the radio queue; messages follow, each behind two bytes of length.
#include <fcntl.h>
#include <mqueue.h>

#include "cameraFakes.h"
#include "kzBleServer.h"
#include "playedQueues.h"
#include "queryCatalogue.h"
#include "utils.h"

namespace {

// The server and its model live on from input to input; clients and cached values do not.
void OpenServer() {
    KzBleServer* server = KzBleServer::GetInstance();
    server->m_clients.clear();
    server->m_csiCache.fill(0);
    server->m_radioDepth = 0;
    server->m_bleTxMq = QueueHandle(mq_open(kMqToSkylark, O_WRONLY));
    server->m_msgBuffer = std::make_unique<unsigned char[]>(kMessageBufferSize);
    server->m_lcdBuffer = std::make_unique<unsigned char[]>(kMessageBufferSize);
    server->m_ledBuffer = std::make_unique<unsigned char[]>(kLedBufferSize);
    for (const int id : {1, 2}) {
        auto client = std::make_unique<BleNotificationClient>(static_cast<unsigned>(id), uint8_t{1}, uint8_t{11});
        client->SetSensorCCCEnabled();
        client->AddInterest(NotificationClient::eNotifyCSI, 7);
        client->AddInterest(NotificationClient::eNotifyLcd, 2);
        client->AddInterest(NotificationClient::eNotifyLed, 2);
        server->m_clients.push_back(std::move(client));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    g_logLevel = KZ_LOG_OFF;
    g_debug_level = 0;
    fakes::Reset();
    fakes::Record(false);
    queryFuzz::LoadModel();
    played::ResetQueues();
    played::SetDepth(kMqToSkylark, data[0]);
    played::SetDepth("/a", 1);
    OpenServer();

    const fakes::Bytes whole(data, data + size);
    fakes::OnCommand(81, 0, whole);  // the presets of the camera
    for (size_t offset = 1; offset + 2 <= size;) {
        const size_t length =
            std::min<size_t>({size_t{data[offset]} << 8 | data[offset + 1], size - offset - 2, kEventMessageSize});
        offset += 2;
        const auto buffer = std::make_unique<unsigned char[]>(length + kCsiAnswerRoom);
        std::copy_n(data + offset, length, buffer.get());
        KzBleServer::GetInstance()->HandleCsiMessage({buffer.get(), length + kCsiAnswerRoom},
                                                     static_cast<uint32_t>(length));
        KzBleServer::GetInstance()->CheckClientsStoredResponses();
        offset += length;
    }
    return 0;
}
