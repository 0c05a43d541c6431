// How commands are put on the command line: each with its group, its help, an example, and the work that runs once the
// whole line was parsed.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "session.h"

namespace kzble {

// What a parsed line asks for.
struct Work {
    std::string command;  // as typed, for example "preset load"
    std::function<void()> run;
};

// Where commands are added: the app or a family of commands, the line's session, and where the parsed work is put.
struct Place {
    CLI::App& app;
    Session& session;
    Work& chosen;
    std::string group;

    Place under(const std::string& title) const { return {app, session, chosen, title}; }
    // The family called `name`, made on first use; its commands are added to what this returns.
    Place family(const std::string& name, const std::string& help) const;
};

struct CommandText {
    std::string name;
    std::string help;
    std::string example;  // the arguments behind the name; empty when there are none
};

CLI::App* addCommand(const Place& place, const CommandText& text, std::function<void()> work);

// Takes digits as decimal ones, also behind a leading zero, and no other notation.
CLI::Validator decimal();

// A whole number within bounds; anything else is wrong use, and nothing is cut.
template <typename Number>
CLI::Option* addNumber(CLI::App& command, const std::string& name, Number& value, const std::string& help,
                       int64_t least, int64_t most) {
    return command.add_option(name, value, help)->check(CLI::Range(least, most).description(""))->transform(decimal());
}

// A number within bounds, which may have a fraction.
CLI::Option* addDecimal(CLI::App& command, const std::string& name, double& value, const std::string& help,
                        double least, double most);

// Each adds one family of commands.
void addControlCommands(const Place& place);
void addTimeCommands(const Place& place);
void addRawCommands(const Place& place);
void addReplayCommand(const Place& place);
void addDescribeCommands(const Place& place);
void addValueCommands(const Place& place);
void addFeatureCommands(const Place& place);
void addWatchCommands(const Place& place);
void addFileCommands(const Place& place);
void addAccessoryCommands(const Place& place);
void addSensorCommands(const Place& place);

}  // namespace kzble
