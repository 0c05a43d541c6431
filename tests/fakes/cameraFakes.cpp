#include "cameraFakes.h"

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
    std::map<uint32_t, Reply> commands;
    std::map<uint8_t, int> csiSetResults;
    std::map<uint8_t, int> csiGetResults;
    std::map<uint8_t, Bytes> csi;
    Reply cameraInfo;
    int modelResult = 0;
    uint8_t model = 58;
    std::function<bool(uint32_t, uint32_t, uint32_t)> optionExists;
    int openResult = 0;
    int ipcInit = 0;
    int ipcSend = 0;
    int ipcDestroy = 0;
    int systemResult = 0;
    int systemError = 0;
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
    void Note(const char* operation, uint32_t id, const void* argument, size_t length) {
        if (s_camera.recording) {
            s_camera.calls.push_back({operation, id, Copy(argument, length)});
        }
    }

  private:
    std::lock_guard<std::mutex> m_lock{s_mutex};
};

template <typename Map, typename Key>
int ResultOf(const Map& results, Key key) {
    const auto found = results.find(key);
    return found == results.end() ? 0 : found->second;
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

std::ostream& operator<<(std::ostream& out, const Call& call) {
    out << call.operation << '(' << call.id << ';';
    for (const uint8_t byte : call.argument) {
        static constexpr char kDigits[] = "0123456789abcdef";
        out << ' ' << kDigits[byte >> 4] << kDigits[byte & 15];
    }
    return out << ')';
}

Call Command(uint32_t id, Bytes argument) {
    return {"command", id, std::move(argument)};
}
Call CsiSet(uint8_t key, Bytes value) {
    return {"csi_set", key, std::move(value)};
}
Call CsiGet(uint8_t key) {
    return {"csi_get", key, {}};
}
Call System(std::string_view command) {
    return {"system", 0, BytesOf(command)};
}

void Reset() {
    const std::lock_guard<std::mutex> lock(s_mutex);
    s_camera = Camera();
}
void Record(bool on) {
    Use()->recording = on;
}
void OnCommand(uint32_t id, int result, Bytes reply) {
    Use()->commands[id] = {result, std::move(reply)};
}
void OnCsiSet(uint8_t key, int result) {
    Use()->csiSetResults[key] = result;
}
void OnCsiGet(uint8_t key, int result) {
    Use()->csiGetResults[key] = result;
}
void SetCsi(uint8_t key, Bytes value) {
    Use()->csi[key] = std::move(value);
}
void SetCameraInfo(int result, Bytes record) {
    Use()->cameraInfo = {result, std::move(record)};
}
void SetModelNumber(int result, uint8_t model) {
    Use camera;
    camera->modelResult = result;
    camera->model = model;
}
void SetOptionExists(std::function<bool(uint32_t, uint32_t, uint32_t)> exists) {
    Use()->optionExists = std::move(exists);
}
void SetInterfaceOpen(int result) {
    Use()->openResult = result;
}
void SetIpcResults(int init, int send, int destroy) {
    Use camera;
    camera->ipcInit = init;
    camera->ipcSend = send;
    camera->ipcDestroy = destroy;
}
void SetSystemResult(int result, int error) {
    Use camera;
    camera->systemResult = result;
    camera->systemError = error;
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
    Use camera;
    camera.Note("kzcontrol_interface_open", 0, nullptr, 0);
    return camera->openResult;
}

int kzcontrol_interface_close(void) {
    Use().Note("kzcontrol_interface_close", 0, nullptr, 0);
    return 0;
}

int kzcontrol_send_command_param_response_ex(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                             uint32_t responseSize, uint32_t* responseLength) {
    Use camera;
    camera.Note("command", id, param, paramLength);
    const auto scripted = camera->commands.find(id);
    if (scripted == camera->commands.end()) {
        if (responseLength != nullptr) {
            *responseLength = 0;
        }
        return 0;
    }
    const fakes::Reply& reply = scripted->second;
    if (reply.bytes.size() > responseSize && response != nullptr) {
        return -1;
    }
    if (response != nullptr && !reply.bytes.empty()) {
        std::memcpy(response, reply.bytes.data(), reply.bytes.size());
    }
    if (responseLength != nullptr) {
        *responseLength = static_cast<uint32_t>(reply.bytes.size());
    }
    return reply.result;
}

int kzcontrol_send_command_param_response(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                          uint32_t responseSize) {
    return kzcontrol_send_command_param_response_ex(id, param, paramLength, response, responseSize, nullptr);
}

int kzcontrol_set_caller_id(uint8_t id) {
    Use().Note("kzcontrol_set_caller_id", id, nullptr, 0);
    return 0;
}

int kzcontrol_get_camera_info(void* record) {
    Use camera;
    camera.Note("kzcontrol_get_camera_info", 0, nullptr, 0);
    std::array<uint8_t, fakes::kCameraInfoSize> info = {};
    const fakes::Bytes& scripted = camera->cameraInfo.bytes;
    std::copy_n(scripted.begin(), std::min(scripted.size(), info.size()), info.begin());
    std::memcpy(record, info.data(), info.size());
    return camera->cameraInfo.result;
}

int kzc_state_get_model_number(uint8_t* model) {
    Use camera;
    camera.Note("kzc_state_get_model_number", 0, nullptr, 0);
    if (camera->modelResult == 0) {
        *model = camera->model;
    }
    return camera->modelResult;
}

bool optionIdExists(uint32_t model, uint32_t settingId, uint32_t optionId) {
    Use camera;
    const auto pair = fakes::Le32({model, settingId, optionId});
    camera.Note("optionIdExists", settingId, pair.data(), pair.size());
    return !camera->optionExists || camera->optionExists(model, settingId, optionId);
}

int csi_get(uint8_t key, uint32_t bufferSize, uint32_t* length, void* buffer) {
    Use camera;
    camera.Note("csi_get", key, nullptr, 0);
    const int result = fakes::ResultOf(camera->csiGetResults, key);
    const auto found = camera->csi.find(key);
    if (result != 0 || found == camera->csi.end() || found->second.size() > bufferSize) {
        return result != 0 ? result : -1;
    }
    if (!found->second.empty()) {
        std::memcpy(buffer, found->second.data(), found->second.size());
    }
    *length = static_cast<uint32_t>(found->second.size());
    return CSI_OK;
}

int csi_set(uint8_t key, const void* value, uint32_t length) {
    Use camera;
    camera.Note("csi_set", key, value, length);
    const int result = fakes::ResultOf(camera->csiSetResults, key);
    if (result == CSI_OK) {
        camera->csi[key] = fakes::Copy(value, length);
    }
    return result;
}

int kzIpcInit(const char* name, void* /*channel*/) {
    Use camera;
    camera.Note("kzIpcInit", 0, name, std::strlen(name));
    return camera->ipcInit;
}

int kzIpcSend(void* /*channel*/, const void* record, uint32_t length) {
    Use camera;
    camera.Note("kzIpcSend", 0, record, length);
    return camera->ipcSend;
}

int kzIpcDestroy(void* /*channel*/) {
    Use camera;
    camera.Note("kzIpcDestroy", 0, nullptr, 0);
    return camera->ipcDestroy;
}

int system(const char* command) {
    Use camera;
    camera.Note("system", 0, command, std::strlen(command));
    errno = camera->systemError;
    return camera->systemResult;
}

}  // extern "C"
