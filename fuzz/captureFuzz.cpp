// Any file as a recording of the radio, as `kzble replay` reads it: its frames are what may be played, or it is
// refused.
#include "fuzz.h"
#include "radioCapture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    try {
        for (const auto& frame : kzcapture::parseRadioCapture({data, size})) {
            Require(frame.event != kzcapture::Event::Packet || frame.bytes.size() <= 20);
            Require(frame.event != kzcapture::Event::Descriptor || frame.bytes.size() == 1);
            frame.peer();
        }
    } catch (const kzcapture::CaptureError&) {
    }
    return 0;
}
