// The sensor interface: one accessory sends any messages, one after the other; each is a length byte and its bytes. A
// length of 255 lets a tick pass. What is handed over is whole and fits the metadata service's records.
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "bleDevice.h"
#include "cameraFakes.h"
#include "kzBleServer.h"
#include "kzmfFormat.h"
#include "utils.h"

namespace {

constexpr uint8_t kTick = 255;
constexpr size_t kSequenceSize = 4;
constexpr size_t kLongestPayload = 1400;

void Require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

void Send(BleNotificationClient& client, const uint8_t* data, size_t size) {
    std::vector<uint8_t> request(data, data + size);  // exact, so that a read past its end is seen
    std::vector<uint8_t> response(2);
    BleMetadataMessage& message = client.m_metadataMessage;
    message.Reset(static_cast<int>(size));
    message.m_stream.attach(request.data(), static_cast<unsigned short>(size));
    int code = message.Deserialize() == 0 ? KZ_OK : KZ_ERR_INVALID_PARAM;
    unsigned short length = 2;
    if (code == KZ_OK) {
        code = message.Execute(&client, response.data(), &length);
        Require(length == 0 || length == 2);
        Require(length == 2 || code == KZ_OK);
    }
    if (code != KZ_OK) {
        length = 2;
        message.HandleError(code, response.data(), &length);
        Require(length == 2 && response[1] != 0);
    }
}

void CheckRecords() {
    for (const fakes::Call& call : fakes::Calls("kzIpcSend")) {
        Require(call.argument.size() > kSequenceSize && call.argument.size() <= kSequenceSize + kLongestPayload);
        Require(MetadataIsValidKZMF(call.argument.data() + kSequenceSize,
                                    static_cast<uint32_t>(call.argument.size() - kSequenceSize), true));
    }
    fakes::ForgetCalls();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_logLevel = KZ_LOG_OFF;
    fakes::Reset();
    BleNotificationClient client(7, 1, 12);
    while (size != 0) {
        const uint8_t length = *data++;
        --size;
        if (length == kTick) {
            KzBleServer::GetInstance()->writeSession();
        } else {
            const size_t part = length < size ? length : size;
            Send(client, data, part);
            data += part;
            size -= part;
        }
        CheckRecords();
    }
    KzBleServer::GetInstance()->HandOverMetadata();
    CheckRecords();
    client.RemoveStreams();
    return 0;
}
