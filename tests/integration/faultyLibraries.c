/* All functions of the example libraries, with the fault that $KZ_FAULT names: each breaks a promise that
 * kzPlatformCheck has to find broken. */
#include <errno.h>
#include <mqueue.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include "skylark/bleMessage.h" /* which has to be C too */

#define kzcontrol_interface_open good_open
#define kzcontrol_send_command_param_response_ex good_command_ex
#define kzcontrol_send_command_param_response good_command
#define kzcontrol_set_caller_id good_set_caller_id
#define kzcontrol_get_camera_info good_camera_info
#define kzc_state_get_model_number good_model_number
#define optionIdExists good_option
#define csi_get good_csi_get
#define csi_set good_csi_set
#define kzIpcInit good_ipc_init
#include "csi.c"
#include "kzCtrlD.c"
#include "kzipc.c"
#undef kzcontrol_interface_open
#undef kzcontrol_send_command_param_response_ex
#undef kzcontrol_send_command_param_response
#undef kzcontrol_set_caller_id
#undef kzcontrol_get_camera_info
#undef kzc_state_get_model_number
#undef optionIdExists
#undef csi_get
#undef csi_set
#undef kzIpcInit

static pid_t loading_process;

static bool fault(const char* name) {
    const char* const wanted = getenv("KZ_FAULT");
    return wanted != NULL && strcmp(wanted, name) == 0;
}

static void* sleep_forever(void* unused) {
    pause();
    return unused;
}

__attribute__((constructor)) static void start(void) {
    pthread_t thread;
    loading_process = getpid();
    if (fault("starts a thread")) {
        pthread_create(&thread, NULL, sleep_forever, NULL);
    }
}

__attribute__((destructor)) static void end(void) {
    if (fault("dies at the end")) {
        abort();
    }
}

EXPORTED int kzcontrol_interface_open(void) {
    if (fault("leaks a descriptor")) {
        dup(STDIN_FILENO);
    }
    if (fault("ignores a signal")) {
        signal(SIGTERM, SIG_IGN);
    }
    return fault("does not open") ? -1 : 0;
}

EXPORTED int kzc_state_get_model_number(uint8_t* model) {
    static pthread_t first;
    if (first == 0) {
        first = pthread_self();
    }
    if ((fault("serves one thread") && first != pthread_self()) ||
        (fault("dies in a fork") && getpid() != loading_process)) {
        return -1;
    }
    good_model_number(model);
    *model = fault("is another model") ? 61 : *model;
    return 0;
}

EXPORTED int kzcontrol_set_caller_id(uint8_t id) {
    if (fault("names the caller slowly")) {
        usleep(2000);
    }
    return good_set_caller_id(id);
}

EXPORTED int kzcontrol_get_camera_info(void* record) {
    if (fault("writes behind the information")) {
        memset(record, 0, 435);
    }
    if (fault("leaves the information unwritten")) {
        *(uint32_t*)record = MODEL;
        return 0;
    }
    return good_camera_info(record);
}

EXPORTED bool optionIdExists(uint32_t model, uint32_t setting, uint32_t option) {
    return fault("accepts every option") || good_option(model, setting, option);
}

static void push_blindly(void) {
    const mqd_t queue = mq_open("/to_kzBleD", O_WRONLY);
    mq_send(queue, "x", 1, 0);
    mq_close(queue);
}

EXPORTED int kzcontrol_send_command_param_response_ex(uint32_t id, const void* param, uint32_t length, void* response,
                                                      uint32_t size, uint32_t* reply_length) {
    const kz_push_registration_t again = {KZ_PUSH_REGISTER, "/to_kzBleD", 0};
    const bool registers = id == KZCONTROL_EVENT_REGISTER_MQUEUE;
    if (fault("needs a length") && id == KZCONTROL_LOCATE) {
        *reply_length = 0;
    }
    if (fault("crashes") && id == KZCONTROL_PRESET_GET_ACTIVE_PRESET) {
        raise(SIGSEGV);
    }
    if (fault("hangs") && id == KZCONTROL_GET_DATE_TIME) {
        pause();
    }
    if (fault("refuses late") && id == KZCONTROL_SET_SETTING_ID) {
        usleep(1100000);
    }
    if (fault("refuses with EPIPE") && id == KZCONTROL_SET_SETTING_ID) {
        errno = EPIPE;
    }
    if (fault("leaves the status unwritten") && id == KZCONTROL_GET_ALL_STATUS && reply_length == NULL) {
        return 0;
    }
    if (fault("overruns a short reply") && id == KZCONTROL_GET_ALL_STATUS && response != NULL) {
        size = sizeof(kz_all_status_t);
    }
    if (fault("pushes nothing") && registers) {
        return 0;
    }
    if (fault("waits for room") && registers) {
        push_blindly();
        return 0;
    }
    if (fault("pushes on") && registers) {
        param = &again;
    }
    const int result = good_command_ex(id, param, length, response, size, reply_length);
    if (fault("says no length") && reply_length != NULL) {
        *reply_length = 0;
    }
    return result;
}

EXPORTED int kzcontrol_send_command_param_response(uint32_t id, const void* param, uint32_t length, void* response,
                                                   uint32_t size) {
    return kzcontrol_send_command_param_response_ex(id, param, length, response, size, NULL);
}

EXPORTED int csi_get(uint8_t key, uint32_t size, uint32_t* length, void* buffer) {
    if (fault("hangs up late") || fault("gives up early")) {
        usleep(fault("hangs up late") ? 1900000 : 1200000);
        errno = fault("hangs up late") ? EPIPE : 0;
        return -1;
    }
    if (fault("ends its process in a fork") && getpid() != loading_process) {
        exit(0);
    }
    return good_csi_get(key, fault("overruns a short value") ? LONGEST : size, length, buffer);
}

EXPORTED int csi_set(uint8_t key, const void* value, uint32_t length) {
    uint8_t padded[NUMBER] = {0};
    if (fault("pads values") && length < NUMBER) {
        memcpy(padded, value, length);
        return good_csi_set(key, padded, NUMBER);
    }
    return fault("takes short values only") && length > 255 ? -1 : good_csi_set(key, value, length);
}

EXPORTED int kzIpcInit(const char* name, void* channel) {
    static int channels;
    if (fault("takes a longer channel")) {
        memset(channel, 0, KZIPC_CHANNEL_SIZE + 1);
    }
    return fault("opens one channel") && ++channels > 1 ? -1 : good_ipc_init(name, channel);
}
