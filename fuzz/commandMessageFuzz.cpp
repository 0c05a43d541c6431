// Messages on the command interface.
#include "handlerFuzz.h"
#include "wsdkCommands/WSDK_RequestSetLiveStreamMode.pb.h"

namespace {

// A certificate is appended to a file of fixed path and an empty url removes it. Such requests are refused at their
// third step; the rest of them is still run, and the file's handling has unit tests.
void LeaveFilesAlone(const std::vector<uint8_t>& request) {
    if (request.size() < 2 || request[0] != 241 || request[1] != 121) {
        return;
    }
    wsdk_commands::WSDK_RequestSetLiveStreamMode stream;
    static_cast<void>(stream.ParsePartialFromArray(request.data() + 2, static_cast<int>(request.size() - 2)));
    if (stream.has_cert() || (stream.has_url() && stream.url().empty())) {
        fakes::OnCsiSet(CSI_WMS_REQUEST, -1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    handlerFuzz::Run<BleCommandMessage>(data, size, LeaveFilesAlone);
    return 0;
}
