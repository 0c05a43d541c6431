// Messages on the daemon's CSI queue: any bytes of the network daemon, to a server with two interested clients.
//
// Byte 0 of the input is the depth of the radio queue; messages follow, each behind two bytes of length.
#include <fcntl.h>
#include <mqueue.h>

#include "cameraFakes.h"
#include "fuzz.h"
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
    g_logLevel = KZ_LOG_OFF;
    g_debug_level = 0;
    fakes::Reset();
    fakes::Record(false);
    queryFuzz::LoadModel();
    played::ResetQueues();
    Input input(data, size);
    played::SetDepth(kMqToSkylark, input.Byte());
    played::SetDepth("/a", 1);
    OpenServer();
    fakes::OnCommand(81, 0, fakes::Bytes(data, data + size));  // the presets of the camera

    while (input.size() >= 2) {
        std::vector<uint8_t> message = input.Upto(std::min<size_t>(input.BigEndian16(), kEventMessageSize));
        const auto length = static_cast<uint32_t>(message.size());
        message.reserve(length + kCsiAnswerRoom);  // and not a byte more
        message.resize(length + kCsiAnswerRoom);
        KzBleServer::GetInstance()->HandleCsiMessage(message, length);
        KzBleServer::GetInstance()->CheckClientsStoredResponses();
    }
    return 0;
}
