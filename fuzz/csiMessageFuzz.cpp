// Messages on the daemon's CSI queue: any bytes of the network daemon, to a server with two interested clients.
//
// Byte 0 of the input is the depth of the radio queue; messages follow, each behind two bytes of length.
#include "cameraFakes.h"
#include "fuzz.h"
#include "queryCatalogue.h"
#include "serverParts.h"
#include "utils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_logLevel = KZ_LOG_OFF;
    g_debug_level = 0;
    fakes::Reset();
    fakes::Record(false);
    queryFuzz::LoadModel();
    Input input(data, size);
    ServerParts server(input.Byte());
    played::SetDepth("/a", 1);
    for (const uint32_t id : {1u, 2u}) {
        BleNotificationClient& client = server.Connect(id);
        client.AddInterest(NotificationClient::eNotifyCSI, 7);
        client.AddInterest(NotificationClient::eNotifyLcd, 2);
        client.AddInterest(NotificationClient::eNotifyLed, 2);
    }
    fakes::OnCommand(81, 0, fakes::Bytes(data, data + size));  // the presets of the camera

    while (input.size() >= 2) {
        std::vector<uint8_t> message = input.Upto(std::min<size_t>(input.BigEndian16(), kEventMessageSize));
        const auto length = static_cast<uint32_t>(message.size());
        message.reserve(length + kCsiAnswerRoom);  // and not a byte more
        message.resize(length + kCsiAnswerRoom);
        server.inbox.HandleCsiMessage(message, length);
        server.delivery.CheckClientsStoredResponses();
    }
    return 0;
}
