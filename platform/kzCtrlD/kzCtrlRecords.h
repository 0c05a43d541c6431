/* The records that travel through libkzCtrlD.so, as parameters and replies of the commands of its control daemon. They
 * are packed, so a buffer that holds one has no alignment; numbers are little-endian. */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What kzcontrol_get_camera_info fills. A text ends with a zero byte, or with its field. */
typedef struct __attribute__((packed)) {
    uint32_t modelNumber;
    char modelName[65];
    char boardType[65];
    char firmwareVersion[65];
    char serialNumber[65];
    char apSsid[33];    /* name of the camera's own network */
    char apMac[65];     /* its hardware address, as text */
    uint8_t extraByte1; /* the last three fields but the gap are passed on to clients as they are */
    uint8_t unused[5];
    char extraText[65];
    uint8_t extraByte2;
} kz_camera_info_t;

/* Parameter of KZCONTROL_EVENT_REGISTER_MQUEUE. */
typedef struct __attribute__((packed)) {
    uint32_t operation;  /* KZ_PUSH_UNREGISTER or KZ_PUSH_REGISTER */
    char queueName[256]; /* padded with zeros */
    uint32_t reserved;   /* 0 */
} kz_push_registration_t;

enum { KZ_PUSH_UNREGISTER = 0, KZ_PUSH_REGISTER = 1 };

/* Reply of KZCONTROL_GET_ALL_STATUS. The daemon reads the named bytes alone. */
typedef struct __attribute__((packed)) {
    uint8_t otherBytes1[198];
    uint8_t batteryPercent;
    uint8_t charging;    /* 1 with external power */
    uint8_t batteryBars; /* 0 to 3 */
    uint8_t otherBytes2[8];
    uint8_t busy; /* 1 while the camera must not be disturbed */
    uint8_t otherBytes3[184];
} kz_all_status_t;

/* Parameter of KZCONTROL_SET_DATE_TIME and reply of KZCONTROL_GET_DATE_TIME: the camera's local time. */
typedef struct __attribute__((packed)) {
    uint16_t year;
    uint8_t month; /* 1 to 12 */
    uint8_t day;   /* 1 to 31 */
    uint8_t hour;
    uint8_t minute;
    uint8_t second;
    int16_t zoneOffset; /* minutes east of UTC; KZ_NO_ZONE_OFFSET when none is given */
    uint8_t daylightSaving;
} kz_date_time_t;

#define KZ_NO_ZONE_OFFSET 0x7FFF

/* Parameter of KZCONTROL_SET_SETTING_ID. */
typedef struct __attribute__((packed)) {
    uint32_t settingId;
    uint32_t value;
} kz_setting_t;

/* Room that the daemon gives the reply of KZCONTROL_PRESET_GET_PRESETS, and that of KZCONTROL_PRESET_CUSTOM_CREATE. */
enum { KZ_PRESETS_REPLY_SIZE = 2400, KZ_PRESET_CREATE_REPLY_SIZE = 1500 };

#ifdef __cplusplus
}
static_assert(sizeof(kz_camera_info_t) == 434 && sizeof(kz_push_registration_t) == 264);
static_assert(sizeof(kz_all_status_t) == 394 && sizeof(kz_date_time_t) == 10 && sizeof(kz_setting_t) == 8);
#else
_Static_assert(sizeof(kz_camera_info_t) == 434 && sizeof(kz_push_registration_t) == 264, "fixed by the camera");
_Static_assert(sizeof(kz_all_status_t) == 394 && sizeof(kz_date_time_t) == 10 && sizeof(kz_setting_t) == 8,
               "fixed by the camera");
#endif
