// Files from the camera: its catalogue, and the firmware that it has for its accessories.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "session.h"
#include "skylark/bleMessage.h"

namespace kzble {

namespace {

using std::chrono::steady_clock;

constexpr uint8_t kFetchSettings = 59;
constexpr uint8_t kClientInfo = 28;
constexpr size_t kImageHeaderSize = 20;

// A progress bar on standard error, on a terminal only.
class Progress {
  public:
    explicit Progress(std::string what) : m_what(std::move(what)), m_shown(isatty(STDERR_FILENO) != 0) {}

    void show(size_t done, size_t total) const {
        if (!m_shown || total == 0) {
            return;
        }
        constexpr size_t kWidth = 40;
        const std::string bar(kWidth * done / total, '#');
        std::fprintf(stderr, "\r%s [%-40s] %3zu%% %.1f kB/s", m_what.c_str(), bar.c_str(), 100 * done / total,
                     rate(done));
        std::fflush(stderr);
    }
    void end() const {
        if (m_shown) {
            std::fputc('\n', stderr);
        }
    }
    // Kilobytes a second so far.
    double rate(size_t done) const {
        const double seconds = std::chrono::duration<double>(steady_clock::now() - m_start).count();
        return seconds > 0 ? static_cast<double>(done) / 1000.0 / seconds : 0.0;
    }

  private:
    std::string m_what;
    bool m_shown;
    steady_clock::time_point m_start = steady_clock::now();
};

void writeFile(const std::string& path, const std::string& content) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    if (!file.flush()) {
        throw Error("cannot write " + path);
    }
}

void fetchSettings(Session& session, const std::string& path) {
    auto& client = session.client();
    client.sendCommand(kFetchSettings);
    const Progress progress("catalogue");
    Bytes message;
    while (message.empty()) {
        // A transfer may pause while the radio is busy: the time-out counts from the last message or packet.
        const auto received = client.receiveWithProgress(
            client.timeout(), [&](const auto& state) { progress.show(state.first, state.second); });
        if (!received) {
            throw Error("the transfer stopped");
        }
        if (received->streamId == KZ_STR_ID_COMMAND_RESPONSE && !received->bytes.empty() &&
            received->bytes[0] == kFetchSettings) {
            message = received->bytes;
        }
    }
    progress.end();
    if (message.size() < 2 || message[1] != 0) {
        const uint8_t result = message.size() < 2 ? 1 : message[1];
        throw kzclient::Refused("the transfer was refused: " + kzclient::describeResult(result), result);
    }
    const std::string compressed(message.begin() + 2, message.end());
    const auto catalogue = kzclient::Catalogue::parse(kzclient::gunzip(compressed));
    writeFile(path, compressed);
    char rate[32];
    std::snprintf(rate, sizeof(rate), "%.1f", progress.rate(compressed.size()));
    session.print({{"file", path},
                   {"bytes", compressed.size()},
                   {"settings", catalogue.settings().size()},
                   {"statuses", catalogue.statuses().size()}},
                  path + ": " + std::to_string(compressed.size()) + " bytes at " + rate + " kB/s, " +
                      std::to_string(catalogue.settings().size()) + " settings, " +
                      std::to_string(catalogue.statuses().size()) + " status fields");
}

// What distinguishes the two kinds of accessory that take firmware from the camera.
struct Accessory {
    const char* name;
    const char* help;
    uint8_t normalType;       // device type of its connection before the update
    uint8_t updateType;       // and in update mode
    uint8_t informationType;  // in its client information
    uint8_t rebootStream;
    uint8_t rebootByte;
    uint8_t endByte;
    const char* imagePrefix;
};

constexpr Accessory kAccessories[] = {
    {"remote", "Be a remote that takes its firmware as one stream", KZ_CALLER_BLE_RC, KZ_CALLER_ALDER, 3,
     KZ_STR_ID_REBOOT_OTA, 2, 7, "KZ_REMOTE_FW"},
    {"shutter-remote", "Be a remote that fetches its firmware block by block", KZ_CALLER_BLE_RC, KZ_CALLER_MAPLE, 5,
     KZ_STR_ID_SENSOR_RESPONSE, 1, 1, "KZ_SHUTTER_REMOTE_FW"},
};

struct Firmware {
    uint8_t major = 0;
    uint8_t minor = 0;
    uint8_t build = 0;
    uint8_t battery = 100;
    uint16_t blockSize = 500;
    std::string image;
    bool reportError = false;
    int waitSeconds = 30;
};

// The first image for the accessory in the camera's directories: what we must receive.
std::string findImage(const Accessory& accessory) {
    for (const char* directory : {"/tmp/fuse_d", "/usr/local/zorvik/tftp"}) {
        std::vector<std::string> names;
        std::error_code ignored;
        for (const auto& entry : std::filesystem::directory_iterator(directory, ignored)) {
            const std::string name = entry.path().filename();
            if (name.starts_with(accessory.imagePrefix) && name.find(".bin") != std::string::npos) {
                names.push_back(entry.path());
            }
        }
        if (!names.empty()) {
            return *std::min_element(names.begin(), names.end());
        }
    }
    throw Error("no image to compare with; name it with --image");
}

class AccessoryUpdate {
  public:
    AccessoryUpdate(Session& session, const Accessory& accessory, const Firmware& firmware)
        : m_session(session), m_accessory(accessory), m_firmware(firmware) {}

    void run() {
        const std::string path = m_firmware.image.empty() ? findImage(m_accessory) : m_firmware.image;
        const std::string file = kzclient::readFile(path);
        if (file.size() < kImageHeaderSize) {
            throw Error(path + " is not an image");
        }
        const std::string image = file.substr(kImageHeaderSize);
        introduce();
        const std::string received = receiveImage(image.size());
        if (m_firmware.reportError) {
            m_session.print({{"result", "error reported"}, {"bytes", received.size()}},
                            "reported an error after " + std::to_string(received.size()) + " bytes");
            return;
        }
        if (received != image) {
            throw Error("the image arrived damaged: " + std::to_string(received.size()) + " of " +
                        std::to_string(image.size()) + " bytes");
        }
        m_session.print({{"result", "updated"}, {"image", path}, {"bytes", received.size()}},
                        "received " + path + " whole: " + std::to_string(received.size()) + " bytes, byte for byte");
    }

  private:
    // Connects as itself, says its version and waits to be asked to restart into update mode.
    void introduce() {
        const auto client = m_session.connectAs(m_accessory.normalType, true);
        const Bytes record{
            1, m_accessory.informationType, m_firmware.major, m_firmware.minor, m_firmware.build, m_firmware.battery,
            0};
        client->command(kClientInfo, {record});
        say("told the camera our version; waiting for its request to restart");
        const auto deadline = steady_clock::now() + std::chrono::seconds(m_firmware.waitSeconds);
        while (const auto packet = client->receivePacket(deadline)) {
            if (packet->streamId == m_accessory.rebootStream && packet->bytes == Bytes{m_accessory.rebootByte}) {
                say("the camera asks us to restart into update mode");
                return;
            }
        }
        throw Error("the camera has no update for us");
    }

    std::string receiveImage(size_t size) {
        const auto client = m_session.connectAs(m_accessory.updateType, true);
        const bool blocks = m_accessory.updateType == KZ_CALLER_MAPLE;
        Bytes start{1};
        if (blocks) {
            const Bytes blockSize = number(m_firmware.blockSize, 2);
            start.insert(start.end(), blockSize.begin(), blockSize.end());
        }
        client->link().send(KZ_STR_ID_START_OTA, start);
        const Progress progress("firmware");
        std::string image;
        size_t inBlock = 0;
        while (const auto packet = client->receivePacket(steady_clock::now() + client->timeout())) {
            if (packet->streamId == KZ_STR_ID_OTA_RESPONSE && packet->bytes == Bytes{m_accessory.endByte}) {
                progress.end();
                return image;
            }
            if (packet->streamId != KZ_STR_ID_OTA_DATA) {
                continue;
            }
            image.append(packet->bytes.begin(), packet->bytes.end());
            inBlock += packet->bytes.size();
            progress.show(std::min(image.size(), size), size);
            if (blocks && m_firmware.reportError) {
                client->link().send(KZ_STR_ID_START_OTA, Bytes{2, 1});
                progress.end();
                return image;
            }
            if (blocks && inBlock >= m_firmware.blockSize) {
                inBlock = 0;
                client->link().send(KZ_STR_ID_START_OTA, Bytes{2, 0});
            }
        }
        throw Error("the camera stopped sending the image");
    }

    void say(const std::string& text) const {
        if (!m_session.options.json) {
            std::cout << text << std::endl;
        }
    }

    Session& m_session;
    const Accessory& m_accessory;
    const Firmware& m_firmware;
};

void addAccessory(CLI::App& app, Session& session, const Accessory& accessory) {
    auto firmware = std::make_shared<Firmware>();
    CLI::App* command = addCommand(app, accessory.name, accessory.help, [&session, &accessory, firmware] {
        AccessoryUpdate(session, accessory, *firmware).run();
    });
    command->add_option("--major", firmware->major, "Our firmware's version");
    command->add_option("--minor", firmware->minor);
    command->add_option("--build", firmware->build);
    command->add_option("--battery", firmware->battery, "Our battery in percent")->check(CLI::Range(0, 100));
    command->add_option("--image", firmware->image, "The image we expect (default: the camera's own)");
    command->add_option("--wait", firmware->waitSeconds, "Seconds to wait for the camera's request");
    if (accessory.updateType == KZ_CALLER_MAPLE) {
        command->add_option("--block-size", firmware->blockSize, "Bytes of a block")
            ->check(CLI::Range(20, 1000))
            ->capture_default_str();
        command->add_flag("--report-error", firmware->reportError, "Report an error after the first packet");
    }
}

}  // namespace

void addFileCommands(CLI::App& app, Session& session) {
    auto path = std::make_shared<std::string>();
    CLI::App* fetch = addCommand(app, "fetch-settings", "Fetch the camera's catalogue and check it",
                                 [&session, path] { fetchSettings(session, *path); });
    fetch->add_option("-o,--output", *path, "File to write, gzip-compressed as it comes")->required();

    CLI::App* accessories = app.add_subcommand("accessory", "Be an accessory and take a firmware update");
    accessories->require_subcommand(1);
    for (const auto& accessory : kAccessories) {
        addAccessory(*accessories, session, accessory);
    }
}

}  // namespace kzble
