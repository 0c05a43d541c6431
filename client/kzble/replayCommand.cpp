// `replay`: a recorded device against the camera of today.
#include <algorithm>
#include <cstdio>

#include "protocolTable.h"
#include "replay.h"
#include "session.h"

namespace kzble {

namespace {

constexpr size_t kShownBytes = 32;

struct Replaying {
    std::string path;
    ReplayOptions options;
    bool noWait = false;
    uint32_t connection = 0;  // 0: all
};

std::string addressText(const kzcapture::Peer& peer) {
    std::string text = kzclient::hex(peer.address);
    std::replace(text.begin(), text.end(), ' ', ':');
    return text;
}

// The bytes, of a long message those from shortly before `at`.
std::string excerpt(const std::optional<Bytes>& message, size_t at) {
    if (!message) {
        return "nothing";
    }
    if (message->size() <= kShownBytes) {
        return kzclient::hex(*message);
    }
    const size_t begin = std::min(at < 4 ? 0 : at - 4, message->size());
    const auto shown = std::span(*message).subspan(begin, std::min(kShownBytes, message->size() - begin));
    return "... " + kzclient::hex(shown) + " ... (" + std::to_string(message->size()) + " bytes, from " +
           std::to_string(begin) + ")";
}

std::string text(const Difference& difference) {
    size_t at = 0;
    if (difference.expected && difference.got) {
        const auto& expected = *difference.expected;
        const auto& got = *difference.got;
        at = static_cast<size_t>(std::mismatch(expected.begin(), expected.end(), got.begin(), got.end()).first -
                                 expected.begin());
    }
    char head[64];
    std::snprintf(head, sizeof(head), "%.3f s  connection %u  ", std::chrono::duration<double>(difference.time).count(),
                  difference.connection);
    const auto stream = kzprotocol::streamName(difference.stream);
    return head + (stream.empty() ? "stream " + std::to_string(difference.stream) : std::string(stream)) +
           (difference.name.empty() ? "" : " " + difference.name) + ": expected " + excerpt(difference.expected, at) +
           ", got " + excerpt(difference.got, at);
}

nlohmann::ordered_json json(const Difference& difference) {
    const auto bytes = [](const std::optional<Bytes>& message) {
        return message ? nlohmann::ordered_json(kzclient::hex(*message)) : nlohmann::ordered_json();
    };
    return {{"time", std::chrono::duration<double>(difference.time).count()},
            {"connection", difference.connection},
            {"stream", difference.stream},
            {"name", difference.name},
            {"expected", bytes(difference.expected)},
            {"got", bytes(difference.got)}};
}

std::vector<kzcapture::Frame> read(const Replaying& replaying) {
    auto frames = kzcapture::readRadioCapture(replaying.path);
    if (replaying.connection != 0) {
        std::erase_if(frames, [&](const auto& frame) { return frame.connection != replaying.connection; });
    }
    if (frames.empty()) {
        throw Error("connection " + std::to_string(replaying.connection) + " is not in " + replaying.path);
    }
    return frames;
}

void run(Session& session, Replaying replaying) {
    if (replaying.noWait) {
        replaying.options.speed = 0;
    }
    const auto recording = read(replaying);
    const auto connect = [&session](const std::optional<kzcapture::Peer>& peer) {
        if (peer) {
            session.options.address = addressText(*peer);
            session.options.deviceType = peer->deviceType;
        }
        return session.connectAs(static_cast<uint8_t>(session.options.deviceType), peer && peer->cameraIsCentral);
    };
    const auto result = replay(recording, replaying.options, connect, [&session](const Difference& difference) {
        session.print(json(difference), text(difference));
    });
    const std::string count = std::to_string(result.compared) + (result.compared == 1 ? " message" : " messages");
    if (result.different != 0) {
        throw Error(std::to_string(result.different) + " of " + count + " differ");
    }
    session.print({{"compared", result.compared}, {"different", 0}}, count + ", no difference");
}

}  // namespace

void addReplayCommand(CLI::App& app, Session& session) {
    auto replaying = std::make_shared<Replaying>();
    auto* command = addCommand(app, "replay", "Play a recording against the camera and show where its answers differ",
                               [&session, replaying] { run(session, *replaying); });
    command->add_option("file", replaying->path, "What --record of kzble or of kzCameraSim wrote")
        ->required()
        ->check(CLI::ExistingFile);
    auto* speed = command
                      ->add_option("--speed", replaying->options.speed,
                                   "Play so many times as fast; a pause lasts two seconds at most")
                      ->check(CLI::Range(0.01, 1000.0))
                      ->capture_default_str();
    command->add_flag("--no-wait", replaying->noWait, "Wait for answers only, not as long as the recorded device did")
        ->excludes(speed);
    command->add_option("--connection", replaying->connection, "Play this connection only (default: all)")
        ->check(CLI::Range(1u, UINT32_MAX));
    command->add_flag("--pushes", replaying->options.pushes, "Compare pushes too");
    command->add_flag("--times", replaying->options.times, "Compare clock readings too");
}

}  // namespace kzble
