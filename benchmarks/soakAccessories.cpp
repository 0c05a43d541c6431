// Clients that the camera connects to: sensors that send samples, and accessories that have their firmware sent.
#include <algorithm>
#include <fstream>

#include "skylark/bleMessage.h"
#include "soakClient.h"

namespace soak {
namespace {

// ---------------------------------------------------------------- sensors

constexpr const char* kKeys[] = {"HRAT", "TEMP"};

class Sensor : public Client {
  public:
    Sensor(World& world, size_t index) : Client(world, index, {{}, KZ_CALLER_BLE_SENSOR, true}) {}

  private:
    void begin() override {
        const uint8_t keys = std::size(kKeys);
        expect({2, keys, 'S', 'o', 'a', 'k', static_cast<uint8_t>('a' + index())}, 0);
        for (uint8_t key = 0; key < keys; ++key) {
            Bytes registration(kKeys[key], kKeys[key] + 4);
            registration.insert(registration.begin(), 3);
            for (const int byte : {int{key}, int{key}, int{'S'}, 2, 1, 0}) {
                registration.push_back(static_cast<uint8_t>(byte));
            }
            expect(registration, 0);
        }
    }

    // Some samples, which are not answered, and a request that is.
    void work() override {
        const size_t samples = 1 + below(random(), 3);
        for (size_t i = 0; i < samples; ++i) {
            const auto key = static_cast<uint8_t>(below(random(), std::size(kKeys)));
            const auto value = static_cast<uint16_t>(random()());
            link().send(KZ_STR_ID_SENSOR, Bytes{1, key, static_cast<uint8_t>(value), static_cast<uint8_t>(value >> 8)});
            ++world().tally.samples;
        }
        constexpr uint8_t kUnknownKey = 10;
        constexpr uint8_t kDisplay = 0x50;
        if (chance(random(), 1)) {
            expect({1, 9, 0, 0}, kUnknownKey);
        } else {
            expect({kDisplay, static_cast<uint8_t>(1 + below(random(), 2))}, 0);
        }
        if (below(random(), 3000) == 0) {
            disconnect();
        } else {
            takeWhatComes(std::chrono::milliseconds(5 + below(random(), 20)));
        }
    }

    void takeWhatComes(std::chrono::milliseconds duration) override {
        const auto until = Clock::now() + duration;
        while (const auto message = link().receive(until)) {
            refuse(*message);
        }
    }
    void ended() override {}

    // The answer repeats the command's byte and gives this code.
    void expect(const Bytes& message, uint8_t code) {
        const auto answer = ask(KZ_STR_ID_SENSOR, message, [this](const auto& other) { refuse(other); });
        if (answer != Bytes{message[0], code}) {
            world().tally.wrong(name() + ": " + kzclient::hex(message) + " -> " + kzclient::hex(answer));
        }
    }
    void refuse(const kzclient::Message& message) {
        world().tally.wrong(name() + ": unasked: " + kzclient::hex(message.bytes));
    }
};

// ---------------------------------------------------------------- accessories

struct Model {
    Way way;
    uint8_t updateType;
    uint8_t informationType;
    uint8_t rebootStream;
    uint8_t rebootByte;
    uint8_t endByte;
    const char* image;
};
constexpr Model kModels[] = {
    {Way::Stream, KZ_CALLER_ALDER, 3, KZ_STR_ID_REBOOT_OTA, 2, 7, "/tmp/fuse_d/KZ_REMOTE_FW_2_1_0.bin"},
    {Way::Blocks, KZ_CALLER_MAPLE, 5, KZ_STR_ID_SENSOR_RESPONSE, 1, 1, "/tmp/fuse_d/KZ_SHUTTER_REMOTE_FW_2_1_0.bin"},
};
constexpr size_t kImageHeader = 20;
constexpr uint8_t kOldVersion = 1;
constexpr uint8_t kNewVersion = 2;
constexpr uint16_t kBlock = 500;

class Accessory : public Client {
  public:
    Accessory(World& world, size_t index, const Model& model)
        : Client(world, index, {{}, KZ_CALLER_BLE_RC, true}), m_model(model) {
        std::ifstream file(model.image, std::ios::binary);
        m_image.assign(std::istreambuf_iterator<char>(file), {});
        m_image.erase(m_image.begin(), m_image.begin() + std::min<long>(kImageHeader, std::ssize(m_image)));
    }

  private:
    void begin() override {}
    void ended() override {}
    void takeWhatComes(std::chrono::milliseconds duration) override {
        const auto until = Clock::now() + duration;
        while (link().receivePacket(until)) {
        }
    }

    void work() override {
        takeWhatComes(std::chrono::milliseconds(1000 + below(random(), 3000)));
        const std::lock_guard transfer(world().transfer);
        const auto began = Clock::now();
        std::string problem = update();
        if (problem.empty()) {
            ++world().tally.firmware;
        } else if (!world().weather.disturbed(kEveryPart, began)) {
            world().tally.lost(name() + ": " + problem);
        }
        connect();
    }

    // What went wrong; empty when the image arrived whole and the accessory came back with it.
    std::string update() {
        if (!awaitReboot()) {
            return "it is not asked to restart for its update";
        }
        connect(m_model.updateType, true);
        const Bytes received = receiveImage();
        if (received != m_image) {
            return "of its image come " + std::to_string(received.size()) + " bytes of " +
                   std::to_string(m_image.size()) + ", or others";
        }
        connect();
        return report(kNewVersion) ? "" : "its new version is refused";
    }

    bool report(uint8_t version) {
        const Bytes message{0x1c, 7, 1, m_model.informationType, version, 1, 0, 100, 0};
        return ask(KZ_STR_ID_COMMAND, message, [](const auto&) {}) == Bytes{0x1c, 0};
    }

    // The camera forgets an update while it records, so that its need is reported again.
    bool awaitReboot() {
        constexpr int kReports = 8;
        constexpr std::chrono::seconds kPatience{4};
        const Bytes reboot{m_model.rebootByte};
        for (int i = 0; i < kReports && report(kOldVersion); ++i) {
            const auto until = Clock::now() + kPatience;
            while (const auto packet = link().receivePacket(until)) {
                if (packet->streamId == m_model.rebootStream && packet->bytes == reboot) {
                    return true;
                }
            }
        }
        return false;
    }

    // The camera does not begin while it records, so that the image is asked for again.
    Bytes receiveImage() {
        constexpr int kRequests = 5;
        Bytes image;
        for (int i = 0; i < kRequests && image.empty(); ++i) {
            const Bytes blockWise{1, kBlock >> 8, kBlock & 0xff};
            link().link().send(KZ_STR_ID_START_OTA, m_model.way == Way::Blocks ? blockWise : Bytes{1});
            image = receivePackets();
        }
        return image;
    }

    // Until the end record, or until nothing more comes. While the radio is busy a block may end early: then the rest
    // is asked for again.
    Bytes receivePackets() {
        constexpr std::chrono::seconds kPatience{1};
        constexpr int kSilences = 6;
        const bool blocks = m_model.way == Way::Blocks;
        Bytes image;
        size_t inBlock = 0;
        for (int silences = 0; silences < kSilences;) {
            const auto packet = link().receivePacket(Clock::now() + kPatience);
            const bool data = packet && packet->streamId == KZ_STR_ID_OTA_DATA;
            if (packet && packet->streamId == KZ_STR_ID_OTA_RESPONSE && packet->bytes == Bytes{m_model.endByte}) {
                break;
            }
            if (data) {
                image.insert(image.end(), packet->bytes.begin(), packet->bytes.end());
                inBlock += packet->bytes.size();
            }
            silences += packet ? 0 : 1;
            if (blocks && !image.empty() && (!packet || (data && inBlock >= kBlock))) {
                inBlock = 0;
                link().link().send(KZ_STR_ID_START_OTA, Bytes{2, 0});
            }
        }
        return image;
    }

    const Model& m_model;
    Bytes m_image;
};

}  // namespace

std::unique_ptr<Client> makeSensor(World& world, size_t index) {
    return std::make_unique<Sensor>(world, index);
}

std::unique_ptr<Client> makeAccessory(World& world, size_t index, Way way) {
    const auto* const model =
        std::find_if(std::begin(kModels), std::end(kModels), [way](const Model& one) { return one.way == way; });
    return std::make_unique<Accessory>(world, index, *model);
}

}  // namespace soak
