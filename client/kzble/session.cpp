#include "session.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "skylark/bleMessage.h"

namespace kzble {

namespace {

constexpr const char* kInstalledCatalogue = "/usr/local/zorvik/etc/58/settings.json";

void traceToStderr(const char* direction, uint8_t streamId, std::span<const uint8_t> bytes) {
    std::fprintf(stderr, "%s stream %2u  %s\n", direction, streamId, kzclient::hex(bytes).c_str());
}

}  // namespace

void Session::addOptions(CLI::App& app) {
    app.add_option("--socket", options.socket, "The radio's socket (default: $KZ_RADIO_SOCKET, else the usual place)");
    app.add_option("--address", options.address, "Our device address")->capture_default_str();
    app.add_option("--device-type", options.deviceType, "Our device type, for example 10 for a voice client")
        ->check(CLI::Range(0, 255))
        ->capture_default_str();
    app.add_option("--timeout", options.timeoutMs, "Milliseconds to wait for an answer")
        ->check(CLI::Range(1, 600000))
        ->capture_default_str();
    app.add_option("--catalogue", options.catalogue,
                   "settings.json(.gz) that gives names (default: $KZ_CATALOGUE, else the camera's own)");
    app.add_flag("--trace", options.trace, "Print every packet on standard error");
    app.add_option("--record", options.recording,
                   "Record all that we send and get in this file (pcapng; `kzble replay` plays it again)");
    app.add_flag("--json", options.json, "Print results as JSON");
}

kzclient::BleClient& Session::client() {
    if (!m_client) {
        m_client = connectAs(static_cast<uint8_t>(options.deviceType), false);
        m_client->enableNotifications();
    }
    return *m_client;
}

std::unique_ptr<kzclient::BleClient> Session::connectAs(uint8_t deviceType, bool cameraIsCentral) {
    const kzclient::RadioLink::Peer peer{kzclient::parseAddress(options.address), deviceType, cameraIsCentral};
    auto client =
        std::make_unique<kzclient::BleClient>(options.socket, peer, std::chrono::milliseconds(options.timeoutMs));
    if (options.trace) {
        client->setTrace(traceToStderr);
    }
    m_recording.add(client->link(), peer, options.recording);
    return client;
}

const kzclient::Catalogue& Session::catalogue() {
    if (!m_catalogue) {
        const char* named = std::getenv("KZ_CATALOGUE");
        const std::string asked = !options.catalogue.empty() ? options.catalogue : named != nullptr ? named : "";
        if (!asked.empty()) {
            m_catalogue = kzclient::Catalogue::load(asked);
        } else if (std::filesystem::exists(kInstalledCatalogue)) {
            m_catalogue = kzclient::Catalogue::load(kInstalledCatalogue);
        } else {
            m_catalogue.emplace();
        }
    }
    return *m_catalogue;
}

void Session::print(const nlohmann::ordered_json& json, const std::string& text) const {
    if (options.json) {
        // Texts of the camera need not be UTF-8.
        std::cout << json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) << std::endl;
    } else {
        std::cout << text << std::endl;
    }
}

void Session::printDone() const {
    print({{"result", "success"}}, "ok");
}

Bytes number(uint64_t value, size_t width) {
    Bytes bytes(width);
    for (size_t i = width; i-- > 0; value >>= 8) {
        bytes[i] = static_cast<uint8_t>(value);
    }
    return bytes;
}

Bytes parseHex(const std::string& text) {
    Bytes bytes;
    std::string pair;
    for (const char c : text) {
        if (c == ' ' || c == ':') {
            continue;
        }
        if (std::isxdigit(static_cast<unsigned char>(c)) == 0) {
            throw Error(std::string("not a hexadecimal digit: ") + c);
        }
        pair += c;
        if (pair.size() == 2) {
            bytes.push_back(static_cast<uint8_t>(std::stoul(pair, nullptr, 16)));
            pair.clear();
        }
    }
    if (!pair.empty()) {
        throw Error("an odd number of hexadecimal digits");
    }
    return bytes;
}

}  // namespace kzble
