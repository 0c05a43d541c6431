// Files from the camera: its catalogue.
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include "commands.h"
#include "progress.h"
#include "skylark/bleMessage.h"

namespace kzble {

namespace {

constexpr uint8_t kFetchSettings = 59;

// All of the file or nothing of it: a file that is there stays until the new one is whole.
void writeFile(const std::string& path, const std::string& content) {
    const std::string unfinished = path + ".part" + std::to_string(getpid());
    std::ofstream file(unfinished, std::ios::binary | std::ios::trunc);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    if (!file || std::rename(unfinished.c_str(), path.c_str()) != 0) {
        std::remove(unfinished.c_str());
        throw Error("cannot write " + path);
    }
}

void fetchSettings(Session& session, const std::string& path) {
    auto& client = session.client();
    client.sendCommand(kFetchSettings);
    Progress progress("catalogue");
    Bytes message;
    while (message.empty()) {
        // A transfer may pause while the radio is busy: the time-out counts from the last message or packet.
        const auto received = client.receiveWithProgress(
            client.timeout(), [&](const auto& state) { progress.show(state.first, state.second); });
        if (!received) {
            client.failSilent("the transfer stopped");
        }
        if (received->streamId == KZ_STR_ID_COMMAND_RESPONSE && !received->bytes.empty() &&
            received->bytes[0] == kFetchSettings) {
            message = received->bytes;
        }
    }
    progress.end();
    if (message.size() < 2 || message[1] != 0) {
        const uint8_t result = message.size() < 2 ? 1 : message[1];
        throw Refused(kzclient::describeResult(result), result);
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

}  // namespace

void addFileCommands(const Place& place) {
    auto path = std::make_shared<std::string>();
    CLI::App* fetch =
        addCommand(place, {"fetch-settings", "Fetch the camera's catalogue and check it", "-o settings.json.gz"},
                   [&session = place.session, path] { fetchSettings(session, *path); });
    fetch->add_option("-o,--output", *path, "File to write, gzip-compressed as it comes")->required();
}

}  // namespace kzble
