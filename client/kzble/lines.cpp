#include "lines.h"

#include <algorithm>
#include <fstream>
#include <iostream>

#include "commands.h"
#include "queueMemory.h"

namespace kzble {

namespace {

using kzclient::Outcome;
using nlohmann::ordered_json;

struct Failure {
    Outcome outcome;
    std::string command;
    std::string message;
    ordered_json result;
};

Outcome report(const Session& session, const LinePlace& place, const Failure& failure) {
    const std::string command = failure.command.empty() ? "" : failure.command + ": ";
    const std::string where = place.number == 0 ? "" : place.file + ":" + std::to_string(place.number) + ": ";
    if (!session.options.json || !std::cout.flush()) {
        if (failure.outcome == Outcome::Interrupted) {  // who interrupted knows
            return failure.outcome;
        }
        std::cerr << "kzble: " << where << command << failure.message << std::endl;
        return failure.outcome;
    }
    ordered_json json{{"code", static_cast<int>(failure.outcome)},
                      {"name", kzclient::nameOf(failure.outcome)},
                      {"command", failure.command.empty() ? ordered_json() : ordered_json(failure.command)},
                      {"result", failure.result},
                      {"message", failure.message}};
    if (place.number != 0) {
        json["file"] = place.file;
        json["line"] = place.number;
    }
    std::cout << oneLine(json) << std::endl;
    return failure.outcome;
}

Outcome run(Session& session, const Work& work, const LinePlace& place) {
    try {
        work.run();
        expectPrinted();
        return Outcome::Done;
    } catch (const kzclient::Interrupted& interrupted) {
        session.interrupted = true;
        const bool isItsEnd = interrupted.outcome() == Outcome::Done;
        return isItsEnd ? Outcome::Done
                        : report(session, place, {interrupted.outcome(), work.command, interrupted.what(), nullptr});
    } catch (const Refused& refused) {
        return report(session, place, {refused.outcome(), work.command, refused.what(), refused.result});
    } catch (const Error& error) {
        std::string message = error.what();
        if (error.outcome() == Outcome::NoCamera) {
            const bool neverThere = !session.isConnected();
            session.disconnect();
            message += neverThere && !kzsim::roomForCamera() ? "; " + kzsim::queueMemoryIsUsedUp() : "";
        }
        return report(session, place, {error.outcome(), work.command, message, nullptr});
    } catch (const std::exception& error) {
        return report(session, place, {Outcome::Failed, work.command, error.what(), nullptr});
    }
}

// A line that cannot be parsed is reported as JSON too if it asks for that.
Outcome parseAndRun(Session& session, Parser& parser, const Words& words, const LinePlace& place) {
    session.options.json = session.options.json || std::find(words.begin(), words.end(), "--json") != words.end();
    try {
        const auto work = parser.parse(words);
        return work ? run(session, *work, place) : Outcome::Done;
    } catch (const WrongUse& error) {
        return report(session, place, {error.outcome(), parser.commandSoFar(), error.what(), nullptr});
    }
}

}  // namespace

void addLineCommands(Parser& parser, Session& session, Outcome& played) {
    const Place place = parser.place().under("Several commands");
    addCommand(place, {"shell", "Play commands on one connection, with history and completion", ""},
               [&] { played = runShell(session); });
    auto file = std::make_shared<std::string>();
    CLI::App* script = addCommand(
        place,
        {"script", "Play commands from a file on one connection, one a line; the first failure ends", "commands.txt"},
        [&session, &played, file] { played = runScript(session, *file); });
    script->add_option("file", *file, "The commands; - for standard input; # begins a comment")->required();

    CLI::App* generate = parser.app().add_subcommand("generate", "Print the pages that are installed");
    generate->group("")->require_subcommand(1);
    const Place pages{*generate, session, place.chosen, "Commands"};
    addCommand(pages, {"man", "The manual page", ""}, [] { std::cout << manPage(); });
    addCommand(pages, {"completion", "The completion of bash", ""}, [] { std::cout << bashCompletion(); });
    addCommand(pages, {"examples", "The example of every command", ""}, [&parser] {
        for (const CLI::App* command : allCommands(parser.app())) {
            const std::string footer = command->get_footer();
            if (!footer.empty()) {
                std::cout << footer.substr(footer.find("kzble ")) << '\n';
            }
        }
    });
}

Words splitLine(const std::string& line) {
    Words words;
    bool inWord = false;
    char quote = 0;
    for (size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quote == 0 && (c == ' ' || c == '\t' || c == '\r')) {
            inWord = false;
            continue;
        }
        if (quote == 0 && c == '#' && !inWord) {
            break;
        }
        if (!inWord) {
            words.emplace_back();
            inWord = true;
        }
        if (quote == 0 && (c == '\'' || c == '"')) {
            quote = c;
        } else if (c == quote) {
            quote = 0;
        } else if (c == '\\' && quote != '\'' && i + 1 < line.size()) {
            words.back() += line[++i];
        } else {
            words.back() += c;
        }
    }
    if (quote != 0) {
        throw WrongUse(std::string("the quotation ") + quote + " has no end");
    }
    return words;
}

Outcome runLine(Session& session, const std::string& line, const LinePlace& place) {
    const Session::Options before = session.options;
    Outcome outcome = Outcome::Done;
    try {
        const Words words = splitLine(line);
        if (!words.empty()) {
            Parser parser(session, Scope::Line);
            outcome = parseAndRun(session, parser, words, place);
        }
    } catch (const WrongUse& error) {
        outcome = report(session, place, {error.outcome(), "", error.what(), nullptr});
    }
    session.options = before;  // a line's own options end with it
    return outcome;
}

Outcome runCommandLine(Session& session, const Words& arguments) {
    Outcome played = Outcome::Done;
    Parser parser(session, Scope::CommandLine);
    addLineCommands(parser, session, played);
    const Outcome outcome = parseAndRun(session, parser, arguments, {});
    return outcome == Outcome::Done ? played : outcome;
}

Outcome runScript(Session& session, const std::string& file) {
    std::ifstream opened;
    if (file != "-") {
        opened.open(file);
        if (!opened) {
            throw Error("cannot read " + file);
        }
    }
    std::istream& lines = file == "-" ? std::cin : opened;
    LinePlace place{file == "-" ? "standard input" : file, 0};
    std::string line;
    while (std::getline(lines, line)) {
        ++place.number;
        const Outcome outcome = runLine(session, line, place);
        if (outcome != Outcome::Done || session.interrupted) {
            return outcome;
        }
    }
    kzclient::checkInterrupt();
    if (lines.bad()) {
        throw Error("cannot read " + place.file);
    }
    return Outcome::Done;
}

}  // namespace kzble
