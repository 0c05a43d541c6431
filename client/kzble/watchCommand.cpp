// `kzble watch`: registers for changes and prints one decoded line a push. `kzble wait`: until a value is reached.
#include <algorithm>
#include <charconv>
#include <iostream>
#include <utility>

#include "listening.h"
#include "protobufFields.h"
#include "skylark/bleMessage.h"
#include "values.h"
#include "wsdkCommands/WSDK_NotifyCAHStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyLiveStreamStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyOTAStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyPresetStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetCAHStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetLiveStreamStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetOTAStatus.pb.h"
#include "wsdkCommands/WSDK_RequestGetPresetStatus.pb.h"

namespace kzble {

namespace {

using kzclient::Entry;
using nlohmann::ordered_json;
using namespace wsdk_commands;

constexpr uint8_t kProtobuf = 0xF5;

struct Wanted {
    std::vector<std::string> settings;
    std::vector<std::string> statuses;
    std::vector<std::string> features;
    bool capabilities = false;
    bool initial = false;
    Limits limits;
};

struct Feature {
    const char* name;
    uint8_t queryAction;
    uint8_t pushAction;
    const google::protobuf::Message* request;
    const google::protobuf::Message* notification;
};

const std::vector<Feature>& features() {
    static const std::vector<Feature> rows = {
        {"cah", 126, 0xFF, &WSDK_RequestGetCAHStatus::default_instance(), &WSDK_NotifyCAHStatus::default_instance()},
        {"ota", 118, 0xF7, &WSDK_RequestGetOTAStatus::default_instance(), &WSDK_NotifyOTAStatus::default_instance()},
        {"live", 116, 0xF5, &WSDK_RequestGetLiveStreamStatus::default_instance(),
         &WSDK_NotifyLiveStreamStatus::default_instance()},
        {"presets", 114, 0xF3, &WSDK_RequestGetPresetStatus::default_instance(),
         &WSDK_NotifyPresetStatus::default_instance()},
    };
    return rows;
}

// Puts every value of the enumeration into the request's register list, its field 1.
std::unique_ptr<google::protobuf::Message> registerAll(const Feature& feature) {
    std::unique_ptr<google::protobuf::Message> request(feature.request->New());
    const auto* field = request->GetDescriptor()->FindFieldByNumber(1);
    for (int i = 0; i < field->enum_type()->value_count(); ++i) {
        request->GetReflection()->AddEnum(request.get(), field, field->enum_type()->value(i));
    }
    return request;
}

class Watch {
  public:
    Watch(Session& session, const Wanted& wanted) : m_session(session), m_wanted(wanted) {}

    void run() {
        registerInterest();
        std::cerr << "watching; interrupt to stop" << std::endl;
        listen(m_session.client(), m_wanted.limits, [this](const kzclient::Message& push) {
            return push.streamId == KZ_STR_ID_QUERY_RESPONSE && show(push.bytes);
        });
    }

  private:
    bool everything() const {
        return m_wanted.settings.empty() && m_wanted.statuses.empty() && m_wanted.features.empty() &&
               !m_wanted.capabilities;
    }

    // A registration whose answer left values out has taken effect all the same.
    void registerInterest() {
        m_session.client().forgetPushes();
        const auto& catalogue = m_session.catalogue();
        if (everything() || !m_wanted.settings.empty()) {
            const Bytes ids = idsOf(ValueKind::Setting, m_wanted.settings, catalogue);
            begin(ValueKind::Setting, ids, askForAll(m_session, kRegisterSettings, kSettingValues, ids));
        }
        if (everything() || !m_wanted.statuses.empty()) {
            const Bytes ids = idsOf(ValueKind::Status, m_wanted.statuses, catalogue);
            begin(ValueKind::Status, ids, askForAll(m_session, kRegisterStatus, kStatusValues, ids));
        }
        if (everything() || m_wanted.capabilities) {
            const auto entries = askForAll(m_session, kRegisterCapabilities, kSettingCapabilities, {});
            if (m_wanted.initial) {
                showCapabilities(entries);
            }
        }
        for (const auto& feature : features()) {
            if (everything() || std::find(m_wanted.features.begin(), m_wanted.features.end(), feature.name) !=
                                    m_wanted.features.end()) {
                begin(feature);
            }
        }
    }

    void begin(ValueKind kind, const Bytes& ids, const std::vector<Entry>& entries) {
        expectNamed(kind, ids, entries);
        if (m_wanted.initial) {
            showValues(kind, entries);
        }
        for (const auto& entry : entries) {
            m_last[{kind, entry.id}] = valueText(kind, entry, m_session.catalogue());
        }
    }

    void begin(const Feature& feature) {
        const std::unique_ptr<google::protobuf::Message> answer(feature.notification->New());
        m_session.client().protobuf(KZ_STR_ID_QUERY, kProtobuf, feature.queryAction, registerAll(feature).get(),
                                    *answer);
        if (m_wanted.initial) {
            line(feature.name, ordered_json::parse(toJson(*answer)), toText(*answer, TextLines::kOne));
        }
    }

    bool show(const Bytes& push) {
        if (push.size() < 2) {
            return false;
        }
        const std::span<const uint8_t> body = std::span(push).subspan(2);
        switch (push[0]) {
            case kPushSettings:
                showValues(ValueKind::Setting, kzclient::parseEntries(body));
                return true;
            case kPushStatus:
                showValues(ValueKind::Status, kzclient::parseEntries(body));
                return true;
            case kPushCapabilities:
                showCapabilities(kzclient::parseEntries(body));
                return true;
            case kProtobuf:
                return showFeature(push[1], body);
            default:
                return false;
        }
    }

    void showValues(ValueKind kind, const std::vector<Entry>& entries) {
        const auto& catalogue = m_session.catalogue();
        ordered_json json = ordered_json::array();
        std::string text;
        int asBefore = 0;
        for (const auto& entry : entries) {
            json.push_back(entryJson(kind, entry, catalogue));
            const std::string now = valueText(kind, entry, catalogue);
            const std::string last = std::exchange(m_last[{kind, entry.id}], now);
            if (last == now) {
                ++asBefore;
            } else {
                text += (text.empty() ? "" : ", ") + idName(kind, entry.id, catalogue) + ": " +
                        (last.empty() ? "" : last + " -> ") + now;
            }
        }
        if (asBefore > 0) {
            text += (text.empty() ? "" : ", and ") + std::to_string(asBefore) + " as before";
        }
        line(kind == ValueKind::Setting ? "settings" : "status", json, text);
    }

    void showCapabilities(const std::vector<Entry>& entries) {
        ordered_json json = ordered_json::array();
        std::string text;
        for (const auto& [id, options] : capabilitiesOf(entries)) {
            json.push_back(capabilityJson(id, options, m_session.catalogue()));
            text += (text.empty() ? "" : "; ") + capabilityText(id, options, m_session.catalogue());
        }
        line("capabilities", json, text);
    }

    bool showFeature(uint8_t action, std::span<const uint8_t> body) {
        const auto& rows = features();
        const auto row =
            std::find_if(rows.begin(), rows.end(), [&](const Feature& f) { return f.pushAction == action; });
        if (row == rows.end()) {
            return false;
        }
        const std::unique_ptr<google::protobuf::Message> message(row->notification->New());
        if (!message->ParsePartialFromArray(body.data(), static_cast<int>(body.size()))) {
            throw Error("a notification cannot be read");
        }
        line(row->name, ordered_json::parse(toJson(*message)), toText(*message, TextLines::kOne));
        return true;
    }

    void line(const std::string& what, const ordered_json& json, const std::string& text) {
        const std::string now = timestamp();
        m_session.print({{"time", now}, {"what", what}, {"values", json}}, now + "  " + what + "  " + text);
    }

    Session& m_session;
    const Wanted& m_wanted;
    std::map<std::pair<ValueKind, uint8_t>, std::string> m_last;
};

// What `wait` waits for.
struct Goal {
    ValueKind kind;
    uint8_t id;
    std::string value;
};

Goal parseGoal(const std::string& text, const kzclient::Catalogue& catalogue) {
    const size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0) {
        throw WrongUse("\"" + text + "\" is not NAME=VALUE");
    }
    const std::string name = text.substr(0, equals);
    if (kzclient::parseNumber(name)) {
        throw WrongUse("\"" + name + "\" may be a setting or a status field: give its name");
    }
    const std::string value = text.substr(equals + 1);
    if (const auto setting = catalogue.findSetting(name)) {
        return {ValueKind::Setting, *setting, std::to_string(catalogue.optionId(*setting, value))};
    }
    const uint8_t status = catalogue.statusId(name);
    if (kzclient::isTextStatus(status)) {
        return {ValueKind::Status, status, value};
    }
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (error != std::errc{} || end != value.data() + value.size()) {
        throw WrongUse(catalogue.statusName(status) + " has numbers for values, not \"" + value + "\"");
    }
    return {ValueKind::Status, status, std::to_string(number)};
}

// The entry that reaches the goal, if there is one.
const Entry* reached(const Goal& goal, const std::vector<Entry>& entries) {
    const auto entry = std::find_if(entries.begin(), entries.end(), [&](const Entry& one) {
        const auto value = valueJson(goal.kind, one);
        return one.id == goal.id && !value.is_null() &&
               (value.is_string() ? value.get<std::string>() : value.dump()) == goal.value;
    });
    return entry == entries.end() ? nullptr : &*entry;
}

void wait(Session& session, const std::string& text) {
    const auto& catalogue = session.catalogue();
    const Goal goal = parseGoal(text, catalogue);
    const bool setting = goal.kind == ValueKind::Setting;
    const auto report = [&](const Entry& entry) {
        session.print(entryJson(goal.kind, entry, catalogue),
                      idName(goal.kind, entry.id, catalogue) + " = " + valueText(goal.kind, entry, catalogue));
        return true;
    };
    auto& client = session.client();
    const uint8_t push = setting ? kPushSettings : kPushStatus;
    const auto now = client.query(setting ? kRegisterSettings : kRegisterStatus, Bytes{goal.id}).entries;
    client.forgetPushes();
    if (const Entry* entry = reached(goal, now)) {
        report(*entry);
        return;
    }
    const Limits limits{1, session.options.timeoutMs.value_or(0) / 1000.0};
    const auto isReached = [&](const kzclient::Message& message) {
        if (message.streamId != KZ_STR_ID_QUERY_RESPONSE || message.bytes.size() < 2 || message.bytes[0] != push) {
            return false;
        }
        const auto entries = kzclient::parseEntries(std::span(message.bytes).subspan(2));
        const Entry* entry = reached(goal, entries);
        return entry != nullptr && report(*entry);
    };
    try {
        listen(client, limits, isReached);
    } catch (const TimedOut&) {
        throw TimedOut(text + " was not reached within the time");
    }
}

}  // namespace

void addWatchCommands(const Place& place) {
    auto wanted = std::make_shared<Wanted>();
    CLI::App* command = addCommand(place,
                                   {"watch", "Print every change until interrupted; without options, everything",
                                    "--status encoding --count 2 --for 60"},
                                   [&session = place.session, wanted] { Watch(session, *wanted).run(); });
    command->add_option("--setting", wanted->settings, "Only these settings, by id or name");
    command->add_option("--status", wanted->statuses, "Only these status fields, by id or name");
    command->add_flag("--caps", wanted->capabilities, "Only changes of what may be chosen");
    command->add_option("--feature", wanted->features, "Only these features")
        ->check(CLI::IsMember({"cah", "ota", "live", "presets"}));
    command->add_flag("--initial", wanted->initial, "First print the values as they are");
    wanted->limits.addTo(*command);

    auto goal = std::make_shared<std::string>();
    CLI::App* waiting =
        addCommand(place, {"wait", "Wait until a setting or status field has a value", "encoding=0 --timeout 30s"},
                   [&session = place.session, goal] { wait(session, *goal); });
    waiting->add_option("goal", *goal, "NAME=VALUE; without --timeout it waits as long as it takes")->required();
}

}  // namespace kzble
