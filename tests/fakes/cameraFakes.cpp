#include "cameraFakes.h"

#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>

#include "cameraLibraries.h"

namespace fakes {
namespace {

struct Script {
    int result = 0;
    Bytes reply;
};

struct Camera {
    bool recording = true;
    std::vector<Call> calls;
    std::map<std::pair<std::string, uint32_t>, Script> scripts;  // by operation and id
};

std::mutex s_mutex;
Camera s_camera;

// The camera, locked for the time of one expression.
class Use {
  public:
    Camera* operator->() { return &s_camera; }

  private:
    std::lock_guard<std::mutex> m_lock{s_mutex};
};

void SetScript(const char* operation, uint32_t id, int result, Bytes reply = {}) {
    Use()->scripts[{operation, id}] = {result, std::move(reply)};
}

}  // namespace

int Answer(const char* call, int64_t number, const Argument& argument, int standard, Reply* reply) {
    Use camera;
    const auto id = static_cast<uint32_t>(std::max<int64_t>(number, 0));
    const auto* bytes = static_cast<const uint8_t*>(argument.data);
    if (camera->recording) {
        camera->calls.push_back({call, id, bytes == nullptr ? Bytes() : Bytes(bytes, bytes + argument.length)});
    }
    const auto found = camera->scripts.find({call, id});
    if (found == camera->scripts.end()) {
        return standard;
    }
    if (reply != nullptr) {
        reply->length = found->second.reply.size();
        std::copy_n(found->second.reply.begin(), std::min(reply->length, reply->capacity),
                    static_cast<uint8_t*>(reply->buffer));
    }
    return found->second.result;
}

std::ostream& operator<<(std::ostream& out, const Call& call) {
    out << call.operation << (call.id != 0 ? " " + std::to_string(call.id) : "");
    return call.argument.empty() ? out : out << ": " << ToHex(call.argument);
}

void Reset() {
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_camera = Camera();
}
void Record(bool on) {
    Use()->recording = on;
}
void OnCommand(uint32_t id, int result, Bytes reply) {
    SetScript("command", id, result, std::move(reply));
}
void OnOption(uint32_t setting, bool exists) {
    SetScript("option", setting, exists ? 1 : 0);
}
void OnCsiSet(uint8_t key, int result) {
    SetScript("csi_set", key, result);
}
void SetCsi(uint8_t key, Bytes value) {
    SetScript("csi_get", key, 0, std::move(value));
}
void SetCameraInfo(int result, Bytes record) {
    SetScript("camera-info", 0, result, std::move(record));
}
void SetModelNumber(int result, uint8_t model) {
    SetScript("model-number", 0, result, {model});
}
void SetIpcResults(int init, int send, int destroy) {
    SetScript("ipc-init", 0, init);
    SetScript("ipc-send", 0, send);
    SetScript("ipc-destroy", 0, destroy);
}
void SetSystemResult(int result) {
    SetScript("system", 0, result);
}

std::vector<Call> Calls() {
    return Use()->calls;
}
std::vector<Call> Calls(std::string_view operation) {
    std::vector<Call> calls = Calls();
    std::erase_if(calls, [&](const Call& call) { return call.operation != operation; });
    return calls;
}
void ForgetCalls() {
    Use()->calls.clear();
}

}  // namespace fakes

// A command that succeeds is a child that ends at once.
extern "C" int posix_spawn(pid_t* child, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
                           char* const arguments[], char* const[]) {
    const char* command = arguments[2];
    if (fakes::Answer("system", fakes::kNoNumber, {command, std::strlen(command)}, 0, nullptr) != 0) {
        return ENOMEM;
    }
    *child = fork();
    if (*child == 0) {
        _exit(0);
    }
    return 0;
}
