#include "platform.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>

namespace kzcheck {
namespace {

struct Symbol {
    size_t library;  // index into kLibraryFiles
    const char* name;
    void (*store)(Platform& platform, void* function);
};

template <auto Member>
void store(Platform& platform, void* function) {
    platform.*Member = reinterpret_cast<std::remove_reference_t<decltype(platform.*Member)>>(function);
}

constexpr Symbol kSymbols[] = {
    {0, "kzcontrol_interface_open", store<&Platform::open>},
    {0, "kzcontrol_interface_close", store<&Platform::close>},
    {0, "kzcontrol_send_command_param_response", store<&Platform::command>},
    {0, "kzcontrol_send_command_param_response_ex", store<&Platform::commandEx>},
    {0, "kzcontrol_set_caller_id", store<&Platform::setCallerId>},
    {0, "kzcontrol_get_camera_info", store<&Platform::cameraInfo>},
    {0, "kzc_state_get_model_number", store<&Platform::modelNumber>},
    {0, "optionIdExists", store<&Platform::optionExists>},
    {1, "csi_get", store<&Platform::csiGet>},
    {1, "csi_set", store<&Platform::csiSet>},
    {2, "kzIpcInit", store<&Platform::ipcInit>},
    {2, "kzIpcSend", store<&Platform::ipcSend>},
    {2, "kzIpcDestroy", store<&Platform::ipcDestroy>},
};

std::string pathOf(void* handle, const std::string& file) {
    const link_map* map = nullptr;
    return dlinfo(handle, RTLD_DI_LINKMAP, &map) == 0 && map->l_name[0] != '\0' ? map->l_name : file;
}

// What an ELF file begins with, in all classes alike.
struct ElfHead {
    unsigned char identification[EI_NIDENT];
    uint16_t type;
    uint16_t machine;

    bool isForProcessorOf(const ElfHead& other) const {
        return identification[EI_CLASS] == other.identification[EI_CLASS] &&
               identification[EI_DATA] == other.identification[EI_DATA] && machine == other.machine;
    }
};

std::optional<ElfHead> elfHeadOf(const std::string& file) {
    ElfHead head;
    std::ifstream stream(file, std::ios::binary);
    const bool isElf = stream.read(reinterpret_cast<char*>(&head), sizeof head) &&
                       std::memcmp(head.identification, ELFMAG, SELFMAG) == 0;
    return isElf ? std::optional(head) : std::nullopt;
}

// Why a file was not loaded. The dynamic loader passes over a library for another processor, and then says that there
// is none. It alone knows where it looked for a name without a folder.
std::string reasonOf(const std::string& file, const char* loaderSays) {
    const auto library = file.find('/') != std::string::npos ? elfHeadOf(file) : std::nullopt;
    const auto program = elfHeadOf("/proc/self/exe");
    const bool foreign = library && program && !library->isForProcessorOf(*program);
    return foreign ? file + " is for another processor" : loaderSays;
}

}  // namespace

std::string Platform::firstMissing(std::string_view functions) const {
    std::istringstream words{std::string(functions)};
    for (std::string word; words >> word;) {
        const auto* symbol =
            std::find_if(std::begin(kSymbols), std::end(kSymbols), [&](const Symbol& one) { return word == one.name; });
        const Library& library = libraries[symbol->library];
        if (library.path.empty() || std::count(library.missing.begin(), library.missing.end(), word) != 0) {
            return word;
        }
    }
    return {};
}

Platform load(const std::array<std::string, 3>& files) {
    Platform platform;
    std::array<void*, 3> handles{};
    for (size_t i = 0; i < files.size(); ++i) {
        handles[i] = dlopen(files[i].c_str(), RTLD_NOW | RTLD_GLOBAL);  // stays loaded
        Platform::Library& library = platform.libraries[i];
        if (handles[i] == nullptr) {
            library.error = reasonOf(files[i], dlerror());
        } else {
            library.path = pathOf(handles[i], files[i]);
        }
    }
    for (const Symbol& symbol : kSymbols) {
        Platform::Library& library = platform.libraries[symbol.library];
        void* const handle = handles[symbol.library];
        void* const function = handle == nullptr ? nullptr : dlsym(handle, symbol.name);
        symbol.store(platform, function);
        if (function != nullptr) {
            ++library.functions;
        } else if (handle != nullptr) {
            library.missing.emplace_back(symbol.name);
        }
    }
    return platform;
}

}  // namespace kzcheck
