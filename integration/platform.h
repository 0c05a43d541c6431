// The camera's three client libraries, loaded as the daemon loads them: all at once, every symbol resolved. Their
// functions are looked up by name, so that one that is missing is a finding and not the end of this program.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "csi/csi.h"
#include "kzCtrlD/kzCtrlD.h"
#include "kzipc/kzipc.h"

namespace kzcheck {

constexpr std::array<const char*, 3> kLibraryFiles = {"libkzCtrlD.so", "libcsi.so", "libkzipc.so"};

// The libraries' functions; null for one that is missing. The names are those of the headers without their prefix.
struct Platform {
    decltype(&kzcontrol_interface_open) open = nullptr;
    decltype(&kzcontrol_interface_close) close = nullptr;
    decltype(&kzcontrol_send_command_param_response) command = nullptr;
    decltype(&kzcontrol_send_command_param_response_ex) commandEx = nullptr;
    decltype(&kzcontrol_set_caller_id) setCallerId = nullptr;
    decltype(&kzcontrol_get_camera_info) cameraInfo = nullptr;
    decltype(&kzc_state_get_model_number) modelNumber = nullptr;
    decltype(&optionIdExists) optionExists = nullptr;
    decltype(&csi_get) csiGet = nullptr;
    decltype(&csi_set) csiSet = nullptr;
    decltype(&kzIpcInit) ipcInit = nullptr;
    decltype(&kzIpcSend) ipcSend = nullptr;
    decltype(&kzIpcDestroy) ipcDestroy = nullptr;

    // What was found of each library.
    struct Library {
        std::string path;                  // empty when it could not be loaded
        std::string error;                 // why
        std::vector<std::string> missing;  // functions that it does not export
        size_t functions = 0;              // that it exports, of those that the daemon calls
    };
    std::array<Library, 3> libraries;

    // The first function of a list, separated by blanks, that cannot be called; empty when all can.
    std::string firstMissing(std::string_view functions) const;
};

// Loads from these files; a bare name is looked for as the dynamic loader does.
Platform load(const std::array<std::string, 3>& files);

}  // namespace kzcheck
