// Messages on the query interface, against a full model and CSI texts that are the message itself.
#include "handlerFuzz.h"
#include "queryCatalogue.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    queryFuzz::LoadModel();
    handlerFuzz::Run<BleQueryMessage>(data, size, [](const std::vector<uint8_t>& request) {
        for (const uint8_t key : {CSI_CAH_ASSOCIATION_STATE, CSI_CLIENT_ID}) {
            fakes::SetCsi(key, request);
        }
        for (const uint8_t key : {CSI_DEVICE_MGR_STATE, CSI_WOM_STATE, CSI_CAHA_STATE, CSI_CAH_AUTH_STATE}) {
            fakes::SetCsi(
                key, fakes::Bytes(request.begin(), request.begin() + std::min<std::ptrdiff_t>(4, std::ssize(request))));
        }
    });
    return 0;
}
