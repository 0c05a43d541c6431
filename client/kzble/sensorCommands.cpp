// Being a sensor: registering streams and keys, sending samples; and reading what the camera recorded of them.
#include <chrono>
#include <cmath>
#include <iostream>
#include <thread>

#include "kzmfDump.h"
#include "session.h"
#include "skylark/bleMessage.h"

namespace kzble {

namespace {

enum SensorCommand : uint8_t {
    kWriteSample = 1,
    kRegisterDevice = 2,
    kRegisterKey = 3,
};

struct Sensor {
    std::string name = "HeartStrap";
    std::vector<std::string> keys{"HRAT"};
    double rate = 4;
    int samples = 40;
    bool fast = false;
};

void expectSuccess(const std::string& what, const Bytes& answer) {
    const uint8_t result = answer.size() < 2 ? 1 : answer[1];
    if (result != 0) {
        throw kzclient::Refused(what + " was refused: " + kzclient::describeResult(result), result);
    }
}

// A plausible heart rate: beats a minute that breathe around 72.
uint16_t sampleOf(int index, size_t key) {
    constexpr double kMean = 72;
    constexpr double kSwing = 8;
    return static_cast<uint16_t>(kMean + kSwing * std::sin(index / 5.0) + static_cast<double>(key));
}

void registerSensor(kzclient::BleClient& client, const Sensor& sensor) {
    Bytes device{kRegisterDevice, static_cast<uint8_t>(sensor.keys.size())};
    device.insert(device.end(), sensor.name.begin(), sensor.name.end());
    expectSuccess("the device", client.request(KZ_STR_ID_SENSOR, device));
    for (size_t i = 0; i < sensor.keys.size(); ++i) {
        const auto index = static_cast<uint8_t>(i);
        Bytes key{kRegisterKey};
        key.insert(key.end(), sensor.keys[i].begin(), sensor.keys[i].end());
        // One stream a key; unsigned 16-bit samples, one a message, in little-endian order.
        key.insert(key.end(), {index, index, 'S', 2, 1, 0});
        expectSuccess("key " + sensor.keys[i], client.request(KZ_STR_ID_SENSOR, key));
    }
}

void stream(Session& session, const Sensor& sensor) {
    if (sensor.keys.empty() || sensor.keys.size() > 3) {
        throw Error("a sensor has 1 to 3 keys");
    }
    for (const auto& key : sensor.keys) {
        if (key.size() != 4) {
            throw Error("a key has four characters, not \"" + key + "\"");
        }
    }
    const auto client = session.connectAs(KZ_CALLER_BLE_SENSOR, true);
    registerSensor(*client, sensor);
    const auto pause = std::chrono::duration<double>(sensor.fast ? 0.001 : 1.0 / sensor.rate);
    for (int i = 0; i < sensor.samples; ++i) {
        for (size_t key = 0; key < sensor.keys.size(); ++key) {
            const uint16_t value = sampleOf(i, key);
            client->send(KZ_STR_ID_SENSOR, Bytes{kWriteSample, static_cast<uint8_t>(key), static_cast<uint8_t>(value),
                                                 static_cast<uint8_t>(value >> 8)});
        }
        // A refused sample is answered; a stored one is not.
        if (const auto message =
                client->receive(std::chrono::steady_clock::now() +
                                std::chrono::duration_cast<std::chrono::steady_clock::duration>(pause))) {
            expectSuccess("a sample", message->bytes);
        }
    }
    const size_t sent = static_cast<size_t>(sensor.samples) * sensor.keys.size();
    session.print(
        {{"device", sensor.name}, {"streams", sensor.keys.size()}, {"samples", sent}},
        sensor.name + ": " + std::to_string(sent) + " samples on " + std::to_string(sensor.keys.size()) + " stream(s)");
}

struct Recording {
    std::string path;
    bool csv = false;
};

void dump(const Session& session, const Recording& recording) {
    const KzmfForm form = recording.csv ? KzmfForm::kCsv : session.options.json ? KzmfForm::kJson : KzmfForm::kTree;
    if (DumpKzmfFile(recording.path, form, std::cout, std::cerr) != 0) {
        throw Error(recording.path + " is not a whole recording");
    }
}

void addRecording(CLI::App& app, Session& session) {
    auto recording = std::make_shared<Recording>();
    CLI::App* command = addCommand(app, "kzmf", "Print recorded sensor metadata as a tree",
                                   [&session, recording] { dump(session, *recording); });
    command->add_option("file", recording->path, "File of recorded payloads")->required()->check(CLI::ExistingFile);
    command->add_flag("--csv", recording->csv, "One row a sample, for plotting tools");
}

}  // namespace

void addSensorCommands(CLI::App& app, Session& session) {
    auto sensor = std::make_shared<Sensor>();
    CLI::App* command = addCommand(app, "sensor", "Be a sensor and stream samples into the camera's metadata",
                                   [&session, sensor] { stream(session, *sensor); });
    command->add_option("--name", sensor->name, "Device name, 3 to 17 characters")->capture_default_str();
    command->add_option("--key", sensor->keys, "Four-character keys, one stream each, 1 to 3")->capture_default_str();
    command->add_option("--rate", sensor->rate, "Samples a second and key")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    command->add_option("--samples", sensor->samples, "Samples a key")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    command->add_flag("--fast", sensor->fast, "Do not wait between samples: simulated time");
    addRecording(app, session);
}

}  // namespace kzble
