// kzbledebug writes one debug record into the daemon's radio queue, as the radio-stack daemon would. It needs nothing
// of the simulated camera, so that it works on every camera, and does not end before the daemon has read the record.
#include <fcntl.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>

#include "kzVersion.h"
#include "posixHandle.h"
#include "skylark/bleMessage.h"

namespace {

using std::chrono::steady_clock;

constexpr const char* kDaemonQueue = "/to_kzBleD";  // the daemon makes it when it starts and removes it when it stops
constexpr std::chrono::seconds kPatience{2};        // for room in the queue, and again for the daemon to read
constexpr std::chrono::milliseconds kLookPeriod{5};
constexpr char kLastLevel = '6';

enum ExitStatus { kDone = 0, kFailed = 1, kNoDaemon = 4, kWrongUse = 64 };

struct Command {
    const char* name;
    uint32_t number;
    bool takesLevel;
};

constexpr Command kCommands[] = {
    {"log-level", KZBLE_SET_LOG_LEVEL, true},
    {"dump", KZBLE_DEBUG_DUMP_STATUS, false},
    {"shutdown", KZBLE_DEBUG_SHUTDOWN, false},
};

constexpr const char* kUsage =
    "usage: kzbledebug log-level LEVEL   the least important lines that kzBleSdkD logs: 0 (fewest) to 6 (all)\n"
    "       kzbledebug dump              have it log its state and its connections\n"
    "       kzbledebug shutdown          stop it in order\n"
    "       kzbledebug --help | --version\n";

ExitStatus Complain(ExitStatus status, const char* text, const char* detail = "") {
    std::fprintf(stderr, "kzbledebug: %s%s\n", text, detail);
    return status;
}

ExitStatus ComplainOfUse(const char* text, const char* word = "") {
    Complain(kWrongUse, text, word);
    std::fputs(kUsage, stderr);
    return kWrongUse;
}

const Command* FindCommand(std::string_view name) {
    for (const Command& command : kCommands) {
        if (name == command.name) {
            return &command;
        }
    }
    return nullptr;
}

std::optional<uint32_t> ParseLevel(std::string_view text) {
    if (text.size() != 1 || text[0] < '0' || text[0] > kLastLevel) {
        return std::nullopt;
    }
    return static_cast<uint32_t>(text[0] - '0');
}

ble_message_t DebugRecord(uint32_t command, uint32_t argument) {
    ble_message_t record{};
    record.eventType = KZBLE_SDK_EVENT_Debug;
    auto* bytes = reinterpret_cast<char*>(&record);
    std::memcpy(bytes + kDebugCommandOffset, &command, sizeof command);
    std::memcpy(bytes + kDebugArgumentOffset, &argument, sizeof argument);
    return record;
}

// A daemon that was killed leaves its queue: that it does not read is seen only by the record that stays.
bool DaemonHasStarted() {
    return QueueHandle(mq_open(kDaemonQueue, O_RDONLY | O_NONBLOCK)).IsOpen() || errno != ENOENT;
}

ExitStatus ExplainMissingQueue() {
    if (errno == ENOENT) {
        return Complain(kNoDaemon, "the radio stack does not run: there is no queue ", kMqToBleSdk);
    }
    return Complain(kFailed, "cannot open /Mq_to_BleSdk: ", std::strerror(errno));
}

bool IsRead(const QueueHandle& queue) {
    const auto attributes = QueueAttributes(queue);
    return attributes && attributes->mq_curmsgs == 0;
}

// Records are read in the order in which they came, so this one has been read once the queue was seen empty.
ExitStatus WaitUntilRead(const QueueHandle& queue) {
    const auto end = steady_clock::now() + kPatience;
    while (!IsRead(queue)) {
        if (steady_clock::now() > end) {
            return Complain(kFailed,
                            "the record is written, but after 2 seconds not all records are read: the daemon is "
                            "busy, hangs or was killed");
        }
        std::this_thread::sleep_for(kLookPeriod);
    }
    return kDone;
}

ExitStatus Write(const QueueHandle& queue, const ble_message_t& record) {
    timespec end{};
    clock_gettime(CLOCK_REALTIME, &end);
    end.tv_sec += kPatience.count();
    if (mq_timedsend(queue, reinterpret_cast<const char*>(&record), sizeof record, 0, &end) == 0) {
        return WaitUntilRead(queue);
    }
    if (errno == ETIMEDOUT) {
        return Complain(kFailed, "nothing is written: the queue stays full, the daemon hangs or was killed");
    }
    return Complain(kFailed, "cannot write into /Mq_to_BleSdk: ", std::strerror(errno));
}

ExitStatus Send(const ble_message_t& record) {
    const QueueHandle queue(mq_open(kMqToBleSdk, O_WRONLY));
    if (!queue.IsOpen()) {
        return ExplainMissingQueue();
    }
    if (!DaemonHasStarted()) {
        return Complain(kNoDaemon, "kzBleSdkD does not run: there is no queue ", kDaemonQueue);
    }
    const auto attributes = QueueAttributes(queue);
    if (!attributes || attributes->mq_msgsize != kBleRecordSize) {
        return Complain(kFailed, "/Mq_to_BleSdk is not a queue of 88-byte records");
    }
    return Write(queue, record);
}

ExitStatus Print(const char* text) {
    const bool printed = std::fputs(text, stdout) >= 0 && std::fflush(stdout) == 0;
    return printed ? kDone : Complain(kFailed, "cannot write to standard output");
}

ExitStatus Run(std::span<char*> words) {
    if (words.empty()) {
        return ComplainOfUse("a command is missing");
    }
    const std::string_view name = words[0];
    if (name == "--help" || name == "-h") {
        return Print(kUsage);
    }
    if (name == "--version") {
        return Print((std::string("kzbledebug ") + kzVersion + "\n").c_str());
    }
    const Command* command = FindCommand(name);
    if (command == nullptr) {
        return ComplainOfUse("unknown command: ", words[0]);
    }
    if (words.size() != (command->takesLevel ? 2U : 1U)) {
        return ComplainOfUse(command->takesLevel ? "one level is needed behind " : "nothing may follow ",
                             command->name);
    }
    const auto argument = command->takesLevel ? ParseLevel(words[1]) : 0;
    if (!argument) {
        return ComplainOfUse("a level is a digit from 0 to 6, not ", words[1]);
    }
    return Send(DebugRecord(command->number, *argument));
}

}  // namespace

int main(int argc, char** argv) {
    const auto words = std::span(argv, static_cast<size_t>(argc));
    return Run(words.empty() ? words : words.subspan(1));
}
