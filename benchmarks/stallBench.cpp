// How long the daemon is busy with one thing while services of the camera hang: they keep their sockets open, and never
// answer. Runs the real binary and the camera's client libraries in a private world.
#include <cstdio>
#include <exception>
#include <functional>
#include <string>

#include "cameraWire.h"
#include "csi/csiKeys.h"
#include "engine/radioStack.h"
#include "engine/tlvMessage.h"
#include "engine/world.h"
#include "kzTlv.h"
#include "roadsRig.h"
#include "utils.h"

namespace {

using e2e::Bytes;
using e2e::fromHex;
using roads::Process;
using roads::Rig;
using Clock = std::chrono::steady_clock;

constexpr uint32_t kClients = 20;
constexpr uint8_t kUnknownEvent = 200;
constexpr std::chrono::minutes kPatience{5};
constexpr std::chrono::seconds kSensorTime{5};

struct Camera {
    Process control = roads::StartServices({kzwire::kControlEndpoint});
    Process csi = roads::StartServices({kzwire::kCsiEndpoint});
    Process metadata = roads::StartServices({kzwire::kIpcEndpoint});
};

struct Row {
    const char* name;
    uint32_t clients;
    std::function<void(Rig& rig)> prepare;
    std::function<void(Rig& rig)> act;
};

struct Hang {
    const char* name;
    Process Camera::*services[3];
};

void Write(Rig& rig, uint32_t connection, uint8_t stream, const Bytes& message) {
    for (const Bytes& packet : e2e::cutIntoPackets(message)) {
        rig.Send(connection, stream, packet);
    }
}

// Until everything sent before has been handled: one more record has been taken out.
void Await(Rig& rig) {
    rig.Send(e2e::eventRecord(kUnknownEvent, 0));
    if (!e2e::waitUntil([&rig] { return rig.toDaemon.waiting() == 0; }, kPatience)) {
        throw std::runtime_error("the daemon does not come back");
    }
}

// From the first client to the last.
std::function<void(Rig&)> ForAll(const std::function<void(Rig&, uint32_t)>& act) {
    return [act](Rig& rig) {
        for (uint32_t id = 1; id <= kClients; ++id) {
            act(rig, id);
        }
    };
}

std::function<void(Rig&)> Asks(uint8_t stream, const char* message) {
    return [=](Rig& rig) { Write(rig, 1, stream, fromHex(message)); };
}

void TellPresetsChanged(Rig& /*rig*/) {
    e2e::Queue queue = e2e::Queue::openForSending("/to_blesdk");
    const Bytes record = {CSI_PRESETS_MODIFIED, 4, 0, 0, 0, 1, 0, 0, 0};
    queue.send(e2e::TlvMessage{CAT_KZNET_CMD,
                               {{e2e::kTlvCommand, e2e::textBytes("CN")},
                                {e2e::kTlvArgument, record},
                                {e2e::kTlvSource, e2e::textBytes("/nobody")},
                                {e2e::kTlvDestination, e2e::textBytes("/to_blesdk")}}}
                   .encode());
    e2e::waitUntil([&queue] { return queue.waiting() == 0; });
}

void RegisterSensor(Rig& rig, uint32_t id) {
    Write(rig, id, KZ_STR_ID_SENSOR, fromHex("02 03 48 52 4d"));
    Write(rig, id, KZ_STR_ID_SENSOR, fromHex("03 48 52 54 45 00 00 42 01 14 00"));
}

void SampleForSomeTime(Rig& rig) {
    const auto end = Clock::now() + kSensorTime;
    do {
        ForAll([](Rig& sender, uint32_t id) {
            Write(sender, id, KZ_STR_ID_SENSOR,
                  fromHex("01 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10 11 12 13 14"));
        })(rig);
        Await(rig);
    } while (Clock::now() < end);
}

void Nothing(Rig& /*rig*/) {}

const Row kRows[] = {
    {"shutter", 1, Nothing, Asks(KZ_STR_ID_COMMAND, "01 01 01")},
    {"setting", 1, Nothing, Asks(KZ_STR_ID_SETTINGS, "02 01 04")},
    {"command 81", 1, Nothing, Asks(KZ_STR_ID_COMMAND, "51")},
    {"client information", 1, Nothing, Asks(KZ_STR_ID_COMMAND, "1c 07 01 05 02 03 04 50 00")},
    {"CAH query", 1, Nothing, Asks(KZ_STR_ID_QUERY, "f5 7e")},
    {"start of a live stream", 1, Nothing,
     Asks(KZ_STR_ID_COMMAND, "f1 79 0a 04 72 74 6d 70 10 01 18 0c 38 01 40 09 48 03 50 04")},
    {"20 disconnections", kClients, Nothing,
     ForAll([](Rig& rig, uint32_t id) { rig.Send(e2e::eventRecord(KZBLE_SDK_EVENT_Disconn, id)); })},
    {"presets change, 20 interested clients", kClients,
     ForAll([](Rig& rig, uint32_t id) { Write(rig, id, KZ_STR_ID_QUERY, fromHex("f5 72 08 01")); }),
     TellPresetsChanged},
    {"5 s of samples from 20 sensors", kClients, ForAll(RegisterSensor), SampleForSomeTime},
};

const Hang kHangs[] = {
    {"control", {&Camera::control}},
    {"CSI", {&Camera::csi}},
    {"both", {&Camera::control, &Camera::csi}},
    {"all three", {&Camera::control, &Camera::csi, &Camera::metadata}},
};

double Seconds(const Row& row, const Hang& hang) {
    Camera camera;
    Rig rig;
    rig.StartDaemon();
    rig.SetLogLevel(KZ_LOG_ERROR);
    for (uint32_t id = 1; id <= row.clients; ++id) {
        rig.Connect(id);
    }
    row.prepare(rig);
    rig.Settle();
    for (Process Camera::*service : hang.services) {
        if (service != nullptr) {
            (camera.*service).Stop();
        }
    }
    const auto begin = Clock::now();
    row.act(rig);
    Await(rig);
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

}  // namespace

int main(int /*argc*/, char** argv) {
    e2e::enterWorld(argv);
    try {
        roads::WriteCatalogue("");
        std::printf("seconds the daemon is busy while these hang\n%-40s", "");
        for (const Hang& hang : kHangs) {
            std::printf("  %9s", hang.name);
        }
        std::printf("\n");
        for (const Row& row : kRows) {
            std::printf("%-40s", row.name);
            for (const Hang& hang : kHangs) {
                std::printf("  %9.1f", Seconds(row, hang));
                std::fflush(stdout);
            }
            std::printf("\n");
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "stallBench: %s\n", error.what());
        return 1;
    }
    return 0;
}
