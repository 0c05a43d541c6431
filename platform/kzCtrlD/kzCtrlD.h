/* The control daemon's client library, libkzCtrlD.so. Its ABI is fixed by the camera. Results: 0 is success unless said
 * otherwise; what the control daemon answers is passed on, and -1 is also the library's own failure: nobody there, no
 * answer within two seconds, a reply that does not fit. Calls need no earlier open, and one that failed does not spoil
 * the next. None may be made from two threads at once. */
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* 0 when the control daemon is there and answers. */
int kzcontrol_interface_open(void);
/* Ends the link and forgets the caller id; always 0. */
int kzcontrol_interface_close(void);

/* Executes command `id`. `param` may be null with length 0. With a `response` buffer the reply is copied into it; a
 * reply longer than `responseSize` is a failure and writes nothing. */
int kzcontrol_send_command_param_response(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                          uint32_t responseSize);
/* As above; the reply's length (0 on failure) is written to `responseLength` unless that is null. */
int kzcontrol_send_command_param_response_ex(uint32_t id, const void* param, uint32_t paramLength, void* response,
                                             uint32_t responseSize, uint32_t* responseLength);
/* Commands sent from now on are attributed to this caller; 0 when nobody is being served. The id travels with the next
 * command: this call itself reaches nobody and always gives 0. */
int kzcontrol_set_caller_id(uint8_t id);
int kzcontrol_get_camera_info(void* record); /* fills 434 bytes */
int kzc_state_get_model_number(uint8_t* model);
/* True when the camera accepts this option for the setting now; false also when it cannot be asked. */
bool optionIdExists(uint32_t model, uint32_t settingId, uint32_t optionId);

#ifdef __cplusplus
}
#endif
