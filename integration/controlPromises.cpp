// libkzCtrlD.so while the control daemon runs. What is changed here is harmless: the camera is told to be silent about
// where it is, and a setting that no camera has is asked for.
#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlRecords.h"
#include "promise.h"
#include "skylark/bleMessage.h"
#include "utils.h"
#include "wsdkCommands/WSDK_NotifyPresetStatus.pb.h"

namespace kzcheck {
namespace {

constexpr uint32_t kNoSuchId = UINT32_MAX;
constexpr double kQuickMs = 1;  // what the daemon may spend on a call that it makes for every packet
constexpr double kRefusalMs = 1000;

// A reply that was not answered, or that was written past its buffer. Nothing when all is well.
std::optional<Outcome> faultOf(const Call& call, const ReplyBuffer& reply) {
    if (reply.writtenOutside()) {
        return broken("writes outside its buffer");
    }
    if (!answered(call)) {
        return broken("%s", describe(call).c_str());
    }
    return std::nullopt;
}

Outcome opens(const Scene& scene) {
    const Call call = timed([&] { return scene.platform.open(); });
    return answered(call) ? kept("%s", describe(call).c_str()) : broken("%s", describe(call).c_str());
}

Outcome opensAgain(const Scene& scene) {
    uint8_t model = 0;
    const Call calls[] = {timed([&] { return scene.platform.open(); }), timed([&] { return scene.platform.close(); }),
                          timed([&] { return scene.platform.open(); }),
                          timed([&] { return scene.platform.modelNumber(&model); })};
    constexpr const char* kNames[] = {"open", "close", "second open", "call after it"};
    for (size_t i = 0; i < std::size(calls); ++i) {
        if (!answered(calls[i])) {
            return broken("%s: %s", kNames[i], describe(calls[i]).c_str());
        }
    }
    return kept("0, 0, 0");
}

Outcome namesCallerAtOnce(const Scene& scene) {
    constexpr int kTimes = 1000;
    const Call call = timed([&] {
        int result = 0;
        for (int i = 0; i < kTimes && result == 0; ++i) {
            result = scene.platform.setCallerId(i % 2 == 0 ? KZ_CALLER_BLE_RC : KZ_CALLER_UNKNOWN);
        }
        return result;
    });
    const double each = call.milliseconds / kTimes;
    return call.result == 0 && each < kQuickMs ? kept("%d, %.4f ms each", call.result, each)
                                               : broken("%d, %.4f ms each", call.result, each);
}

Outcome fillsStatus(const Scene& scene) {
    ReplyBuffer reply(sizeof(kz_all_status_t));
    const Call call = reply.ask([&](void* buffer) {
        return scene.platform.command(KZCONTROL_GET_ALL_STATUS, nullptr, 0, buffer, sizeof(kz_all_status_t));
    });
    if (const auto fault = faultOf(call, reply)) {
        return *fault;
    }
    for (const size_t offset : {offsetof(kz_all_status_t, batteryPercent), offsetof(kz_all_status_t, charging),
                                offsetof(kz_all_status_t, batteryBars), offsetof(kz_all_status_t, busy)}) {
        if (!reply.written(offset)) {
            return broken("byte %zu is not written", offset);
        }
    }
    const auto& status = reply.as<kz_all_status_t>();
    const bool sane = status.batteryPercent <= 100 && status.charging <= 1 && status.busy <= 1;
    return (sane ? kept : broken)("battery %u %%, charging %u, bars %u, busy %u", status.batteryPercent,
                                  status.charging, status.batteryBars, status.busy);
}

Outcome tellsLength(const Scene& scene) {
    ReplyBuffer reply(sizeof(kz_all_status_t));
    uint32_t length = kNoSuchId;
    const Call call = reply.ask([&](void* buffer) {
        return scene.platform.commandEx(KZCONTROL_GET_ALL_STATUS, nullptr, 0, buffer, sizeof(kz_all_status_t), &length);
    });
    if (const auto fault = faultOf(call, reply)) {
        return *fault;
    }
    return (length == sizeof(kz_all_status_t) ? kept : broken)("length %u", length);
}

Outcome keepsToShortBuffer(const Scene& scene) {
    constexpr uint32_t kShort = 16;
    ReplyBuffer reply(kShort);
    const Call call = reply.ask(
        [&](void* buffer) { return scene.platform.command(KZCONTROL_GET_ALL_STATUS, nullptr, 0, buffer, kShort); });
    return reply.writtenOutside() ? broken("writes behind a buffer of %u bytes", kShort)
                                  : kept("%s", describe(call).c_str());
}

Outcome takesNullLength(const Scene& scene) {
    const uint8_t off = 0;
    const Call call =
        timed([&] { return scene.platform.commandEx(KZCONTROL_LOCATE, &off, sizeof off, nullptr, 0, nullptr); });
    return (answered(call) ? kept : broken)("%s", describe(call).c_str());
}

struct TextField {
    const char* name;
    size_t offset;
    size_t size;
};

constexpr TextField kTextFields[] = {
    {"model name", offsetof(kz_camera_info_t, modelName), sizeof(kz_camera_info_t::modelName)},
    {"board type", offsetof(kz_camera_info_t, boardType), sizeof(kz_camera_info_t::boardType)},
    {"firmware version", offsetof(kz_camera_info_t, firmwareVersion), sizeof(kz_camera_info_t::firmwareVersion)},
    {"serial number", offsetof(kz_camera_info_t, serialNumber), sizeof(kz_camera_info_t::serialNumber)},
    {"network name", offsetof(kz_camera_info_t, apSsid), sizeof(kz_camera_info_t::apSsid)},
    {"network address", offsetof(kz_camera_info_t, apMac), sizeof(kz_camera_info_t::apMac)},
    {"extra text", offsetof(kz_camera_info_t, extraText), sizeof(kz_camera_info_t::extraText)},
};

Call askCameraInfo(const Scene& scene, ReplyBuffer& reply) {
    return reply.ask([&](void* buffer) { return scene.platform.cameraInfo(buffer); });
}

Outcome fillsCameraInfo(const Scene& scene) {
    ReplyBuffer reply(sizeof(kz_camera_info_t));
    const Call call = askCameraInfo(scene, reply);
    if (const auto fault = faultOf(call, reply)) {
        return *fault;
    }
    for (const TextField& field : kTextFields) {
        const auto* const text = reinterpret_cast<const char*>(reply.bytes()) + field.offset;
        const size_t length = strnlen(text, field.size);
        if (!reply.written(field.offset, std::min(length + 1, field.size))) {
            return broken("the %s is not written", field.name);
        }
    }
    for (const size_t offset : {offsetof(kz_camera_info_t, extraByte1), offsetof(kz_camera_info_t, extraByte2)}) {
        if (!reply.written(offset)) {
            return broken("byte %zu is not written", offset);
        }
    }
    const auto& info = reply.as<kz_camera_info_t>();
    return kept("\"%.65s\", firmware \"%.65s\", serial \"%.65s\"", info.modelName, info.firmwareVersion,
                info.serialNumber);
}

Outcome givesModelNumber(const Scene& scene) {
    ReplyBuffer reply(1);
    const Call call =
        reply.ask([&](void* buffer) { return scene.platform.modelNumber(static_cast<uint8_t*>(buffer)); });
    if (const auto fault = faultOf(call, reply)) {
        return *fault;
    }
    return reply.written(0) && reply.bytes()[0] != 0 ? kept("%u", reply.bytes()[0])
                                                     : broken("gives 0 and writes no model number");
}

Outcome modelNumbersAgree(const Scene& scene) {
    uint8_t model = 0;
    ReplyBuffer reply(sizeof(kz_camera_info_t));
    const Call calls[] = {timed([&] { return scene.platform.modelNumber(&model); }), askCameraInfo(scene, reply)};
    for (const Call& call : calls) {
        if (!answered(call)) {
            return broken("%s", describe(call).c_str());
        }
    }
    const uint32_t inInfo = reply.as<kz_camera_info_t>().modelNumber;
    return (inInfo == model ? kept : broken)("%u, and %u in the camera information", model, inInfo);
}

Outcome refusesUnknownOption(const Scene& scene) {
    uint8_t model = 58;
    scene.platform.modelNumber(&model);
    return scene.platform.optionExists(model, kNoSuchId, kNoSuchId) ? broken("setting 4294967295 has an option")
                                                                    : kept("false");
}

Outcome acceptsCatalogue(const Scene& scene) {
    uint8_t model = 58;
    scene.platform.modelNumber(&model);
    const char* const name = get_model_name(model);
    const std::string path =
        std::string("/usr/local/zorvik/etc/") + (name != nullptr ? name : "unknown") + "/settings.json";
    std::ifstream file(path);
    const auto catalogue = nlohmann::json::parse(file, nullptr, false);
    if (!catalogue.is_object() || !catalogue.contains("settings")) {
        return notTried("no catalogue in %s", path.c_str());
    }
    unsigned options = 0;
    unsigned accepted = 0;
    const Call call = timed([&] {
        for (const auto& setting : catalogue["settings"]) {
            for (const auto& option : setting.value("options", nlohmann::json::array())) {
                ++options;
                accepted += scene.platform.optionExists(model, setting.value("id", 0u), option.value("id", 0u)) ? 1 : 0;
            }
        }
        return 0;
    });
    return (accepted != 0 && answered(call) ? kept : broken)("%u of %u options after %.0f ms", accepted, options,
                                                             call.milliseconds);
}

Outcome tellsDateAndTime(const Scene& scene) {
    ReplyBuffer reply(sizeof(kz_date_time_t));
    const Call call = reply.ask([&](void* buffer) {
        return scene.platform.command(KZCONTROL_GET_DATE_TIME, nullptr, 0, buffer, sizeof(kz_date_time_t));
    });
    if (const auto fault = faultOf(call, reply)) {
        return *fault;
    }
    const auto& now = reply.as<kz_date_time_t>();
    const bool sane = now.month >= 1 && now.month <= 12 && now.day >= 1 && now.day <= 31 && now.hour < 24 &&
                      now.minute < 60 && now.second < 61 && now.daylightSaving <= 1;
    return (sane ? kept : broken)("%u-%02u-%02u %02u:%02u, zone %d", unsigned{now.year}, now.month, now.day, now.hour,
                                  now.minute, int{now.zoneOffset});
}

Outcome listsPresets(const Scene& scene) {
    ReplyBuffer reply(KZ_PRESETS_REPLY_SIZE);
    uint32_t length = kNoSuchId;
    const Call call = reply.ask([&](void* buffer) {
        return scene.platform.commandEx(KZCONTROL_PRESET_GET_PRESETS, nullptr, 0, buffer, KZ_PRESETS_REPLY_SIZE,
                                        &length);
    });
    if (const auto fault = faultOf(call, reply)) {
        return *fault;
    }
    wsdk_commands::WSDK_NotifyPresetStatus presets;
    if (length > KZ_PRESETS_REPLY_SIZE || !presets.ParsePartialFromArray(reply.bytes(), static_cast<int>(length))) {
        return broken("%u bytes that are no WSDK_NotifyPresetStatus", length);
    }
    return kept("%u bytes, %d groups", length, presets.preset_group_array_size());
}

Outcome namesActivePreset(const Scene& scene) {
    ReplyBuffer reply(sizeof(uint32_t));
    const Call call = reply.ask([&](void* buffer) {
        return scene.platform.command(KZCONTROL_PRESET_GET_ACTIVE_PRESET, nullptr, 0, buffer, sizeof(uint32_t));
    });
    if (const auto fault = faultOf(call, reply)) {
        return *fault;
    }
    uint32_t preset;
    std::memcpy(&preset, reply.bytes(), sizeof preset);
    return reply.written(0, sizeof preset) ? kept("%u", preset) : broken("its 4 bytes are not written");
}

Outcome refusesInOrder(const Scene& scene) {
    const kz_setting_t unknown{kNoSuchId, kNoSuchId};
    const Call refusal =
        timed([&] { return scene.platform.command(KZCONTROL_SET_SETTING_ID, &unknown, sizeof unknown, nullptr, 0); });
    if (refusal.result == 0) {
        return notTried("setting 4294967295 is accepted");
    }
    if (refusal.error == EPIPE || refusal.milliseconds > kRefusalMs) {
        return broken("%s, which is no refusal", describe(refusal).c_str());
    }
    uint8_t model = 0;
    const Call next = timed([&] { return scene.platform.modelNumber(&model); });
    return answered(next) ? kept("%s", describe(refusal).c_str())
                          : broken("the call after it: %s", describe(next).c_str());
}

#define COMMAND "kzcontrol_send_command_param_response"

constexpr Promise kPromises[] = {
    {"control.open", "kzcontrol_interface_open gives 0", "kzcontrol_interface_open", nullptr, opens},
    {"control.reopen", "what was closed can be opened again",
     "kzcontrol_interface_open kzcontrol_interface_close kzc_state_get_model_number", nullptr, opensAgain},
    {"control.caller", "kzcontrol_set_caller_id asks nobody, so it takes no time", "kzcontrol_set_caller_id", nullptr,
     namesCallerAtOnce},
    {"control.status", "GET_ALL_STATUS fills bytes 198, 199, 200 and 209 of 394", COMMAND, nullptr, fillsStatus},
    {"control.length", "the length of a reply is told", COMMAND "_ex", nullptr, tellsLength},
    {"control.short", "a reply that is longer than its buffer is not written behind it", COMMAND, nullptr,
     keepsToShortBuffer},
    {"control.null", "a command without reply takes null for buffer and length", COMMAND "_ex", nullptr,
     takesNullLength},
    {"control.info", "kzcontrol_get_camera_info fills the fields of its 434 bytes", "kzcontrol_get_camera_info",
     nullptr, fillsCameraInfo},
    {"control.model", "kzc_state_get_model_number writes one byte", "kzc_state_get_model_number", nullptr,
     givesModelNumber},
    {"control.models", "the two model numbers are the same", "kzc_state_get_model_number kzcontrol_get_camera_info",
     nullptr, modelNumbersAgree},
    {"control.option", "optionIdExists is false for a setting that no camera has",
     "optionIdExists kzc_state_get_model_number", nullptr, refusesUnknownOption},
    {"control.options", "optionIdExists is true for options of the catalogue; two seconds for all",
     "optionIdExists kzc_state_get_model_number", nullptr, acceptsCatalogue},
    {"control.time", "GET_DATE_TIME fills 10 bytes with a time", COMMAND, nullptr, tellsDateAndTime},
    {"control.presets", "PRESET_GET_PRESETS gives a WSDK_NotifyPresetStatus of at most 2400 bytes", COMMAND "_ex",
     nullptr, listsPresets},
    {"control.preset", "PRESET_GET_ACTIVE_PRESET fills 4 bytes", COMMAND, nullptr, namesActivePreset},
    {"control.refusal", "a refusal comes within a second, without EPIPE, and spoils no other call",
     COMMAND " kzc_state_get_model_number", nullptr, refusesInOrder},
};

#undef COMMAND

}  // namespace

std::span<const Promise> controlPromises() {
    return kPromises;
}

}  // namespace kzcheck
