// The radio stack's queues, and what the control daemon pushes into the daemon's queue once that is registered.
#include <fcntl.h>

#include <cstring>
#include <nlohmann/json.hpp>

#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlRecords.h"
#include "kzTlv.h"
#include "posixHandle.h"
#include "promise.h"
#include "skylark/bleMessage.h"

namespace kzcheck {
namespace {

using Json = nlohmann::json;

constexpr int kFirstPushMs = 2500;
constexpr int kLastPushMs = 300;  // after the one before
constexpr unsigned long kHighestSetting = 181;
constexpr unsigned long kHighestStatus = 117;

// ---------------------------------------------------------------- the radio stack's queues

template <const char* const& Name, int Access>
Outcome isRadioQueue(const Scene&) {
    const QueueHandle queue(mq_open(Name, Access | O_NONBLOCK));
    if (!queue.IsOpen()) {
        return errno == ENOENT ? notTried("%s is not there: is the radio stack up?", Name)
                               : broken("%s", std::strerror(errno));
    }
    mq_attr attributes{};
    mq_getattr(queue, &attributes);
    const bool fits = attributes.mq_msgsize == kBleRecordSize && attributes.mq_maxmsg >= 100;
    return (fits ? kept : broken)("%ld messages of %ld bytes", attributes.mq_maxmsg, attributes.mq_msgsize);
}

// ---------------------------------------------------------------- pushes

Call registerFor(const Scene& scene, uint32_t operation) {
    kz_push_registration_t registration{};
    registration.operation = operation;
    std::strcpy(registration.queueName, kEventQueue);
    return timed([&] {
        return scene.platform.command(KZCONTROL_EVENT_REGISTER_MQUEUE, &registration, sizeof registration, nullptr, 0);
    });
}

Outcome registers(const Scene& scene) {
    const Call call = registerFor(scene, KZ_PUSH_REGISTER);
    registerFor(scene, KZ_PUSH_UNREGISTER);
    return (answered(call) ? kept : broken)("%s", describe(call).c_str());
}

// What is wrong with the members of "settings" or "status"; empty when nothing is.
std::string faultOfValues(const Json& values, unsigned long highestId) {
    if (!values.is_object()) {
        return "is no object";
    }
    for (const auto& [id, value] : values.items()) {
        if (id.empty() || id.find_first_not_of("0123456789") != std::string::npos || std::stoul(id) > highestId) {
            return "has the id \"" + id + '"';
        }
        if (!value.is_number() && !value.is_string()) {
            return "has no number and no text under \"" + id + '"';
        }
    }
    return {};
}

struct PushedValues {
    int messages = 0;
    size_t settings = 0;
    size_t statuses = 0;
};

// Counts a push's values; gives what is wrong with it, empty when nothing is.
std::string take(const std::vector<uint8_t>& message, PushedValues& pushed) {
    if (message.size() < kTlvMessageHeaderSize || sntlv_msg_len(message.data()) > message.size()) {
        return "is shorter than it says";
    }
    if (message[3] != CAT_KZCONTROL_EVENT) {
        return "has category " + std::to_string(message[3]) + ", not 22";
    }
    const unsigned char* const element = tlv_find(message.data(), TLV_RSPARG);
    if (element == nullptr) {
        return "has no element 69";
    }
    const auto* const text = reinterpret_cast<const char*>(tlv_data(element));
    const Json json = Json::parse(text, text + strnlen(text, tlv_length(element)), nullptr, false);
    if (!json.is_object()) {
        return "holds no JSON object";
    }
    const Json settings = json.value("settings", Json::object());
    const Json statuses = json.value("status", Json::object());
    for (const auto& [values, name, highest] :
         {std::tuple(settings, "settings", kHighestSetting), std::tuple(statuses, "status", kHighestStatus)}) {
        const std::string fault = faultOfValues(values, highest);
        if (!fault.empty()) {
            return std::string("\"") + name + "\" " + fault;
        }
    }
    ++pushed.messages;
    pushed.settings += settings.size();
    pushed.statuses += statuses.size();
    return {};
}

Outcome pushesValues(const Scene& scene) {
    const Call call = registerFor(scene, KZ_PUSH_REGISTER);
    if (!answered(call)) {
        return broken("the registration gets %s", describe(call).c_str());
    }
    PushedValues pushed;
    std::string fault;
    for (auto message = scene.queue.receive(kFirstPushMs); message.has_value() && fault.empty();
         message = scene.queue.receive(kLastPushMs)) {
        fault = take(*message, pushed);
    }
    registerFor(scene, KZ_PUSH_UNREGISTER);
    if (!fault.empty()) {
        return broken("push %d %s", pushed.messages + 1, fault.c_str());
    }
    return (pushed.settings + pushed.statuses != 0 ? kept : broken)("%zu settings and %zu status fields in %d messages",
                                                                    pushed.settings, pushed.statuses, pushed.messages);
}

Outcome waitsForNoRoom(const Scene& scene) {
    scene.queue.occupy();
    const Call registration = registerFor(scene, KZ_PUSH_REGISTER);
    uint8_t model = 0;
    const Call call = timed([&] { return scene.platform.modelNumber(&model); });
    registerFor(scene, KZ_PUSH_UNREGISTER);
    if (!answered(registration)) {
        return broken("the registration: %s", describe(registration).c_str());
    }
    return (answered(call) ? kept : broken)("the next call: %s", describe(call).c_str());
}

Outcome endsPushes(const Scene& scene) {
    registerFor(scene, KZ_PUSH_REGISTER);
    while (scene.queue.receive(kLastPushMs).has_value()) {
    }
    const Call call = registerFor(scene, KZ_PUSH_UNREGISTER);
    const kz_setting_t unknown{UINT32_MAX, UINT32_MAX};
    scene.platform.command(KZCONTROL_SET_SETTING_ID, &unknown, sizeof unknown, nullptr, 0);
    if (scene.queue.receive(kLastPushMs).has_value()) {
        return broken("a push comes after it");
    }
    return (answered(call) ? kept : broken)("%s", describe(call).c_str());
}

#define COMMAND "kzcontrol_send_command_param_response"

constexpr Promise kPromises[] = {
    {"radio.in", "/Mq_to_BleSdk has room for 100 records of 88 bytes", "", nullptr,
     isRadioQueue<kMqToBleSdk, O_RDONLY>},
    {"radio.out", "/Mq_to_Skylark has room for 100 records of 88 bytes", "", nullptr,
     isRadioQueue<kMqToSkylark, O_WRONLY>},
    {"push.register", "a registration of 264 bytes gives 0", COMMAND, kEventQueue, registers},
    {"push.values", "all values follow a registration, as JSON in element 69 of category 22", COMMAND, kEventQueue,
     pushesValues},
    {"push.full", "a full queue does not hold up the control daemon", COMMAND " kzc_state_get_model_number",
     kEventQueue, waitsForNoRoom},
    {"push.end", "the end of the registration ends the pushes", COMMAND, kEventQueue, endsPushes},
};

#undef COMMAND

}  // namespace

std::span<const Promise> queuePromises() {
    return kPromises;
}

}  // namespace kzcheck
