// The wire between the camera's client libraries and the camera simulator: one local SOCK_SEQPACKET socket a service,
// one record a request, one record its reply. Both ends run on the same machine, so numbers are in host byte order.
//
// Not part of the camera: on a camera the real client libraries talk to the real daemons in their own way.
#pragma once

#include <cstdint>
#include <cstdlib>

namespace kzwire {

// Where a service listens: the environment variable wins over the path.
struct Endpoint {
    const char* variable;
    const char* path;

    const char* address() const {
        const char* named = std::getenv(variable);
        return named != nullptr && *named != '\0' ? named : path;
    }
};

constexpr Endpoint kControlEndpoint{"KZ_CTRL_SOCKET", "/tmp/kzcamera/control"};
constexpr Endpoint kCsiEndpoint{"KZ_CSI_SOCKET", "/tmp/kzcamera/csi"};
constexpr Endpoint kIpcEndpoint{"KZ_IPC_SOCKET", "/tmp/kzcamera/ipc"};

// What a request asks for.
//
// operation            target        payload                        reply payload
// ControlOpen          0             none                           none
// ControlCommand       command id    the parameter                  the command's reply
// ControlCameraInfo    0             none                           434 bytes
// ControlModelNumber   0             none                           1 byte
// ControlOptionExists  0             OptionQuery                    1 byte, not 0 when the option is accepted
// CsiGet               key           none                           the value
// CsiSet               key           the value                      none
// IpcOpen              name length   channel name                   none
// IpcSend              name length   channel name, then the record  none
enum class Operation : uint32_t {
    ControlOpen = 1,
    ControlCommand = 2,
    ControlCameraInfo = 3,
    ControlModelNumber = 4,
    ControlOptionExists = 5,
    CsiGet = 16,
    CsiSet = 17,
    IpcOpen = 32,
    IpcSend = 33,
};

// First bytes of every request; the payload is the rest of the record.
struct RequestHeader {
    uint32_t sequence;  // any number; the reply carries it again
    Operation operation;
    uint32_t target;
    uint32_t callerId;  // who the command is attributed to; 0 nobody
};
static_assert(sizeof(RequestHeader) == 16);

// First bytes of every reply; the payload is the rest of the record and empty unless the result is 0.
struct ReplyHeader {
    uint32_t sequence;
    int32_t result;  // 0 done, else the service's error code
};
static_assert(sizeof(ReplyHeader) == 8);

struct OptionQuery {
    uint32_t model;
    uint32_t settingId;
    uint32_t optionId;
};
static_assert(sizeof(OptionQuery) == 12);

constexpr uint32_t kMaxPayload = 8192;     // bytes behind either header
constexpr uint32_t kMaxChannelName = 31;   // bytes of an IPC channel's name
constexpr uint32_t kCameraInfoSize = 434;  // bytes of the camera information record
constexpr int32_t kResultFailure = -1;     // the exchange itself failed, or the request makes no sense

}  // namespace kzwire
