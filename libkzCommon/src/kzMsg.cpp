// Messages between the camera's daemons: complete, check, post, and wait for the reply.
#include "kzMsg.h"

#include <cstring>

#include "kzTlv.h"
#include "utils.h"

uint32_t g_debug = 0x30000000;

namespace {

constexpr const char* kLogTag = "kzMsg.cpp";
constexpr const char* kPath = "libkzCommon/src/kzMsg";
constexpr uint32_t kCommandLength = 2;

// The label of a dump, twelve characters for direction and peer, and the bit of g_debug that enables it.
struct DumpLabel {
    char text[13];
    uint32_t bit;
};
constexpr DumpLabel kDumpLabels[kDumpLabelCount] = {
    {"none        ", 0},         {"TX kzControl", 0x1},        {"RX kzControl", 0x2},
    {"TX kzNet    ", 0x4},       {"RX kzNet    ", 0x8},        {"TX RTOS     ", 0x10},
    {"RX RTOS     ", 0x20},      {"TX skylark  ", 0x40},       {"RX skylark  ", 0x80},
    {"TX metadata ", 0x100},     {"RX metadata ", 0x200},      {"TX kzDevMgr ", 0x400},
    {"RX kzDevMgr ", 0x800},     {"TX peer 13  ", 0x10000},    {"RX peer 14  ", 0x20000},
    {"TX peer 15  ", 0x40000},   {"RX peer 16  ", 0x80000},    {"TX peer 17  ", 0x100000},
    {"RX peer 18  ", 0x200000},  {"TX peer 19  ", 0x400000},   {"RX peer 20  ", 0x800000},
    {"TX peer 21  ", 0x1000000}, {"RX peer 22  ", 0x2000000},  {"TX CSI      ", 0x4000000},
    {"RX CSI      ", 0x8000000}, {"TX kzBleSdkD", 0x10000000}, {"RX kzBleSdkD", 0x20000000},
    {"TX CSI push ", 0x4000000}, {"RX CSI push ", 0x8000000},
};

void append(kzmsg* message, uint8_t type, uint32_t length, const void* data) {
    message->length += static_cast<uint32_t>(sntlv_add_bin(message->buf, message->size, type, length, data));
}

void appendAddresses(kzmsg* message, const char* from, const char* to) {
    append(message, TLV_SRC, static_cast<uint32_t>(strlen(from)), from);
    append(message, TLV_DST, static_cast<uint32_t>(strlen(to)), to);
    append(message, TLV_END, 0, nullptr);
}

void dump(const kzmsg& message, int index) {
    if ((g_debug_level & kDebugDumpMessages) == 0 || index < 0 || index >= kDumpLabelCount) {
        return;
    }
    const DumpLabel& label = kDumpLabels[index];
    if ((g_debug & label.bit) != 0) {
        hexprint(label.text, 0, message.buf, message.length);
    }
}

// The steps that kzmsg_send and kzmsg_send_timedreceive share. Their callers build messages that are valid, so one that
// is not is this process's own mistake and ends it.
void complete(kzmsg* iobuf, const char* from, const char* to, int dumpIndex, const char* function) {
    appendAddresses(iobuf, from, to);
    dump(*iobuf, dumpIndex);
    if (tlv_validate(iobuf->buf) != 0) {
        kzAssertFailed(kPath, function, __LINE__, "0 == tlv_validate(iobuf->buf)");
    }
}

// Posts a complete message; returns the result of closing the queue.
int post(const kzmsg& message, const char* to, const char* via, const char* function) {
    kzMbox txq;
    if (kzMbox_txopen(via != nullptr ? via : to, &txq) != 0) {
        kzAssertFailed(kPath, function, __LINE__, "kzMbox_txopen(via, &txq) == 0");
    }
    kzMbox_send(message.buf, message.length, &txq);
    return kzMbox_close(&txq);
}

bool isName(const char* name) {
    return name != nullptr && *name != '\0';
}

}  // namespace

void kzmsg_build(kzmsg* message, const char* command, const void* argument, uint32_t argumentLength, uint8_t category) {
    message->length = static_cast<uint32_t>(sntlv_msg_init(message->buf, message->size, category));
    append(message, TLV_CMD, kCommandLength, command);
    append(message, TLV_CMDARG, argumentLength, argument);
}

int kzmsg_send(kzmsg* message, const char* from, const char* to, const char* via, int dumpIndex) {
    complete(message, from, to, dumpIndex, __func__);
    return post(*message, to, via, __func__);
}

int kzmsg_try_send(kzmsg* message, const char* from, const char* to, const char* via, int dumpIndex) {
    if (!isName(from) || !isName(to)) {
        LOG_ERROR("message without source or destination");
        return KZ_SEND_INVALID;
    }
    const kzmsg& built = *message;
    const uint32_t builtLength = built.length;
    const uint8_t builtHeader[] = {built.buf[0], built.buf[1]};

    appendAddresses(message, from, to);
    dump(*message, dumpIndex);
    int result = KZ_SEND_INVALID;
    if (tlv_validate_received(message->buf, message->length) == 0) {
        result = kzMbox_try_send(via != nullptr ? via : to, message->buf, message->length);
    } else {
        LOG_ERROR("message from \"%s\" to \"%s\" is not valid", from, to);
    }
    if (result != KZ_SEND_OK) {
        message->length = builtLength;
        memcpy(message->buf, builtHeader, sizeof(builtHeader));
    }
    return result;
}

int kzmsg_send_timedreceive(kzmsg* message, const char* from, const char* to, const char* via, int dumpIndex) {
    complete(message, from, to, dumpIndex, __func__);
    kzMbox rxq;
    if (kzMbox_rxopen_shared(from, KZMSG_MAX_COUNT_SM, &rxq) != 0) {
        kzAssertFailed(kPath, __func__, __LINE__, "kzMbox_rxopen_shared(from, KZMSG_MAX_COUNT_SM, &rxq) == 0");
    }
    post(*message, to, via, __func__);
    const int received = snkzMbox_timedreceive(message->buf, message->size, &rxq);
    message->length = static_cast<uint32_t>(received);
    kzMbox_close(&rxq);
    kzMbox_unlink(from);
    if (received < 0) {
        return kExchangeTimeout;
    }
    if (tlv_validate_received(message->buf, message->length) == 0) {
        return received;
    }
    KZ_DEBUG_PRINT(kDebugThresholdDump, "[%16s:%4d] %s:\n\n", "DMSGERR", 261, "kzmsg_send_timedreceive");
    hexprint("ERROR", 0, message->buf, message->length);
    return tlv_validate_received(message->buf, message->length) == 0 ? received : kExchangeInvalidReply;
}

uint8_t* kzmsg_response(kzmsg* message, uint8_t** data, uint32_t* length) {
    unsigned char* element = tlv_find(message->buf, TLV_RSPARG);
    *data = element != nullptr ? tlv_data(element) : nullptr;
    *length = element != nullptr ? tlv_length(element) : 0;
    return *data;
}
