// kzcamctl: pokes a running camera simulator. Each subcommand becomes one console command; what it means is decided
// there.
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "consoleWire.h"

namespace {

using Words = std::vector<std::string>;

constexpr time_t kAnswerDeadlineSeconds = 5;

// The answer's record: its code byte, then the text. Empty when nobody answered.
std::string ask(const Words& words) {
    std::string request;
    for (const std::string& word : words) {
        request += word;
        request += '\0';
    }
    const char* const path = kzsim::kConsoleEndpoint.address();
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (std::strlen(path) >= sizeof address.sun_path) {
        return {};
    }
    std::strcpy(address.sun_path, path);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    const timeval deadline{kAnswerDeadlineSeconds, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &deadline, sizeof deadline);
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &deadline, sizeof deadline);
    std::string answer(kzsim::kConsoleRecordLimit, '\0');
    ssize_t length = -1;
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
        send(fd, request.data(), request.size(), MSG_NOSIGNAL) >= 0) {
        length = recv(fd, answer.data(), answer.size(), 0);
    }
    close(fd);
    answer.resize(length > 0 ? static_cast<size_t>(length) : 0);
    return answer;
}

int run(const Words& words) {
    const std::string answer = ask(words);
    if (answer.empty()) {
        std::fprintf(stderr, "kzcamctl: no simulator answers at %s\n", kzsim::kConsoleEndpoint.address());
        return 2;
    }
    const bool done = answer[0] == 0;
    if (answer.size() > 1) {
        std::fprintf(done ? stdout : stderr, "%s%s\n", done ? "" : "kzcamctl: ", answer.c_str() + 1);
    }
    return done ? 0 : 1;
}

struct Argument {
    const char* name;
    const char* help;
    bool required = true;
};
struct Command {
    const char* name;
    const char* help;
    std::vector<Argument> arguments;
};

const std::vector<Command> kCommands = {
    {"battery", "Set the battery level", {{"percent", "0 to 100"}}},
    {"power", "Plug external power in or out", {{"state", "on or off"}}},
    {"sd", "Put the card in, fill it or pull it out", {{"state", "in, full or out"}}},
    {"record", "Start or stop a capture", {{"state", "on or off"}}},
    {"setting", "Give a setting a value, accepted or not", {{"id", "setting id"}, {"value", "option id"}}},
    {"status", "Give a status a value", {{"id", "status id"}, {"value", "number, or text for a text status"}}},
    {"suspend", "Put the camera to sleep", {}},
    {"resume", "Wake the camera", {}},
    {"refuse",
     "Make the control daemon refuse a command",
     {{"command", "name or number, for example MODE"}, {"code", "result code; 0 ends it"}}},
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
    {"shutdown-daemon", "Ask the BLE daemon to stop", {}},
    {"log-level", "Set the BLE daemon's log level", {{"level", "0 to 6"}}},
    {"dump", "Make the BLE daemon log its status", {}},
    {"state", "Print the simulator's state as JSON", {}},
};

void addCommand(CLI::App& app, const Command& command, Words& words) {
    CLI::App* const sub = app.add_subcommand(command.name, command.help);
    auto values = std::make_shared<std::vector<std::string>>(command.arguments.size());
    for (size_t i = 0; i < command.arguments.size(); ++i) {
        sub->add_option(command.arguments[i].name, (*values)[i], command.arguments[i].help)
            ->required(command.arguments[i].required);
    }
    sub->callback([&words, name = std::string(command.name), values] {
        words = {name};
        for (const std::string& value : *values) {
            if (!value.empty()) {
                words.push_back(value);
            }
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
    sub->add_option("--text", options->text, "the value as a text")->excludes(value)->excludes(hex);
    sub->callback([&words, options] {
        words = {"csi", options->key};
        if (!options->value.empty()) {
            words.push_back(options->value);
        } else if (!options->hex.empty()) {
            words.insert(words.end(), {"hex", options->hex});
        } else if (!options->text.empty()) {
            words.insert(words.end(), {"text", options->text});
        }
    });
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Pokes a running kzCameraSim. Its console is found through $KZ_CONSOLE_SOCKET, else at " +
                 std::string(kzsim::kConsoleEndpoint.path) + ".");
    app.require_subcommand(1);
    app.footer("Exit status: 0 done, 1 the simulator refused, 2 no simulator answered.");
    Words words;
    for (const Command& command : kCommands) {
        addCommand(app, command, words);
    }
    addCsi(app, words);
    CLI11_PARSE(app, argc, argv);
    return run(words);
}
