// The roads through the daemon, measured on its real binary in a private world, each beside its floor: what a bare
// program needs for the same messages. Round trips are timed with both processes on one processor; work that comes in
// bursts is measured as processor time, which other programs of the machine disturb least.
//
// roadsBench [ROW...] measures only the rows that are named: query, command, shed, start, idle, push, transfer, image,
// allocations.
#include <cjson/cJSON.h>
#include <fcntl.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <thread>

#include "engine/tlvMessage.h"
#include "engine/world.h"
#include "kzTlv.h"
#include "roadTable.h"
#include "roadsAllocations.h"
#include "roadsRig.h"
#include "settingsStatusMapping.h"
#include "utils.h"

namespace {

using e2e::Bytes;
using e2e::Queue;
using roads::Process;
using roads::Rig;
using std::chrono::nanoseconds;

constexpr uint32_t kQuiet = KZ_LOG_ERROR;
constexpr long kRadioDepth = 100;
constexpr uint32_t kClients = 20;

constexpr const char* kFloorRequests = "/roads_requests";
constexpr const char* kFloorAnswers = "/roads_answers";

nanoseconds ThreadTime() {
    timespec time = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

void PrintRow(const char* name, double ours, double floor, const char* unit, const char* aim) {
    std::printf("%-52s  %9.2f %-4s  %9.2f %-4s  %6.2fx  %s\n", name, ours, unit, floor, unit, ours / floor, aim);
    std::fflush(stdout);
}

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void WaitReadable(mqd_t queue) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(queue, &readable);
    select(queue + 1, &readable, nullptr, nullptr, nullptr);
}

// A bare process between two queues of its own: waits, receives a record, does `work`, sends the record back.
class Echo {
  public:
    template <typename Work>
    explicit Echo(Work work)
        : m_requests(Queue::create(kFloorRequests, kRadioDepth, kBleRecordSize)),
          m_answers(Queue::create(kFloorAnswers, kRadioDepth, kBleRecordSize)),
          m_process(Process::Fork([&] {
              char record[kBleRecordSize];
              auto doWork = work();
              for (;;) {
                  WaitReadable(m_requests.descriptor());
                  mq_receive(m_requests.descriptor(), record, sizeof(record), nullptr);
                  doWork();
                  mq_send(m_answers.descriptor(), record, sizeof(record), 0);
              }
          })) {}

    void RoundTrip(const ble_message_t& record) {
        char answer[kBleRecordSize];
        mq_send(m_requests.descriptor(), reinterpret_cast<const char*>(&record), sizeof(record), 0);
        mq_receive(m_answers.descriptor(), answer, sizeof(answer), nullptr);
    }
    void PinTo(int cpu) { m_process.PinTo(cpu); }

  private:
    Queue m_requests;
    Queue m_answers;
    Process m_process;
};

void RoundTrip(Rig& rig, const ble_message_t& record) {
    char answer[kBleRecordSize];
    mq_send(rig.toDaemon.descriptor(), reinterpret_cast<const char*>(&record), sizeof(record), 0);
    mq_receive(rig.fromDaemon.descriptor(), answer, sizeof(answer), nullptr);
}

constexpr int kRoundTripRounds = 101;
constexpr int kRoundTripsPerRound = 100;

// Everything of one round trip on one processor, so that nothing waits for another to wake up.
template <typename Work>
void MeasureRoundTrip(const char* name, Process& camera, const ble_message_t& request, Work work) {
    Rig rig;
    rig.StartDaemon();
    rig.Connect(1);
    rig.SetLogLevel(kQuiet);
    rig.Settle();
    Echo echo(work);
    const int cpu = roads::FirstCpu();
    roads::PinSelfTo(cpu);
    rig.Daemon().PinTo(cpu);
    echo.PinTo(cpu);
    RoundTrip(rig, request);  // connects the client libraries
    echo.RoundTrip(request);
    camera.PinTo(cpu);

    RoadTable table(kRoundTripRounds);
    const RoadTable::Row row = table.Measure(
        name, kRoundTripsPerRound, 0, [&] { RoundTrip(rig, request); }, [&] { echo.RoundTrip(request); });
    roads::UnpinSelf();
    PrintRow(name, row.ours / 1000, row.floor / 1000, "us", "<= 1.15x");
}

void MeasureQuery(Process& camera) {
    const ble_message_t askSetting = roads::PacketFor(1, KZ_STR_ID_QUERY, {2, 0x12, 2});
    MeasureRoundTrip("value query of one packet", camera, askSetting, [] { return [] {}; });
}

void MeasureCommand(Process& camera) {
    const ble_message_t shutter = roads::PacketFor(1, KZ_STR_ID_COMMAND, {3, 1, 1, 1});
    MeasureRoundTrip("command with two library calls", camera, shutter, [] {
        return [connections = std::make_shared<std::array<roads::CameraConnection, 2>>()] {
            for (const roads::CameraConnection& connection : *connections) {
                connection.RoundTrip();
            }
        };
    });
}

// ---------------------------------------------------------------- shedding

constexpr long kDeepQueue = 2048;
constexpr long kLeastLeft = 100;  // above the backlog up to which records are handled

// Processor time of `process` for each record that it takes from the full queue; it is stopped before and after.
double TimePerShedRecord(Rig& rig, Process& process) {
    const ble_message_t record = roads::PacketFor(2, KZ_STR_ID_QUERY, {2, 0x12, 2});
    for (;;) {
        while (rig.toDaemon.waiting() < kDeepQueue) {
            rig.Send(record);
        }
        const nanoseconds before = process.CpuTime();
        process.Continue();
        while (rig.toDaemon.waiting() > kDeepQueue / 2) {
            std::this_thread::sleep_for(std::chrono::microseconds(20));
        }
        process.Stop();
        const long left = rig.toDaemon.waiting();
        if (left > kLeastLeft) {  // else the stop came too late: again
            return static_cast<double>((process.CpuTime() - before).count()) / static_cast<double>(kDeepQueue - left);
        }
    }
}

void MeasureShedding() {
    Rig rig(kDeepQueue);
    rig.StartDaemon();
    rig.Connect(1);
    rig.Connect(2, false);
    rig.SetLogLevel(kQuiet);
    rig.Settle();
    Process floor = Process::Fork([&rig] {
        char record[kBleRecordSize];
        for (;;) {
            WaitReadable(rig.toDaemon.descriptor());
            mq_receive(rig.toDaemon.descriptor(), record, sizeof(record), nullptr);
        }
    });
    floor.Stop();
    rig.Daemon().Stop();

    std::vector<double> ours;
    std::vector<double> floors;
    for (int round = 0; round < 61; ++round) {
        ours.push_back(TimePerShedRecord(rig, rig.Daemon()));
        floors.push_back(TimePerShedRecord(rig, floor));
    }
    const double oursRate = 1000 / Median(ours);
    const double floorRate = 1000 / Median(floors);
    PrintRow("records shed above a backlog of 90, million a second", oursRate, floorRate, "M/s", ">= 0.9x");
}

// ---------------------------------------------------------------- start

void MeasureStart() {
    const std::string path = roads::WriteCatalogue("");
    const std::string text = ReadFile(path);
    Rig rig;
    cJSON* parsed = nullptr;
    RoadTable table(31);
    const RoadTable::Row row = table.Measure(
        "start", 1, 0, [&] { rig.StartDaemon(); },
        [&] {
            parsed = cJSON_Parse(text.c_str());
            Process::Spawn({KZ_ROADS_EMPTY}).Wait();
        },
        [&] {
            rig.KillDaemon();
            cJSON_Delete(std::exchange(parsed, nullptr));
        });
    cJSON_Delete(parsed);
    PrintRow("start to serving, 180 settings", row.ours / 1e6, row.floor / 1e6, "ms", "<= 2.5x");
}

// ---------------------------------------------------------------- at rest

void MeasureIdle() {
    constexpr int kSeconds = 10;
    roads::WriteCatalogue("");
    Rig rig;
    rig.StartDaemon();
    for (uint32_t connection = 1; connection <= kClients; ++connection) {
        rig.Connect(connection);
    }
    rig.Settle();
    const long before = rig.Daemon().Sleeps();
    std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
    const double wakeUps = static_cast<double>(rig.Daemon().Sleeps() - before) / kSeconds;
    std::printf("%-52s  %9.2f MB    aim <= 1.6 MB\n", "private memory, 20 idle clients, 180 settings",
                rig.Daemon().PrivateMegabytes());
    std::printf("%-52s  %9.2f /s    aim 3 /s\n", "wake-ups of all threads, idle", wakeUps);
}

// ---------------------------------------------------------------- pushes

constexpr size_t kPushLength = 1344;
constexpr int kPushSettings = 60;
constexpr int kPushStatuses = 60;
constexpr int kCatalogueOptions = 37;

// One member of each id, with values that differ between variants.
std::string Members(const std::vector<int>& ids, int variant) {
    const std::set<int> wide = {30, 32, 60, 61, 62, 65, 66, 67, 127, 141, 168};
    std::string text;
    for (const int id : ids) {
        const int option = (id * 5 + variant * 11) % kCatalogueOptions;
        text += (text.empty() ? "\"" : ", \"") + std::to_string(id) +
                "\": " + std::to_string(wide.contains(id) ? option * 1000 : option);
    }
    return text;
}

std::string PushText(int variant) {
    std::vector<int> settings(kPushSettings);
    std::generate(settings.begin(), settings.end(), [id = 0]() mutable { return ++id; });
    std::vector<int> statuses;
    for (int id = 8; statuses.size() < kPushStatuses && id < SettingsStatusMapping::kStatusTableSize; ++id) {
        if (kzStatusWidth(58, id) == eValueWidth1Byte || kzStatusWidth(58, id) == eValueWidth4Bytes) {
            statuses.push_back(id);
        }
    }
    std::string text =
        "{\"settings\": {" + Members(settings, variant) + "}, \"status\": {" + Members(statuses, variant) + "}";
    text.resize(kPushLength - 1, ' ');
    return text + '}';
}

Bytes PushMessage(const std::string& text) {
    e2e::TlvMessage message;
    message.category = CAT_KZCONTROL_EVENT;
    message.elements = {{e2e::kTlvResponse, e2e::textBytes(text)}};
    return message.encode();
}

constexpr long kPushesAtOnce = 10;  // what the queue of the control daemon's events holds
constexpr long kAnswersAtOnce = kPushesAtOnce * kClients;

// Processor time of `process` for each of the pushes that wait for it when it goes on. Nobody reads meanwhile: a reader
// that each packet wakes up would take turns with it on one processor.
double TimePerPush(Process& process, const Queue& to, const Queue& from, const Bytes (&messages)[2]) {
    process.Stop();
    for (long i = 0; i < kPushesAtOnce; ++i) {
        const Bytes& message = messages[i % 2];
        mq_send(to.descriptor(), reinterpret_cast<const char*>(message.data()), message.size(), 0);
    }
    const nanoseconds before = process.CpuTime();
    process.Continue();
    while (from.waiting() < kAnswersAtOnce) {
        std::this_thread::sleep_for(std::chrono::microseconds(20));
    }
    process.Stop();
    const nanoseconds used = process.CpuTime() - before;
    process.Continue();
    char record[kBleRecordSize];
    for (long i = 0; i < kAnswersAtOnce; ++i) {
        mq_receive(from.descriptor(), record, sizeof(record), nullptr);
    }
    return static_cast<double>(used.count()) / kPushesAtOnce;
}

void MeasurePush() {
    roads::WriteCatalogue("--settings 60 --filters 300");
    Rig rig(kRadioDepth, kAnswersAtOnce);
    rig.StartDaemon();
    rig.SetLogLevel(kQuiet);
    for (uint32_t connection = 1; connection <= kClients; ++connection) {
        rig.Connect(connection);
        rig.Send(connection, KZ_STR_ID_QUERY, {2, 0x52, 2});
        rig.Settle();
    }
    const std::string texts[] = {PushText(0), PushText(1)};
    const Bytes messages[] = {PushMessage(texts[0]), PushMessage(texts[1])};
    const Queue events = Queue::openForSending("/to_kzBleD");

    const Queue floorEvents = Queue::create("/roads_events", 10, roads::kEventSize);
    const Queue floorAnswers = Queue::create(kFloorAnswers, kAnswersAtOnce, kBleRecordSize);
    Process floor = Process::Fork([&] {
        char message[roads::kEventSize];
        const char record[kBleRecordSize] = {};
        for (int turn = 0;; turn = 1 - turn) {
            mq_receive(floorEvents.descriptor(), message, sizeof(message), nullptr);
            cJSON_Delete(cJSON_Parse(texts[turn].c_str()));
            for (uint32_t i = 0; i < kClients; ++i) {
                mq_attr attributes;
                mq_getattr(floorAnswers.descriptor(), &attributes);
                mq_send(floorAnswers.descriptor(), record, sizeof(record), 0);
            }
        }
    });
    std::vector<double> ours;
    std::vector<double> floors;
    for (int round = 0; round < 101; ++round) {
        ours.push_back(TimePerPush(rig.Daemon(), events, rig.fromDaemon, messages));
        floors.push_back(TimePerPush(floor, floorEvents, floorAnswers, messages));
    }
    PrintRow("push of 120 values, one packet to each of 20 clients", Median(ours) / 1000, Median(floors) / 1000, "us",
             "<= 1.15x");
}

// ---------------------------------------------------------------- transfers

constexpr size_t kLongestFile = 65532;

std::string WriteTransferFile() {
    const std::string path = std::string(roads::kCatalogueDirectory) + "/settings.json.gz";
    std::ofstream(path, std::ios::binary) << std::string(kLongestFile, 'z');
    return path;
}

// Packets that wait once the daemon has been idle for a moment; 0 when it has not begun yet.
long BurstLength(const Rig& rig) {
    const long first = rig.fromDaemon.waiting();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    return first == rig.fromDaemon.waiting() ? first : 0;
}

// Reads the packets' bytes from the file and sends them, with nothing between.
double TimePerBarePacket(const Queue& queue, const std::string& path, long packets) {
    const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    char record[kBleRecordSize] = {};
    const nanoseconds before = ThreadTime();
    for (long i = 0; i < packets; ++i) {
        [[maybe_unused]] const ssize_t length = read(file, record + offsetof(ble_message_t, data) + 1, 19);
        mq_send(queue.descriptor(), record, sizeof(record), 0);
    }
    const nanoseconds time = ThreadTime() - before;
    close(file);
    return static_cast<double>(time.count()) / static_cast<double>(packets);
}

void MeasureTransfer() {
    const std::string path = WriteTransferFile();
    Rig rig(kRadioDepth, kDeepQueue);
    rig.StartDaemon();
    rig.Connect(1);
    rig.SetLogLevel(kQuiet);
    rig.Settle();
    std::vector<double> ours;
    std::vector<double> floors;
    for (int transfer = 0; transfer < 4; ++transfer) {
        nanoseconds before = rig.Daemon().CpuTime();
        rig.Send(1, KZ_STR_ID_COMMAND, {1, 0x3B});
        size_t received = 0;
        while (received < kLongestFile) {
            const long packets = BurstLength(rig);
            if (packets == 0) {
                continue;
            }
            const nanoseconds time = rig.Daemon().CpuTime() - before;
            for (long i = 0; i < packets; ++i) {
                received += rig.Receive().dataLength - 1u;
            }
            if (packets < 100) {  // the end of a file is too short a burst
                continue;
            }
            ours.push_back(static_cast<double>(time.count()) / static_cast<double>(packets));
            floors.push_back(TimePerBarePacket(rig.fromDaemon, path, packets));
            rig.Drain();
            before = rig.Daemon().CpuTime();
        }
    }
    PrintRow("packet of a settings.json transfer", Median(ours), Median(floors), "ns", "<= 1.3x");
}

void MeasureImageCheck() {
    std::vector<uint8_t> image(300000);
    std::generate(image.begin(), image.end(), [state = 1u]() mutable {
        return static_cast<uint8_t>((state = state * 1103515245u + 12345u) >> 16);
    });
    const auto length = static_cast<uint32_t>(image.size());
    uint32_t ours = 0;
    unsigned long floor = 0;
    RoadTable table;
    const RoadTable::Row row = table.Measure(
        "image", 20, 0,
        [&] {
            ours = Utils::crc32(image.data(), length);
            KeepAlive(ours);
        },
        [&] {
            floor = crc32(0, image.data(), length);
            KeepAlive(floor);
        });
    PrintRow("checksum of a 300 KB firmware image", row.ours / 1000, row.floor / 1000, "us", "zlib");
}

}  // namespace

int main(int argc, char** argv) {
    e2e::enterWorld(argv);
    const std::set<std::string> asked(argv + 1, argv + argc);
    const auto wanted = [&](const char* row) { return asked.empty() || asked.contains(row); };

    roads::WriteCatalogue("");
    WriteTransferFile();
    Process camera = roads::StartCamera();
    std::printf("%-52s  %9s       %9s       %6s   aim\n", "row", "ours", "floor", "ratio");
    const std::pair<const char*, std::function<void()>> rows[] = {
        {"query", [&] { MeasureQuery(camera); }},
        {"command", [&] { MeasureCommand(camera); }},
        {"shed", MeasureShedding},
        {"start", MeasureStart},
        {"idle", MeasureIdle},
        {"push", MeasurePush},
        {"transfer", MeasureTransfer},
        {"image", MeasureImageCheck},
        {"allocations", [] { roads::MeasureAllocations(kQuiet); }},
    };
    for (const auto& [name, measure] : rows) {
        if (!wanted(name)) {
            continue;
        }
        try {
            measure();
        } catch (const std::exception& error) {
            std::fprintf(stderr, "%s: %s\n", name, error.what());
        }
    }
    return 0;
}
