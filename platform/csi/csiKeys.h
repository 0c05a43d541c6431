/* Keys of the CSI status service that this system reads, writes or is told of; values are 4-byte little-endian numbers
 * unless said otherwise. */
#pragma once

#include <stdint.h>

enum {
    CSI_CAMERA_BUSY = 3,
    CSI_LIVE_STREAM_ENCODE = 6,
    CSI_PRESETS_MODIFIED = 7,
    CSI_LIVE_STREAM_ERROR = 8,
    CSI_CONNECTED_ACCESSORY = 11, /* accessory device type, 0 none */
    CSI_MODEL_NUMBER = 20,
    CSI_LIVE_STREAM_BITRATE = 26,
    CSI_LIVE_STREAM_LENS = 27,
    CSI_SYSTEM_NOTIFY_EVENT = 30,
    CSI_ST_STATE = 34, /* 1 byte, written by kzBleSdkD */
    CSI_ST_PAUSED = 38,
    CSI_OTA_ERROR = 40,
    CSI_OTA_PERCENTAGE = 41,
    CSI_OTA_STATE = 42,
    CSI_BATTERY_LEVEL = 43, /* percent */
    CSI_WAKEUP_REASON = 47,
    CSI_BROADCAST_PRIVATE = 52, /* text: live-stream URL */
    CSI_BATTERY_EXTERNAL_POWER = 61,
    CSI_SD_CARD_STATE = 62, /* below 2: usable */
    CSI_WMS_REQUEST = 73,
    CSI_WMS_STATE = 74,
    CSI_CLIENT_ANALYTICS = 87,    /* 4 bytes */
    CSI_ANALYTICS_SOURCE = 92,    /* 1 byte */
    CSI_CAH_UPLOAD_PROGRESS = 94, /* text "current:total:percent" */
    CSI_DEVICE_MGR_STATE = 97,    /* four bytes: state, category, sub, error */
    CSI_WOM_STATE = 98,           /* likewise */
    CSI_CAHA_STATE = 99,          /* likewise */
    CSI_CAH_FEATURE_ENABLE = 102,
    CSI_CAH_ASSOCIATION_STATE = 104, /* text: user id; one zero byte when cleared */
    CSI_CLIENT_ID = 105,             /* text */
    CSI_AUTH_CODE = 107,             /* text */
    CSI_CAH_ACTIVE = 108,
    CSI_CAH_AUTH_STATE = 109,
    CSI_SYSTEM_STATE = 111, /* 1 SYS_SUSPENDED_UNSAFE, 0 resumed */
    CSI_CAH_STICKY_ERR = 122,
    CSI_CAH_SERVER = 124,
    CSI_NEW_MEDIA = 128,     /* kzBleSdkD clears it with 1 byte */
    CSI_BOOT_COUNT_BT = 130, /* connections of this boot */
    CSI_BOOT_COUNT_RC = 131,
    CSI_BOOT_COUNT_AP = 132,
    CSI_FORCED_UPDATE = 136,
    CSI_TURBO_ACTIVE = 138, /* 1 byte */
    CSI_LIVE_STREAM_MIN_BITRATE = 146,
    CSI_LIVE_STREAM_MAX_BITRATE = 147,
    CSI_LIVE_STREAM_START_BITRATE = 148,
    CSI_ACCESSORY_UPDATE = 150, /* (device type << 16) | (percent << 8) | phase; 0 idle */
    CSI_CAH_AUTO_CLEAR = 157,
    CSI_ACCESSORY_BATTERY = 162, /* battery percent, caller id, 0, 0 */
};

/* Values of CSI_SYSTEM_STATE. */
enum { SYS_RESUMED = 0, SYS_SUSPENDED_UNSAFE = 1 };

/* Values of CSI_SD_CARD_STATE; a full card can still be read. */
enum { SD_CARD_OK = 0, SD_CARD_FULL = 1, SD_CARD_REMOVED = 2 };

/* Values of CSI_WMS_STATE, the state of the wireless management service: what a live stream is doing. */
enum {
    WMS_STATE_IDLE = 0,
    WMS_STATE_COMPLETE_STAY_ON = 5,
    WMS_STATE_FAILED_STAY_ON = 7,
    WMS_STATE_CONFIG = 17, /* configure mode: a stream is being set up */
    WMS_STATE_READY = 18,
    WMS_STATE_STREAMING = 19,
    WMS_STATE_RECONNECTING = 21,
};

/* Values of CSI_WMS_REQUEST. The length of the value is part of the request: one byte for the cloud upload and for a
 * cancel by the user, which also ends configure mode; four bytes for the firmware update and the live stream. */
enum {
    WMS_REQUEST_UPLOAD_START = 1, /* 1 byte */
    WMS_REQUEST_UX_CANCEL = 2,    /* 1 byte; as 4 bytes it cancels the firmware update */
    WMS_REQUEST_UPDATE_START = 5,
    WMS_REQUEST_UPDATE_START_FORCED = 6,
    WMS_REQUEST_LIVE_STREAM = 7,
};
