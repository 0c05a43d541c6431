// A soak: 20 clients ask the real daemon on the simulated camera for everything that there is, as fast as it answers,
// while parts of the camera go, come and hang. Every answer and push is compared with what it must be. To be run by
// scripts/soak.
//
// usage: soak [SECONDS] [SEED] [FILE], which keeps the daemon's log
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <thread>

#include "skylark/bleMessage.h"
#include "soakClient.h"
#include "soakFaults.h"

namespace soak {
namespace {

using std::chrono::seconds;

constexpr size_t kPhones = 16;
constexpr size_t kSensors = 2;
constexpr seconds kWarmUp{8};     // with no faults, until the memory is what it will be
constexpr seconds kSettling{16};  // until the last fault is over and every push has come
constexpr seconds kRestPatience{60};
constexpr seconds kToldEvery{30};
constexpr long kMostGrowthKb = 512;

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::unique_ptr<Client>> makeClients(World& world) {
    std::vector<std::unique_ptr<Client>> clients;
    for (size_t i = 0; i < kPhones; ++i) {
        clients.push_back(makePhone(world, i));
    }
    for (size_t i = 0; i < kSensors; ++i) {
        clients.push_back(makeSensor(world, clients.size()));
    }
    for (const Way way : {Way::Stream, Way::Blocks}) {
        clients.push_back(makeAccessory(world, clients.size(), way));
    }
    return clients;
}

// Everything that works at the same time; ended and joined with the object.
class Threads {
  public:
    explicit Threads(World& world) : m_world(world), m_clients(makeClients(world)) {
        for (const auto& client : m_clients) {
            m_threads.emplace_back([&client] { client->run(); });
        }
        m_threads.emplace_back([&world] { causeFaults(world); });
        m_threads.emplace_back([&world] { changeCamera(world); });
    }
    ~Threads() {
        m_world.stage.change(Stage::Scene::Over);
        for (std::thread& thread : m_threads) {
            thread.join();
        }
    }
    unsigned clients() const { return static_cast<unsigned>(m_clients.size()); }

  private:
    World& m_world;
    std::vector<std::unique_ptr<Client>> m_clients;
    std::vector<std::thread> m_threads;
};

// The daemon asks for the camera's values when its first client comes.
void awaitValues() {
    constexpr std::chrono::milliseconds kTimeout{1000};
    kzclient::BleClient first("", {{}, KZ_CALLER_BLE_RC, false}, kTimeout);
    first.enableNotifications();
    constexpr uint8_t kSettings = 0x12;
    for (int i = 0; i < 20 && first.query(kSettings, {}).entries.size() < 40; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

// The clients work for that time; false when the daemon did not live that long.
bool work(World& world, seconds duration) {
    world.stage.change(Stage::Scene::Working);
    const auto began = Clock::now();
    auto told = began;
    while (Clock::now() < began + duration) {
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
        if (Clock::now() > told + kToldEvery) {
            told = Clock::now();
            std::printf("%6lld s: %llu requests, %llu faults, memory %ld KiB, %llu log lines\n",
                        static_cast<long long>(std::chrono::duration_cast<seconds>(told - began).count()),
                        static_cast<unsigned long long>(world.tally.requests),
                        static_cast<unsigned long long>(world.tally.faults), world.camera.footprint().residentKb,
                        static_cast<unsigned long long>(world.camera.logLines()));
            std::fflush(stdout);
        }
        if (!world.camera.daemonRuns()) {
            world.tally.lost("the daemon has ended");
            return false;
        }
    }
    return true;
}

// All clients stay connected and still, for that time; what the daemon takes then.
Footprint rest(World& world, unsigned clients, seconds duration) {
    world.stage.change(Stage::Scene::Resting);
    if (!world.stage.awaitRest(clients, kRestPatience)) {
        world.tally.lost("a client that does not come to rest");
    }
    std::this_thread::sleep_for(duration);
    return world.camera.footprint();
}

// What the camera itself has seen of the daemon.
void askCamera(World& world) {
    const auto state = nlohmann::json::parse(world.camera.command({"state"}));
    if (state["metadata"]["malformed"] != 0) {
        world.tally.wrong("records of samples that are no KZMF: " + state["metadata"].dump());
    }
    if (state["control"]["listeners"].size() != 1) {
        world.tally.lost("the registration for changes: " + state["control"]["listeners"].dump());
    }
    if (state["network"]["subscribers"].size() != 1) {
        world.tally.lost("the subscription to the states: " + state["network"]["subscribers"].dump());
    }
}

void compare(Tally& tally, const Footprint& before, const Footprint& after) {
    if (after.residentKb > before.residentKb + kMostGrowthKb) {
        tally.grown("memory by " + std::to_string(after.residentKb - before.residentKb) + " KiB");
    }
    if (after.descriptors > before.descriptors) {
        tally.grown("descriptors by " + std::to_string(after.descriptors - before.descriptors));
    }
}

void print(const World& world, const Footprint& before, const Footprint& after, double duration) {
    const Tally& tally = world.tally;
    const auto row = [](const char* name, uint64_t value, const char* more) {
        std::printf("%-20s %12llu  %s\n", name, static_cast<unsigned long long>(value), more);
    };
    std::printf("\n");
    row("requests", tally.requests,
        (std::to_string(static_cast<long>(static_cast<double>(tally.requests) / duration)) + " a second").c_str());
    row("wrong", tally.wrongCount(), "");
    row("lost", tally.lostCount(), "");
    row("late", tally.late, "answered after more than a second, without a fault");
    row("failed", tally.failures, "answered with the failure that a fault calls for");
    row("cut", tally.cut, "the connection ended first");
    row("pushes expected", tally.pushesExpected, "");
    row("pushes received", tally.pushesReceived, "changes that follow each other at once are pushed as one");
    row("samples", tally.samples, "");
    row("catalogues", tally.catalogues, "");
    row("firmware images", tally.firmware, "");
    row("connections", tally.connections, "");
    row("faults", tally.faults, "");
    std::printf("%-20s %12ld  KiB, before %ld\n", "memory", after.residentKb, before.residentKb);
    std::printf("%-20s %12ld  before %ld\n", "descriptors", after.descriptors, before.descriptors);
    row("log lines", world.camera.logLines(), "");
}

void soak(World& world, seconds duration) {
    Footprint before;
    Footprint after;
    awaitValues();
    const auto began = Clock::now();
    bool lives = true;
    {
        const Threads threads(world);
        lives = work(world, kWarmUp);
        before = lives ? rest(world, threads.clients(), seconds(2)) : before;
        world.faultsWanted = true;
        lives = lives && work(world, duration);
        after = lives ? rest(world, threads.clients(), kSettling) : after;
        askCamera(world);
    }
    compare(world.tally, before, after);
    if (lives) {
        if (const int status = world.camera.stopDaemon(); status != 0) {
            world.tally.wrong("the daemon stops with " + std::to_string(status));
        }
    }
    print(world, before, after, std::chrono::duration<double>(Clock::now() - began).count());
    if (!world.tally.clean()) {
        std::printf("\nthe daemon's last lines:\n%s", world.camera.lastLogLines().c_str());
    }
}

}  // namespace

}  // namespace soak

int main(int argc, char** argv) {
    const long duration = argc > 1 ? std::atol(argv[1]) : 60;
    const uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1;
    const std::string models = "/usr/local/zorvik/etc/58/";
    try {
        soak::World world(seed, argc > 3 ? argv[3] : "");
        world.catalogue = kzclient::Catalogue::load(models + "settings.json");
        const std::string file = soak::readFile(models + "settings.json.gz");
        world.catalogueFile.assign(file.begin(), file.end());
        std::printf("%ld seconds with seed %llu\n", duration, static_cast<unsigned long long>(seed));
        std::fflush(stdout);
        soak::soak(world, std::chrono::seconds(duration));
        return world.tally.clean() ? 0 : 1;
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "soak: %s\n", problem.what());
        return 2;
    }
}
