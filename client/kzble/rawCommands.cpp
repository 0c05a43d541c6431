// The protocol itself and the daemon's own debugging.
#include <algorithm>
#include <iterator>

#include "listening.h"
#include "skylark/bleMessage.h"

namespace kzble {

namespace {

constexpr uint8_t kRequestStreams[] = {KZ_STR_ID_COMMAND, KZ_STR_ID_SETTINGS, KZ_STR_ID_QUERY, KZ_STR_ID_SENSOR,
                                       KZ_STR_ID_START_OTA};

struct Raw {
    uint8_t stream = 0;
    std::vector<std::string> words;
    double listen = 0;
};

void printMessage(const Session& session, uint8_t stream, const Bytes& bytes) {
    session.print({{"time", timestamp()}, {"stream", stream}, {"bytes", kzclient::hex(bytes)}},
                  std::to_string(stream) + "  " + kzclient::hex(bytes));
}

void sendRaw(Session& session, const Raw& raw) {
    std::string digits;
    for (const auto& word : raw.words) {
        digits += word;
    }
    const Bytes message = parseHex(digits);
    if (message.empty()) {
        throw WrongUse("a message has at least one byte");
    }
    auto& client = session.client();
    const bool packet = raw.stream == KZ_STR_ID_START_OTA;  // its requests are packets, not messages
    if (packet && message.size() > kBlePacketSize) {
        throw WrongUse("a packet has at most 20 bytes");
    }
    if (packet) {
        client.link().send(raw.stream, message);
    } else if (raw.listen > 0) {
        client.send(raw.stream, message);
    } else {
        const Bytes answer = client.request(raw.stream, message);
        session.print({{"answer", kzclient::hex(answer)}}, kzclient::hex(answer));
        return;
    }
    if (packet && raw.listen <= 0) {
        const auto answer = client.receivePacket(std::chrono::steady_clock::now() + client.timeout());
        if (!answer) {
            throw TimedOut("no reply from the camera; the request may still be carried out");
        }
        session.print({{"answer", kzclient::hex(answer->bytes)}}, kzclient::hex(answer->bytes));
        return;
    }
    listen(client, {0, raw.listen}, [&](const kzclient::Message& received) {
        printMessage(session, received.streamId, received.bytes);
        return true;
    });
}

void addRaw(const Place& place) {
    auto raw = std::make_shared<Raw>();
    CLI::App* command = addCommand(place, {"raw", "Send any message and print the bytes of its answer", "2 01 01 01"},
                                   [&session = place.session, raw] { sendRaw(session, *raw); });
    command->add_option("stream", raw->stream, "2 command, 7 settings, 12 query, 17 sensor, 27 firmware request")
        ->required()
        ->check(CLI::IsMember(std::vector<int>(std::begin(kRequestStreams), std::end(kRequestStreams))));
    command->add_option("message", raw->words, "The message in hexadecimal")->required();
    addDecimal(*command, "--listen", raw->listen,
               "Keep the connection for so many seconds and print the stream and bytes of all that comes", 0.001, 1e6);
}

void addDebug(const Place& place) {
    const Place debug = place.family("debug", "The daemon's own debugging");
    auto& session = place.session;
    auto level = std::make_shared<uint32_t>(0);
    CLI::App* logLevel = addCommand(debug, {"log-level", "Set the daemon's log level", "5"}, [&session, level] {
        session.client().link().sendDebug(KZBLE_SET_LOG_LEVEL, *level);
        session.printDone();
    });
    addNumber(*logLevel, "level", *level, "0 to 6", 0, 6)->required();
    addCommand(debug, {"dump", "Have the daemon log its state", ""}, [&session] {
        session.client().link().sendDebug(KZBLE_DEBUG_DUMP_STATUS, 0);
        session.printDone();
    });
    addCommand(debug, {"shutdown", "Stop the daemon", ""}, [&session] {
        session.client().link().sendDebug(KZBLE_DEBUG_SHUTDOWN, 0);
        session.printDone();
    });
}

}  // namespace

void addRawCommands(const Place& place) {
    addRaw(place);
    addDebug(place);
}

}  // namespace kzble
