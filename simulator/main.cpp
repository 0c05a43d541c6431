// kzCameraSim: the camera around the BLE daemon, in one process. Reads the command line, wires the roles to the camera
// they share, says "ready" and runs until SIGTERM or SIGINT.
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "cameraIds.h"
#include "closedStreams.h"
#include "console.h"
#include "consoleWire.h"
#include "csi/csiKeys.h"
#include "kzVersion.h"
#include "networkFeatures.h"
#include "report.h"
#include "scenario.h"
#include "skylark/bleMessage.h"
#include "utils.h"

namespace {

using namespace kzsim;

struct Options {
    std::string settings;
    std::string state;
    unsigned model = 58;
    RadioStack::Options radio;
    long networkDepth = 40;
    std::string metadataFile;
    std::string recording;
    bool life = false;
    unsigned secondMs = 1000;
    bool verbose = false;
    int readyFd = -1;
};

constexpr const char* kFooter =
    "Sockets, each from its environment variable if that is set:\n"
    "  KZ_CTRL_SOCKET     /tmp/kzcamera/control   control daemon, for libkzCtrlD.so\n"
    "  KZ_CSI_SOCKET      /tmp/kzcamera/csi       CSI service, for libcsi.so\n"
    "  KZ_IPC_SOCKET      /tmp/kzcamera/ipc       metadata service, for libkzipc.so\n"
    "  KZ_RADIO_SOCKET    /tmp/kzcamera/radio     radio, for devices such as kzble\n"
    "  KZ_CONSOLE_SOCKET  /tmp/kzcamera/console   console, for kzcamctl\n"
    "Queues: /Mq_to_BleSdk, /Mq_to_Skylark and /to_kznet are created and removed again. The depths given here need\n"
    "/proc/sys/fs/mqueue/msg_max to be at least as high.";

void describe(CLI::App& app, Options& options) {
    app.add_option(
        "--settings", options.settings,
        "settings.json of the camera; by default /usr/local/zorvik/etc/MODEL/settings.json, or where there is none the "
        "installation's share/kzcamerasim/MODEL/settings.json");
    app.add_option(
        "--state", options.state,
        "current values at the start, as a push document; by default state.json beside the settings, if any");
    app.add_option("--model", options.model, "model number")->check(CLI::Range(0u, 255u))->capture_default_str();
    app.add_option("--skylark-depth", options.radio.outboundDepth, "depth of /Mq_to_Skylark")->capture_default_str();
    app.add_option("--blesdk-depth", options.radio.inboundDepth, "depth of /Mq_to_BleSdk")->capture_default_str();
    app.add_option("--kznet-depth", options.networkDepth, "depth of /to_kznet")->capture_default_str();
    app.add_option("--metadata-file", options.metadataFile, "append received metadata payloads to this file");
    app.add_option("--record", options.recording,
                   "record all that devices send and get in this file (pcapng; packaging/wireshark decodes it)");
    app.add_flag("--life", options.life, "let the camera live: battery, recordings, card, sleep, once a minute");
    app.add_option("--second", options.secondMs, "milliseconds of a camera second")
        ->check(CLI::Range(1u, 60000u))
        ->capture_default_str();
    app.add_option("--ready-fd", options.readyFd, "write \"ready\" to this descriptor instead of standard output");
    app.add_flag("-v,--verbose", options.verbose, "tell what happens on standard error");
    app.footer(kFooter);
}

std::string readFile(const std::string& path) {
    std::ifstream file(path);
    if (!file) {
        throw std::runtime_error("cannot read " + path);
    }
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

// The prefix that this program is installed under.
std::filesystem::path installation() {
    std::error_code unknown;
    return std::filesystem::read_symlink("/proc/self/exe", unknown).parent_path().parent_path();
}

std::string settingsPath(const Options& options) {
    if (!options.settings.empty()) {
        return options.settings;
    }
    const char* const name = get_model_name(static_cast<int>(options.model));
    if (name == nullptr) {
        throw std::runtime_error("no model has the number " + std::to_string(options.model));
    }
    const std::string file = std::string(name) + "/settings.json";
    const std::string ofCamera = "/usr/local/zorvik/etc/" + file;
    const auto ofInstallation = installation() / "share/kzcamerasim" / file;
    std::error_code ignored;
    const bool onlyInstalled =
        !std::filesystem::exists(ofCamera, ignored) && std::filesystem::exists(ofInstallation, ignored);
    return onlyInstalled ? ofInstallation.string() : ofCamera;
}

CameraModel makeCamera(const Options& options) {
    const std::string settings = settingsPath(options);
    CameraModel camera(Catalogue::load(settings), static_cast<uint8_t>(options.model));
    const auto besideSettings = std::filesystem::path(settings).replace_filename("state.json");
    if (!options.state.empty()) {
        camera.applyState(readFile(options.state));
    } else if (std::filesystem::exists(besideSettings)) {
        camera.applyState(readFile(besideSettings));
    }
    return camera;
}

void sayReady(int descriptor) {
    constexpr std::string_view kReady = "ready\n";
    if (write(descriptor < 0 ? STDOUT_FILENO : descriptor, kReady.data(), kReady.size()) < 0) {
        warn("camera", "nobody hears that it is ready");
    }
    if (descriptor >= 0) {
        close(descriptor);
    }
}

// SIGTERM and SIGINT arrive as events of the loop.
Descriptor watchSignals(EventLoop& loop) {
    sigset_t stopping;
    sigemptyset(&stopping);
    sigaddset(&stopping, SIGTERM);
    sigaddset(&stopping, SIGINT);
    sigprocmask(SIG_BLOCK, &stopping, nullptr);
    Descriptor signals(signalfd(-1, &stopping, SFD_CLOEXEC | SFD_NONBLOCK));
    loop.watch(signals.get(), POLLIN, [&loop](short) { loop.stop(); });
    return signals;
}

std::unique_ptr<RadioStack> startRadio(EventLoop& loop, CameraModel& camera, const RadioStack::Options& options,
                                       RadioTap& tap) {
    auto radio = std::make_unique<RadioStack>(loop, options, tap);
    radio->onConnections = [&camera](size_t connections, uint8_t deviceType, bool opened) {
        camera.connectionsChanged(connections, deviceType, opened);
    };
    radio->onConnections(0, KZ_CALLER_UNKNOWN, false);
    return radio;
}

std::unique_ptr<NetworkDaemon> startNetwork(EventLoop& loop, CameraModel& camera, NetworkFeatures& features,
                                            long queueDepth) {
    auto network = std::make_unique<NetworkDaemon>(loop, camera, queueDepth);
    network->onWritten = [&features](uint8_t key) { features.csiWritten(key); };
    return network;
}

void run(const Options& options) {
    if (someoneListensAt(kConsoleEndpoint.address())) {
        throw std::runtime_error(std::string("another kzCameraSim runs at ") + kConsoleEndpoint.address());
    }
    EventLoop loop;
    const Descriptor signals = watchSignals(loop);
    CameraModel camera = makeCamera(options);
    NetworkFeatures features(loop, camera);
    RadioTap tap(options.recording);
    Part<RadioStack> radio("radio", [&] { return startRadio(loop, camera, options.radio, tap); });
    Part<ControlDaemon> control("control", [&] { return std::make_unique<ControlDaemon>(loop, camera); });
    Part<NetworkDaemon> network("network", [&] { return startNetwork(loop, camera, features, options.networkDepth); });
    Part<MetadataService> metadata("metadata",
                                   [&] { return std::make_unique<MetadataService>(loop, options.metadataFile); });
    Scenario scenario(loop, camera, options.life, std::chrono::milliseconds(options.secondMs));
    Console console(loop, {camera, radio, control, network, metadata});

    // What changes while a part is killed, it finds in the camera when it starts anew.
    camera.onSetting = [&control](uint32_t id) { control.running() ? control->settingChanged(id) : void(); };
    camera.onStatus = [&control](uint32_t id) { control.running() ? control->statusChanged(id) : void(); };
    camera.onCsi = [&network](uint8_t key) { network.running() ? network->csiChanged(key) : void(); };

    sayReady(options.readyFd);
    loop.run();
    camera.onStatus = [](uint32_t) {};  // the roles go one by one; none is told of the others' end
}

}  // namespace

int main(int argc, char** argv) {
    kzsim::occupyClosedStreams();
    CLI::App app(
        "kzCameraSim plays the camera around kzBleSdkD: radio stack, control daemon, network daemon with the CSI "
        "service, and metadata service. Poke it with kzcamctl.");
    app.set_version_flag("--version", std::string("kzCameraSim ") + kzVersion);
    Options options;
    describe(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : static_cast<int>(Outcome::WrongUse);
    }
    setVerbose(options.verbose);
    g_debug_level = 0;  // the common library's dumps are the daemon's, not ours
    try {
        run(options);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "kzCameraSim: %s\n", error.what());
        return 1;
    }
    return 0;
}
