#include "examplePlayer.h"

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <stdexcept>

namespace e2e {
namespace {

constexpr uint32_t kClient = 1;
// Stays connected, so that clients come and go without a registration for pushes, and wants every push, so that no
// change waits for the next example. Its gates stay closed.
constexpr uint32_t kKeeper = 98;
constexpr uint8_t kPushStream = KZ_STR_ID_QUERY_RESPONSE;
constexpr uint8_t kGateEvent = KZBLE_SDK_EVENT_CCC;
constexpr uint8_t kCategoryBuffers = 10;
constexpr uint8_t kThirdParty = 13;
constexpr unsigned kLogEverything = 6;  // nothing is held back
constexpr std::chrono::milliseconds kAtOnce{0};
constexpr std::chrono::seconds kPatienceForOne{4};  // ticks come twice a second

const std::set<std::string> kExampleKeys = {
    "note",     "as",    "on",  "radio",  "before", "steps", "replies", "rejoin", "gate",    "ask",  "malformed",
    "reported", "write", "csi", "values", "show",   "calls", "answer",  "push",   "packets", "sets", "logs"};

// Whether a step does nothing, so that what it expects may have come on a tick during the step before.
bool onlyWaits(const Json& step) {
    const std::set<std::string> results = {"packets", "logs"};
    return std::all_of(step.items().begin(), step.items().end(),
                       [&](const auto& member) { return results.contains(member.key()); });
}

// An object inside `object`; an empty one when there is none.
const Json& member(const Json& object, const char* key) {
    static const Json nothing = Json::object();
    return object.contains(key) ? object.at(key) : nothing;
}

std::vector<std::string> texts(const Json& object, const char* key) {
    if (!object.contains(key)) {
        return {};
    }
    const Json& value = object.at(key);
    return value.is_array() ? value.get<std::vector<std::string>>() : std::vector<std::string>{value};
}

std::string joined(const std::vector<std::string>& lines, const char* separator) {
    std::string text;
    for (const std::string& line : lines) {
        text += (text.empty() ? "" : separator) + line;
    }
    return text;
}

void expect(const char* what, const std::string& expected, const std::string& actual) {
    if (expected != actual) {
        throw std::runtime_error(std::string(what) + "\n  expected: " + expected + "\n  actual:   " + actual);
    }
}

Bytes bytesOf(const std::string& hex) {
    return fromHex(expand(hex));
}

// "27: 01 02" is a stream or key and bytes.
std::pair<uint8_t, Bytes> numbered(const std::string& text) {
    const size_t colon = text.find(':');
    return {static_cast<uint8_t>(std::stoul(text)), bytesOf(text.substr(colon + 1))};
}

std::string numbered(uint8_t number, const Bytes& bytes) {
    return std::to_string(number) + ": " + toHex(bytes);
}

std::vector<Json> stepsOf(const Json& example) {
    return example.contains("steps") ? example.at("steps").get<std::vector<Json>>() : std::vector<Json>{example};
}

void checkKeys(const Json& example) {
    for (const auto& [key, value] : example.items()) {
        if (kExampleKeys.count(key) == 0) {
            throw std::runtime_error("an example has no key \"" + key + '"');
        }
    }
}

}  // namespace

const Json& protocol() {
    static const Json description = Json::parse(std::ifstream(KZ_PROTOCOL));
    return description;
}

std::string expand(const std::string& text) {
    std::istringstream words(text);
    std::string result;
    for (std::string word; words >> word;) {
        const size_t star = std::min(word.find('*'), word.size());
        size_t digits = 0;
        const unsigned long count = star == word.size() ? 1 : std::stoul(word.substr(star + 1), &digits);
        for (unsigned long i = 0; i < count; ++i) {
            result += (result.empty() ? "" : " ") + word.substr(0, star);
        }
        result += star == word.size() ? "" : word.substr(star + 1 + digits);
    }
    return result;
}

const Json& find(const Json& list, const char* key, const Json& value) {
    for (const Json& element : list) {
        if (element.contains(key) && element.at(key) == value) {
            return element;
        }
    }
    throw std::runtime_error(std::string("protocol.json has no ") + key + " " + value.dump());
}

ExamplePlayer::ExamplePlayer(Rig& rig) : m_rig(rig) {
    sets(kLogEverything)(m_rig);
    connects(kKeeper)(m_rig);
    for (const char* everything : {"52", "53", "62"}) {
        writes(kKeeper, kQuery, everything)(m_rig);
    }
    notify(protocol().at("camera").at("csi"));
    pushValues(protocol().at("camera").at("values"));
}

void ExamplePlayer::play(const Json& interface, const Json& row, const Json& example) {
    checkKeys(example);
    try {
        playSteps(interface, row, example);
    } catch (const std::exception&) {
        restore(example);
        throw;
    }
    restore(example);
}

void ExamplePlayer::playSteps(const Json& interface, const Json& row, const Json& example) {
    joins(kClient, example.value("as", kPhone))(m_rig);
    prepare(interface, member(example, "before"));
    for (const Json& step : stepsOf(example)) {
        checkKeys(step);
        const Json& on = step.contains("on") ? find(protocol().at("interfaces"), "name", step.at("on")) : interface;
        if (!onlyWaits(step)) {
            forget();
        }
        act(on, step);
        check(on, row, example, step);
    }
}

// ---------------------------------------------------------------- what happens

void ExamplePlayer::prepare(const Json& interface, const Json& before) {
    notify(member(before, "csi"));
    if (before.contains("values")) {
        pushValues(before.at("values"));
    }
    setReplies(member(before, "replies"));
    for (const auto& [path, content] : member(before, "files").items()) {
        writeFile(path, bytesOf(content));
    }
    for (const std::string& request : texts(before, "asked")) {
        writes(kClient, interface.at("request"), bytesOf(request))(m_rig);
    }
}

void ExamplePlayer::act(const Json& interface, const Json& step) {
    setReplies(member(step, "replies"));
    if (step.contains("rejoin")) {
        disconnects(kClient)(m_rig);
        joins(kClient, step.at("rejoin"))(m_rig);
        forget();
    }
    for (const std::string& gate : texts(step, "gate")) {
        const auto [descriptor, value] = numbered(gate);
        sends(eventRecord(kGateEvent, kClient, Bytes{descriptor} + value))(m_rig);
    }
    for (const std::string& request : texts(step, "ask")) {
        writes(kClient, interface.at("request"), bytesOf(request))(m_rig);
    }
    for (const std::string& text : texts(step, "write")) {
        const auto [stream, packet] = numbered(text);
        writesPacket(kClient, stream, packet)(m_rig);
    }
    notify(member(step, "csi"));
    if (step.contains("values")) {
        pushValues(step.at("values"));
    }
    for (const std::string& text : texts(step, "show")) {
        const Bytes data = bytesOf(text.substr(3));
        const TlvMessage message{kCategoryBuffers, {{kTlvCommand, textBytes(text.substr(0, 2))}, {kTlvArgument, data}}};
        tells(kCsiQueue, message.encode())(m_rig);
    }
}

// A number is the result of the call, bytes are the reply of one that succeeds.
void ExamplePlayer::setReplies(const Json& replies) {
    for (const auto& [call, reply] : replies.items()) {
        const bool isResult = reply.is_number();
        m_rig.camera.reply(call, isResult ? reply.get<int>() : 0, isResult ? Bytes() : bytesOf(reply));
    }
}

void ExamplePlayer::notify(const Json& keys) {
    for (const auto& [name, value] : keys.items()) {
        const auto key = static_cast<uint8_t>(std::stoul(name));
        m_rig.notifyCsi("CN", value.is_number() ? csiRecord(key, value.get<uint32_t>())
                                                : csiRecord(key, textBytes(value.get<std::string>())));
    }
}

void ExamplePlayer::pushValues(const Json& values) {
    pushes(values.dump())(m_rig);
}

// ---------------------------------------------------------------- what must come of it

void ExamplePlayer::check(const Json& interface, const Json& row, const Json& example, const Json& step) {
    std::vector<std::string> packets;
    const auto message = [&](const char* key, uint8_t stream) {
        for (const std::string& text : texts(step, key)) {
            for (const Bytes& packet : cutIntoPackets(bytesOf(text))) {
                packets.push_back(numbered(stream, packet));
            }
        }
    };
    message("answer", interface.at("answer"));
    message("push", kPushStream);
    for (const std::string& packet : texts(step, "packets")) {
        const auto [stream, bytes] = numbered(packet);
        packets.push_back(numbered(stream, bytes));
    }
    const bool parsed = step.contains("ask") && !step.value("malformed", false);
    std::vector<std::string> calls;
    if (parsed && interface.at("reports")) {
        const uint8_t caller = step.value("reported", example.value("as", kPhone));
        calls.push_back("csi_set 92: " + toHex(Bytes{caller == kThirdParty ? kPhone : caller}));
    }
    for (const std::string& call : texts(step, "calls")) {
        calls.push_back(expand(call));
    }
    m_rig.settle();
    expect("packets", joined(packets, "\n            "), joined(received(packets.size()), "\n            "));
    m_rig.settle();  // also what followed the packets
    expect("calls", joined(calls, ", "), cameraCalls());
    expect("keys set", joined(texts(step, "sets"), ", "), netSets());

    std::vector<std::string> lines = texts(step, "logs");
    if (parsed && row.contains("log") && !step.contains("on")) {
        lines.push_back(row.at("log"));
    }
    const std::string log = m_rig.daemon.log(m_logStart);
    for (const std::string& line : lines) {
        if (log.find(line + " @") == std::string::npos) {
            throw std::runtime_error("not logged: " + line + "\nlog:\n" + log);
        }
    }
}

std::vector<std::string> ExamplePlayer::received(size_t atLeast) {
    std::vector<std::string> packets;
    while (const auto record = m_rig.radio->receive(packets.size() < atLeast ? kPatienceForOne : kAtOnce)) {
        packets.push_back(numbered(record->streamId, {record->data, record->data + record->dataLength}));
    }
    return packets;
}

// The calls but those that hand samples over, which happens on a tick.
std::string ExamplePlayer::cameraCalls() {
    std::istringstream all(m_rig.camera.takeCalls());
    std::vector<std::string> calls;
    for (std::string call; std::getline(all >> std::ws, call, ',');) {
        if (!call.starts_with("ipc-")) {
            calls.push_back(call);
        }
    }
    return joined(calls, ", ");
}

// "34: 1c, 38: 00 00 00 00": keys that the daemon has set without waiting for an answer.
std::string ExamplePlayer::netSets() {
    std::vector<std::string> sets;
    while (m_rig.network->waiting() > 0) {
        const TlvMessage message = m_rig.receiveNet();
        const Bytes record = message.find(kTlvArgument);
        const Bytes value(record.begin() + 5, record.end());
        expect("message to the network daemon", "18 CI /to_kznet>/to_kznet: " + toHex(csiRecord(record.at(0), value)),
               message.text());
        sets.push_back(numbered(record[0], value));
    }
    return joined(sets, ", ");
}

void ExamplePlayer::forget() {
    m_rig.settle();
    received(0);
    netSets();
    m_rig.camera.takeCalls();
    m_logStart = m_rig.daemon.logSize();
}

// ---------------------------------------------------------------- back to the start

void ExamplePlayer::restore(const Json& example) {
    disconnects(kClient)(m_rig);
    m_rig.camera.forgetReplies();
    std::vector<Json> parts = stepsOf(example);
    if (example.contains("before")) {
        parts.push_back(example.at("before"));
    }
    const Json& camera = protocol().at("camera");
    for (const Json& part : parts) {
        for (const auto& [key, value] : member(part, "csi").items()) {
            const Json nothing = value.is_string() ? Json("0:0:0") : Json(0);
            notify({{key, camera.at("csi").value(key, nothing)}});
        }
        if (part.contains("values")) {
            pushValues(camera.at("values"));
        }
        for (const auto& [path, content] : member(part, "files").items()) {
            std::filesystem::remove(path);
        }
    }
    forget();
}

}  // namespace e2e
