#include "soakFaults.h"

#include <thread>

namespace soak {
namespace {

using std::chrono::milliseconds;

void rest(Random& random, unsigned shortestMs, unsigned longestMs) {
    std::this_thread::sleep_for(milliseconds(shortestMs + below(random, longestMs - shortestMs)));
}

struct PartRow {
    Part part;
    const char* name;
};
constexpr PartRow kParts[] = {{kRadio, "radio"}, {kControl, "control"}, {kNetwork, "network"}, {kMetadata, "metadata"}};

// A console command that disturbs a part, and the one that mends it. "PART" stands for the part's name.
struct FaultRow {
    std::vector<std::string> begin;
    std::vector<std::string> end;
    unsigned shortestMs;
    unsigned longestMs;
    bool radioOnly = false;
    bool hangs = false;
    bool endsConnections = false;
};
const FaultRow kFaults[] = {
    {.begin = {"part", "PART", "kill"},
     .end = {"part", "PART", "start"},
     .shortestMs = 10,
     .longestMs = 3000,
     .endsConnections = true},
    {.begin = {"part", "PART", "hang"},
     .end = {"part", "PART", "go"},
     .shortestMs = 500,
     .longestMs = 5000,
     .hangs = true},
    {.begin = {"radio", "slow", "400"},
     .end = {"radio", "slow", "0"},
     .shortestMs = 500,
     .longestMs = 2000,
     .radioOnly = true},
    {.begin = {"radio", "drop"},
     .end = {"radio", "go"},
     .shortestMs = 1,
     .longestMs = 10,
     .radioOnly = true,
     .endsConnections = true},
    {.begin = {"radio", "drop", "25"},
     .end = {"radio", "go"},
     .shortestMs = 1,
     .longestMs = 10,
     .radioOnly = true,
     .endsConnections = true},
};

std::vector<std::string> commandFor(std::vector<std::string> words, const PartRow& part) {
    for (std::string& word : words) {
        word = word == "PART" ? part.name : word;
    }
    return words;
}

// A fault that is being chosen or goes on.
struct Fault {
    const FaultRow* row;
    const PartRow* part;
};

// Each part is as likely as the others.
Fault anyFault(Random& random) {
    const PartRow& part = anyOf(random, kParts);
    std::vector<const FaultRow*> rows;
    for (const FaultRow& row : kFaults) {
        if (!row.radioOnly || part.part == kRadio) {
            rows.push_back(&row);
        }
    }
    return {anyOf(random, rows), &part};
}

// Whether both may happen at once. Clients that all come back while the daemon waits for a part that hangs would put
// more before it than it takes: it drops packets when more than 90 wait.
bool goTogether(const Fault& one, const Fault& other) {
    const auto crowd = [](const Fault& fault) { return fault.part->part == kRadio && fault.row->endsConnections; };
    const bool tooMuch = (crowd(one) && other.row->hangs) || (crowd(other) && one.row->hangs);
    return one.part != other.part && !tooMuch;
}

// One fault, or two of different parts at the same time.
void disturb(World& world, Random& random) {
    std::vector<Fault> faults{anyFault(random)};
    if (const Fault second = anyFault(random); chance(random, 25) && goTogether(faults[0], second)) {
        faults.push_back(second);
    }
    for (const Fault& fault : faults) {
        ++world.tally.faults;
        world.weather.begin(fault.part->part);
        world.camera.command(commandFor(fault.row->begin, *fault.part));
        world.camera.note(std::string("fault: ") + fault.part->name + ' ' + fault.row->begin.back());
    }
    for (const Fault& fault : faults) {
        rest(random, fault.row->shortestMs, fault.row->longestMs);
        world.camera.command(commandFor(fault.row->end, *fault.part));
        world.camera.note(std::string("mended: ") + fault.part->name);
        world.weather.end(fault.part->part);
    }
}

bool faultsAreDue(const World& world) {
    return world.stage.scene() == Stage::Scene::Working && world.faultsWanted;
}

// Some seconds after the last fault nothing is changed any more, until every phone must have been told of the last
// values: while faults and changes follow each other, a later one may mend what an earlier one broke.
void beQuiet(World& world) {
    constexpr milliseconds kCalm = kRecovery + milliseconds(2000);
    constexpr milliseconds kQuiet{9000};
    std::this_thread::sleep_for(kCalm);
    world.quiet = true;
    std::this_thread::sleep_for(faultsAreDue(world) ? kQuiet : milliseconds(0));
    world.quiet = false;
}

}  // namespace

void causeFaults(World& world) {
    constexpr unsigned kPercentQuiet = 25;
    Random random = world.random(1000);
    while (!world.stage.over()) {
        if (!faultsAreDue(world)) {
            std::this_thread::sleep_for(milliseconds(100));
            continue;
        }
        rest(random, 1000, 6000);
        if (!faultsAreDue(world)) {
            continue;
        }
        if (chance(random, kPercentQuiet)) {
            beQuiet(world);
            continue;
        }
        try {
            disturb(world, random);
        } catch (const std::exception& problem) {
            world.tally.wrong(std::string("the camera: ") + problem.what());
        }
    }
}

// ---------------------------------------------------------------- changes

namespace {

void changeStatus(World& world, Random& random, Cell& cell) {
    const uint64_t number = isTextStatus(cell.id()) ? 0 : below(random, 200);
    const std::string text = isTextStatus(cell.id()) ? std::string(1 + below(random, 30), 'x') : std::to_string(number);
    cell.changing(isTextStatus(cell.id()) ? Bytes(text.begin(), text.end()) : statusValue(cell.id(), number));
    world.camera.command({"status", std::to_string(cell.id()), text});
    cell.changed(Outcome::Sure);
}

struct FeatureRow {
    Feature feature;
    std::vector<std::string> command;
    uint32_t limit;
};
const FeatureRow kFeatures[] = {
    {kStreamBitrate, {"live", "bitrate"}, 5000},
    {kUpdatePercent, {"ota", "percent"}, 100},
    {kUploadPermission, {"cah", "auth"}, 5},
};

void changeFeature(World& world, Random& random) {
    const FeatureRow& row = anyOf(random, kFeatures);
    const auto number = static_cast<uint32_t>(below(random, row.limit));
    Cell& cell = *world.board.find(Kind::Feature, row.feature);
    std::vector<std::string> command = row.command;
    command.push_back(std::to_string(number));
    cell.changing({0, 0, static_cast<uint8_t>(number >> 8), static_cast<uint8_t>(number)});
    world.camera.command(command);
    cell.changed(Outcome::Sure);
}

}  // namespace

void changeCamera(World& world) {
    Random random = world.random(1001);
    const auto statuses = world.board.all(Kind::Status);
    while (!world.stage.over()) {
        rest(random, 2, 60);
        if (world.stage.scene() != Stage::Scene::Working || world.quiet) {
            continue;
        }
        try {
            chance(random, 60) ? changeStatus(world, random, *anyOf(random, statuses)) : changeFeature(world, random);
        } catch (const std::exception& problem) {
            world.tally.wrong(std::string("the camera: ") + problem.what());
        }
    }
}

}  // namespace soak
