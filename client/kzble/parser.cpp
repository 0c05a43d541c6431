#include "parser.h"

#include <algorithm>
#include <iostream>
#include <map>

#include "kzVersion.h"
#include "nearest.h"

namespace kzble {

namespace {

constexpr const char* kConnection = "Connection";
constexpr const char* kOutput = "Output";
constexpr int kLongestTimeoutMs = 24 * 3600 * 1000;

// The last command that was recognised on the line.
const CLI::App& deepest(const CLI::App& app) {
    const auto parsed = app.get_subcommands();
    return parsed.empty() ? app : deepest(*parsed.front());
}

}  // namespace

std::string pathOf(const CLI::App& command) {
    const CLI::App* parent = command.get_parent();
    if (parent == nullptr) {
        return "";
    }
    const std::string above = pathOf(*parent);
    return above.empty() ? command.get_name() : above + " " + command.get_name();
}

std::vector<std::string> optionNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::Option* option : command.get_options()) {
        for (const auto& name : option->get_lnames()) {
            if (!option->get_group().empty()) {
                names.push_back("--" + name);
            }
        }
    }
    return names;
}

std::vector<std::string> subcommandNames(const CLI::App& command) {
    std::vector<std::string> names;
    for (const CLI::App* sub : command.get_subcommands([](const CLI::App* app) { return !app->get_group().empty(); })) {
        names.push_back(sub->get_name());
    }
    return names;
}

std::vector<const CLI::App*> allCommands(const CLI::App& app) {
    std::vector<const CLI::App*> commands;
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App* one) { return !one->get_group().empty(); })) {
        commands.push_back(sub);
        const auto below = allCommands(*sub);
        commands.insert(commands.end(), below.begin(), below.end());
    }
    return commands;
}

Place Place::family(const std::string& name, const std::string& help) const {
    const auto existing = app.get_subcommands([&](const CLI::App* command) { return command->get_name() == name; });
    if (!existing.empty()) {
        return {*existing.front(), session, chosen, "Commands"};
    }
    CLI::App* made = app.add_subcommand(name, help);
    made->group(group)->require_subcommand(1);
    return {*made, session, chosen, "Commands"};
}

CLI::Validator decimal() {
    const auto strip = [](std::string& text) {
        const size_t sign = text.starts_with('-') || text.starts_with('+') ? 1 : 0;
        if (text.size() == sign || text.find_first_not_of("0123456789", sign) != std::string::npos) {
            return "\"" + text + "\" is not a whole number";
        }
        const size_t digits = text.find_first_not_of('0', sign);
        text.erase(sign, std::min(digits, text.size() - 1) - sign);
        return std::string();
    };
    return {strip, "", "decimal"};
}

CLI::Option* addDecimal(CLI::App& command, const std::string& name, double& value, const std::string& help,
                        double least, double most) {
    const auto check = [least, most](const std::string& text) {
        double number = 0;
        const bool isWithin = CLI::detail::lexical_cast(text, number) && number >= least && number <= most;
        std::ostringstream problem;
        problem << "Value " << text << " not in range " << least << " to " << most;
        return isWithin ? std::string() : problem.str();
    };
    return command.add_option(name, value, help)->check(check);
}

CLI::App* addCommand(const Place& place, const CommandText& text, std::function<void()> work) {
    CLI::App* command = place.app.add_subcommand(text.name, text.help);
    command->group(place.group);
    command->footer("Example:\n  kzble " + pathOf(*command) + (text.example.empty() ? "" : " " + text.example));
    command->callback([&chosen = place.chosen, command, work = std::move(work)] { chosen = {pathOf(*command), work}; });
    return command;
}

Parser::Parser(Session& session, Scope scope)
    : m_app("Talk to the camera as a phone, a remote or a sensor would", "kzble"), m_session(session) {
    m_app.require_subcommand(1);
    m_app.fallthrough();
    m_app.set_help_all_flag("--help-all", "Print the help of every command");
    addOptions(scope);
    addValueCommands(place().under("Values"));
    addWatchCommands(place().under("Values"));
    addControlCommands(place().under("Control"));
    addTimeCommands(place().under("Control"));
    addFeatureCommands(place().under("Features"));
    addFileCommands(place().under("Files"));
    addAccessoryCommands(place().under("Accessories and sensors"));
    addSensorCommands(place().under("Accessories and sensors"));
    addDescribeCommands(place().under("Protocol and daemon"));
    addRawCommands(place().under("Protocol and daemon"));
    addReplayCommand(place().under("Protocol and daemon"));
}

void Parser::addOptions(Scope scope) {
    auto& options = m_session.options;
    if (scope == Scope::CommandLine) {
        m_app.set_version_flag("--version", std::string("kzble ") + kzVersion);
        m_app
            .add_option("--socket", options.socket,
                        "The radio's socket (default: $KZ_RADIO_SOCKET, else the usual place)")
            ->group(kConnection);
        m_app.add_option("--address", options.address, "Our device address")->capture_default_str()->group(kConnection);
        addNumber(m_app, "--device-type", options.deviceType, "Our device type, for example 10 for a voice client", 0,
                  255)
            ->capture_default_str()
            ->group(kConnection);
        m_app
            .add_option("--record", options.recording,
                        "Record all that we send and get in this file (pcapng; `kzble replay` plays it again)")
            ->group(kConnection);
    }
    const std::map<std::string, int> units{{"ms", 1}, {"s", 1000}, {"min", 60000}};
    m_app
        .add_option("--timeout", options.timeoutMs,
                    "How long to wait for an answer, and for what `wait` waits for: 500, 500ms, 20s, 2min")
        ->transform(CLI::AsNumberWithUnit(units, CLI::AsNumberWithUnit::CASE_SENSITIVE, "TIME"))
        ->check(CLI::Range(1, kLongestTimeoutMs).description(""))
        ->type_name("TIME")
        ->group(kConnection);
    m_app
        .add_option("--catalogue", options.catalogue,
                    "settings.json(.gz) that gives names (default: $KZ_CATALOGUE, else the camera's own)")
        ->group(kOutput);
    m_app.add_flag("--trace", options.trace, "Print every packet, decoded, on standard error")->group(kOutput);
    m_app.add_flag("--json", options.json, "Print results as JSON, one object a line")->group(kOutput);
}

std::optional<Work> Parser::parse(std::vector<std::string> arguments) {
    std::reverse(arguments.begin(), arguments.end());  // as the library wants them
    try {
        m_app.parse(std::move(arguments));
    } catch (const CLI::Success& asked) {
        m_app.exit(asked, std::cout, std::cerr);
        return std::nullopt;
    } catch (const CLI::ParseError& error) {
        throw WrongUse(explain(error));
    }
    return m_chosen;
}

std::string Parser::commandSoFar() const {
    return pathOf(deepest(m_app));
}

// The library's words, or the nearest word where one is not known.
std::string Parser::explain(const CLI::ParseError& error) const {
    const CLI::App& at = deepest(m_app);
    const std::string path = commandSoFar();
    const std::string hint = " (see kzble " + path + (path.empty() ? "" : " ") + "--help)";
    const auto rest = m_app.remaining(true);
    const auto wrong = std::find_if(rest.begin(), rest.end(), [](const std::string& word) { return word != "--"; });
    if (wrong == rest.end()) {
        return error.what() + hint;
    }
    if (wrong->starts_with("-")) {
        auto names = optionNames(at);
        const auto global = optionNames(m_app);
        names.insert(names.end(), global.begin(), global.end());
        return "no option is called " + *wrong + kzclient::didYouMean(*wrong, names) + hint;
    }
    const auto commands = subcommandNames(at);
    const auto all = allCommands(m_app);
    const auto elsewhere =
        std::find_if(all.begin(), all.end(), [&](const CLI::App* command) { return command->get_name() == *wrong; });
    if (elsewhere != all.end() && (&at == &m_app || !commands.empty())) {
        return "the command is called \"" + pathOf(**elsewhere) + "\"" + hint;
    }
    if (commands.empty()) {
        return "\"" + *wrong + "\" is one argument too many" + hint;
    }
    return "no command is called \"" + *wrong + "\"" + kzclient::didYouMean(*wrong, commands) + hint;
}

}  // namespace kzble
