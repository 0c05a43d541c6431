// protocol/protocol.json and the daemon say the same: every worked example plays, every row of the daemon's tables is
// described, and what is not described is refused.
#include "examplePlayer.h"
#include "fixture.h"

namespace e2e {
namespace {

constexpr const char* kRefusedCode = "06";

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
        example["before"]["replies"][call] = 6;
        at = end + 2;
    }
    const std::string answer = example.at("answer");
    if (kind == "code" || kind == "failure") {
        example["answer"] = answer.substr(0, 3) + (kind == "code" ? kRefusedCode : "01");
    } else if (kind == "unknown") {
        example["answer"] = answer.substr(0, answer.size() - 1) + "0";
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
    void playAll(long radioDepth) {
        serve(radioDepth);
        ExamplePlayer player(*rig);
        for (const auto& [section, interface] : kSections) {
            for (const Json& row : protocol().value(section, Json::array())) {
                for (const Json& example : examplesOf(row)) {
                    if (example.value("radio", kRadioDepth) == radioDepth) {
                        play(player, section, interfaceOf(row, interface), row, example);
                    }
                }
            }
        }
    }

  private:
    void play(ExamplePlayer& player, const char* section, const Json& interface, const Json& row, const Json& example) {
        try {
            player.play(interface, row, example);
        } catch (const std::exception& failure) {
            Json name = row;
            name.erase("examples");
            ADD_FAILURE() << section << " " << name.dump() << "\n" << example.dump() << "\n" << failure.what();
        }
    }
};

TEST_F(Protocol, ExamplesPlay) {
    playAll(kRadioDepth);
}

}  // namespace
}  // namespace e2e
