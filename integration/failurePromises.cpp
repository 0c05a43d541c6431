// The libraries when nobody is behind them, and when who is behind them hangs: each call fails, and in time.
#include <cerrno>

#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlRecords.h"
#include "promise.h"

namespace kzcheck {
namespace {

constexpr double kAtOnceMs = 500;

using Ask = int (*)(const Platform& platform);

int open(const Platform& platform) {
    return platform.open();
}
int command(const Platform& platform) {
    return platform.command(KZCONTROL_GET_ALL_STATUS, nullptr, 0, nullptr, 0);
}
int commandEx(const Platform& platform) {
    kz_all_status_t status;
    uint32_t length = 0;
    return platform.commandEx(KZCONTROL_GET_ALL_STATUS, nullptr, 0, &status, sizeof status, &length);
}
int cameraInfo(const Platform& platform) {
    kz_camera_info_t info;
    return platform.cameraInfo(&info);
}
int modelNumber(const Platform& platform) {
    uint8_t model;
    return platform.modelNumber(&model);
}
int optionExists(const Platform& platform) {
    return platform.optionExists(58, 2, 1) ? 0 : -1;
}
int csiGet(const Platform& platform) {
    uint32_t value;
    uint32_t length;
    return platform.csiGet(CSI_MODEL_NUMBER, sizeof value, &length, &value);
}
int csiSet(const Platform& platform) {
    const uint8_t nobody = 0;
    return platform.csiSet(CSI_ANALYTICS_SOURCE, &nobody, sizeof nobody);
}
// As many of the three as answer: a library may open a channel without asking anybody.
int handOver(const Platform& platform) {
    Channel channel;
    const int opened = platform.ipcInit("metadata", channel.record);
    if (opened < 0) {
        return opened;
    }
    const uint8_t record[4] = {49};
    const int sent = platform.ipcSend(channel.record, record, sizeof record);
    platform.ipcDestroy(channel.record);
    return std::min(sent, 0);
}

// Whether the daemon counts a failed call as ended by its deadline, and does not make it again.
bool isSeenAsHang(const Call& call) {
    const bool timedOut = call.error == EAGAIN || call.error == ETIMEDOUT;
    return call.error != EPIPE && call.milliseconds >= (timedOut ? 1000 : 1500);
}

template <Ask ask, Services state>
Outcome fails(const Scene& scene) {
    const Call call = timed([&] { return ask(scene.platform); });
    if (call.result == 0) {
        return broken("answers: is its service %s?", state == Services::Absent ? "absent" : "hung");
    }
    const bool isRight = state == Services::Absent ? call.milliseconds <= kAtOnceMs
                                                   : call.milliseconds <= kReplyDeadlineMs && isSeenAsHang(call);
    return (isRight ? kept : broken)("%s", describe(call).c_str());
}

#define ROWS(name, what, functions, ask)                                                                               \
    {"absent." name,  "without its service, " what " fails at once", functions, nullptr, fails<ask, Services::Absent>, \
     Services::Absent},                                                                                                \
    {                                                                                                                  \
        "hung." name, "with a hung service, " what " fails in two seconds", functions, nullptr,                        \
            fails<ask, Services::Hung>, Services::Hung                                                                 \
    }
#define ROWS_OF(name, function, ask) ROWS(name, function, function, ask)

constexpr Promise kPromises[] = {
    ROWS_OF("open", "kzcontrol_interface_open", open),
    ROWS_OF("command", "kzcontrol_send_command_param_response", command),
    ROWS_OF("command-ex", "kzcontrol_send_command_param_response_ex", commandEx),
    ROWS_OF("info", "kzcontrol_get_camera_info", cameraInfo),
    ROWS_OF("model", "kzc_state_get_model_number", modelNumber),
    ROWS_OF("option", "optionIdExists", optionExists),
    ROWS_OF("csi-get", "csi_get", csiGet),
    ROWS_OF("csi-set", "csi_set", csiSet),
    ROWS("ipc", "kzIpcInit or kzIpcSend", "kzIpcInit kzIpcSend kzIpcDestroy", handOver),
};

#undef ROWS_OF
#undef ROWS

}  // namespace

std::span<const Promise> failurePromises() {
    return kPromises;
}

}  // namespace kzcheck
