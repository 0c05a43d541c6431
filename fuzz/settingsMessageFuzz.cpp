// Messages on the settings interface. The shell is played, like the camera.
#include "handlerFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    handlerFuzz::Run<BleSettingsMessage>(data, size, [](const std::vector<uint8_t>&) {});
    return 0;
}
