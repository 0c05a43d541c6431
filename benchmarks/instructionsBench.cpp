// User-space instructions of the daemon on its roads, counted by callgrind on its real binary in a private world. They
// are the same on every machine, whatever else it does; what the kernel does for the daemon is not in them.
//
// Each road is run twice, with one and with two thousand messages; the difference is what a thousand take. The daemon's
// ticks come on top, a few a second.
//
//     instructionsBench [FOLDER]     keeps the counts of each run in the folder, for callgrind_annotate
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>

#include "engine/tlvMessage.h"
#include "engine/world.h"
#include "kzTlv.h"
#include "roadsRig.h"
#include "utils.h"

namespace {

using e2e::Bytes;
using e2e::Queue;
using roads::Process;
using roads::Rig;

constexpr int kMessages = 1000;
constexpr uint32_t kClients = 20;
constexpr long kDeepQueue = 2000;
constexpr int kBacklog = 50;

using Road = std::function<void(Rig& rig, int messages)>;

long TotalOf(const std::string& path) {
    std::ifstream file(path);
    std::string line;
    while (std::getline(file, line)) {
        if (line.starts_with("totals: ")) {
            return std::stol(line.substr(8));
        }
    }
    throw std::runtime_error("callgrind wrote no total");
}

struct Row {
    const char* name;
    const char* file;  // in which its counts are kept, with the number of messages behind it
    Road road;
    double perMessage;
    const char* aim;
};

long Count(const Row& row, int messages, const std::string& folder) {
    const std::string counts = folder + '/' + row.file + '.' + std::to_string(messages);
    Rig rig(100, kDeepQueue);
    rig.StartDaemon({"valgrind", "--tool=callgrind", "--callgrind-out-file=" + counts});
    rig.SetLogLevel(KZ_LOG_ERROR);
    row.road(rig, messages);
    rig.ShutDownDaemon();
    return TotalOf(counts);
}

void PrintRow(const Row& row, const std::string& folder) {
    const long more = Count(row, 2 * kMessages, folder) - Count(row, kMessages, folder);
    std::printf("%-52s  %9.0f  %s\n", row.name, static_cast<double>(more) / kMessages / row.perMessage, row.aim);
    std::fflush(stdout);
}

// ---------------------------------------------------------------- the roads

// The value of one setting, asked for and answered in one packet.
void Query(Rig& rig, int messages) {
    rig.Connect(1);
    for (int i = 0; i < messages; ++i) {
        rig.Send(1, KZ_STR_ID_QUERY, {2, 0x12, 2});
        rig.Receive();
    }
}

// One changed value, pushed to every client in one packet.
void Push(Rig& rig, int messages) {
    for (uint32_t client = 1; client <= kClients; ++client) {
        rig.Connect(client);
        rig.Send(client, KZ_STR_ID_QUERY, {2, 0x52, 2});
        rig.Receive();
    }
    Queue events = Queue::openForSending("/to_kzBleD");
    for (int i = 0; i < messages; ++i) {
        e2e::TlvMessage message;
        message.category = CAT_KZCONTROL_EVENT;
        message.elements = {
            {e2e::kTlvResponse, e2e::textBytes("{\"settings\": {\"2\": " + std::to_string(i % 2) + "}}")}};
        const Bytes bytes = message.encode();
        events.send(bytes.data(), bytes.size());
        for (uint32_t client = 1; client <= kClients; ++client) {
            rig.Receive();
        }
    }
}

// A heart rate: a sample of two bytes in a stream of a registered device.
void Sample(Rig& rig, int messages) {
    rig.Connect(1);
    rig.Send(1, KZ_STR_ID_SENSOR, {5, 2, 1, 'H', 'R', 'M'});
    rig.Send(1, KZ_STR_ID_SENSOR, {11, 3, 'H', 'R', 'A', 'T', 0, 0, 'S', 2, 1, 0});
    for (int i = 0; i < messages; ++i) {
        rig.Send(1, KZ_STR_ID_SENSOR, {4, 1, 0, 0, 72});
        if (i % kBacklog == 0) {  // with more in the queue samples would be shed
            e2e::waitUntil([&rig] { return rig.toDaemon.waiting() == 0; });
        }
    }
    rig.Settle();
}

// Packets of the compressed catalogue.
void Transfer(Rig& rig, int messages) {
    constexpr int kFileBytesPerPacket = 19;
    const std::string path = std::string(roads::kCatalogueDirectory) + "/settings.json.gz";
    std::ofstream(path, std::ios::binary) << std::string(static_cast<size_t>(messages * kFileBytesPerPacket), 'z');
    rig.Connect(1);
    rig.Send(1, KZ_STR_ID_COMMAND, {1, 0x3B});
    for (int i = 0; i < messages; ++i) {
        rig.Receive();
    }
}

}  // namespace

int main(int argc, char** argv) {
    e2e::enterWorld(argv);
    roads::WriteCatalogue("");
    const Process camera = roads::StartCamera();
    std::printf("%-52s  %9s  aim\n", "user-space instructions", "ours");
    const std::string folder = argc > 1 ? argv[1] : "/tmp";
    const Row rows[] = {
        {"value query, one packet", "query", Query, 1, "<= 1000"},
        {"push of one value, a client of 20", "push", Push, kClients, ""},
        {"sensor sample", "sample", Sample, 1, ""},
        {"packet of a settings.json transfer", "transfer", Transfer, 1, ""},
    };
    for (const Row& row : rows) {
        try {
            PrintRow(row, folder);
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s: %s\n", row.name, error.what());
        }
    }
    return 0;
}
