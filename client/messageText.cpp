#include "messageText.h"

#include <algorithm>
#include <string_view>

#include "valueText.h"

namespace kzclient {

namespace {

constexpr size_t kShown = 3;  // values of one message
constexpr uint8_t kCategoryMask = 0x0F;
constexpr uint8_t kStatusCategory = 3;

bool is(const kzprotocol::Row& row, std::string_view kind) {
    return row.kind == kind;
}

ValueKind kindOf(MessageBytes message) {
    return (message[0] & kCategoryMask) == kStatusCategory ? ValueKind::Status : ValueKind::Setting;
}

// Whether the entries of this query or push hold values, and not options or names.
bool holdsValues(MessageBytes message) {
    constexpr uint8_t kValueTypes[] = {1, 5, 9};
    return std::find(std::begin(kValueTypes), std::end(kValueTypes), message[0] >> 4) != std::end(kValueTypes);
}

// Names of ids, or ids with their values, as many as there is room for.
class ValueList {
  public:
    void add(const std::string& text) {
        if (text == m_last) {
            return;  // options stand one in an entry
        }
        m_last = text;
        if (++m_count <= kShown) {
            m_text += (m_text.empty() ? "" : ", ") + text;
        }
    }
    std::string text() const {
        return m_count <= kShown ? m_text : m_text + " and " + std::to_string(m_count - kShown) + " more";
    }

  private:
    std::string m_text;
    std::string m_last;
    size_t m_count = 0;
};

std::string entriesText(MessageBytes message, const Catalogue& names) {
    constexpr size_t kHead = 2;  // of an answer and of a push
    const ValueKind kind = kindOf(message);
    ValueList list;
    for (size_t at = kHead; at + 2 <= message.size() && at + 2 + message[at + 1] <= message.size();
         at += 2 + message[at + 1]) {
        const auto value = message.subspan(at + 2, message[at + 1]);
        const std::string name = idName(kind, message[at], names);
        const Entry entry{message[at], {value.begin(), value.end()}};
        list.add(holdsValues(message) ? name + " = " + valueText(kind, entry, names) : name);
    }
    return list.text();
}

std::string idsText(MessageBytes message, const Catalogue& names) {
    ValueList list;
    for (const uint8_t id : message.subspan(1)) {
        list.add(idName(kindOf(message), id, names));
    }
    return list.text();
}

std::string afterColon(const std::string& text) {
    return text.empty() ? "" : ": " + text;
}

}  // namespace

std::string requestDetails(const kzprotocol::Row& row, MessageBytes message, const Catalogue& names) {
    if (is(row, "query")) {
        return afterColon(idsText(message, names));
    }
    if (!is(row, "setting") || message.size() < 3) {
        return "";
    }
    const Entry entry{message[0], {message.begin() + 2, message.end()}};
    return afterColon(names.settingName(entry.id) + " = " + valueText(ValueKind::Setting, entry, names));
}

std::string answerDetails(const kzprotocol::Row& row, MessageBytes message, const Catalogue& names) {
    if (is(row, "protobuf")) {
        return " answered";
    }
    std::string text = is(row, "setting") ? names.settingName(message[0]) + ": " : "";
    text += message.size() > 1 ? resultText(row.answerStream, message[1]) : "no result";
    if (is(row, "query")) {
        const std::string entries = entriesText(message, names);
        constexpr uint8_t kEntriesLeftOut = 1;
        const bool partial = !entries.empty() && message[1] == kEntriesLeftOut;
        text = partial ? "partial" : text;
        text += entries.empty() ? "" : ", " + entries;
    }
    return afterColon(text);
}

std::string pushDetails(const kzprotocol::Row& row, MessageBytes message, const Catalogue& names) {
    const bool feature = row.second >= 0;
    return is(row, "push") && !feature ? afterColon(entriesText(message, names)) : "";
}

std::string refusalOrUnknown(MessageBytes message) {
    if (message.size() == 2) {
        return "refused: " + describeResult(message[1]);
    }
    return message.empty() ? "empty message" : "unknown " + hex(message.first(1));
}

std::string resultText(uint8_t answerStream, uint8_t result) {
    const std::string name(kzprotocol::resultName(answerStream, result));
    return name.empty() ? "result " + std::to_string(result) : name;
}

}  // namespace kzclient
