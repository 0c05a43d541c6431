// The TLV messages between the camera's daemons, as bytes in a caller's buffer: build, search, check, edit in place.
//
// message                                        element
// offset width field                             offset width field
//      0     2 total length, big-endian               0     1 reserved, 0
//      2     1 reserved, 0                            1     2 data length n, big-endian
//      3     1 category                               3     1 type
//      4    .. elements, without padding              4     n data
//
// A valid message has 18 to 1500 bytes and ends with an element of type TLV_END without data. Even categories are
// commands; a response carries its command's category plus one.
//
// A message belongs to the thread that builds or reads it; there is no shared state. Nothing here reads past a
// message's total length, whatever the lengths of its elements are. That the total length lies inside the buffer is up
// to the caller: tlv_validate_received checks it for messages that arrived.
#pragma once

#include <cstdint>

constexpr unsigned TLV_ELEM_HDR_SIZE = 4;
constexpr unsigned kTlvMessageHeaderSize = 4;
constexpr unsigned kTlvMinMessageSize = 18;
constexpr unsigned kTlvMaxMessageSize = 1500;
constexpr unsigned kTlvCategoryLimit = 240;  // categories from here on are invalid

enum kzTlvType : uint8_t {
    TLV_CMD = 0x41,     // two characters, for example "CR"
    TLV_CMDARG = 0x42,  // the command's argument
    TLV_DST = 0x43,     // name of the destination mailbox, not terminated, never empty
    TLV_SRC = 0x44,     // name of the mailbox for replies, not terminated, never empty
    TLV_RSPARG = 0x45,  // the response's argument; in events of the control daemon the JSON text
    TLV_ASOURCE = 0x57,
    TLV_VOID = 0x58,  // blanked by sntlv_void
    TLV_RSP = 0xEC,
    TLV_END = 0xEE,
};

enum kzTlvCategory : uint8_t {
    CAT_RTOS_CMD = 10,         // accessory display and LED buffers
    CAT_KZNET_UNSUB = 16,      // end of the CSI subscription, to the network daemon
    CAT_KZNET_RSP = 17,        // answer to a CSI subscription
    CAT_KZNET_CMD = 18,        // CSI state events, subscription and set requests
    CAT_KZCONTROL_EVENT = 22,  // events of the control daemon
};

// ---------------------------------------------------------------- building; `size` is the capacity of `buffer`

// Writes the header of an empty message. Returns 4, or 0 when `size` is smaller.
int sntlv_msg_init(unsigned char* buffer, uint32_t size, uint8_t category);
// The total length that the header announces.
unsigned short sntlv_msg_len(const unsigned char* buffer);
// Appends an element with a copy of the data. Returns the bytes added (length + 4), or 0 with the message unchanged
// when it does not fit. An empty TLV_SRC or TLV_DST is a calling error and aborts.
int sntlv_add_bin(unsigned char* buffer, uint32_t size, uint8_t type, uint32_t length, const void* data);
// The same with the low `length` bytes of `value`, least significant first. More than 4 do not fit.
int sntlv_add_dat(unsigned char* buffer, uint32_t size, uint8_t type, uint32_t length, uint32_t value);

// ---------------------------------------------------------------- searching

// Returns the header of the first element of that type, or null. An element that reaches past the end of the message is
// not found, nor is any behind it.
unsigned char* tlv_find(unsigned char* buffer, uint8_t type);
const unsigned char* tlv_find(const unsigned char* buffer, uint8_t type);
// Copies the data of the first element of that type, without adding a terminator, and returns its length. Returns 0 and
// writes nothing when there is no such element, or when its length is not smaller than `outSize`.
int sntlv_find(void* out, uint32_t outSize, uint8_t type, const unsigned char* buffer);

// Parts of an element found by tlv_find.
inline uint8_t tlv_type(const unsigned char* element) {
    return element[3];
}
inline unsigned short tlv_length(const unsigned char* element) {
    return static_cast<unsigned short>(element[1] << 8 | element[2]);
}
inline unsigned char* tlv_data(unsigned char* element) {
    return element + TLV_ELEM_HDR_SIZE;
}
inline const unsigned char* tlv_data(const unsigned char* element) {
    return element + TLV_ELEM_HDR_SIZE;
}

// The name dumps print for a type, for example "CMDARG"; "UNKNOWN" for any other.
const char* tlv_type_name(uint8_t type);

// ---------------------------------------------------------------- editing; a missing element is a calling error and
// aborts

// Turns the first element of that type into a TLV_VOID with zeroed data of the same length.
void sntlv_void(unsigned char* buffer, uint8_t type);
// Shortens the message by the size of the first element of that type, which is meant to be its last. Returns minus the
// bytes removed.
int sntlv_remove(unsigned char* buffer, uint32_t size, uint8_t type);

// ---------------------------------------------------------------- checking

// 0 when the message is valid. -1: lengths or end marker wrong; -2: category 240 or above; -3: an element is missing.
// Every finding is debug-printed; a response without TLV_RSPARG is valid with a warning.
int tlv_validate(const unsigned char* buffer);
// The same for a message of which `received` bytes arrived; a total length beyond them is -1, with a level-2 log text.
int tlv_validate_received(const unsigned char* buffer, uint32_t received);
