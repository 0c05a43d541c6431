// Control commands: any sequence of commands with any parameters leaves the camera in a state that its rules allow, and
// its preset answer below the size the BLE daemon takes. Each command is an id byte, a length byte and the parameter.
#include "controlCommands.h"

#include "cameraIds.h"
#include "fuzz.h"
#include "metadataService.h"

using namespace kzsim;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const Catalogue catalogue = Catalogue::parse(
        R"({"settings":[
                {"id":2,"display_name":"a",
                 "options":[{"id":1,"display_name":"x"},{"id":4,"display_name":"y"},{"id":9,"display_name":"z"}]},
                {"id":3,"display_name":"b",
                 "options":[{"id":5,"display_name":"x"},{"id":8,"display_name":"y"},{"id":1,"display_name":"z"}]},
                {"id":30,"display_name":"c","options":[{"id":0,"display_name":"x"},{"id":60000,"display_name":"y"}]}],
            "status":{"groups":[{"fields":[{"id":8,"name":"busy"},{"id":29,"name":"text"},{"id":35,"name":"left"}]}]},
            "filters":[{"activated_by":[{"setting_id":2,"ids":[9]}],"blacklist":[{"setting_id":3,"opt_ids":[5]}]}]})");
    isKzmf({data, size});
    Input input(data, size);
    CameraModel camera(catalogue, 58);

    for (int count = 0; input.size() >= 2 && count < 64; ++count) {
        const uint32_t id = input.Byte();
        Bytes reply;
        const int32_t result = executeControlCommand(camera, id, input.Upto(input.Byte()), reply);
        Require(result == 0 || reply.empty());
        camera.second();
    }

    Require(camera.statusNumber(status::kBusy) == (camera.capturing() ? 1u : 0u));
    Require(camera.presets().serialised().size() < PresetStore::kStatusSizeLimit);
    return 0;
}
