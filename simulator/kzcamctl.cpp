// kzcamctl: pokes a running camera simulator. Each subcommand becomes one console command; what it means is decided
// there.
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "consoleWire.h"
#include "kzVersion.h"
#include "queueMemory.h"
#include "stateText.h"

namespace {

using kzsim::Outcome;
using Json = nlohmann::ordered_json;
using Words = std::vector<std::string>;

constexpr time_t kAnswerDeadlineSeconds = 5;
constexpr const char* kFooter =
    "Names are those of the camera's catalogue, in any case, with '-' or '_' for a blank; ids do as well.\n"
    "Exit status: 0 done, 1 another failure, 2 refused, 3 no answer in time, 4 no camera, 64 wrong use.";

struct Result {
    Outcome outcome;
    Json value;  // what was asked for, or a text that says why not
};

// ---------------------------------------------------------------- the console

Result noCamera(const char* path) {
    std::string text = std::string("no camera answers at ") + path;
    if (!kzsim::roomForCamera()) {
        text += "; " + kzsim::queueMemoryIsUsedUp();
    }
    return {Outcome::NoCamera, text};
}

// What an error of a call on the connection means.
Result unanswered(const char* path, int error) {
    switch (error) {
        case EAGAIN:
            return {Outcome::TimedOut, "no answer within " + std::to_string(kAnswerDeadlineSeconds) +
                                           " s; the command may still be carried out"};
        case ENOENT:
        case ECONNREFUSED:
        case ECONNRESET:
        case EPIPE:
        case 0:  // the camera ended
            return noCamera(path);
        default:
            return {Outcome::Failed, std::string("cannot reach the camera at ") + path + ": " + std::strerror(error)};
    }
}

// The answer's record as it came; empty, with the error, when none came.
std::string exchange(int fd, const sockaddr_un& address, const std::string& request, int& error) {
    const timeval deadline{kAnswerDeadlineSeconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &deadline, sizeof deadline);
    std::string answer(kzsim::kConsoleRecordLimit, '\0');
    ssize_t length = -1;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        send(fd, request.data(), request.size(), MSG_NOSIGNAL) >= 0) {
        length = recv(fd, answer.data(), answer.size(), 0);
    }
    error = length < 0 ? errno : 0;
    answer.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return answer;
}

Result ask(const Words& words) {
    std::string request;
    for (const std::string& word : words) {
        request += word + '\0';
    }
    const char* const path = kzsim::kConsoleEndpoint.address();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::strlen(path) >= sizeof address.sun_path) {
        return {Outcome::WrongUse, std::string("too long for a socket: ") + path};
    }
    std::strcpy(address.sun_path, path);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    int error = 0;
    const std::string answer = exchange(fd, address, request, error);
    close(fd);
    if (answer.empty()) {
        return unanswered(path, error);
    }
    const Json value = Json::parse(answer.begin() + 1, answer.end(), nullptr, false);
    if (value.is_discarded()) {
        return {Outcome::Failed, "the camera's answer is not whole; is it of the same build?"};
    }
    return {static_cast<Outcome>(answer[0]), value};
}

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
                  {"command", command},
                  {"result", result.value}};
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
    return static_cast<int>(result.outcome);
}

// ---------------------------------------------------------------- the command line

struct Argument {
    const char* name;
    const char* help;
    bool required = true;
    CLI::Validator check{};
};
struct Command {
    const char* name;
    const char* help;
    std::vector<Argument> arguments;
};

std::vector<Command> commands() {
    const CLI::Validator onOrOff = CLI::IsMember({"on", "off"});
    return {
        {"battery", "Set the battery level", {{"percent", "", true, CLI::Range(0, 100)}}},
        {"power", "Plug external power in or out", {{"state", "", true, onOrOff}}},
        {"sd", "Put the card in, fill it or pull it out", {{"state", "", true, CLI::IsMember({"in", "full", "out"})}}},
        {"record", "Start or stop a capture", {{"state", "", true, onOrOff}}},
        {"suspend", "Put the camera to sleep", {}},
        {"resume", "Wake the camera", {}},
        {"refuse",
         "Make the control daemon refuse a command",
         {{"command", "name or number, for example MODE"},
          {"code", "result code; 0 ends it", true, CLI::Range(INT32_MIN, INT32_MAX)}}},
        {"lcd", "Send a display buffer to the BLE daemon", {{"hex", "at least 5 bytes"}}},
        {"led", "Send an LED buffer to the BLE daemon", {{"hex", "5 to 18 bytes"}}},
        {"cah",
         "Set a state of the cloud upload",
         {{"field",
           "progress CURRENT TOTAL PERCENT | device, wom or caha STATE CAT SUB ERR | enabled, active, auth, "
           "auto-clear or sticky N | user TEXT"},
          {"value1", "first value"},
          {"value2", "second", false},
          {"value3", "third", false},
          {"value4", "fourth", false}}},
        {"ota", "Set a state of the software update", {{"field", "state, percent or error"}, {"value", "number"}}},
        {"live", "Set a state of the live stream", {{"field", "state, error, encode or bitrate"}, {"value", "number"}}},
        {"radio",
         "Slow, stop, restart or break the radio",
         {{"action", "slow N (packets a second, 0 no limit) | stop | go | drop [PACKETS [CONNECTION]] | inject HEX"},
          {"first", "N, PACKETS or HEX", false},
          {"second", "CONNECTION", false}}},
        {"part",
         "Kill, start anew, hang or wake a part of the camera",
         {{"name", "radio, control, network or metadata"}, {"action", "kill, start, hang or go"}}},
        {"shutdown-daemon", "Ask the BLE daemon to stop", {}},
        {"log-level", "Set the BLE daemon's log level, 0 to 6", {{"level", "", true, CLI::Range(0, 6)}}},
        {"dump", "Make the BLE daemon log its status", {}},
        {"undo", "Take back the last change that kzcamctl made; again for the one before", {}},
        {"state", "Print the camera's state; what is 0 only with --json", {}},
        {"room", "Say how many cameras the message-queue memory holds, and whether another one fits now", {}},
    };
}

void addCommand(CLI::App& app, const Command& command, Words& words) {
    CLI::App* const sub = app.add_subcommand(command.name, command.help);
    auto values = std::make_shared<std::vector<std::string>>(command.arguments.size());
    std::vector<CLI::Option*> options;
    for (size_t i = 0; i < command.arguments.size(); ++i) {
        const Argument& argument = command.arguments[i];
        options.push_back(sub->add_option(argument.name, (*values)[i], argument.help)->required(argument.required));
        options.back()->check(argument.check);
    }
    sub->callback([&words, name = std::string(command.name), values, options] {
        words = {name};
        for (size_t i = 0; i < options.size(); ++i) {
            if (options[i]->count() > 0) {
                words.push_back((*values)[i]);
            }
        }
    });
}

// setting SETTING OPTION [--force] and status STATUS VALUE [--force]
void addValue(CLI::App& app, Words& words, const std::string& kind, const char* help, const char* valueHelp) {
    struct Given {
        std::string item, value;
        bool force = false;
    };
    auto given = std::make_shared<Given>();
    CLI::App* const sub = app.add_subcommand(kind, help);
    sub->add_option(kind, given->item, "name or id")->required();
    sub->add_option("value", given->value, valueHelp)->required();
    sub->add_flag("--force", given->force, "also an id or a value that the catalogue does not have");
    sub->callback([&words, given, kind] {
        words = {kind, given->item, given->value};
        if (given->force) {
            words.emplace_back("force");
        }
    });
}

// csi KEY [VALUE | --hex BYTES | --text TEXT]
void addCsi(CLI::App& app, Words& words) {
    struct Options {
        std::string key, value, hex, text;
    };
    auto options = std::make_shared<Options>();
    CLI::App* const sub = app.add_subcommand("csi", "Set a CSI key, or print its value");
    sub->add_option("key", options->key, "0 to 255")->required();
    auto* const value = sub->add_option("value", options->value, "a 32-bit number");
    auto* const hex = sub->add_option("--hex", options->hex, "the value as bytes")->excludes(value);
    auto* const text = sub->add_option("--text", options->text, "the value as a text")->excludes(value)->excludes(hex);
    sub->callback([&words, options, value, hex, text] {
        words = {"csi", options->key};
        if (value->count() > 0) {
            words.push_back(options->value);
        } else if (hex->count() > 0) {
            words.insert(words.end(), {"hex", options->hex});
        } else if (text->count() > 0) {
            words.insert(words.end(), {"text", options->text});
        }
    });
}

// Whether --json was given, for a command line that does not parse.
bool asksForJson(int argc, char** argv) {
    return std::any_of(argv, argv + argc, [](const char* word) { return std::strcmp(word, "--json") == 0; });
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Pokes a running kzCameraSim. Its console is found through $KZ_CONSOLE_SOCKET, else at " +
                 std::string(kzsim::kConsoleEndpoint.path) + ".");
    app.set_version_flag("--version", std::string("kzcamctl ") + kzVersion);
    app.fallthrough();
    app.footer(kFooter);
    bool json = false;
    app.add_flag("--json", json, "print one JSON object, errors too");
    Words words;
    for (const Command& command : commands()) {
        addCommand(app, command, words);
    }
    addValue(app, words, "setting", "Give a setting an option, whatever the filters say", "the option's name or id");
    addValue(app, words, "status", "Give a status a value", "number, or text for a text status");
    addCsi(app, words);
    try {
        app.require_subcommand(0, 1);
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
    return finish(json, words[0], words[0] == "room" ? room() : ask(words));
}
