#include "doCommand.h"

#include "apiError.h"
#include "consoleClient.h"
#include "controlLine.h"

namespace kzdesk {
namespace {

using kzsim::Outcome;
using Words = std::vector<std::string>;

int statusOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::WrongUse:
            return 400;
        case Outcome::NoCamera:
            return 503;
        default:
            return 502;
    }
}

const char* codeOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::WrongUse:
            return "bad-request";
        case Outcome::NoCamera:
            return "no-camera";
        case Outcome::TimedOut:
            return "timed-out";
        default:
            return "refused";
    }
}

}  // namespace

nlohmann::ordered_json askCamera(const Words& consoleWords) {
    const kzsim::ConsoleResult result = kzsim::askConsole(consoleWords);
    if (result.outcome != Outcome::Done) {
        throw ApiError(statusOf(result.outcome), codeOf(result.outcome),
                       result.value.is_string() ? result.value.get<std::string>() : result.value.dump());
    }
    return result.value;
}

nlohmann::ordered_json doCommand(const Words& line) {
    CLI::App app("Pokes the simulated camera");
    Words words;
    kzsim::addControlCommands(app, words);
    try {
        app.parse(Words(line.rbegin(), line.rend()));  // it takes the words from the back
    } catch (const CLI::Success&) {
        const auto asked = app.get_subcommands();
        return (asked.empty() ? app : *asked.front()).help();
    } catch (const CLI::ParseError& error) {
        throw badRequest(error.what());
    }
    if (words.empty()) {
        throw badRequest("there is no command in it");
    }
    return askCamera(words);
}

}  // namespace kzdesk
