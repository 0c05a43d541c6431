// Lines of commands: the command line itself, and those of a script or a shell, all played on the session's connection.
// A line that fails is reported here, and nowhere else.
#pragma once

#include <string>
#include <vector>

#include "parser.h"
#include "session.h"

namespace kzble {

// Where a line stands, for the report of its failure.
struct LinePlace {
    std::string file;
    int number = 0;  // 0: the command line
};

using Words = std::vector<std::string>;

// Splits a line as a shell would: blanks, '...', "...", backslashes, and # for a comment. Throws WrongUse.
Words splitLine(const std::string& line);

// Parses and runs one line of a script or shell.
kzclient::Outcome runLine(Session& session, const std::string& line, const LinePlace& place);
// The same for the arguments of the program.
kzclient::Outcome runCommandLine(Session& session, const Words& arguments);

// Reads and runs lines until one fails ("-": standard input).
kzclient::Outcome runScript(Session& session, const std::string& file);
// Reads and runs lines with history and completion until the end of the input; a line that fails ends nothing.
kzclient::Outcome runShell(Session& session);

// Adds the commands that play others, and the one that prints what is installed. `played` gets how the lines ended.
void addLineCommands(Parser& parser, Session& session, kzclient::Outcome& played);

// What the installed pages are made of.
std::string manPage();
std::string bashCompletion();

}  // namespace kzble
