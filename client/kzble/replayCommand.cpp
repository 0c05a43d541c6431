// `replay`: a recorded device against the camera of today.
#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "commands.h"
#include "messageText.h"
#include "replay.h"
#include "skylark/bleMessage.h"
#include "values.h"

namespace kzble {

namespace {

constexpr size_t kShownBytes = 32;
constexpr int kAnySecondByte = -1;  // what a row has whose messages are told apart by their first byte

struct Replaying {
    std::string path;
    ReplayOptions options;
    uint32_t connection = 0;  // 0: all
};

// ---------------------------------------------------------------- a difference in words

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

std::string inBytes(const Difference& difference) {
    size_t at = 0;
    if (difference.expected && difference.got) {
        const auto& expected = *difference.expected;
        const auto& got = *difference.got;
        at = static_cast<size_t>(std::mismatch(expected.begin(), expected.end(), got.begin(), got.end()).first -
                                 expected.begin());
    }
    return "expected " + excerpt(difference.expected, at) + ", got " + excerpt(difference.got, at);
}

// What answers and pushes with values have entries of; nothing for any other message.
std::optional<ValueKind> valuesOf(const Difference& difference) {
    const bool both = difference.expected && difference.got && difference.expected->size() > 2 &&
                      difference.got->size() > 2 && difference.expected->front() == difference.got->front();
    if (!both || difference.stream != KZ_STR_ID_QUERY_RESPONSE) {
        return std::nullopt;
    }
    switch (difference.expected->front()) {
        case kSettingValues:
        case kRegisterSettings:
        case kPushSettings:
            return ValueKind::Setting;
        case kStatusValues:
        case kRegisterStatus:
        case kPushStatus:
            return ValueKind::Status;
        default:
            return std::nullopt;
    }
}

// "Video Resolution: expected 4K, got 1080p", a value each; empty when it is not the values that differ.
std::string inValues(const Difference& difference, ValueKind kind, const kzclient::Catalogue& catalogue) {
    std::map<uint8_t, std::pair<std::string, std::string>> values;
    const auto take = [&](const Bytes& message, auto side) {
        for (const auto& entry : kzclient::parseEntries(std::span(message).subspan(2))) {
            values.try_emplace(entry.id, "nothing", "nothing").first->second.*side = valueText(kind, entry, catalogue);
        }
    };
    take(*difference.expected, &std::pair<std::string, std::string>::first);
    take(*difference.got, &std::pair<std::string, std::string>::second);
    std::string text;
    for (const auto& [id, pair] : values) {
        if (pair.first != pair.second) {
            text += (text.empty() ? "" : "; ") + idName(kind, id, catalogue) + ": expected " + pair.first + ", got " +
                    pair.second;
        }
    }
    return text;
}

// "expected success, got invalid parameter"; empty when the result is the same, or there is none.
std::string inResults(const Difference& difference, const kzclient::Catalogue& catalogue) {
    const bool results = difference.isAnswer && difference.row != nullptr && difference.row->second == kAnySecondByte &&
                         difference.expected && difference.got && difference.expected->size() > 1 &&
                         difference.got->size() > 1;
    if (!results || (*difference.expected)[1] == (*difference.got)[1]) {
        return "";
    }
    const bool isSetting = std::string_view(difference.row->kind) == "setting";
    return (isSetting ? catalogue.settingName(difference.expected->front()) + ": " : "") + "expected " +
           kzclient::resultText(difference.stream, (*difference.expected)[1]) + ", got " +
           kzclient::resultText(difference.stream, (*difference.got)[1]);
}

std::string inWords(const Difference& difference, Session& session) {
    try {
        const auto kind = valuesOf(difference);
        std::string text = kind ? inValues(difference, *kind, session.catalogue()) : "";
        text = text.empty() ? inResults(difference, session.catalogue()) : text;
        return text.empty() ? inBytes(difference) : text;
    } catch (const Error&) {  // no entries, or no names for them
        return inBytes(difference);
    }
}

void show(const Difference& difference, Session& session) {
    const double seconds = std::chrono::duration<double>(difference.time).count();
    char head[64];
    std::snprintf(head, sizeof(head), "%.3f s  connection %u  ", seconds, difference.connection);
    const auto known = kzprotocol::streamName(difference.stream);
    const std::string stream = known.empty() ? "stream " + std::to_string(difference.stream) : std::string(known);
    const std::string name = difference.row == nullptr ? "" : difference.row->name;
    const std::string words = inWords(difference, session);
    const auto bytes = [](const std::optional<Bytes>& message) {
        return message ? nlohmann::ordered_json(kzclient::hex(*message)) : nlohmann::ordered_json();
    };
    session.print({{"seconds", seconds},
                   {"connection", difference.connection},
                   {"stream", stream},
                   {"name", name},
                   {"expected", bytes(difference.expected)},
                   {"got", bytes(difference.got)},
                   {"difference", words}},
                  head + stream + (name.empty() ? "" : " " + name) + ": " + words);
}

// ---------------------------------------------------------------- the command

std::vector<kzcapture::Frame> read(const Replaying& replaying) try {
    auto frames = kzcapture::readRadioCapture(replaying.path);
    if (replaying.connection != 0) {
        std::erase_if(frames, [&](const auto& frame) { return frame.connection != replaying.connection; });
    }
    if (frames.empty()) {
        throw WrongUse("connection " + std::to_string(replaying.connection) + " is not in " + replaying.path);
    }
    return frames;
} catch (const kzcapture::CaptureError& error) {
    throw Error(error.what());
}

// The address and type of a recorded device, else those of the options.
std::unique_ptr<kzclient::BleClient> connect(Session& session, const std::optional<kzcapture::Peer>& peer) {
    return peer ? session.connectAs({peer->address, peer->deviceType, peer->cameraIsCentral})
                : session.connectAs(static_cast<uint8_t>(session.options.deviceType), false);
}

void run(Session& session, const Replaying& replaying) {
    std::error_code noFile;
    if (std::filesystem::equivalent(replaying.path, session.options.recording, noFile)) {
        throw WrongUse("--record would overwrite " + replaying.path);
    }
    const auto result = replay(
        read(replaying), replaying.options, [&](const auto& peer) { return connect(session, peer); },
        [&](const Difference& difference) { show(difference, session); });
    const std::string count = std::to_string(result.compared) + (result.compared == 1 ? " message" : " messages");
    if (result.different == 0) {
        session.print({{"compared", result.compared}, {"different", 0}}, count + ", no difference");
        return;
    }
    const std::string found = std::to_string(result.different) + " of " + count;
    if (result.missing == result.different) {
        throw TimedOut(found + " did not come");
    }
    throw Error(found + (result.different == 1 ? " differs" : " differ"));
}

}  // namespace

void addReplayCommand(const Place& place) {
    auto replaying = std::make_shared<Replaying>();
    auto& session = place.session;
    CLI::App* command = addCommand(
        place, {"replay", "Play a recording against the camera and show where its answers differ", "phone.pcapng"},
        [&session, replaying] { run(session, *replaying); });
    command->add_option("file", replaying->path, "What --record of kzble or of kzCameraSim wrote")->required();
    command->add_flag("--fast", replaying->options.fast, "Without the recorded pauses; answers are waited for");
    addNumber(*command, "--connection", replaying->connection, "Play only the connection of this number (default: all)",
              1, UINT32_MAX);
    command->add_flag("--pushes", replaying->options.pushes, "Compare pushes too");
}

}  // namespace kzble
