// What every kzble command works with: the options of the command line, the connection (made on first use) and the
// catalogue.
#pragma once

#include <CLI/CLI.hpp>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "bleClient.h"
#include "catalogue.h"
#include "recording.h"

namespace kzble {

using kzclient::Bytes;
using kzclient::Error;

class Session {
  public:
    // The global options, filled by the command line.
    struct Options {
        std::string socket;
        std::string address = "02:00:00:00:00:01";
        unsigned deviceType = 0;
        int timeoutMs = 5000;
        std::string catalogue;
        std::string recording;
        bool trace = false;
        bool json = false;
    };

    void addOptions(CLI::App& app);

    // Connects on first use and enables notifications.
    kzclient::BleClient& client();
    // A connection of its own for a device that is not a phone.
    std::unique_ptr<kzclient::BleClient> connectAs(uint8_t deviceType, bool cameraIsCentral);
    const kzclient::Catalogue& catalogue();

    // Prints a result: the JSON when it was asked for, else the text.
    void print(const nlohmann::ordered_json& json, const std::string& text) const;
    // "ok", for commands without a result of their own.
    void printDone() const;

    Options options;

  private:
    std::unique_ptr<kzclient::BleClient> m_client;
    std::optional<kzclient::Catalogue> m_catalogue;
    Recording m_recording;
};

// Registers a subcommand whose work runs after the whole command line was parsed.
template <typename Work>
CLI::App* addCommand(CLI::App& app, const std::string& name, const std::string& help, Work work) {
    CLI::App* command = app.add_subcommand(name, help);
    command->callback(std::move(work));
    return command;
}

// Each adds one family of commands.
void addControlCommands(CLI::App& app, Session& session);
void addValueCommands(CLI::App& app, Session& session);
void addFeatureCommands(CLI::App& app, Session& session);
void addWatchCommand(CLI::App& app, Session& session);
void addFileCommands(CLI::App& app, Session& session);
void addSensorCommands(CLI::App& app, Session& session);
void addDescribeCommands(CLI::App& app, Session& session);
void addReplayCommand(CLI::App& app, Session& session);

// Big-endian, in as many bytes as asked.
Bytes number(uint64_t value, size_t width);
// Hexadecimal digits, blanks and colons allowed. Throws Error.
Bytes parseHex(const std::string& text);

}  // namespace kzble
