// The manual page and the completion of bash, made from the parser so that they cannot differ from it.
#include <algorithm>
#include <sstream>

#include "lines.h"

namespace kzble {

namespace {

constexpr const char* kManHead = R"(.TH KZBLE 1 "" "kzBleSdkD" "User commands"
.SH NAME
kzble \- talk to the camera as a phone, a remote or a sensor would
.SH SYNOPSIS
.B kzble
.RI [ options ]
.I command
.RI [ arguments ]
.SH DESCRIPTION
Connects to the simulated radio, does one thing, prints what came of it and exits.
.B kzble shell
and
.B kzble script
do several things on one connection.
Options of all commands may stand before the command or behind it.
Settings, status fields and options are given by number or by name; in names case does not count, and a hyphen,
an underscore and a blank are the same.
)";

constexpr const char* kManTail = R"(.SH EXIT STATUS
.TP
.B 0
done
.TP
.B 1
any other failure; answers that differ from a recording
.TP
.B 2
the camera refused
.TP
.B 3
timed out, or fewer changes came than were wanted; a request that timed out may still be carried out
.TP
.B 4
no camera or no daemon, or it went away
.TP
.B 64
wrong use: words, numbers or dates that make no sense
.TP
.B 130
interrupted, except for what has no other end, such as
.B watch
.PP
With
.B --json
a failure is one object on standard output with
.IR code ", " name ", " command ", " result
and
.IR message ;
in a script also
.IR file " and " line .
.SH ENVIRONMENT
.TP
.B KZ_RADIO_SOCKET
the radio's socket
.TP
.B KZ_CATALOGUE
the catalogue that gives names
.SH FILES
.TP
.I ~/.kzble_history
the lines of earlier shells
.SH SEE ALSO
.BR kzcamctl (1),
.BR kzBleSdkD (8)
)";

std::string escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += c == '-' || c == '\\' ? std::string("\\") + c : std::string(1, c);
    }
    return result;
}

bool isShown(const CLI::Option* option) {
    return !option->get_group().empty() && !option->check_lname("help") && !option->check_lname("help-all");
}

void writeOptions(const CLI::App& app, const char* indent, std::ostream& out) {
    for (const CLI::Option* option : app.get_options(isShown)) {
        const std::string name = option->get_positional() ? option->get_name(true) : option->get_name(false, true);
        const std::string takes = option->get_items_expected_max() > 0 && !option->get_positional() ? " VALUE" : "";
        out << indent << ".TP\n.B " << escaped(name) << escaped(takes) << '\n'
            << escaped(option->get_description().empty() ? name : option->get_description()) << '\n';
    }
}

// "set setting option [options]"
std::string synopsis(const CLI::App& command) {
    std::string text = pathOf(command);
    bool options = false;
    for (const CLI::Option* option : command.get_options(isShown)) {
        if (option->get_positional()) {
            const std::string name = option->get_name(true);
            text += option->get_required() ? " " + name : " [" + name + "]";
        } else {
            options = true;
        }
    }
    return text + (options ? " [options]" : "");
}

void writeCommand(const CLI::App& command, std::ostream& out) {
    if (!command.get_subcommands([](const CLI::App*) { return true; }).empty()) {
        return;  // its commands follow
    }
    out << ".TP\n.B " << escaped(synopsis(command)) << '\n' << escaped(command.get_description()) << ".\n";
    const auto options = command.get_options(isShown);
    if (!options.empty()) {
        out << ".RS\n";
        writeOptions(command, "", out);
        out << ".RE\n";
    }
    const std::string footer = command.get_footer();
    out << ".IP\n.EX\n" << escaped(footer.substr(footer.find("kzble "))) << "\n.EE\n";
}

std::vector<std::string> groupsOf(const CLI::App& app) {
    std::vector<std::string> groups;
    for (const CLI::App* sub : app.get_subcommands([](const CLI::App* one) { return !one->get_group().empty(); })) {
        if (std::find(groups.begin(), groups.end(), sub->get_group()) == groups.end()) {
            groups.push_back(sub->get_group());
        }
    }
    return groups;
}

const CLI::App& topmost(const CLI::App& command) {
    return command.get_parent()->get_parent() == nullptr ? command : topmost(*command.get_parent());
}

}  // namespace

std::string manPage() {
    Session session;
    Parser parser(session, Scope::CommandLine);
    kzclient::Outcome ignored{};
    addLineCommands(parser, session, ignored);
    std::ostringstream out;
    out << kManHead
        << ".SH OPTIONS\n.TP\n.B \\-\\-help, \\-\\-help\\-all\nSay what there is, for a command or for all\n";
    writeOptions(parser.app(), "", out);
    out << ".SH COMMANDS\n";
    for (const auto& group : groupsOf(parser.app())) {
        out << ".SS " << group << '\n';
        for (const CLI::App* command : allCommands(parser.app())) {
            if (topmost(*command).get_group() == group) {
                writeCommand(*command, out);
            }
        }
    }
    out << kManTail;
    return out.str();
}

std::string bashCompletion() {
    Session session;
    Parser parser(session, Scope::CommandLine);
    kzclient::Outcome ignored{};
    addLineCommands(parser, session, ignored);
    std::ostringstream out;
    out << "# Completion of kzble's commands and options.\n_kzble() {\n    local word path= words\n"
           "    for word in \"${COMP_WORDS[@]:1:COMP_CWORD-1}\"; do\n"
           "        case \"$path $word\" in\n";
    const auto commands = allCommands(parser.app());
    for (const CLI::App* command : commands) {
        out << "            \" " << pathOf(*command) << "\") path=\" " << pathOf(*command) << "\" ;;\n";
    }
    out << "        esac\n    done\n    case $path in\n";
    const auto row = [&](const CLI::App& app, const std::string& pattern) {
        out << "        " << pattern << ") words=\"";
        for (const auto& name : subcommandNames(app)) {
            out << name << ' ';
        }
        for (const auto& name : optionNames(app)) {
            out << name << ' ';
        }
        out << "\" ;;\n";
    };
    row(parser.app(), "\"\"");
    for (const CLI::App* command : commands) {
        row(*command, "\" " + pathOf(*command) + "\"");
    }
    out << "    esac\n    [[ -n $path ]] && words+=\"";
    for (const auto& name : optionNames(parser.app())) {
        out << name << ' ';
    }
    out << "\"\n    COMPREPLY=($(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\"))\n"
           "    ((${#COMPREPLY[@]})) || COMPREPLY=($(compgen -f -- \"${COMP_WORDS[COMP_CWORD]}\"))\n}\n"
           "complete -F _kzble kzble\n";
    return out.str();
}

}  // namespace kzble
