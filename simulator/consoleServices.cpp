// Refusals of the control daemon, the BLE daemon and the radio.
#include <mqueue.h>

#include <algorithm>

#include "consoleCommand.h"
#include "kzControlCommands.h"
#include "utils.h"

namespace kzsim {
namespace {

constexpr const char* kDaemonQueue = "/to_kzBleD";  // there while the BLE daemon runs
constexpr size_t kLongestLedBuffer = 18;            // what the BLE daemon's LED buffer takes

// ---------------------------------------------------------------- control daemon

std::optional<uint32_t> commandId(const std::string& word) {
    if (const auto id = numberUpTo(word, KZCONTROL_CMD_LAST - 1)) {
        return id;
    }
    const std::string name = word.starts_with("KZCONTROL_") ? word : "KZCONTROL_" + word;
    for (uint32_t id = 0; id < KZCONTROL_CMD_LAST; ++id) {
        if (name == kzControlCommandName(id)) {
            return id;
        }
    }
    return std::nullopt;
}

ConsoleAnswer refuse(const Roles& roles, const Words& words) {
    const auto id = commandId(words[1]);
    const auto code = number(words[2]);
    if (!id.has_value() || !code.has_value() || *code < INT32_MIN || *code > INT32_MAX) {
        return wrongUse("name a control command (number or name) and a code");
    }
    roles.control->refuse(*id, static_cast<int32_t>(*code));
    return done();
}

// ---------------------------------------------------------------- BLE daemon and radio

ConsoleAnswer buffer(const Roles& roles, const Words& words) {
    const bool forDisplay = words[0] == "lcd";
    Bytes bytes;
    if (!fromHex(words[1], bytes) || bytes.size() < 5) {
        return wrongUse("a buffer is at least five bytes, as pairs of hexadecimal digits");
    }
    if (!forDisplay && bytes.size() > kLongestLedBuffer) {
        return wrongUse("an LED buffer is at most 18 bytes");
    }
    return roles.network->sendBuffer(forDisplay ? "LB" : "AL", bytes)
               ? done()
               : failed("the BLE daemon's queue does not take it");
}

// A record for a daemon that does not run would stay in the queue and meet the next one.
ConsoleAnswer tellDaemon(const Roles& roles, uint32_t command, uint32_t argument) {
    const mqd_t queue = mq_open(kDaemonQueue, O_WRONLY | O_CLOEXEC);
    if (queue == -1) {
        return {Outcome::NoCamera, "the BLE daemon does not run"};
    }
    mq_close(queue);
    roles.radio->sendDebug(command, argument);
    return done();
}

ConsoleAnswer shutdownDaemon(const Roles& roles, const Words&) {
    return tellDaemon(roles, KZBLE_DEBUG_SHUTDOWN, 0);
}

ConsoleAnswer logLevel(const Roles& roles, const Words& words) {
    const auto level = numberUpTo(words[1], KZ_LOG_TRACE);
    if (!level.has_value()) {
        return wrongUse("the level is a number from 0 to 6");
    }
    return tellDaemon(roles, KZBLE_SET_LOG_LEVEL, *level);
}

ConsoleAnswer dump(const Roles& roles, const Words&) {
    return tellDaemon(roles, KZBLE_DEBUG_DUMP_STATUS, 0);
}

ConsoleAnswer radioSlow(const Roles& roles, const Words& words) {
    const auto rate = words.size() == 3 ? numberUpTo(words[2], 1000) : std::nullopt;
    if (!rate.has_value()) {
        return wrongUse("radio slow takes packets per second, up to 1000 (0: no limit)");
    }
    roles.radio->setRate(*rate);
    return done();
}

ConsoleAnswer radioStop(const Roles& roles, const Words&) {
    roles.radio->stopReading();
    return done();
}

ConsoleAnswer radioGo(const Roles& roles, const Words&) {
    roles.radio->go();
    return done();
}

// radio drop [PACKETS [CONNECTION]]
ConsoleAnswer radioDrop(const Roles& roles, const Words& words) {
    const auto packets = words.size() > 2 ? numberUpTo(words[2], INT32_MAX) : std::optional<uint32_t>(0);
    const auto connection = words.size() > 3 ? numberUpTo(words[3], UINT32_MAX) : std::optional<uint32_t>(0);
    if (!packets.has_value() || !connection.has_value()) {
        return wrongUse("radio drop takes a number of packets and a connection id");
    }
    return roles.radio->dropAfter(*connection, *packets) ? done() : refused("there is no such connection");
}

ConsoleAnswer radioInject(const Roles& roles, const Words& words) {
    Bytes bytes;
    if (words.size() != 3 || !fromHex(words[2], bytes) || bytes.size() > kBleRecordSize) {
        return wrongUse("radio inject takes up to 88 bytes, as pairs of hexadecimal digits");
    }
    bytes.resize(kBleRecordSize);
    roles.radio->inject(numberAt<ble_message_t>(bytes));
    return done();
}

struct RadioRow {
    const char* word;
    ConsoleAnswer (*execute)(const Roles&, const Words&);
};
constexpr RadioRow kRadioRows[] = {
    {"slow", radioSlow}, {"stop", radioStop}, {"go", radioGo}, {"drop", radioDrop}, {"inject", radioInject},
};

ConsoleAnswer radio(const Roles& roles, const Words& words) {
    const auto* const row = std::find_if(std::begin(kRadioRows), std::end(kRadioRows),
                                         [&words](const RadioRow& one) { return words[1] == one.word; });
    return row == std::end(kRadioRows) ? wrongUse("radio does not know " + words[1]) : row->execute(roles, words);
}

constexpr ConsoleRow kRows[] = {
    {"refuse", 2, 2, refuse},
    {"lcd", 1, 1, buffer},
    {"led", 1, 1, buffer},
    {"radio", 1, 3, radio},
    {"shutdown-daemon", 0, 0, shutdownDaemon},
    {"log-level", 1, 1, logLevel},
    {"dump", 0, 0, dump},
};

}  // namespace

std::span<const ConsoleRow> serviceRows() {
    return kRows;
}

}  // namespace kzsim
