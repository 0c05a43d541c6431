// Prints the API version, and how many groups of presets the camera has.
#include <bleClient.h>
#include <wsdkCommands/WSDK_NotifyPresetStatus.pb.h>

#include <cstdio>

int main() {
    kzclient::BleClient camera("", {{2, 0, 0, 0, 0, 9}}, std::chrono::seconds(5));
    camera.enableNotifications();
    wsdk_commands::WSDK_NotifyPresetStatus presets;
    camera.protobuf(12, 0xF5, 0x72, nullptr, presets);
    std::printf("%s, %d\n", kzclient::hex(camera.command(0x51)).c_str(), presets.preset_group_array_size());
}
