// Control commands: any sequence of commands with any parameters leaves the camera in a state that its rules allow, and
// its preset answer below the size the BLE daemon takes.
#include <cstdint>
#include <cstdlib>

#include "cameraIds.h"
#include "controlCommands.h"
#include "kzControlCommands.h"
#include "metadataService.h"

namespace {

using namespace kzsim;

constexpr size_t kMaxCommands = 64;
constexpr const char* kCatalogue =
    R"({"settings":[{"id":2,"display_name":"a","options":[{"id":1},{"id":4},{"id":9}]},
                    {"id":3,"display_name":"b","options":[{"id":5},{"id":8},{"id":1}]},
                    {"id":30,"display_name":"c","options":[{"id":0},{"id":60000}]}],
        "status":{"groups":[{"fields":[{"id":8,"name":"busy"},{"id":29,"name":"text"},{"id":35,"name":"left"}]}]},
        "filters":[{"activated_by":[{"setting_id":2,"ids":[9]}],"blacklist":[{"setting_id":3,"opt_ids":[5]}]}]})";

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

}  // namespace

// Input: one command after another, each an id byte, a length byte and the parameter.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Catalogue catalogue = Catalogue::parse(kCatalogue);
    ByteView input(data, size);
    isKzmf(input);

    CameraModel camera(catalogue, 58);
    for (size_t count = 0; input.size() >= 2 && count < kMaxCommands; ++count) {
        const uint32_t id = input[0];
        const ByteView parameter = input.subspan(2, std::min<size_t>(input[1], input.size() - 2));
        input = input.subspan(2 + parameter.size());
        Bytes reply;
        const int32_t result = executeControlCommand(camera, id, parameter, reply);
        require(result == 0 || reply.empty());
        camera.second();
    }
    require(camera.statusNumber(status::kBusy) == (camera.capturing() ? 1u : 0u));
    require(camera.presets().serialised().size() < PresetStore::kStatusSizeLimit);
    return 0;
}
