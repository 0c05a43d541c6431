// Any packets into the client's reassembly: the first byte of each chunk is its packet's length.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>

#include "packetAssembler.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kzclient::PacketAssembler assembler;
    for (std::span<const uint8_t> rest(data, size); !rest.empty();) {
        const size_t length = std::min<size_t>(rest[0] % 21, rest.size() - 1);
        const auto result = assembler.add(rest.subspan(1, length));
        if (result.message && result.message->size() > UINT16_MAX) {
            std::abort();
        }
        rest = rest.subspan(1 + length);
    }
    return 0;
}
