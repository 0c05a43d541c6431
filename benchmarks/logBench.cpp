// What a peer's worst inputs cost in log bytes: each is sent for three seconds at the rate of a busy radio, to the real
// daemon in a private world at its ordinary log level. A radio byte is one that the peer sent: the data of a packet, of
// an event what its record carries.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <string>
#include <thread>
#include <vector>

#include "engine/rig.h"
#include "engine/world.h"

namespace {

using e2e::Bytes;
using e2e::operator+;
using e2e::Rig;

constexpr std::chrono::seconds kDuration{3};
constexpr std::chrono::milliseconds kStep{10};
constexpr int kRecordsPerStep = 10;
constexpr long kBacklog = 60;  // the daemon sheds data packets while more than 90 wait
constexpr uint32_t kClients = 20;
constexpr uint32_t kStranger = 77;
constexpr size_t kConnectionBytes = 13;  // of a connection event's record
constexpr size_t kEventBytes = 7;        // of the others

struct Record {
    ble_message_t record;
    size_t radioBytes;
};
// Sent over and over.
using Input = std::vector<Record>;

Input Packets(uint32_t connection, uint8_t stream, const Bytes& message) {
    Input input;
    for (const Bytes& packet : e2e::cutIntoPackets(message)) {
        input.push_back({e2e::dataRecord(connection, stream, packet), packet.size()});
    }
    return input;
}

Input Packet(uint32_t connection, uint8_t stream, const Bytes& packet) {
    return {{e2e::dataRecord(connection, stream, packet), packet.size()}};
}

Input Event(uint8_t type, uint32_t connection, const Bytes& rest) {
    return {{e2e::eventRecord(type, connection, rest), kEventBytes}};
}

Input Connection(uint32_t connection) {
    const auto last = static_cast<uint8_t>(connection);
    return {{e2e::eventRecord(KZBLE_SDK_EVENT_Conn, connection, {0xC0, 1, 2, 3, 4, last, 0, e2e::kPhone}),
             kConnectionBytes}};
}

Input FromAll(const Bytes& packet) {
    Input input;
    for (uint32_t client = 1; client <= kClients; ++client) {
        input.push_back({e2e::dataRecord(client, KZ_STR_ID_COMMAND, packet), packet.size()});
    }
    return input;
}

struct Row {
    const char* name;
    Input input;
};

std::vector<Row> Rows() {
    return {
        {"refused 21st client", Connection(kClients + 1)},
        {"packet of an unknown connection", Packet(kStranger, KZ_STR_ID_COMMAND, {1, 0x3a})},
        {"packet on an unknown stream", Packet(1, 99, {1, 0x3a})},
        {"stray continuation", Packet(1, KZ_STR_ID_COMMAND, {0x80, 1})},
        {"empty packet", Packet(1, KZ_STR_ID_COMMAND, {})},
        {"unknown command", Packet(1, KZ_STR_ID_COMMAND, {1, 0xee})},
        {"command without its parameter", Packet(1, KZ_STR_ID_COMMAND, {1, 1})},
        {"unknown setting", Packet(1, KZ_STR_ID_SETTINGS, {3, 0xee, 1, 1})},
        {"query of 7,598 unknown ids", Packets(1, KZ_STR_ID_QUERY, Bytes{0x13} + Bytes(7598, 0xee))},
        {"connection that exists", Connection(1)},
        {"unknown descriptor", Event(KZBLE_SDK_EVENT_CCC, 1, {99, 1})},
        {"unknown event", Event(199, 1, {})},
        {"unknown command of 20 clients", FromAll({1, 0xee})},
    };
}

void Connect(Rig& rig, uint32_t client) {
    rig.radio->send(Connection(client).front().record);
    for (const uint8_t descriptor : {KZ_STR_ID_COMMAND_CCC, KZ_STR_ID_SETTINGS_CCC, KZ_STR_ID_QUERY_CCC}) {
        rig.radio->send(e2e::eventRecord(KZBLE_SDK_EVENT_CCC, client, {descriptor, 1}));
    }
}

void Drain(Rig& rig) {
    while (rig.radio->receive(std::chrono::milliseconds{0})) {
    }
}

// Sends the input for the duration; the number of radio bytes.
size_t Send(Rig& rig, const Input& input) {
    size_t sent = 0;
    size_t radioBytes = 0;
    const auto start = std::chrono::steady_clock::now();
    for (auto due = start; due < start + kDuration; due += kStep) {
        std::this_thread::sleep_until(due);
        for (int i = 0; i < kRecordsPerStep; ++i) {
            const Record& next = input[sent++ % input.size()];
            e2e::waitUntil([&] { return rig.radio->toDaemon.waiting() <= kBacklog; });
            rig.radio->send(next.record);
            radioBytes += next.radioBytes;
        }
        Drain(rig);
    }
    return radioBytes;
}

void Measure(const Row& row) {
    Rig rig({});
    rig.start();
    for (uint32_t client = 1; client <= kClients; ++client) {
        Connect(rig, client);
    }
    rig.settle();
    const size_t before = rig.daemon.logSize();
    const size_t radioBytes = Send(rig, row.input);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));  // what is reported after the last second
    const std::string log = rig.daemon.log(before);
    const auto lines = static_cast<size_t>(std::count(log.begin(), log.end(), '\n'));
    std::printf("%-34s  %8zu  %10zu  %8zu  %9.1f\n", row.name, radioBytes, log.size(), lines,
                static_cast<double>(log.size()) / static_cast<double>(std::max<size_t>(radioBytes, 1)));
    std::fflush(stdout);
}

}  // namespace

int main(int, char** argv) {
    e2e::enterWorld(argv);
    std::printf("%-34s  %8s  %10s  %8s  %9s\n", "input, 1000 records a second", "radio B", "log B", "lines",
                "log/radio");
    try {
        for (const Row& row : Rows()) {
            Measure(row);
        }
    } catch (const std::exception& failure) {
        std::fprintf(stderr, "logBench: %s\n", failure.what());
        return 1;
    }
    return 0;
}
