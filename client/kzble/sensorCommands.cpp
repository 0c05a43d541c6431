// Being a sensor: registering streams and keys, sending samples; and reading what the camera recorded of them.
#include <algorithm>
#include <bit>
#include <charconv>
#include <chrono>
#include <cmath>
#include <iostream>
#include <limits>
#include <sstream>

#include "commands.h"
#include "kzmfDump.h"
#include "messageText.h"
#include "nearest.h"
#include "skylark/bleMessage.h"

namespace kzble {

namespace {

using std::chrono::steady_clock;

enum SensorCommand : uint8_t {
    kWriteSample = 1,
    kRegisterDevice = 2,
    kRegisterKey = 3,
};

constexpr size_t kMostKeys = 3;  // each has a stream of its own
constexpr size_t kKeyLength = 4;
constexpr uint8_t kSticky = 1;       // a value that stands in every payload
constexpr size_t kLongestText = 35;  // data bytes of one sample message

// A type of samples: its letter, width, and range.
struct Type {
    char letter;
    uint8_t width;
    double least;
    double most;
};

template <typename Number>
constexpr Type integers(char letter) {
    return {letter, sizeof(Number), static_cast<double>(std::numeric_limits<Number>::min()),
            static_cast<double>(std::numeric_limits<Number>::max())};
}

constexpr Type kTypes[] = {
    integers<int8_t>('b'),
    integers<uint8_t>('B'),
    integers<int16_t>('s'),
    integers<uint16_t>('S'),
    integers<int32_t>('l'),
    integers<uint32_t>('L'),
    {'f', 4, std::numeric_limits<float>::lowest(), std::numeric_limits<float>::max()},
    {'d', 8, std::numeric_limits<double>::lowest(), std::numeric_limits<double>::max()},
};

struct Sensor {
    std::string name = "HeartStrap";
    std::vector<std::string> keys{"HRAT"};
    std::vector<std::string> types{"S"};
    std::vector<uint32_t> scales;
    std::vector<std::string> units;
    double rate = 4;
    uint32_t samples = 40;
    bool fast = false;
    bool fromInput = false;
};

// One stream of a sensor.
struct Key {
    std::string name;
    Type type{};
    uint32_t scale = 1;
    std::string unit;
};

void expectSuccess(const std::string& what, const Bytes& answer) {
    const uint8_t result = answer.size() < 2 ? 1 : answer[1];
    if (result != 0) {
        throw Refused(what + ": " + kzclient::resultText(KZ_STR_ID_SENSOR_RESPONSE, result), result);
    }
}

// The value of one key: given once for all keys, or once for each.
template <typename Value>
Value ofKey(const std::vector<Value>& given, size_t key, size_t keys, const char* option, const Value& otherwise) {
    if (given.size() > 1 && given.size() != keys) {
        throw WrongUse(std::string(option) + " is given once, or once for each key");
    }
    return given.empty() ? otherwise : given.size() == 1 ? given[0] : given[key];
}

const Type& parseType(const std::string& letter) {
    const auto* row = std::find_if(std::begin(kTypes), std::end(kTypes),
                                   [&](const Type& type) { return letter == std::string(1, type.letter); });
    if (row == std::end(kTypes)) {
        throw WrongUse("samples have no type \"" + letter + "\"; take b, B, s, S, l, L, f or d");
    }
    return *row;
}

bool isKey(const std::string& text) {
    constexpr std::string_view kCharacters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 ";
    return text.size() == kKeyLength && text.find_first_not_of(kCharacters) == std::string::npos;
}

std::vector<Key> parseKeys(const Sensor& sensor) {
    const size_t count = sensor.keys.size();
    if (count == 0 || count > kMostKeys) {
        throw WrongUse("a sensor has 1 to 3 keys");
    }
    std::vector<Key> keys;
    for (size_t i = 0; i < count; ++i) {
        if (!isKey(sensor.keys[i])) {
            throw WrongUse("a key has four letters, digits or blanks, unlike \"" + sensor.keys[i] + "\"");
        }
        Key key{sensor.keys[i], parseType(ofKey(sensor.types, i, count, "--type", std::string("S"))),
                ofKey(sensor.scales, i, count, "--scale", 1U), ofKey(sensor.units, i, count, "--unit", std::string())};
        if (key.unit.size() > kLongestText) {
            throw WrongUse("a unit has at most 35 characters");
        }
        keys.push_back(std::move(key));
    }
    return keys;
}

// The number as the sample's bytes, little-endian.
Bytes encode(const Type& type, double value) {
    uint64_t bits = 0;
    if (type.letter == 'f') {
        bits = std::bit_cast<uint32_t>(static_cast<float>(value));
    } else if (type.letter == 'd') {
        bits = std::bit_cast<uint64_t>(value);
    } else {
        bits = static_cast<uint64_t>(std::llround(value));
    }
    Bytes bytes = number(bits, type.width);
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

// Whether an integer stores the value whole, but for what a multiplication of fractions leaves behind.
bool isWhole(double value) {
    constexpr double kNearlyNothing = 1e-9;
    return std::abs(value - std::round(value)) <= kNearlyNothing * std::max(1.0, std::abs(value));
}

Bytes sampleOf(const Key& key, double value) {
    const double stored = value * key.scale;
    const bool isInteger = key.type.letter != 'f' && key.type.letter != 'd';
    const char* problem = std::round(stored) < key.type.least || std::round(stored) > key.type.most ? "does not fit"
                          : isInteger && !isWhole(stored) ? "has a fraction, unlike"
                                                          : nullptr;
    if (problem != nullptr) {
        std::ostringstream text;
        text << "the sample " << value << ' ' << problem << " type " << key.type.letter << " of " << key.name
             << " (see --type and --scale)";
        throw WrongUse(text.str());
    }
    return encode(key.type, stored);
}

// A connected sensor: registered, with samples to be sent.
class Strap {
  public:
    Strap(Session& session, const Sensor& sensor, std::vector<Key> keys)
        : m_keys(std::move(keys)), m_client(session.connectAs(KZ_CALLER_BLE_SENSOR, true)) {
        Bytes device{kRegisterDevice, static_cast<uint8_t>(m_keys.size())};
        device.insert(device.end(), sensor.name.begin(), sensor.name.end());
        expectSuccess("the device", m_client->request(KZ_STR_ID_SENSOR, device));
        for (size_t i = 0; i < m_keys.size(); ++i) {
            addKey(static_cast<uint8_t>(i));
        }
    }

    // Sends one sample of every key, and waits for `pause`. A refused sample is answered; a stored one is not.
    void send(const std::vector<double>& values, steady_clock::duration pause) {
        for (size_t i = 0; i < m_keys.size(); ++i) {
            write(static_cast<uint8_t>(i), sampleOf(m_keys[i], values[i]));
        }
        m_client->link().daemon().expectSame();
        m_sent += m_keys.size();
        m_next = std::max(m_next, steady_clock::now()) + pause;
        while (const auto message = m_client->receive(m_next)) {
            if (!message->bytes.empty() && message->bytes[0] == kWriteSample) {
                expectSuccess("a sample", message->bytes);
            }
        }
    }
    // Throws NoCamera when the daemon has not read all that was sent.
    void finish() { m_client->expectDaemon(); }
    size_t sent() const { return m_sent; }

  private:
    // The key's stream gets its scale and unit first, where they are given; they stand in every payload.
    void addKey(uint8_t stream) {
        const Key& key = m_keys[stream];
        registerKey(key.name, stream, stream, key.type.letter, key.type.width, 0);
        if (key.scale != 1) {
            addConstant("SCAL", stream, 'L', encode(parseType("L"), key.scale));
        }
        if (!key.unit.empty()) {
            addConstant("UNIT", stream, 'c', {key.unit.begin(), key.unit.end()});
        }
    }

    void addConstant(const std::string& name, uint8_t stream, char type, const Bytes& value) {
        registerKey(name, m_nextKey, stream, type, static_cast<uint8_t>(value.size()), kSticky);
        write(m_nextKey, value);
        ++m_nextKey;
    }

    // A sample holds one value of `size` bytes.
    void registerKey(const std::string& name, uint8_t index, uint8_t stream, char type, uint8_t size, uint8_t flags) {
        Bytes message{kRegisterKey};
        message.insert(message.end(), name.begin(), name.end());
        message.insert(message.end(), {index, stream, static_cast<uint8_t>(type), size, 1, flags});
        expectSuccess("key " + name, m_client->request(KZ_STR_ID_SENSOR, message));
    }

    void write(uint8_t index, const Bytes& value) {
        Bytes message{kWriteSample, index};
        message.insert(message.end(), value.begin(), value.end());
        m_client->send(KZ_STR_ID_SENSOR, message);
    }

    std::vector<Key> m_keys;
    std::unique_ptr<kzclient::BleClient> m_client;
    uint8_t m_nextKey = kMostKeys;
    size_t m_sent = 0;
    steady_clock::time_point m_next = steady_clock::now();
};

// A plausible heart rate: beats a minute that breathe around 72.
std::vector<double> heartRate(uint32_t index, size_t keys) {
    constexpr double kMean = 72;
    constexpr double kSwing = 8;
    std::vector<double> values;
    for (size_t key = 0; key < keys; ++key) {
        values.push_back(std::floor(kMean + kSwing * std::sin(index / 5.0) + static_cast<double>(key)));
    }
    return values;
}

// One number for each key, apart by blanks, commas or semicolons.
std::vector<double> parseSamples(std::string line, size_t keys, size_t lineNumber) {
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c == ',' || c == ';' || c == '\t' || c == '\r'; }, ' ');
    std::istringstream words(line);
    std::vector<double> values;
    for (std::string word; words >> word;) {
        double value = 0;
        const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
        if (error != std::errc{} || end != word.data() + word.size() || !std::isfinite(value)) {
            throw WrongUse("line " + std::to_string(lineNumber) + ": \"" + word + "\" is not a number");
        }
        values.push_back(value);
    }
    if (!values.empty() && values.size() != keys) {
        throw WrongUse("line " + std::to_string(lineNumber) + " has " + std::to_string(values.size()) +
                       " numbers for " + std::to_string(keys) + " keys");
    }
    return values;
}

void stream(Session& session, const Sensor& sensor) {
    const std::vector<Key> keys = parseKeys(sensor);
    const auto pause = std::chrono::duration_cast<steady_clock::duration>(
        std::chrono::duration<double>(sensor.fast ? 0.001 : 1.0 / sensor.rate));
    Strap strap(session, sensor, keys);
    if (sensor.fromInput) {
        std::string line;
        for (size_t lineNumber = 1; std::getline(std::cin, line); ++lineNumber) {
            if (const auto values = parseSamples(line, keys.size(), lineNumber); !values.empty()) {
                strap.send(values, pause);
            }
        }
        kzclient::checkInterrupt();
    } else {
        for (uint32_t i = 0; i < sensor.samples; ++i) {
            strap.send(heartRate(i, keys.size()), pause);
        }
    }
    strap.finish();
    session.print({{"device", sensor.name}, {"streams", keys.size()}, {"samples", strap.sent()}},
                  sensor.name + ": " + std::to_string(strap.sent()) + " samples on " + std::to_string(keys.size()) +
                      " stream(s)");
}

void addRecording(const Place& place) {
    struct Recording {
        std::string path;
        bool csv = false;
    };
    auto recording = std::make_shared<Recording>();
    CLI::App* command = addCommand(place, {"kzmf", "Print recorded sensor metadata as a tree", "--csv metadata.kzmf"},
                                   [&session = place.session, recording] {
                                       const KzmfForm form = recording->csv         ? KzmfForm::kCsv
                                                             : session.options.json ? KzmfForm::kJson
                                                                                    : KzmfForm::kTree;
                                       std::ostringstream problem;
                                       if (DumpKzmfFile(recording->path, form, std::cout, problem) != 0) {
                                           std::string text = problem.str();
                                           throw Error(text.substr(0, text.find('\n')));
                                       }
                                   });
    command->add_option("file", recording->path, "File of recorded payloads")->required();
    command->add_flag("--csv", recording->csv, "One row a sample, for plotting tools");
}

}  // namespace

void addSensorCommands(const Place& place) {
    auto sensor = std::make_shared<Sensor>();
    CLI::App* command = addCommand(
        place, {"sensor", "Be a sensor and stream samples into the camera's metadata", "--samples 8 --unit bpm"},
        [&session = place.session, sensor] { stream(session, *sensor); });
    command->add_option("--name", sensor->name, "Device name, 3 to 17 characters")->capture_default_str();
    command->add_option("--key", sensor->keys, "Four-character keys, one stream each, 1 to 3")->capture_default_str();
    command
        ->add_option("--type", sensor->types,
                     "Type of the samples, one for all keys or one for each: b, B, s, S, l, L integers of 8, 16, 32 "
                     "bits (capitals without a sign), f, d floating")
        ->capture_default_str();
    command->add_option("--scale", sensor->scales, "Samples are stored multiplied by it, as the record SCAL says")
        ->check(CLI::Range(int64_t{1}, int64_t{UINT32_MAX}).description(""));
    command->add_option("--unit", sensor->units, "Unit of the samples, as the record UNIT says");
    addDecimal(*command, "--rate", sensor->rate, "Samples a second and key", 0.001, 10000)->capture_default_str();
    addNumber(*command, "--samples", sensor->samples, "Samples a key", 1, 10000000)->capture_default_str();
    command->add_flag("--fast", sensor->fast, "Do not wait between samples: simulated time");
    command->add_flag("--stdin", sensor->fromInput, "Read samples from standard input, a line with one for each key");
    addRecording(place);
}

}  // namespace kzble
