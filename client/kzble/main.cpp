// kzble: a phone on the command line. It connects to the camera over the simulated radio, does one thing, says what
// came of it and exits; non-zero when the camera refused or could not be reached.
#include <CLI/CLI.hpp>
#include <iostream>

#include "kzVersion.h"
#include "session.h"

int main(int argc, char** argv) {
    CLI::App app{"Talk to the camera as a phone, a remote or a sensor would"};
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("kzble ") + kzVersion);
    app.set_help_all_flag("--help-all", "Print the help of every command");

    kzble::Session session;
    session.addOptions(app);
    kzble::addControlCommands(app, session);
    kzble::addValueCommands(app, session);
    kzble::addFeatureCommands(app, session);
    kzble::addWatchCommand(app, session);
    kzble::addFileCommands(app, session);
    kzble::addSensorCommands(app, session);
    kzble::addDescribeCommands(app, session);

    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const kzclient::Refused& refused) {
        std::cerr << "kzble: " << refused.what() << '\n';
        return 2;
    } catch (const std::exception& error) {
        std::cerr << "kzble: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
