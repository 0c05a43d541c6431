// Any packets into the client's reassembly: the first byte of each chunk is its packet's length.
#include "packetAssembler.h"

#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    kzclient::PacketAssembler assembler;
    for (Input input(data, size); !input.IsEmpty();) {
        const size_t length = input.Byte() % 21;
        const auto result = assembler.add(input.Upto(length));
        Require(!result.message || result.message->size() <= UINT16_MAX);
    }
    return 0;
}
