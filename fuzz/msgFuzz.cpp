// Msg: any bytes decode into a whole message or are refused; what was decoded encodes to the same bytes again.
#include <cstring>

#include "fuzz.h"
#include "kzBleMessages.h"
#include "utils.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    g_logLevel = KZ_LOG_OFF;
    if (size > UINT16_MAX) {
        return 0;
    }
    std::vector<uint8_t> received(data, data + size);
    MemoryStream stream(received.data(), static_cast<unsigned short>(received.size()));
    Msg message(0);
    if (!message.decode(stream)) {
        Require(message.getSize() == 4);
        return 0;
    }
    Require(message.getSize() == stream.getLength());

    std::vector<uint8_t> encoded(message.getSize());
    MemoryStream out(encoded.data(), message.getSize());
    out << message;
    // Reserved bytes are not carried, so the comparison is between the decoded forms.
    Msg again(0);
    Require(again.decode(out) && again.getSize() == message.getSize() && again.getCategory() == message.getCategory());
    for (unsigned type = 0; type <= UINT8_MAX; ++type) {
        const MsgElement* first = message.findElement(static_cast<unsigned char>(type));
        const MsgElement* second = again.findElement(static_cast<unsigned char>(type));
        Require((first == nullptr) == (second == nullptr));
        if (first != nullptr) {
            Require(first->getDataLength() == second->getDataLength());
            Require(first->getDataLength() == 0 ||
                    std::memcmp(first->getData(), second->getData(), first->getDataLength()) == 0);
        }
    }
    return 0;
}
