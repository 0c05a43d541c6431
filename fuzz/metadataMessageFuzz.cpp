// The sensor interface: one accessory sends any messages, one after the other; each is a length byte and its bytes. A
// length of 255 lets a tick pass. What is handed over is whole and fits the metadata service's records.
#include "bleDevice.h"
#include "cameraFakes.h"
#include "fuzz.h"
#include "kzmfFormat.h"
#include "testServices.h"
#include "utils.h"

namespace {

void Send(BleNotificationClient& client, std::vector<uint8_t> request) {
    std::vector<uint8_t> response(2);
    BleMetadataMessage& message = client.m_metadataMessage;
    message.Reset(static_cast<int>(request.size()));
    message.m_stream.attach(request.data(), static_cast<unsigned short>(request.size()));
    int code = message.Deserialize() == 0 ? KZ_OK : KZ_ERR_INVALID_PARAM;
    unsigned short length = 2;
    if (code == KZ_OK) {
        code = message.Execute(&client, response.data(), &length);
        Require(length == 2 || (length == 0 && code == KZ_OK));
    }
    if (code != KZ_OK) {
        length = 2;
        message.HandleError(code, response.data(), &length);
        Require(length == 2 && response[1] != 0);
    }
}

void CheckRecords() {
    constexpr size_t kSequenceSize = 4;
    for (const fakes::Call& call : fakes::Calls("ipc-send")) {
        const auto size = static_cast<uint32_t>(call.argument.size() - kSequenceSize);
        Require(size > 0 && size <= 1400);
        Require(MetadataIsValidKZMF(call.argument.data() + kSequenceSize, size, true));
    }
    fakes::ForgetCalls();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_logLevel = KZ_LOG_OFF;
    fakes::Reset();
    TestServices services;
    BleNotificationClient client(7, 1, 12, services.services);
    for (Input input(data, size); !input.IsEmpty(); CheckRecords()) {
        const uint8_t length = input.Byte();
        if (length == 255) {
            services.sensorHandOver.writeSession();
        } else {
            Send(client, input.Upto(length));
        }
    }
    services.sensorHandOver.HandOverUnsent();
    CheckRecords();
    client.RemoveStreams();
    return 0;
}
