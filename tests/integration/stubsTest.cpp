// The example libraries in the place of a camera's: the unchanged daemon serves a phone over them.
#include "../e2e/fixture.h"

namespace e2e {
namespace {

class StubLibraries : public E2e {};

TEST_F(StubLibraries, ServeAPhone) {
    serve({.libraries = KZ_STUBS_DIRECTORY});

    // What the camera is; what was pushed when the daemon registered; a setting that is changed, and pushed again.
    play({joins(1),
          asks(1, kCommand, "3c",
               Bytes{0x3c, 0} + fromHex("04 00 00 00 3a 04") + textBytes("Stub") + fromHex("04") + textBytes("0x01") +
                   fromHex("0f") + textBytes("Z58.00.00.01.00") + fromHex("0e") + textBytes("ZV580000000001") +
                   fromHex("07") + textBytes("ZV-STUB") + fromHex("0c") + textBytes("020000000001") +
                   fromHex("01 01 01 01 01 00 04") + textBytes("STUB") + fromHex("01 01")),
          asks(1, kQuery, "52 02 03", "52 00 02 01 09 03 01 08"), asks(1, kQuery, "53 0a", "53 00 0a 01 00"),
          asks(1, kSettings, "02 01 04", "02 00"), answers(1, kQuery, "92 00 02 01 04 03 01 08"),
          answers(1, kQuery, "93 00 0a 01 00")});
}

}  // namespace
}  // namespace e2e
