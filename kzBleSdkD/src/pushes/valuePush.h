// The pushes of values: changed settings, status fields and capabilities, in the layout of the query interface's
// answers. One row a notification type.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "answers.h"
#include "notificationClient.h"

class MemoryStream;
class SettingsStatusMapping;

struct ValuePush {
    NotificationClient::eNotificationType_t type;
    uint32_t category;
    uint32_t queryType;
    eStoredResponse stored;  // the entry in which an unsent push waits
    // Appends the entries of one id; false, with nothing written, when they do not fit.
    bool (*append)(MemoryStream& stream, const SettingsStatusMapping& model, int id);
    int noMatchLevel;  // log level of the line about a change in which the client has no interest
    const char* handlingText;
    const char* replacingText;
    void (*logNoInterest)(uint32_t connectionId);
    void (*logRead)(size_t count);

    // First byte of the push.
    constexpr unsigned char Header() const { return static_cast<unsigned char>(category | queryType << 4); }
};

constexpr size_t kValuePushTypes = 3;
constexpr int kValuePushHeaderSize = 2;

// The row of a notification type; null for a type whose pushes carry no values.
const ValuePush* FindValuePush(NotificationClient::eNotificationType_t type);

// Writes a push of `ids`, which are ascending: whole entries, as many as the stream has room for. Removes from `ids`
// what was written. An id whose entries no push of this size can hold is removed as well, with a line in the log. False
// when nothing was written.
bool WriteValuePush(const ValuePush& push, const SettingsStatusMapping& model, std::vector<int>& ids,
                    MemoryStream& stream);
