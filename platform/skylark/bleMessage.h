// The record exchanged with the radio-stack daemon over "/Mq_to_BleSdk" (to us) and "/Mq_to_Skylark" (from us), and the
// numbering of GATT streams. Fixed by the radio-stack daemon; one record is one POSIX queue message of 88 bytes. C code
// may include it too, from C11 on.
#pragma once

#include <assert.h>
#include <stdint.h>

// In C++ a number has a type; in C all are plain enumerators.
#ifdef __cplusplus
#define KZ_TEXT constexpr const char*
#define KZ_NUMBER(name, value) constexpr unsigned name = value
#define KZ_TYPE(type) : type
#else
#define KZ_TEXT static const char* const
#define KZ_NUMBER(name, value) enum { name = value }
#define KZ_TYPE(type)
#endif

KZ_TEXT kMqToBleSdk = "/Mq_to_BleSdk";    // radio-stack daemon to this daemon
KZ_TEXT kMqToSkylark = "/Mq_to_Skylark";  // this daemon to the radio-stack daemon

KZ_NUMBER(kBlePacketSize, 20);  // a whole packet, header and payload: the largest GATT payload
KZ_NUMBER(kBleRecordSize, 88);  // bytes of one record
KZ_NUMBER(kBleAddressSize, 6);  // bytes of a device address

// offset width field
//      0     1 event type (KZBLE_SDK_*)
//      1     4 connection id, little-endian
//      5     1 stream id; CCC events: the descriptor's stream
//      6     1 data length; CCC events: the value written (1 enables)
//      7    20 data: one BLE SDK packet
//     27    61 carried unchanged; zero in records built from scratch
// A connection event carries the peer's address at offsets 5 to 10 and its device type at offset 12.
// A debug event carries a 32-bit command at offset 4 and a 32-bit argument at offset 8.
typedef struct __attribute__((packed)) ble_message_t {
    uint8_t eventType;
    uint32_t connectionId;
    uint8_t streamId;
    uint8_t dataLength;
    uint8_t data[kBlePacketSize];
    uint8_t rest[61];
} ble_message_t;
static_assert(sizeof(ble_message_t) == kBleRecordSize, "fixed by the radio stack");

KZ_NUMBER(kConnAddressOffset, 5);
KZ_NUMBER(kConnDeviceTypeOffset, 12);
KZ_NUMBER(kDebugCommandOffset, 4);
KZ_NUMBER(kDebugArgumentOffset, 8);

enum KZ_TYPE(uint8_t) {
    KZBLE_SDK_EVENT_Conn = 0,
    KZBLE_SDK_EVENT_Disconn = 1,
    KZBLE_SDK_MESSAGE_Data = 2,
    KZBLE_SDK_EVENT_CCC = 3,        // notification enable changed, camera as peripheral
    KZBLE_SDK_EVENT_SensorCCC = 5,  // notification enable, camera as central of a sensor
    KZBLE_SDK_EVENT_Debug = 128,
};

enum KZ_TYPE(uint32_t) {
    KZBLE_SET_LOG_LEVEL = 0,
    KZBLE_DEBUG_DUMP_STATUS = 1,
    KZBLE_DEBUG_SHUTDOWN = 2,
};

enum KZ_TYPE(uint8_t) {
    KZ_STR_ID_COMMAND = 2,
    KZ_STR_ID_COMMAND_RESPONSE = 4,
    KZ_STR_ID_COMMAND_CCC = 5,
    KZ_STR_ID_SETTINGS = 7,
    KZ_STR_ID_SETTINGS_RESPONSE = 9,
    KZ_STR_ID_SETTINGS_CCC = 10,
    KZ_STR_ID_QUERY = 12,
    KZ_STR_ID_QUERY_RESPONSE = 14,  // query responses and every push
    KZ_STR_ID_QUERY_CCC = 15,
    KZ_STR_ID_SENSOR = 17,
    KZ_STR_ID_SENSOR_RESPONSE = 19,  // sensor responses, LCD and LED buffers
    KZ_STR_ID_SENSOR_CCC = 20,
    KZ_STR_ID_REBOOT_OTA = 25,    // reboot request to a remote
    KZ_STR_ID_START_OTA = 27,     // accessory firmware update requests
    KZ_STR_ID_OTA_RESPONSE = 28,  // accessory firmware update replies
    KZ_STR_ID_OTA_DATA = 30,      // raw firmware image bytes
};

// Device types of peers; also the caller id under which the control daemon attributes commands.
enum KZ_TYPE(uint8_t) {
    KZ_CALLER_UNKNOWN = 0,
    KZ_CALLER_VOICE = 10,   // voice-control client: mode commands go to the voice mode command
    KZ_CALLER_BLE_RC = 11,  // phone app or remote
    KZ_CALLER_BLE_SENSOR = 12,
    KZ_CALLER_THIRD_PARTY = 13,  // reported to analytics as KZ_CALLER_BLE_RC
    KZ_CALLER_ALDER = 23,        // remote in update mode, image as one stream
    KZ_CALLER_BIRCH = 24,        // LED accessory
    KZ_CALLER_MAPLE = 27,        // accessory that fetches its image block by block
};

#undef KZ_TEXT
#undef KZ_NUMBER
#undef KZ_TYPE

#ifdef __cplusplus
// A data record built from scratch.
inline ble_message_t NewDataRecord(uint32_t connectionId, uint8_t streamId) {
    ble_message_t record{};
    record.eventType = KZBLE_SDK_MESSAGE_Data;
    record.connectionId = connectionId;
    record.streamId = streamId;
    return record;
}
#endif
