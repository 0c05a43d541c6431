// kzcamctl: pokes a running camera simulator. Each subcommand becomes one console command; what it means is decided
// there.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "closedStreams.h"
#include "consoleClient.h"
#include "controlLine.h"
#include "kzVersion.h"
#include "queueMemory.h"
#include "stateText.h"

namespace {

using kzsim::Outcome;
using Json = nlohmann::ordered_json;
using Result = kzsim::ConsoleResult;
using Words = std::vector<std::string>;

constexpr const char* kFooter =
    "Names are those of the camera's catalogue, in any case, with '-' or '_' for a blank; ids do as well.\n"
    "Exit status: 0 done, 1 another failure, 2 refused, 3 no answer in time, 4 no camera, 64 wrong use.";

// ---------------------------------------------------------------- commands without a camera

Result room() {
    const kzsim::QueueMemory memory = kzsim::queueMemory();
    const auto fit = memory.camerasThatFit();
    if (!kzsim::roomForCamera()) {
        return {Outcome::Failed, kzsim::queueMemoryIsUsedUp()};
    }
    return {Outcome::Done,
            {{"limitName", "RLIMIT_MSGQUEUE"},
             {"limit", memory.limit.has_value() ? Json(*memory.limit) : Json()},
             {"camera", memory.camera},
             {"camerasThatFit", fit.has_value() ? Json(*fit) : Json()}}};
}

// ---------------------------------------------------------------- printing

const char* nameOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::Done:
            return "done";
        case Outcome::Refused:
            return "refused";
        case Outcome::TimedOut:
            return "timed out";
        case Outcome::NoCamera:
            return "no camera";
        case Outcome::WrongUse:
            return "wrong use";
        default:
            return "failed";
    }
}

std::string dumped(const Json& value) {
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

void printJson(const std::string& command, const Result& result) {
    Json object = result.value;
    if (result.outcome != Outcome::Done) {
        object = {{"code", static_cast<int>(result.outcome)},
                  {"name", nameOf(result.outcome)},
                  {"command", command.empty() ? Json() : Json(command)},
                  {"result", nullptr},
                  {"message", result.value}};
    } else if (object.is_null()) {
        object = {{"result", "success"}};
    } else if (!object.is_object()) {
        object = {{"value", result.value}};
    }
    std::puts(dumped(object).c_str());
}

void printText(const std::string& command, const Result& result) {
    const Json& value = result.value;
    if (result.outcome != Outcome::Done) {
        std::fprintf(stderr, "kzcamctl%s%s: %s: %s\n", command.empty() ? "" : " ", command.c_str(),
                     nameOf(result.outcome), value.is_string() ? value.get<std::string>().c_str() : "");
    } else if (command == "state") {
        std::puts(kzsim::stateAsText(value).c_str());
    } else if (value.is_string()) {
        std::puts(value.get<std::string>().c_str());
    } else if (value.is_object()) {
        for (const auto& [key, one] : value.items()) {
            const std::string text = one.is_null() ? "none" : one.is_string() ? one.get<std::string>() : dumped(one);
            std::printf("%s: %s\n", key.c_str(), text.c_str());
        }
    }
}

int finish(bool json, const std::string& command, const Result& result) {
    (json ? printJson : printText)(command, result);
    if ((std::fflush(stdout) != 0 || std::ferror(stdout) != 0) && result.outcome == Outcome::Done) {
        std::fprintf(stderr, "kzcamctl: cannot write to standard output\n");
        return static_cast<int>(Outcome::Failed);
    }
    return static_cast<int>(result.outcome);
}

// Whether --json was given, for a command line that does not parse.
bool asksForJson(int argc, char** argv) {
    return std::any_of(argv, argv + argc, [](const char* word) { return std::strcmp(word, "--json") == 0; });
}

}  // namespace

int main(int argc, char** argv) {
    kzsim::occupyClosedStreams();
    CLI::App app("Pokes a running kzCameraSim. Its console is found through $KZ_CONSOLE_SOCKET, else at " +
                 std::string(kzsim::kConsoleEndpoint.path) + ".");
    app.set_version_flag("--version", std::string("kzcamctl ") + kzVersion);
    app.fallthrough();
    app.footer(kFooter);
    bool json = false;
    app.add_flag("--json", json, "print one JSON object, errors too");
    Words words;
    kzsim::addControlCommands(app, words);
    try {
        app.parse(argc, argv);
        if (words.empty()) {
            throw CLI::RequiredError("A command");
        }
    } catch (const CLI::Success& help) {
        return app.exit(help);
    } catch (const CLI::ParseError& error) {
        const auto subs = app.get_subcommands();
        const std::string command = subs.empty() ? "" : subs.front()->get_name();
        return finish(asksForJson(argc, argv), command, {Outcome::WrongUse, error.what()});
    }
    return finish(json, words[0], words[0] == "room" ? room() : kzsim::askConsole(words));
}
