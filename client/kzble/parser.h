// The command line's grammar. A parser is made for each line, since it keeps what it parsed.
#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"

namespace kzble {

// What may be said: everything on the command line, and the commands without the connection's options on a line of a
// script or shell, whose connection is there already.
enum class Scope { CommandLine, Line };

class Parser {
  public:
    Parser(Session& session, Scope scope);

    // Sets the session's options and returns what to do. Nothing when the line asked for help or the version, which is
    // then printed. Throws WrongUse.
    std::optional<Work> parse(std::vector<std::string> arguments);
    // The command that the line names, as far as it was understood.
    std::string commandSoFar() const;

    const CLI::App& app() const { return m_app; }
    CLI::App& app() { return m_app; }
    Place place() { return {m_app, m_session, m_chosen, ""}; }

  private:
    void addOptions(Scope scope);
    std::string explain(const CLI::ParseError& error) const;

    CLI::App m_app;
    Session& m_session;
    Work m_chosen;
};

// Every command of `app`, families before their commands, without the hidden ones.
std::vector<const CLI::App*> allCommands(const CLI::App& app);
// "preset load"
std::string pathOf(const CLI::App& command);
// The visible options of a command, for example "--json"; without those of its position.
std::vector<std::string> optionNames(const CLI::App& command);
std::vector<std::string> subcommandNames(const CLI::App& command);

}  // namespace kzble
