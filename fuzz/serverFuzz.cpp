// The whole server, from its start to its end: any sequence of what its neighbours do. The input is a byte with the log
// level, one with the depth of the radio queue, and steps: a byte with the kind of step (kSteps), and behind it what
// the step reads. A step with kTogether comes before the server has seen it with the next one.
// scripts/fuzz-corpus writes such inputs.
//
// The server runs its own loop. select(2) is played: it takes a step whenever the server has no work left.
//
// Its files lie in a /usr/local of its own. Certificates would lie in /tmp, so no live stream gets that far.
#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>

#include "bleSDK.h"
#include "csi/csiKeys.h"
#include "fuzz.h"
#include "kzBleServer.h"
#include "kzControlCommands.h"
#include "kzTlv.h"
#include "kzmfFormat.h"
#include "messageCutter.h"
#include "playedQueues.h"
#include "privateTmp.h"
#include "utils.h"

namespace {

constexpr long kDepth = 100;       // of the queues to the daemon
constexpr int kPacketTimer = 490;  // descriptors; the server makes this timer first
constexpr int kTickTimer = 491;    // and then this one
constexpr uint8_t kTogether = 0x80;

struct World {
    Input input{nullptr, 0};
    long radioDepth = 0;
    std::deque<fakes::Bytes> records;  // what the radio is about to send
    bool together = false;             // all records at once
    int ticks = 0;                     // that are due
    int timers = 0;                    // made so far
    bool ends = false;                 // after the last step
    bool queueRemoved = false;         // which the server sees at the next queue that it looks at
    // By connection and stream: what is left of the message that was begun last, and the counter of its next packet.
    std::map<std::pair<uint32_t, uint8_t>, std::pair<unsigned, uint8_t>> messages;
};
World g_world;
Input& g_input = g_world.input;

// ---------------------------------------------------------------- the radio sends

uint32_t Connection() {
    return g_input.Byte() % 25u;
}

// A record on one of the five streams of requests, or on any stream.
ble_message_t DataRecord() {
    constexpr uint8_t kStreams[] = {KZ_STR_ID_COMMAND, KZ_STR_ID_SETTINGS, KZ_STR_ID_QUERY, KZ_STR_ID_SENSOR,
                                    KZ_STR_ID_START_OTA};
    const uint32_t connection = Connection();
    const uint8_t byte = g_input.Byte();
    return NewDataRecord(connection, byte < 2 * std::size(kStreams) ? kStreams[byte / 2] : byte);
}

void Send(const ble_message_t& record) {
    const auto* bytes = reinterpret_cast<const uint8_t*>(&record);
    g_world.records.emplace_back(bytes, bytes + sizeof(record));
}

void SendMessage() {
    ble_message_t record = DataRecord();
    const std::vector<uint8_t> message = g_input.Upto(g_input.BigEndian16() % 8192u);
    for (MessageCutter cutter(static_cast<unsigned>(message.size())); cutter.HasNext(); Send(record)) {
        record.dataLength = static_cast<uint8_t>(cutter.WriteNext(message.data(), record.data));
    }
}

void SendPacket() {
    ble_message_t record = DataRecord();
    record.dataLength = g_input.Byte();
    const std::vector<uint8_t> packet = g_input.Upto(std::min<size_t>(record.dataLength, kBlePacketSize));
    std::copy(packet.begin(), packet.end(), record.data);
    Send(record);
}

void SendEvent() {
    ble_message_t record{};
    record.eventType = g_input.Byte();
    record.connectionId = Connection();
    const std::vector<uint8_t> fields = g_input.Upto(8);  // address and device type, or stream and value
    std::copy(fields.begin(), fields.end(), reinterpret_cast<uint8_t*>(&record) + kConnAddressOffset);
    Send(record);
}

void SendAnyRecord() {
    g_world.records.push_back(g_input.Upto(std::min<size_t>(g_input.Byte(), kBleRecordSize)));
}

// ---------------------------------------------------------------- the other daemons

void SendNews() {
    struct Kind {
        const char* queue;
        uint8_t category;
        const char* command;
        uint8_t element;
    };
    constexpr Kind kKinds[] = {
        {kMqEvents, CAT_KZCONTROL_EVENT, "EV", TLV_RSPARG}, {kMqCsi, CAT_KZNET_CMD, "CN", TLV_CMDARG},
        {kMqCsi, CAT_KZNET_CMD, "CU", TLV_CMDARG},          {kMqCsi, CAT_RTOS_CMD, "LB", TLV_CMDARG},
        {kMqCsi, CAT_RTOS_CMD, "AL", TLV_CMDARG},           {kMqCsi, CAT_KZNET_RSP, "CR", TLV_RSPARG},
    };
    const Kind& kind = kKinds[g_input.Byte() % std::size(kKinds)];
    std::vector<uint8_t> argument = g_input.Upto(g_input.BigEndian16() % kEventMessageSize);
    argument.reserve(1);  // a null pointer is no argument
    fakes::Bytes message(kEventMessageSize);
    sntlv_msg_init(message.data(), kEventMessageSize, kind.category);
    sntlv_add_bin(message.data(), kEventMessageSize, TLV_CMD, 2, kind.command);
    sntlv_add_bin(message.data(), kEventMessageSize, kind.element, static_cast<uint32_t>(argument.size()),
                  argument.data());
    message.resize(sntlv_msg_len(message.data()));
    played::Put(kind.queue, message);
}

void SendAnyNews() {
    const char* queue = g_input.Byte() % 2 == 0 ? kMqEvents : kMqCsi;
    played::Put(queue, g_input.Upto(std::min<size_t>(g_input.BigEndian16(), kEventMessageSize)));
}

// How the camera answers from now on.
void ScriptAnswer() {
    using Reply = const fakes::Bytes&;
    using Script = void (*)(uint8_t id, int result, Reply reply);
    constexpr Script kScripts[] = {
        [](uint8_t id, int result, Reply reply) { fakes::OnCommand(id, result, reply); },
        [](uint8_t id, int, Reply reply) { fakes::SetCsi(id, reply); },
        [](uint8_t id, int result, Reply) { fakes::OnCsiSet(id, id == CSI_WMS_REQUEST ? -1 : result); },
        [](uint8_t id, int result, Reply) { fakes::OnOption(id, result == 0); },
        [](uint8_t, int result, Reply reply) { fakes::SetCameraInfo(result, reply); },
        [](uint8_t id, int result, Reply) { fakes::SetModelNumber(result, id); },
        [](uint8_t id, int result, Reply) { fakes::SetIpcResults(id, result, 0); },
    };
    const Script script = kScripts[g_input.Byte() % std::size(kScripts)];
    const uint8_t id = g_input.Byte();
    const auto result = static_cast<int8_t>(g_input.Byte());
    script(id, result, g_input.Upto(g_input.BigEndian16() % 1600u));
}

// ---------------------------------------------------------------- time, and the radio's end of the queues

void Tick() {
    g_world.ticks += 1 + g_input.Byte() % 128;
}

// A packet of an answer or a push begins a message, or goes on with the one before it on its stream.
void CheckPacket(const ble_message_t& record) {
    if (record.streamId == KZ_STR_ID_COMMAND_RESPONSE || record.streamId > KZ_STR_ID_SENSOR_RESPONSE) {
        return;  // the catalogue and firmware images share their streams with answers
    }
    const uint32_t connection = record.connectionId;
    auto& [left, counter] = g_world.messages[{connection, record.streamId}];
    const uint8_t first = record.data[0];
    unsigned headerSize = 1;
    if ((first & 0x80) != 0) {
        Require(left > 0 && first == ContinuationHeader(counter++));
    } else {
        headerSize = first >> 5 == 0 ? 1 : 2;
        left = headerSize == 1 ? first : (first & 0x1Fu) << 8 | record.data[1];
        counter = 0;
    }
    Require(record.dataLength >= headerSize && record.dataLength - headerSize <= left);
    left -= record.dataLength - headerSize;
}

void ReadSent() {
    played::Take(kMqKzNet);
    for (const fakes::Bytes& bytes : played::Take(kMqToSkylark)) {
        ble_message_t record;
        Require(bytes.size() == sizeof(record));
        std::copy(bytes.begin(), bytes.end(), reinterpret_cast<uint8_t*>(&record));
        Require(record.eventType == KZBLE_SDK_MESSAGE_Data && record.dataLength <= kBlePacketSize);
        CheckPacket(record);
    }
}

// The radio reads what was sent, and from now on somebody else is faster in filling some of the room.
void ReadRadio() {
    ReadSent();
    played::SetDepth(kMqToSkylark, g_input.Byte() % (g_world.radioDepth + 1), g_world.radioDepth);
}

void RestartRadio() {
    ReadSent();
    g_world.radioDepth = 1 + g_input.Byte() % 120;
    played::SetDepth(kMqToSkylark, g_world.radioDepth);
    g_world.records.clear();
    g_world.queueRemoved = true;
    ++g_world.ticks;
}

constexpr void (*kSteps[])() = {SendMessage, SendPacket, SendEvent,    SendAnyRecord, SendNews,
                                SendAnyNews, Tick,       ScriptAnswer, ReadRadio,     RestartRadio};

void TakeSteps() {
    do {
        const uint8_t step = g_input.Byte();
        g_world.together = (step & kTogether) != 0;
        kSteps[(step & ~kTogether) % std::size(kSteps)]();
    } while (g_world.together && !g_input.IsEmpty());
}

// ---------------------------------------------------------------- what the server waits for

void SendRecords() {
    for (size_t i = g_world.together ? g_world.records.size() : 1; i > 0 && !g_world.records.empty(); --i) {
        played::Put(kMqToBleSdk, g_world.records.front());
        g_world.records.pop_front();
    }
}

int MarkReady(int end, const fd_set& watched, fd_set* ready) {
    int count = 0;
    FD_ZERO(ready);
    for (int descriptor = kPacketTimer; descriptor < end; ++descriptor) {
        const bool due = descriptor == kTickTimer ? g_world.ticks > 0 : played::Waiting(descriptor).value_or(0) > 0;
        if (due && FD_ISSET(descriptor, &watched)) {
            FD_SET(descriptor, ready);
            g_world.ticks -= descriptor == kTickTimer ? 1 : 0;
            ++count;
        }
    }
    return count;
}

// ---------------------------------------------------------------- beginning and end

void MakeFiles() {
    Require(fakes::EnterPrivateTmp("", "/usr/local"));
    const std::string root = "/usr/local/zorvik/";
    std::filesystem::create_directories(root + "tftp");
    std::filesystem::create_directories(root + "etc/58");
    std::ofstream catalogue(root + "etc/58/settings.json");
    catalogue << R"({"version":1.25,"modes":[],"settings":[)";
    for (const int setting : {2, 5, 30, 43, 64, 91}) {
        catalogue << (setting == 2 ? "" : ",") << R"({"display_name":"S","id":)" << setting << R"(,"options":[)";
        for (int option = 0; option < 16; ++option) {
            catalogue << R"({"display_name":"O","id":)" << option << "},";
        }
        catalogue << R"({"display_name":"O","id":60000}]})";
    }
    catalogue << R"(],
        "status":{"groups":[{"fields":[{"id":8,"name":"a"},{"id":13,"name":"b"},{"id":29,"name":"c"},{"id":97,"name":"d"}]}]},
        "filters":[{"activated_by":[{"status_id":8,"values":[1]}],"blacklist":[{"setting_id":5,"opt_ids":[4]}]},
                   {"activated_by":[{"setting_id":2,"ids":[9]}],"blacklist":[{"setting_id":30,"opt_ids":[0,1]}]}]})";
    std::string image(420, '\1');
    const uint32_t header[] = {Utils::crc32(reinterpret_cast<const uint8_t*>(image.data() + 20), 400), 2, 0, 0, 400};
    std::copy_n(reinterpret_cast<const char*>(header), sizeof(header), image.data());
    for (const char* name : {"tftp/KZ_REMOTE_FW.bin", "tftp/KZ_SHUTTER_REMOTE_FW.bin", "etc/58/settings.json.gz"}) {
        std::ofstream(root + name) << image;
    }
}

// What is handed over is whole and fits the metadata service's records.
void CheckHandOver() {
    constexpr size_t kSequenceSize = 4;
    for (const fakes::Call& call : fakes::Calls("ipc-send")) {
        const auto size = static_cast<uint32_t>(call.argument.size() - kSequenceSize);
        Require(size > 0 && size <= 1400);
        Require(MetadataIsValidKZMF(call.argument.data() + kSequenceSize, size, true));
    }
}

}  // namespace

extern "C" {

// The log has a reader, which is played too.
int connect(int, const struct sockaddr*, socklen_t) {
    return 0;
}

int timerfd_create(int, int) noexcept {
    return kPacketTimer + g_world.timers++;
}

int timerfd_settime(int, int, const itimerspec*, itimerspec*) noexcept {
    return 0;
}

int fstat(int descriptor, struct stat* status) noexcept {
    if (!played::Waiting(descriptor)) {
        return fstatat(descriptor, "", status, AT_EMPTY_PATH);
    }
    *status = {};
    status->st_nlink = std::exchange(g_world.queueRemoved, false) ? 0 : 1;
    return 0;
}

int select(int end, fd_set* readable, fd_set*, fd_set*, timeval* timeout) {
    const fd_set watched = *readable;
    for (;;) {
        SendRecords();
        const int ready = MarkReady(end, watched, readable);
        if (ready > 0 || timeout != nullptr) {
            return ready;
        }
        if (!g_input.IsEmpty()) {
            TakeSteps();
        } else if (!std::exchange(g_world.ends, true)) {
            RestartRadio();  // which leaves no client
        } else {
            KzBleServer::GetInstance()->SetRunning(false);
            return 0;
        }
    }
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    [[maybe_unused]] static const bool s_made = (MakeFiles(), true);
    g_world = {};
    g_input = Input(data, size);
    g_logLevel = g_input.Byte() % 7;
    g_debug_level = 0;
    g_world.radioDepth = 1 + g_input.Byte() % 120;
    fakes::Reset();
    fakes::SetSystemResult(-1);  // a process for each would take too long
    fakes::Bytes status(394, 0);
    status[198] = 80;  // percent of the battery
    fakes::OnCommand(KZCONTROL_GET_ALL_STATUS, 0, status);
    fakes::OnCsiSet(CSI_WMS_REQUEST, -1);  // a part of each live stream
    BleSDK::GetInstance();
    played::ResetQueues();
    for (const char* queue : {kMqToBleSdk, kMqEvents, kMqCsi, kMqKzNet}) {
        played::SetDepth(queue, kDepth);
    }
    played::SetDepth(kMqToSkylark, g_world.radioDepth);

    KzBleServer* server = KzBleServer::GetInstance();
    Require(server->InterfaceOpen() == 0);
    KzBleServer::sThreadLoop(server);
    Require(!g_world.ends || (server->GetClientCount() == 0 && server->IsFileTransferSlotAvailable()));
    KzBleServer::Destroy();
    CheckHandOver();
    return 0;
}

}  // extern "C"
