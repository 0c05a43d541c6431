// kzdesk: reaches the simulated camera over HTTP, so that an app's own code, a browser or a test can be a device. It
// listens on this machine alone unless it is told otherwise. SIGTERM or SIGINT ends it in order, with status 0.
#include <pthread.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <exception>
#include <string>
#include <thread>

#include "api.h"
#include "closedStreams.h"
#include "hostCheck.h"
#include "httpServer.h"
#include "kzVersion.h"
#include "places.h"

namespace {

using namespace kzdesk;

constexpr int kWrongUse = 64;

// Blocked in every thread, so that they wait for the main one.
sigset_t blockStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

int serve(const ListenAddress& wanted, const std::string& protocol, const std::string& catalogue,
          const std::string& web) {
    const sigset_t signals = blockStopSignals();
    Api api(protocol, catalogue);
    HttpServer server(api, web);
    const auto address = server.bind(wanted);
    if (!address) {
        std::fprintf(stderr, "kzdesk: cannot listen at %s\n", wanted.url().c_str());
        return 1;
    }
    std::thread listening([&server] { server.serve(); });
    std::printf("kzdesk: %s\n", address->url().c_str());
    std::fflush(stdout);
    int signal = 0;
    sigwait(&signals, &signal);
    api.stop();
    server.stop();
    listening.join();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    kzsim::occupyClosedStreams();
    CLI::App app("Reaches the simulated camera over HTTP. The camera is found as kzble and kzcamctl find it.");
    std::string listen;
    std::string protocol = protocolPlace();
    std::string catalogue = cataloguePlace();
    std::string web = webPlace();
    app.add_option("--listen", listen, "[HOST:]PORT; without HOST this machine alone, port 0 is any free one")
        ->required();
    app.add_option("--protocol", protocol, "protocol.json")->capture_default_str();
    app.add_option("--catalogue", catalogue, "settings.json of the camera")->capture_default_str();
    app.add_option("--web", web, "folder of the page")->check(CLI::ExistingDirectory)->capture_default_str();
    app.set_version_flag("--version", std::string("kzdesk ") + kzVersion);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kWrongUse;
    }
    const auto address = ListenAddress::parse(listen);
    if (!address) {
        std::fprintf(stderr, "kzdesk: \"%s\" is no [HOST:]PORT\n", listen.c_str());
        return kWrongUse;
    }
    try {
        return serve(*address, protocol, catalogue, web);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kzdesk: %s\n", error.what());
        return 1;
    }
}
