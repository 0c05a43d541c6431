#include "controlLine.h"

#include <memory>

namespace kzsim {
namespace {

using Words = std::vector<std::string>;

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

}  // namespace

void addControlCommands(CLI::App& app, Words& words) {
    for (const Command& command : commands()) {
        addCommand(app, command, words);
    }
    addValue(app, words, "setting", "Give a setting an option, whatever the filters say", "the option's name or id");
    addValue(app, words, "status", "Give a status a value", "number, or text for a text status");
    addCsi(app, words);
    app.require_subcommand(0, 1);
}

}  // namespace kzsim
