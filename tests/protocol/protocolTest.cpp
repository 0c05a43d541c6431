// protocol/protocol.json and the daemon say the same: every worked example plays, every row of the daemon's tables is
// described, and what is not described is refused.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <set>
#include <stdexcept>

#include "examplePlayer.h"
#include "fixture.h"
#include "protocolTable.h"

namespace e2e {
namespace {

constexpr const char* kRefusedCode = "06";
constexpr int kEnoughFailures = 20;  // of a daemon that is beyond help; each may take half a minute

// The interface that the rows of a section are asked on, unless a row says otherwise.
const std::pair<const char*, const char*> kSections[] = {
    {"commands", "command"},   {"settings", "settings"}, {"queries", "query"}, {"protobuf", ""},
    {"csi", "query"},          {"pushes", "query"},      {"sensor", "sensor"}, {"buffers", "sensor"},
    {"accessories", "sensor"}, {"rules", "command"},
};

const Json& interfaceOf(const Json& row, const char* sectionInterface) {
    std::string name = row.value("on", sectionInterface);
    if (row.contains("feature")) {
        name = find(protocol().at("features"), "id", row.at("feature")).at("on");
    }
    return find(protocol().at("interfaces"), "name", name);
}

// When the camera refuses what the first example makes it do.
Json refusal(const Json& row) {
    const std::string kind = row.at("refused");
    Json example = row.at("examples").at(0);
    example["note"] = "the camera refuses";
    example.erase("logs");
    const std::string calls = example.at("calls");
    for (size_t at = 0; at < calls.size();) {
        const size_t end = std::min(calls.find(", ", at), calls.size());
        const std::string call = calls.substr(at, std::min(calls.find(':', at), end) - at);
        if (call.starts_with("command") || call.starts_with("csi_set")) {
            example["before"]["replies"][call] = 6;
        }
        at = end + 2;
    }
    const std::string answer = example.at("answer");
    if (kind == "code" || kind == "failure") {
        example["answer"] = answer.substr(0, 3) + (kind == "code" ? kRefusedCode : "01");
    } else if (kind == "unknown") {
        example["answer"] = answer.substr(0, answer.size() - 1) + "0";
    } else if (kind != "hidden") {
        throw std::runtime_error("refused: " + kind);
    }
    return example;
}

// With one parameter too few or too many.
std::vector<Json> wrongCounts(const Json& row) {
    std::vector<Json> examples;
    const size_t right = row.at("params").size();
    for (const size_t count : {right - 1, right + 1}) {
        if (count <= right + 1) {
            const std::string id = toHex(Bytes{row.at("id")});
            std::string text = protocol().at("wrongCount").at(row.at("wrongCount").get<std::string>());
            text.replace(text.find("%d"), 2, std::to_string(count));
            Json example = {{"ask", id}, {"answer", id + " 02"}, {"logs", "[ERROR] " + text}};
            for (size_t i = 0; i < count; ++i) {
                example["ask"] = example.at("ask").get<std::string>() + " 01 01";
            }
            examples.push_back(example);
        }
    }
    return examples;
}

std::vector<Json> examplesOf(const Json& row) {
    auto examples = row.value("examples", Json::array()).get<std::vector<Json>>();
    if (row.contains("refused")) {
        examples.push_back(refusal(row));
    }
    if (row.contains("wrongCount")) {
        const auto more = wrongCounts(row);
        examples.insert(examples.end(), more.begin(), more.end());
    }
    return examples;
}

class Protocol : public E2e {
  protected:
    void serve(long radioDepth = kRadioDepth) {
        E2e::serve({.transmitDepth = radioDepth, .catalogue = protocol().at("camera").at("catalogue").dump()});
    }

    // Plays the examples for a radio queue of this depth. Returns the depths that the others want.
    std::set<long> playAll(long radioDepth) {
        std::set<long> others;
        serve(radioDepth);
        ExamplePlayer player(*rig);
        for (const auto& [section, interface] : kSections) {
            for (const Json& row : protocol().at(section)) {
                for (const Json& example : examplesOf(row)) {
                    if (example.value("radio", kRadioDepth) == radioDepth) {
                        play(player, interfaceOf(row, interface), row, example);
                    } else {
                        others.insert(example.value("radio", kRadioDepth));
                    }
                }
            }
        }
        return others;
    }

  private:
    void play(ExamplePlayer& player, const Json& interface, const Json& row, const Json& example) {
        try {
            player.play(interface, row, example);
        } catch (const std::exception& failure) {
            Json name = row;
            name.erase("examples");
            ADD_FAILURE() << name.dump() << "\n" << example.dump() << "\n" << failure.what();
            if (!rig->daemon.running() || ++m_failures == kEnoughFailures) {
                throw std::runtime_error("the other examples are left out");
            }
        }
    }

    int m_failures = 0;
};

TEST_F(Protocol, ExamplesPlay) {
    for (const long radioDepth : playAll(kRadioDepth)) {
        playAll(radioDepth);
    }
}

// ---------------------------------------------------------------- what is not described

using Ids = std::set<int>;

Ids idsOf(const char* section, const char* key, int feature = 0) {
    Ids ids;
    for (const Json& row : protocol().at(section)) {
        if (row.value("feature", 0) == feature) {
            ids.insert(row.at(key).get<int>());
        }
    }
    return ids;
}

// The numbers that stand behind a text in the log.
Ids numbersBehind(const std::string& text, const std::string& log) {
    Ids numbers;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size())) {
        numbers.insert(std::stoi(log.substr(at + text.size(), 4)));
    }
    return numbers;
}

TEST_F(Protocol, WhatIsNotDescribedIsRefused) {
    // Asks for everything from 0 to 255 that is not in `described`. The answer is "" for the id itself and this code.
    const auto expectRefused = [&](uint8_t interface, const Bytes& prefix, const Ids& described, const Bytes& answer) {
        for (int id = 0; id <= 255; ++id) {
            const Bytes own = {static_cast<uint8_t>(id)};
            if (described.count(id) == 0) {
                E2e::play({asks(1, interface, prefix + own, answer.size() == 1 ? own + answer : answer), settles()});
            }
        }
    };
    serve();
    E2e::play({sets(6), joins(1)});  // at this level no line is held back

    Ids commands = idsOf("commands", "id");
    Ids queries;
    for (const Json& query : protocol().at("queries")) {
        queries.insert(query.at("type").get<int>() << 4 | query.at("category").get<int>());
    }
    for (const Json& feature : protocol().at("features")) {
        const int id = feature.at("id");
        const Bytes refusal = id == 243 ? fromHex("00 01") : Bytes{static_cast<uint8_t>(id), 2};
        const Json& interface = find(protocol().at("interfaces"), "name", feature.at("on"));
        expectRefused(interface.at("request"), {static_cast<uint8_t>(id)}, idsOf("protobuf", "id", id), refusal);
        (feature.at("on") == "query" ? queries : commands).insert(id);
    }
    expectRefused(kCommand, {}, commands, {2});
    expectRefused(kQuery, {}, queries, {2});
    expectRefused(kSensorData, {}, idsOf("sensor", "id"), {11});

    // Commands that were withdrawn are refused without a word.
    Ids unknown = numbersBehind("Unrecognized/unhandled command from ble. command_id:", rig->daemon.log());
    for (const Json& silent : find(protocol().at("rules"), "name", "unknown commands").at("silent")) {
        EXPECT_TRUE(unknown.insert(silent.get<int>()).second) << silent;
    }
    for (const int id : commands) {
        unknown.insert(id);
    }
    for (int id = 1; id < 240; ++id) {
        EXPECT_EQ(unknown.count(id), 1u) << id;
    }
}

TEST_F(Protocol, KeysThatAreNotDescribedArePushedToNobody) {
    serve();
    E2e::play({sets(6), joins(1), writes(1, kQuery, "f5 76 08 01")});
    for (int key = 0; key <= 255; ++key) {
        E2e::play({notifies("CN", csiRecord(static_cast<uint8_t>(key), 0u)), drains()});
    }

    Ids keys = numbersBehind("CSI notification not found key=", rig->daemon.log());
    for (const int described : idsOf("csi", "key")) {
        EXPECT_TRUE(keys.insert(described).second) << described;
    }
    EXPECT_EQ(keys.size(), 256u);
}

// ---------------------------------------------------------------- protobuf

// The field numbers of a serialised message of numbers and messages.
Ids fieldsOf(const Bytes& message) {
    size_t at = 0;
    const auto number = [&] {
        uint64_t value = 0;
        for (unsigned shift = 0; at < message.size(); shift += 7) {
            value |= uint64_t{message[at] & 0x7Fu} << shift;
            if (message[at++] < 0x80) {
                break;
            }
        }
        return value;
    };
    Ids fields;
    while (at < message.size()) {
        const uint64_t tag = number();
        const uint64_t value = number();
        fields.insert(static_cast<int>(tag >> 3));
        at += (tag & 7) == 2 ? value : 0;
    }
    return fields;
}

TEST(Description, FieldsOfPushesAreThoseOfTheirExamples) {
    for (const Json& row : protocol().at("csi")) {
        Ids fields;
        for (const Json& example : row.at("examples")) {
            const bool several = example.contains("steps");
            for (const Json& step : several ? example.at("steps") : Json::array({example})) {
                const Bytes push = fromHex(step.value("push", ""));
                if (!push.empty()) {
                    EXPECT_EQ(toHex({push.data() + 1, 1}), row.at("action")) << row.at("name");
                    fields.merge(fieldsOf(Bytes(push.begin() + 2, push.end())));
                }
            }
        }
        EXPECT_EQ(Json(fields), row.value("fields", Json::array())) << row.at("name");
    }
}

TEST(Description, NamesOfMessagesAreInTheSchemas) {
    std::string schemas;
    for (const auto& file : std::filesystem::recursive_directory_iterator(KZ_SCHEMAS)) {
        if (file.path().extension() == ".proto") {
            std::ifstream in(file.path());
            schemas += std::string(std::istreambuf_iterator<char>(in), {});
        }
    }
    for (const auto& [section, rows] : protocol().items()) {
        for (const Json& row : rows) {
            for (const char* key : {"request", "answer", "enum", "form"}) {
                const Json name = row.is_object() ? row.value(key, Json()) : Json();
                const bool isSchema = name.is_string() && std::isupper(name.get<std::string>()[0]) != 0;
                EXPECT_TRUE(!isSchema || schemas.find(' ' + name.get<std::string>() + " {") != std::string::npos)
                    << name;
            }
        }
    }
}

TEST(Description, TableNamesRequestsAndAnswers) {
    for (const auto& [section, interfaceName] : kSections) {
        for (const Json& row : protocol().at(section)) {
            const Json example = examplesOf(row).empty() ? Json::object() : examplesOf(row).at(0);
            const Json& interface = interfaceOf(row, interfaceName);
            const bool isRequest = row.contains("id") || section == std::string("queries");
            if (isRequest && example.contains("ask") && example.contains("answer")) {
                const auto* asked = kzprotocol::requestOf(interface.at("request"), fromHex(expand(example.at("ask"))));
                const auto* answered =
                    kzprotocol::answerOf(interface.at("answer"), fromHex(expand(example.at("answer"))));
                ASSERT_TRUE(asked != nullptr && answered == asked) << row.at("name");
                EXPECT_EQ(asked->name, row.at("name"));
            }
        }
    }
}

// ---------------------------------------------------------------- widths

int widthOf(const Json& table, int id) {
    for (const auto& [width, ids] : table.at("except").items()) {
        if (std::find(ids.begin(), ids.end(), id) != ids.end()) {
            return width == "text" ? -1 : std::stoi(width);
        }
    }
    return table.at("width");
}

TEST_F(Protocol, EveryIdHasItsWidth) {
    serve();
    for (const auto& [kind, query] : {std::pair{"settings", "12"}, {"status", "13"}}) {
        const Json& table = protocol().at("widths").at(kind);
        Json values;
        Bytes answer = fromHex(query) + Bytes{0};
        for (int id = table.at("first"); id <= table.at("last"); ++id) {
            const int width = widthOf(table, id);
            values[std::to_string(id)] = width < 0 ? Json("x") : Json(7);
            const Bytes value = width < 0 ? textBytes("x") : width == 0 ? Bytes() : Bytes(size_t(width) - 1) + Bytes{7};
            answer = answer + Bytes{static_cast<uint8_t>(id), static_cast<uint8_t>(value.size())} + value;
        }
        E2e::play({joins(1), pushes(Json{{kind, values}}.dump()), asks(1, kQuery, fromHex(query), answer)});
    }
}

}  // namespace
}  // namespace e2e
