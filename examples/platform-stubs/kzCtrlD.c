/* libkzCtrlD.so of a canned camera: model 58, two settings, a clock that stands still. */
#include "kzCtrlD/kzCtrlD.h"

#include <fcntl.h>
#include <mqueue.h>
#include <stdio.h>

#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlRecords.h"
#include "stub.h"

enum { MODEL = 58 };

/* A setting and the options that it has. */
struct setting {
    uint32_t id;
    uint32_t options[3];
    uint32_t value;
};

static struct setting settings[] = {{2, {1, 4, 9}, 9}, {3, {5, 8, 10}, 8}};
static bool recording;
static char push_queue[sizeof(((kz_push_registration_t*)0)->queueName)]; /* empty: nobody is registered */

/* ---- pushes: the daemon's queue gets the values as JSON, in element 69 of a message of category 22 */

static uint8_t* put_header(uint8_t* at, uint8_t type, size_t length) {
    *at++ = 0;
    *at++ = (uint8_t)(length >> 8);
    *at++ = (uint8_t)length;
    *at++ = type;
    return at;
}

static uint8_t* put(uint8_t* at, uint8_t type, const char* data) {
    const size_t length = strlen(data);
    at = put_header(at, type, length);
    memcpy(at, data, length);
    return at + length;
}

static void push_values(void) {
    enum { CATEGORY = 22, COMMAND = 65, ARGUMENT = 66, DESTINATION = 67, SOURCE = 68, VALUES = 69, END = 238 };
    uint8_t message[1500] = {0, 0, 0, CATEGORY};
    char json[256];
    uint8_t* end;
    mqd_t queue;

    if (push_queue[0] == '\0') {
        return;
    }
    snprintf(json, sizeof json, "{\"settings\":{\"%u\":%u,\"%u\":%u},\"status\":{\"10\":%d,\"29\":\"stub\",\"70\":80}}",
             settings[0].id, settings[0].value, settings[1].id, settings[1].value, recording);
    end = put(message + 4, COMMAND, "EV");
    end = put(end, ARGUMENT, "");
    end = put(end, DESTINATION, push_queue);
    end = put(end, SOURCE, "/to_kzCtrl");
    end = put(end, VALUES, json);
    end = put_header(end, END, 0);
    message[0] = (uint8_t)((end - message) >> 8);
    message[1] = (uint8_t)(end - message);

    /* Never waits for room: the daemon may be waiting for this very call. A camera keeps the values and tries again. */
    queue = mq_open(push_queue, O_WRONLY | O_NONBLOCK);
    if (queue != (mqd_t)-1) {
        mq_send(queue, (const char*)message, (size_t)(end - message), 0);
        mq_close(queue);
    }
}

static int register_queue(const kz_push_registration_t* registration) {
    if (registration->queueName[0] != '/' || memchr(registration->queueName, '\0', sizeof push_queue) == NULL) {
        return STUB_FAILURE;
    }
    push_queue[0] = '\0';
    if (registration->operation == KZ_PUSH_REGISTER) {
        memcpy(push_queue, registration->queueName, sizeof push_queue);
    }
    push_values();
    return STUB_OK;
}

/* ---- commands */

static struct setting* find_setting(uint32_t id) {
    for (size_t i = 0; i < sizeof settings / sizeof settings[0]; ++i) {
        if (settings[i].id == id) {
            return &settings[i];
        }
    }
    return NULL;
}

static bool has_option(const struct setting* setting, uint32_t option) {
    return setting != NULL &&
           (setting->options[0] == option || setting->options[1] == option || setting->options[2] == option);
}

static int change_setting(const kz_setting_t* wanted) {
    struct setting* const setting = find_setting(wanted->settingId);
    if (!has_option(setting, wanted->value)) {
        return STUB_FAILURE;
    }
    setting->value = wanted->value;
    push_values();
    return STUB_OK;
}

EXPORTED int kzcontrol_send_command_param_response_ex(uint32_t id, const void* param, uint32_t paramLength,
                                                      void* response, uint32_t responseSize, uint32_t* responseLength) {
    /* The camera's answers, in the order of the commands. */
    static const kz_all_status_t status = {.batteryPercent = 80, .batteryBars = 3};
    static const uint8_t presets[] = {0x0a, 0x05, 0x08, 0xe8, 0x07, 0x20, 0x00}; /* one group, 1000, without presets */
    static const uint32_t active_preset = 0;
    static const kz_date_time_t now = {2026, 1, 2, 3, 4, 5, KZ_NO_ZONE_OFFSET, 0};

    if (responseLength != NULL) {
        *responseLength = 0;
    }
    switch (id) {
        case KZCONTROL_EVENT_REGISTER_MQUEUE:
            return paramLength == sizeof(kz_push_registration_t) ? register_queue(param) : STUB_FAILURE;
        case KZCONTROL_COMMAND_SHUTTER:
            recording = paramLength != 0 && *(const uint8_t*)param != 0;
            push_values();
            return STUB_OK;
        case KZCONTROL_SET_SETTING_ID:
            return paramLength == sizeof(kz_setting_t) ? change_setting(param) : STUB_FAILURE;
        case KZCONTROL_GET_ALL_STATUS:
            return stub_reply(response, responseSize, responseLength, &status, sizeof status);
        case KZCONTROL_PRESET_GET_PRESETS:
            return stub_reply(response, responseSize, responseLength, presets, sizeof presets);
        case KZCONTROL_PRESET_GET_ACTIVE_PRESET:
            return stub_reply(response, responseSize, responseLength, &active_preset, sizeof active_preset);
        case KZCONTROL_GET_DATE_TIME:
            return stub_reply(response, responseSize, responseLength, &now, sizeof now);
        case KZCONTROL_SET_DATE_TIME:
        case KZCONTROL_LOCATE:
            return STUB_OK;
        default:
            return STUB_FAILURE;
    }
}

EXPORTED int kzcontrol_send_command_param_response(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                                   uint32_t responseSize) {
    return kzcontrol_send_command_param_response_ex(id, param, paramLength, response, responseSize, NULL);
}

/* ---- the rest */

EXPORTED int kzcontrol_interface_open(void) {
    return STUB_OK;
}

EXPORTED int kzcontrol_interface_close(void) {
    return STUB_OK;
}

EXPORTED int kzcontrol_set_caller_id(uint8_t id) {
    (void)id; /* a camera remembers whom it is serving */
    return STUB_OK;
}

EXPORTED int kzcontrol_get_camera_info(void* record) {
    static const kz_camera_info_t info = {
        .modelNumber = MODEL,
        .modelName = "Stub",
        .boardType = "0x01",
        .firmwareVersion = "Z58.00.00.01.00",
        .serialNumber = "ZV580000000001",
        .apSsid = "ZV-STUB",
        .apMac = "020000000001",
        .extraByte1 = 1,
        .extraText = "STUB",
        .extraByte2 = 1,
    };
    memcpy(record, &info, sizeof info);
    return STUB_OK;
}

EXPORTED int kzc_state_get_model_number(uint8_t* model) {
    *model = MODEL;
    return STUB_OK;
}

EXPORTED bool optionIdExists(uint32_t model, uint32_t settingId, uint32_t optionId) {
    return model == MODEL && has_option(find_setting(settingId), optionId);
}
