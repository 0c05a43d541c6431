// kzPlatformCheck: says which of the promises that kzBleSdkD relies on a camera keeps. One row a promise.
#include <CLI/CLI.hpp>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "kzVersion.h"
#include "trial.h"

namespace {

using namespace kzcheck;
using Json = nlohmann::ordered_json;

enum ExitStatus { kAllKept = 0, kSomethingBroken = 1, kWrongUse = 64 };

constexpr const char* kFooter =
    "Libraries that are not named are found as the dynamic loader finds them. Stop kzBleSdkD first, and use a camera "
    "that nobody else uses.\n"
    "Exit status: 0 nothing is broken, 1 something is, 64 wrong use.";

const std::map<std::string, Services> kServiceStates{
    {"running", Services::Running}, {"absent", Services::Absent}, {"hung", Services::Hung}};

const char* nameOf(Result result) {
    return result == Result::Kept ? "ok" : result == Result::Broken ? "broken" : "not tried";
}

const char* nameOf(Services services) {
    for (const auto& [name, state] : kServiceStates) {
        if (state == services) {
            return name.c_str();
        }
    }
    return "";
}

std::vector<Promise> allPromises() {
    std::vector<Promise> all;
    for (const auto& some : {libraryPromises(), controlPromises(), csiPromises(), ipcPromises(), queuePromises(),
                             subscriptionPromises(), failurePromises()}) {
        all.insert(all.end(), some.begin(), some.end());
    }
    return all;
}

// Whether a promise is among those that the user named; "csi" names all that begin with "csi.".
bool isNamed(const Promise& promise, const std::vector<std::string>& names) {
    const std::string_view name = promise.name;
    return names.empty() || std::any_of(names.begin(), names.end(), [&](const std::string& one) {
               return name == one || name.starts_with(one + '.');
           });
}

struct Finding {
    Promise promise;
    Outcome outcome;
};

// The table's columns: name, result, promise, what was seen.
constexpr const char* kRow = "%-17s %-9s  %-84s  %s\n";

void printRow(const Finding& finding) {
    std::printf(kRow, finding.promise.name, nameOf(finding.outcome.result), finding.promise.text,
                finding.outcome.seen.c_str());
    std::fflush(stdout);
}

size_t count(const std::vector<Finding>& findings, Result result) {
    return static_cast<size_t>(std::count_if(findings.begin(), findings.end(),
                                             [&](const Finding& one) { return one.outcome.result == result; }));
}

void printJson(const std::vector<Finding>& findings) {
    Json rows = Json::array();
    for (const Finding& finding : findings) {
        rows.push_back({{"name", finding.promise.name},
                        {"promise", finding.promise.text},
                        {"result", nameOf(finding.outcome.result)},
                        {"seen", finding.outcome.seen}});
    }
    const Json report{{"version", kzVersion},
                      {"promises", rows},
                      {"kept", count(findings, Result::Kept)},
                      {"broken", count(findings, Result::Broken)},
                      {"notTried", count(findings, Result::NotTried)}};
    std::puts(report.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

void printList(const std::vector<Promise>& promises) {
    for (const Promise& promise : promises) {
        std::printf("%-17s %-8s %s\n", promise.name, nameOf(promise.services), promise.text);
    }
}

// The files to load: paths for those that the user named, names for the dynamic loader to find.
std::array<std::string, 3> filesOf(const std::string& folder, const std::array<std::string, 3>& named) {
    std::array<std::string, 3> files;
    for (size_t i = 0; i < files.size(); ++i) {
        if (!named[i].empty()) {
            files[i] = std::filesystem::absolute(named[i]).string();
        } else {
            files[i] =
                folder.empty() ? kLibraryFiles[i] : (std::filesystem::absolute(folder) / kLibraryFiles[i]).string();
        }
    }
    return files;
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app("Checks which of the promises that kzBleSdkD relies on a camera keeps.");
    app.set_version_flag("--version", std::string("kzPlatformCheck ") + kzVersion);
    app.footer(kFooter);
    std::string folder;
    std::array<std::string, 3> named;
    std::string state = "running";
    double patience = 10;
    bool json = false;
    bool list = false;
    std::vector<std::string> names;
    app.add_option("--library-path", folder, "the folder of the three libraries")->check(CLI::ExistingDirectory);
    app.add_option("--kzCtrlD", named[0], "libkzCtrlD.so")->check(CLI::ExistingFile);
    app.add_option("--csi", named[1], "libcsi.so")->check(CLI::ExistingFile);
    app.add_option("--kzipc", named[2], "libkzipc.so")->check(CLI::ExistingFile);
    app.add_option("--services", state, "what the services behind them are doing: running (the default), absent, hung")
        ->check(CLI::IsMember(kServiceStates).description("STATE"));
    app.add_option("--patience", patience, "seconds after which a check is stopped; 10")
        ->check(CLI::Range(0.1, 600.0))
        ->check(
            [](const std::string& text) { return std::string(std::isnan(std::stod(text)) ? "it is no number" : ""); });
    app.add_flag("--json", json, "print one JSON object");
    app.add_flag("--list", list, "print the promises, and check none");
    app.add_option("PROMISE", names, "only these: names as --list prints them, or what stands before their dot");
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success& asked) {
        return app.exit(asked);
    } catch (const CLI::ParseError& error) {
        app.exit(error);
        return kWrongUse;
    }

    const Services services = kServiceStates.at(state);
    const std::vector<Promise> all = allPromises();
    for (const std::string& name : names) {
        if (std::none_of(all.begin(), all.end(), [&](const Promise& one) { return isNamed(one, {name}); })) {
            std::fprintf(stderr, "kzPlatformCheck: there is no promise \"%s\"; --list prints them\n", name.c_str());
            return kWrongUse;
        }
    }
    if (list) {
        printList(all);
        return kAllKept;
    }

    removeQueueOnInterrupt();
    const TrialOptions options{filesOf(folder, named), static_cast<int>(patience * 1000)};
    std::vector<Finding> findings;
    if (!json) {
        std::printf(kRow, "NAME", "RESULT", "PROMISE", "SEEN");
    }
    for (const Promise& promise : all) {
        if (promise.services != services || !isNamed(promise, names)) {
            continue;
        }
        findings.push_back({promise, tryPromise(promise, options)});
        if (!json) {
            printRow(findings.back());
        }
    }
    if (findings.empty()) {
        std::fprintf(stderr, "kzPlatformCheck: none of these is checked with --services %s\n", nameOf(services));
        return kWrongUse;
    }
    if (json) {
        printJson(findings);
    } else {
        std::printf("%zu ok, %zu broken, %zu not tried\n", count(findings, Result::Kept),
                    count(findings, Result::Broken), count(findings, Result::NotTried));
    }
    return count(findings, Result::Broken) == 0 ? kAllKept : kSomethingBroken;
}
