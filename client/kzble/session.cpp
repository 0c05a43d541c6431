#include "session.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <utility>

#include "trace.h"

namespace kzble {

namespace {

constexpr const char* kInstalledCatalogue = "/usr/local/zorvik/etc/58/settings.json";
constexpr int kDefaultTimeoutMs = 5000;

}  // namespace

kzclient::BleClient& Session::client() {
    if (!m_client) {
        m_client = connectAs(static_cast<uint8_t>(options.deviceType), false);
        m_client->enableNotifications();
        m_traced = options.trace;
    }
    m_client->setTimeout(std::chrono::milliseconds(options.timeoutMs.value_or(kDefaultTimeoutMs)));
    if (std::exchange(m_traced, options.trace) != options.trace) {  // a trace goes on: it knows which requests are open
        m_client->link().setTrace(tracer(options.address));
    }
    return *m_client;
}

std::unique_ptr<kzclient::BleClient> Session::connectAs(uint8_t deviceType, bool cameraIsCentral) {
    return connectAs({kzclient::parseAddress(options.address), deviceType, cameraIsCentral});
}

std::unique_ptr<kzclient::BleClient> Session::connectAs(const kzclient::RadioLink::Peer& peer) {
    const std::chrono::milliseconds timeout(options.timeoutMs.value_or(kDefaultTimeoutMs));
    auto client = std::make_unique<kzclient::BleClient>(options.socket, peer, timeout);
    client->link().setTrace(tracer(kzclient::addressText(peer.address)));
    m_recording.add(client->link(), peer, options.recording);
    return client;
}

kzclient::RadioLink::Trace Session::tracer(const std::string& address) {
    if (!options.trace) {
        return {};
    }
    return Trace(address, [this]() -> const kzclient::Catalogue& { return catalogue(); });
}

const kzclient::Catalogue& Session::catalogue() {
    const char* named = std::getenv("KZ_CATALOGUE");
    std::string asked = !options.catalogue.empty() ? options.catalogue : named != nullptr ? named : "";
    if (asked.empty() && std::filesystem::exists(kInstalledCatalogue)) {
        asked = kInstalledCatalogue;
    }
    if (!m_catalogue || asked != m_catalogueName) {
        m_catalogue = asked.empty() ? kzclient::Catalogue() : kzclient::Catalogue::load(asked);
        m_catalogueName = asked;
    }
    return *m_catalogue;
}

void Session::print(const nlohmann::ordered_json& json, const std::string& text) const {
    std::cout << (options.json ? oneLine(json) : text) << std::endl;
    expectPrinted();
}

void Session::printDone() const {
    print({{"result", "success"}}, "ok");
}

std::string oneLine(const nlohmann::ordered_json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void expectPrinted() {
    if (!std::cout.flush()) {
        throw Error("cannot write to standard output");
    }
}

Bytes number(uint64_t value, size_t width) {
    Bytes bytes(width);
    for (size_t i = width; i-- > 0; value >>= 8) {
        bytes[i] = static_cast<uint8_t>(value);
    }
    return bytes;
}

std::string timestamp() {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm local{};
    localtime_r(&now.tv_sec, &local);
    char date[32];
    char zone[8];
    std::strftime(date, sizeof(date), "%Y-%m-%dT%H:%M:%S", &local);
    std::strftime(zone, sizeof(zone), "%z", &local);
    char text[64];
    std::snprintf(text, sizeof(text), "%s.%03ld%.3s:%s", date, now.tv_nsec / 1000000, zone, zone + 3);
    return text;
}

}  // namespace kzble
