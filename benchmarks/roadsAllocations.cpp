#include "roadsAllocations.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include "messageCutter.h"
#include "roadsRig.h"

namespace roads {
namespace {

using e2e::Bytes;

constexpr uint32_t kPhone = 1;
constexpr int kRounds = 200;

struct Request {
    uint8_t stream;
    Bytes message;
    bool answered = true;
};

// Sends the request in packets and waits for what comes of it.
void Play(Rig& rig, const Request& request) {
    MessageCutter cutter(static_cast<unsigned>(request.message.size()));
    while (cutter.HasNext()) {
        Bytes packet(kBlePacketSize);
        packet.resize(cutter.WriteNext(request.message.data(), packet.data()));
        rig.Send(kPhone, request.stream, packet);
    }
    if (request.answered) {
        rig.Receive();
    }
}

uint64_t Allocations() {
    uint64_t count = 0;
    std::ifstream(kAllocationCount, std::ios::binary).read(reinterpret_cast<char*>(&count), sizeof(count));
    return count;
}

Bytes LongCommand() {
    Bytes message(1002, 0);
    message[0] = 0xF1;
    message[1] = 0x6F;
    return message;
}

}  // namespace

void MeasureAllocations(uint32_t logLevel) {
    const std::pair<const char*, std::vector<Request>> traffic[] = {
        {"value queries", {{KZ_STR_ID_QUERY, {0x12, 2}}, {KZ_STR_ID_QUERY, {0x13, 29}}}},
        {"commands", {{KZ_STR_ID_COMMAND, {1, 1, 1}}, {KZ_STR_ID_COMMAND, {2, 4, 0, 0, 0, 1}}}},
        {"settings", {{KZ_STR_ID_SETTINGS, {2, 1, 4}}}},
        {"a message of many packets", {{KZ_STR_ID_COMMAND, LongCommand()}}},
        {"sensor samples", {{KZ_STR_ID_SENSOR, {1, 0, 0x12, 0x34}, false}, {KZ_STR_ID_SENSOR, {80, 1}}}},
    };
    std::ofstream(kAllocationCount, std::ios::binary) << std::string(8, '\0');
    setenv("LD_PRELOAD", KZ_ALLOCATION_COUNTER, 1);
    Rig rig;
    rig.StartDaemon();
    unsetenv("LD_PRELOAD");
    rig.Connect(kPhone);
    rig.SetLogLevel(logLevel);
    rig.Settle();
    Play(rig, {KZ_STR_ID_SENSOR, {2, 1, 'H', 'R', 'M'}});
    Play(rig, {KZ_STR_ID_SENSOR, {3, 'H', 'R', 'T', 'E', 0, 0, 'S', 2, 1, 0}});
    if (Allocations() == 0) {
        throw std::runtime_error("no allocation is counted");
    }
    for (const auto& [name, requests] : traffic) {
        uint64_t before = 0;
        for (int round = 0; round < 2 * kRounds; ++round) {
            if (round == kRounds) {  // warm by now
                before = Allocations();
            }
            for (const Request& request : requests) {
                Play(rig, request);
            }
        }
        std::printf("heap allocations of %d times %-26s  %9llu       %9d\n", kRounds, name,
                    static_cast<unsigned long long>(Allocations() - before), 0);
    }
}

}  // namespace roads
