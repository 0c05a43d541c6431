// The CSI service's notifications, subscribed to with the daemon's own messages. A check writes CSI_ST_PAUSED, which
// the daemon itself resets with each new medium.
#include <fcntl.h>

#include <algorithm>
#include <cstring>

#include "csi/csiKeys.h"
#include "csiPort.h"
#include "kzTlv.h"
#include "posixHandle.h"
#include "promise.h"
#include "tlvText.h"

namespace kzcheck {
namespace {

constexpr int kPatienceMs = 2500;
constexpr int kSilenceMs = 300;

// What a message from the CSI service is.
enum class Kind { None, Answer, Notification, Fault };

struct Notice {
    Kind kind = Kind::None;
    std::string fault;
    std::vector<std::pair<uint8_t, uint32_t>> values;  // of a notification, as numbers
};

Notice faulty(std::string fault) {
    return {Kind::Fault, std::move(fault), {}};
}

Notice readRecords(const unsigned char* data, size_t length, bool several) {
    Notice notice{Kind::Notification, {}, {}};
    do {
        uint32_t size = 0;
        if (length >= kCsiHeaderSize) {
            std::memcpy(&size, data + 1, sizeof size);
        }
        if (length < kCsiHeaderSize || size > length - kCsiHeaderSize) {
            return faulty("a record that is not whole");
        }
        uint32_t number = 0;
        std::memcpy(&number, data + kCsiHeaderSize, std::min<size_t>(size, sizeof number));
        notice.values.emplace_back(data[0], number);
        data += kCsiHeaderSize + size;
        length -= kCsiHeaderSize + size;
    } while (several && length > 0);
    return notice;
}

Notice read(const std::vector<uint8_t>& message) {
    if (message.size() < kTlvMinMessageSize ||
        tlv_validate_received(message.data(), static_cast<uint32_t>(message.size())) != 0) {
        return faulty("a message of " + std::to_string(message.size()) + " bytes that is not well formed");
    }
    const std::string_view command = TextOf(tlv_find(message.data(), TLV_CMD));
    if (message[3] == CAT_KZNET_RSP) {
        const unsigned char* const result = tlv_find(message.data(), TLV_RSPARG);
        const bool accepted = command == "CR" && result != nullptr && tlv_length(result) > 0 && *tlv_data(result) == 0;
        return accepted ? Notice{Kind::Answer, {}, {}} : faulty("an answer that is not \"CR\" with the result 0");
    }
    if (message[3] != CAT_KZNET_CMD || (command != "CN" && command != "CU")) {
        return faulty("category " + std::to_string(message[3]) + ", command \"" + std::string(command) + '"');
    }
    if (!TextOf(tlv_find(message.data(), TLV_SRC)).starts_with('/')) {
        return faulty("a notification that names no queue for its acknowledgement");
    }
    const unsigned char* const argument = tlv_find(message.data(), TLV_CMDARG);
    return readRecords(tlv_data(argument), tlv_length(argument), command == "CU");
}

// The next message; a notification is acknowledged, as the daemon does.
Notice next(const Scene& scene, int milliseconds) {
    auto message = scene.queue.receive(milliseconds);
    if (!message.has_value()) {
        return {};
    }
    const Notice notice = read(*message);
    if (notice.kind == Kind::Notification) {
        message->resize(message->size() + kCsiAnswerRoom);
        AcknowledgeNotification(message->data(), static_cast<uint32_t>(message->size()));
    }
    return notice;
}

std::optional<Outcome> absenceOfNetworkDaemon() {
    const QueueHandle queue(mq_open(kNetworkQueue, O_WRONLY | O_NONBLOCK));
    if (!queue.IsOpen()) {
        return notTried("%s: %s; is the network daemon up?", kNetworkQueue, std::strerror(errno));
    }
    return std::nullopt;
}

// Subscribes; gives what is wrong with what comes until there is silence, and counts it.
Outcome subscribe(const Scene& scene) {
    if (const auto absence = absenceOfNetworkDaemon()) {
        return *absence;
    }
    if (subscribeCSIbleSdk() != 0) {
        return broken("%s takes no subscription", kNetworkQueue);
    }
    size_t answers = 0;
    size_t values = 0;
    for (Notice notice = next(scene, kPatienceMs); notice.kind != Kind::None; notice = next(scene, kSilenceMs)) {
        if (notice.kind == Kind::Fault) {
            return broken("%s", notice.fault.c_str());
        }
        answers += notice.kind == Kind::Answer ? 1 : 0;
        values += notice.values.size();
    }
    return (answers == 1 ? kept : broken)("%zu answers, %zu values", answers, values);
}

Outcome answersSubscription(const Scene& scene) {
    const Outcome outcome = subscribe(scene);
    if (outcome.result != Result::NotTried) {
        unsubscribeCSIbleSdk();
    }
    return outcome;
}

// The value of the key in the notifications that come in time.
std::optional<uint32_t> notifiedValue(const Scene& scene, uint8_t key, int milliseconds) {
    for (Notice notice = next(scene, milliseconds); notice.kind == Kind::Notification;
         notice = next(scene, milliseconds)) {
        for (const auto& [id, value] : notice.values) {
            if (id == key) {
                return value;
            }
        }
    }
    return std::nullopt;
}

int setPaused(const Scene& scene, uint32_t value, bool byMessage) {
    return byMessage ? csi_set_no_rsp(CSI_ST_PAUSED, &value, sizeof value)
                     : scene.platform.csiSet(CSI_ST_PAUSED, &value, sizeof value);
}

template <bool ByMessage>
Outcome notifies(const Scene& scene) {
    const Outcome subscribed = subscribe(scene);
    if (subscribed.result != Result::Kept) {
        return subscribed;
    }
    Outcome outcome = kept("key 38: 1, then 0");
    for (const uint32_t value : {1u, 0u}) {
        const int result = setPaused(scene, value, ByMessage);
        const auto seen = notifiedValue(scene, CSI_ST_PAUSED, kPatienceMs);
        if (result != 0 || seen != value) {
            outcome = broken("key 38 set to %u gives %d and %s", value, result,
                             seen.has_value() ? "a notification of another value" : "no notification");
        }
    }
    unsubscribeCSIbleSdk();
    return outcome;
}

Outcome takesAcknowledgements(const Scene& scene) {
    const Outcome subscribed = subscribe(scene);
    if (subscribed.result != Result::Kept) {
        return subscribed;
    }
    unsubscribeCSIbleSdk();
    const QueueHandle queue(mq_open(kNetworkQueue, O_WRONLY | O_NONBLOCK));
    mq_attr attributes{};
    for (int waited = 0; waited < kPatienceMs; waited += 10) {
        mq_getattr(queue, &attributes);
        if (attributes.mq_curmsgs == 0) {
            return kept("%ld messages of %ld bytes, all read", attributes.mq_maxmsg, attributes.mq_msgsize);
        }
        usleep(10'000);
    }
    return broken("%ld messages of %ld stay unread", attributes.mq_curmsgs, attributes.mq_maxmsg);
}

Outcome endsSubscription(const Scene& scene) {
    const Outcome subscribed = subscribe(scene);
    if (subscribed.result != Result::Kept) {
        return subscribed;
    }
    if (unsubscribeCSIbleSdk() != 0) {
        return broken("%s takes no message", kNetworkQueue);
    }
    next(scene, kSilenceMs);  // an answer, if one comes
    setPaused(scene, 1, false);
    const auto seen = notifiedValue(scene, CSI_ST_PAUSED, kSilenceMs);
    setPaused(scene, 0, false);
    return seen.has_value() ? broken("a notification comes after it") : kept("silence");
}

constexpr Promise kPromises[] = {
    {"notice.subscribe", "a subscription is answered: category 17, \"CR\", result 0", "", kCsiQueue,
     answersSubscription},
    {"notice.set", "csi_set of a subscribed key is followed by a notification", "csi_set", kCsiQueue, notifies<false>},
    {"notice.message", "so is a set message \"CI\" to /to_kznet", "csi_set", kCsiQueue, notifies<true>},
    {"notice.queue", "/to_kznet is read, acknowledgements too", "", kCsiQueue, takesAcknowledgements},
    {"notice.end", "the end of a subscription ends the notifications", "csi_set", kCsiQueue, endsSubscription},
};

}  // namespace

std::span<const Promise> subscriptionPromises() {
    return kPromises;
}

}  // namespace kzcheck
