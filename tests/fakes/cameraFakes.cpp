#include "cameraFakes.h"

#include <spawn.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <map>
#include <mutex>

#include "csi/csi.h"
#include "kzCtrlD/kzCtrlD.h"
#include "kzipc/kzipc.h"

namespace fakes {
namespace {

constexpr size_t kCameraInfoSize = 434;

struct Reply {
    int result = 0;
    Bytes bytes;
};

struct Camera {
    bool recording = true;
    std::vector<Call> calls;
    std::map<std::pair<std::string_view, uint32_t>, Reply> script;  // by operation and id
    std::map<uint8_t, Bytes> csi;
    std::function<bool(uint32_t, uint32_t, uint32_t)> optionExists;
};

std::mutex s_mutex;
Camera s_camera;

Bytes Copy(const void* data, size_t length) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    return bytes == nullptr ? Bytes() : Bytes(bytes, bytes + length);
}

// The camera, locked for the time of one call.
class Use {
  public:
    Camera* operator->() { return &s_camera; }

    // Notes the call and finds what it is to come to.
    Reply Play(std::string_view operation, uint32_t id = 0, const void* argument = nullptr, size_t length = 0) {
        if (s_camera.recording) {
            s_camera.calls.push_back({std::string(operation), id, Copy(argument, length)});
        }
        const auto scripted = s_camera.script.find({operation, id});
        return scripted == s_camera.script.end() ? Reply() : scripted->second;
    }

  private:
    std::lock_guard<std::mutex> m_lock{s_mutex};
};

void Script(std::string_view operation, uint32_t id, int result, Bytes bytes = {}) {
    Use()->script[{operation, id}] = {result, std::move(bytes)};
}

}  // namespace

Bytes Le32(std::initializer_list<uint32_t> numbers) {
    Bytes bytes;
    for (const uint32_t number : numbers) {
        for (unsigned shift = 0; shift < 32; shift += 8) {
            bytes.push_back(static_cast<uint8_t>(number >> shift));
        }
    }
    return bytes;
}
Bytes Le32(uint32_t number) {
    return Le32({number});
}
Bytes BytesOf(std::string_view text) {
    return Bytes(text.begin(), text.end());
}

Bytes FromHex(const std::string& hex) {
    Bytes bytes;
    size_t used = 0;
    for (size_t at = 0; at < hex.size(); at += used + 1) {
        bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(at), &used, 16)));
    }
    return bytes;
}

std::string ToHex(const Bytes& bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    for (const uint8_t byte : bytes) {
        hex += hex.empty() ? "" : " ";
        hex += {kDigits[byte >> 4], kDigits[byte & 15]};
    }
    return hex;
}

std::ostream& operator<<(std::ostream& out, const Call& call) {
    out << call.operation << (call.id != 0 ? " " + std::to_string(call.id) : "");
    return call.argument.empty() ? out : out << ": " << ToHex(call.argument);
}

Call Command(uint32_t id, Bytes argument) {
    return {"command", id, std::move(argument)};
}
Call CsiSet(uint8_t key, Bytes value) {
    return {"csi_set", key, std::move(value)};
}

void Reset() {
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_camera = Camera();
}
void Record(bool on) {
    Use()->recording = on;
}
void OnCommand(uint32_t id, int result, Bytes reply) {
    Script("command", id, result, std::move(reply));
}
void OnCsiSet(uint8_t key, int result) {
    Script("csi_set", key, result);
}
void OnCsiGet(uint8_t key, int result) {
    Script("csi_get", key, result);
}
void SetCsi(uint8_t key, Bytes value) {
    Use()->csi[key] = std::move(value);
}
void SetCameraInfo(int result, Bytes record) {
    Script("kzcontrol_get_camera_info", 0, result, std::move(record));
}
void SetModelNumber(int result, uint8_t model) {
    Script("kzc_state_get_model_number", 0, result, {model});
}
void SetOptionExists(std::function<bool(uint32_t, uint32_t, uint32_t)> exists) {
    Use()->optionExists = std::move(exists);
}
void SetIpcResults(int init, int send, int destroy) {
    Script("kzIpcInit", 0, init);
    Script("kzIpcSend", 0, send);
    Script("kzIpcDestroy", 0, destroy);
}
void SetSystemResult(int result) {
    Script("system", 0, result);
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

// ---------------------------------------------------------------- the libraries' functions

using fakes::Use;

extern "C" {

int kzcontrol_interface_open(void) {
    return Use().Play("kzcontrol_interface_open").result;
}

int kzcontrol_interface_close(void) {
    return Use().Play("kzcontrol_interface_close").result;
}

int kzcontrol_send_command_param_response_ex(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                             uint32_t responseSize, uint32_t* responseLength) {
    const fakes::Reply reply = Use().Play("command", id, param, paramLength);
    const auto length = static_cast<uint32_t>(reply.bytes.size());
    if (response != nullptr && length > responseSize) {
        return -1;
    }
    if (response != nullptr && length > 0) {
        std::memcpy(response, reply.bytes.data(), length);
    }
    if (responseLength != nullptr) {
        *responseLength = length;
    }
    return reply.result;
}

int kzcontrol_send_command_param_response(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                          uint32_t responseSize) {
    return kzcontrol_send_command_param_response_ex(id, param, paramLength, response, responseSize, nullptr);
}

int kzcontrol_set_caller_id(uint8_t id) {
    return Use().Play("kzcontrol_set_caller_id", id).result;
}

int kzcontrol_get_camera_info(void* record) {
    fakes::Reply reply = Use().Play("kzcontrol_get_camera_info");
    reply.bytes.resize(fakes::kCameraInfoSize);
    std::memcpy(record, reply.bytes.data(), fakes::kCameraInfoSize);
    return reply.result;
}

int kzc_state_get_model_number(uint8_t* model) {
    const fakes::Reply reply = Use().Play("kzc_state_get_model_number");
    if (reply.result == 0) {
        *model = reply.bytes.empty() ? 58 : reply.bytes[0];
    }
    return reply.result;
}

bool optionIdExists(uint32_t model, uint32_t settingId, uint32_t optionId) {
    Use camera;
    const auto pair = fakes::Le32({model, settingId, optionId});
    camera.Play("optionIdExists", settingId, pair.data(), pair.size());
    return !camera->optionExists || camera->optionExists(model, settingId, optionId);
}

int csi_get(uint8_t key, uint32_t bufferSize, uint32_t* length, void* buffer) {
    Use camera;
    const int result = camera.Play("csi_get", key).result;
    const auto found = camera->csi.find(key);
    if (result != CSI_OK || found == camera->csi.end() || found->second.size() > bufferSize) {
        return result != CSI_OK ? result : -1;
    }
    std::copy(found->second.begin(), found->second.end(), static_cast<uint8_t*>(buffer));
    *length = static_cast<uint32_t>(found->second.size());
    return CSI_OK;
}

int csi_set(uint8_t key, const void* value, uint32_t length) {
    Use camera;
    const int result = camera.Play("csi_set", key, value, length).result;
    if (result == CSI_OK) {
        camera->csi[key] = fakes::Copy(value, length);
    }
    return result;
}

int kzIpcInit(const char* name, void* /*channel*/) {
    return Use().Play("kzIpcInit", 0, name, std::strlen(name)).result;
}

int kzIpcSend(void* /*channel*/, const void* record, uint32_t length) {
    return Use().Play("kzIpcSend", 0, record, length).result;
}

int kzIpcDestroy(void* /*channel*/) {
    return Use().Play("kzIpcDestroy").result;
}

// A command that succeeds is a child that ends at once.
int posix_spawn(pid_t* child, const char*, const posix_spawn_file_actions_t*, const posix_spawnattr_t*,
                char* const arguments[], char* const[]) noexcept {
    const char* command = arguments[2];
    if (Use().Play("system", 0, command, std::strlen(command)).result != 0) {
        return ENOMEM;
    }
    *child = fork();
    if (*child == 0) {
        _exit(0);
    }
    return 0;
}

}  // extern "C"
