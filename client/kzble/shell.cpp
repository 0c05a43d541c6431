// `kzble shell`: lines from the terminal, with the history of earlier shells and completion from the parser.
#include <editline/readline.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>

#include "lines.h"

namespace kzble {

namespace {

using kzclient::Outcome;

constexpr int kHistoryLines = 1000;

// Completion's hook of the library takes no argument of ours.
Session* completed = nullptr;

std::string historyFile() {
    const char* home = std::getenv("HOME");
    return home == nullptr ? "" : std::string(home) + "/.kzble_history";
}

// The catalogue's names in a form that needs no quotation.
std::string plainForm(const std::string& name) {
    std::string text;
    for (const char c : name) {
        text += c == ' ' ? '-' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

void addCatalogueNames(const std::string& command, Words& words) {
    const auto& catalogue = completed->catalogue();
    if (command == "get" || command == "set" || command == "caps" || command == "names" || command == "wait") {
        for (const auto& [id, setting] : catalogue.settings()) {
            words.push_back(plainForm(setting.name));
        }
    }
    if (command == "status" || command == "wait") {
        for (const auto& [id, name] : catalogue.statuses()) {
            words.push_back(plainForm(name));
        }
    }
}

// What may stand behind the finished words of a line.
Words nextWords(const Words& before) {
    const Parser parser(*completed, Scope::Line);
    const CLI::App* at = &parser.app();
    for (const auto& word : before) {
        const auto named = at->get_subcommands([&](const CLI::App* sub) { return sub->get_name() == word; });
        at = named.empty() ? at : named.front();
    }
    Words words = subcommandNames(*at);
    addCatalogueNames(pathOf(*at), words);
    for (const CLI::App* app = at; app != nullptr; app = app->get_parent()) {
        const auto options = optionNames(*app);
        words.insert(words.end(), options.begin(), options.end());
    }
    return words;
}

// The library wants the words that begin with `text`, and before them what they have in common; all from malloc.
char** completeWord(const char* text, int start, int) {
    rl_attempted_completion_over = 1;  // no file names
    Words words;
    try {
        words = nextWords(splitLine(std::string(rl_line_buffer, static_cast<size_t>(start))));
    } catch (const std::exception&) {
        return nullptr;  // an open quotation, or no catalogue: nothing to offer
    }
    const std::string begun = plainForm(text);
    std::erase_if(words, [&](const std::string& word) { return !word.starts_with(begun); });
    std::sort(words.begin(), words.end());
    words.erase(std::unique(words.begin(), words.end()), words.end());
    if (words.empty()) {
        return nullptr;
    }
    const auto& first = words.front();
    const auto& last = words.back();
    const auto common = std::mismatch(first.begin(), first.end(), last.begin(), last.end()).first - first.begin();
    auto** matches = static_cast<char**>(std::calloc(words.size() + 2, sizeof(char*)));
    matches[0] = strdup(first.substr(0, static_cast<size_t>(common)).c_str());
    for (size_t i = 0; i < words.size(); ++i) {
        matches[i + 1] = strdup(words[i].c_str());
    }
    return matches;
}

// The next line; nothing at the end of the input. An interrupt drops what was typed.
std::optional<std::string> readLine() {
    for (;;) {
        if (char* const typed = readline("kzble> ")) {
            const std::string line(typed);
            std::free(typed);
            kzclient::forgetInterrupt();  // it ends no command that is yet to come
            return line;
        }
        if (!kzclient::forgetInterrupt()) {
            return std::nullopt;
        }
        std::cout << std::endl;
    }
}

void readTerminal(Session& session) {
    completed = &session;
    rl_readline_name = "kzble";
    rl_completer_word_break_characters = const_cast<char*>(" \t");
    rl_attempted_completion_function = completeWord;
    using_history();
    stifle_history(kHistoryLines);
    const std::string history = historyFile();
    read_history(history.c_str());
    LinePlace place{"shell", 0};
    while (const auto line = readLine()) {
        if (*line == "exit" || *line == "quit") {
            return;
        }
        if (line->find_first_not_of(" \t") != std::string::npos) {
            add_history(line->c_str());
            write_history(history.c_str());
        }
        ++place.number;
        runLine(session, *line, place);
        session.interrupted = false;  // that was for the line alone
    }
    std::cout << std::endl;
}

}  // namespace

Outcome runShell(Session& session) {
    session.client();  // a shell without a camera says so at once
    if (isatty(STDIN_FILENO) != 0) {
        readTerminal(session);
        return Outcome::Done;
    }
    LinePlace place{"standard input", 0};
    std::string line;
    while (!session.interrupted && std::getline(std::cin, line) && line != "exit" && line != "quit") {
        ++place.number;
        runLine(session, line, place);
    }
    kzclient::checkInterrupt();
    return Outcome::Done;
}

}  // namespace kzble
