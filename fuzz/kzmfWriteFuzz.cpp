// The writer: any stores and extractions, with any keys, types, sizes and flags.
#include "kzmfRun.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static std::array<uint8_t, 600> workBuffer;
    MetadataSetWorkBuf(workBuffer.data(), size % 2 == 0 ? static_cast<uint32_t>(workBuffer.size()) : 1);
    KzmfRun(Input(data, size), false).Run();
    return 0;
}
