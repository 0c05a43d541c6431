// Being an accessory: taking a firmware update from the camera, or showing what it sends to displays and LEDs.
#include <chrono>
#include <filesystem>
#include <iostream>

#include "listening.h"
#include "messageText.h"
#include "progress.h"
#include "skylark/bleMessage.h"

namespace kzble {

namespace {

using std::chrono::steady_clock;

constexpr uint8_t kClientInfo = 28;
constexpr size_t kImageHeaderSize = 20;

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
        client->failSilent("the camera has no update for us");
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
        Progress progress("firmware");
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
        client->failSilent("the camera stopped sending the image");
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

void addUpdate(const Place& place, const Accessory& accessory) {
    auto firmware = std::make_shared<Firmware>();
    CLI::App* command = addCommand(
        place, {accessory.name, accessory.help, "--major 1"},
        [&session = place.session, &accessory, firmware] { AccessoryUpdate(session, accessory, *firmware).run(); });
    addNumber(*command, "--major", firmware->major, "Our firmware's version", 0, UINT8_MAX);
    addNumber(*command, "--minor", firmware->minor, "and its second number", 0, UINT8_MAX);
    addNumber(*command, "--build", firmware->build, "and its third", 0, UINT8_MAX);
    addNumber(*command, "--battery", firmware->battery, "Our battery in percent", 0, 100);
    command->add_option("--image", firmware->image, "The image we expect (default: the camera's own)");
    addNumber(*command, "--wait", firmware->waitSeconds, "Seconds to wait for the camera's request", 1, 86400);
    if (accessory.updateType == KZ_CALLER_MAPLE) {
        addNumber(*command, "--block-size", firmware->blockSize, "Bytes of a block", 20, 1000)->capture_default_str();
        command->add_flag("--report-error", firmware->reportError, "Report an error after the first packet");
    }
}

// What shows buffers that the camera sends.
struct Screen {
    const char* name;
    const char* help;
    uint8_t deviceType;
    uint8_t command;      // that asks for the buffers
    uint8_t bufferStart;  // their first byte
};

constexpr Screen kScreens[] = {
    {"display", "Be a display and show the buffers that come", KZ_CALLER_BLE_RC, 80, 0x51},
    {"led", "Be an LED accessory and show the buffers that come", KZ_CALLER_BIRCH, 82, 0x53},
};

// Letters where they are letters, for displays that get text.
std::string readable(std::span<const uint8_t> bytes) {
    std::string text;
    for (const uint8_t byte : bytes) {
        text += byte >= ' ' && byte <= '~' ? static_cast<char>(byte) : '.';
    }
    return text;
}

void showBuffers(Session& session, const Screen& screen, const Limits& limits) {
    const auto client = session.connectAs(screen.deviceType, true);
    constexpr uint8_t kSubscribe = 1;
    const Bytes answer = client->request(KZ_STR_ID_SENSOR, Bytes{screen.command, kSubscribe});
    if (answer.size() < 2 || answer[1] != 0) {
        const uint8_t result = answer.size() < 2 ? 1 : answer[1];
        throw Refused(kzclient::resultText(KZ_STR_ID_SENSOR_RESPONSE, result), result);
    }
    std::cerr << "showing; interrupt to stop" << std::endl;
    listen(*client, limits, [&](const kzclient::Message& message) {
        if (message.streamId != KZ_STR_ID_SENSOR_RESPONSE || message.bytes.empty() ||
            message.bytes[0] != screen.bufferStart) {
            return false;
        }
        const auto buffer = std::span(message.bytes).subspan(1);
        const std::string now = timestamp();
        session.print({{"time", now}, {"what", screen.name}, {"bytes", kzclient::hex(buffer)}},
                      now + "  " + screen.name + "  " + kzclient::hex(buffer) + "  " + readable(buffer));
        return true;
    });
}

void addScreen(const Place& place, const Screen& screen) {
    auto limits = std::make_shared<Limits>();
    CLI::App* command =
        addCommand(place, {screen.name, screen.help, "--count 1 --for 60"},
                   [&session = place.session, &screen, limits] { showBuffers(session, screen, *limits); });
    limits->addTo(*command);
}

}  // namespace

void addAccessoryCommands(const Place& place) {
    const Place accessories = place.family("accessory", "Be an accessory");
    for (const auto& accessory : kAccessories) {
        addUpdate(accessories, accessory);
    }
    for (const auto& screen : kScreens) {
        addScreen(accessories, screen);
    }
}

}  // namespace kzble
