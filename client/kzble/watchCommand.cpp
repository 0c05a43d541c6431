// `kzble watch`: registers for changes and prints one decoded line a push until interrupted.
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <utility>

#include "protobufFields.h"
#include "session.h"
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

using nlohmann::ordered_json;
using std::chrono::steady_clock;
using namespace wsdk_commands;

enum Header : uint8_t {
    kRegisterSettings = 0x52,
    kRegisterStatus = 0x53,
    kRegisterCapabilities = 0x62,
    kPushSettings = 0x92,
    kPushStatus = 0x93,
    kPushCapabilities = 0xA2,
    kProtobuf = 0xF5,
};

volatile std::sig_atomic_t interrupted = 0;

struct Wanted {
    std::vector<std::string> settings;
    std::vector<std::string> statuses;
    std::vector<std::string> features;
    bool capabilities = false;
    int count = 0;
    double seconds = 0;
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
        const bool forever = m_wanted.seconds <= 0;
        const auto end = steady_clock::now() + std::chrono::duration_cast<steady_clock::duration>(
                                                   std::chrono::duration<double>(m_wanted.seconds));
        int printed = 0;
        std::signal(SIGINT, [](int) { interrupted = 1; });
        std::signal(SIGTERM, [](int) { interrupted = 1; });
        while (interrupted == 0 && (m_wanted.count == 0 || printed < m_wanted.count)) {
            auto until = steady_clock::now() + std::chrono::seconds(1);
            if (!forever) {
                if (steady_clock::now() >= end) {
                    break;
                }
                until = std::min(until, end);
            }
            if (const auto message = m_session.client().receive(until)) {
                printed += show(message->bytes) ? 1 : 0;
            }
        }
    }

  private:
    bool everything() const {
        return m_wanted.settings.empty() && m_wanted.statuses.empty() && m_wanted.features.empty() &&
               !m_wanted.capabilities;
    }

    void registerInterest() {
        const auto& catalogue = m_session.catalogue();
        auto& client = m_session.client();
        if (everything() || !m_wanted.settings.empty()) {
            Bytes ids;
            for (const auto& name : m_wanted.settings) {
                ids.push_back(catalogue.settingId(name));
            }
            remember(ValueKind::Setting, client.query(kRegisterSettings, ids));
        }
        if (everything() || !m_wanted.statuses.empty()) {
            Bytes ids;
            for (const auto& name : m_wanted.statuses) {
                ids.push_back(catalogue.statusId(name));
            }
            remember(ValueKind::Status, client.query(kRegisterStatus, ids));
        }
        if (everything() || m_wanted.capabilities) {
            client.query(kRegisterCapabilities, {});
        }
        for (const auto& feature : features()) {
            if (everything() || std::find(m_wanted.features.begin(), m_wanted.features.end(), feature.name) !=
                                    m_wanted.features.end()) {
                const std::unique_ptr<google::protobuf::Message> answer(feature.notification->New());
                client.protobuf(KZ_STR_ID_QUERY, kProtobuf, feature.queryAction, registerAll(feature).get(), *answer);
            }
        }
        std::cerr << "watching; interrupt to stop" << std::endl;
    }

    void remember(ValueKind kind, const Bytes& entries) {
        for (const auto& entry : kzclient::parseEntries(entries)) {
            m_last[{kind, entry.id}] = valueText(kind, entry, m_session.catalogue());
        }
    }

    bool show(const Bytes& push) {
        if (push.size() < 2) {
            return false;
        }
        const std::span<const uint8_t> body = std::span(push).subspan(2);
        switch (push[0]) {
            case kPushSettings:
                return showValues(ValueKind::Setting, body);
            case kPushStatus:
                return showValues(ValueKind::Status, body);
            case kPushCapabilities:
                return showCapabilities(body);
            case kProtobuf:
                return showFeature(push[1], body);
            default:
                return false;
        }
    }

    bool showValues(ValueKind kind, std::span<const uint8_t> body) {
        const auto& catalogue = m_session.catalogue();
        ordered_json json = ordered_json::array();
        std::string text;
        int asBefore = 0;
        for (const auto& entry : kzclient::parseEntries(body)) {
            const std::string name = idName(kind, entry.id, catalogue);
            json.push_back({{"id", entry.id}, {"name", name}, {"value", valueJson(kind, entry)}});
            const std::string now = valueText(kind, entry, catalogue);
            const std::string last = std::exchange(m_last[{kind, entry.id}], now);
            if (last == now) {
                ++asBefore;
            } else {
                text += (text.empty() ? "" : ", ") + name + ": " + (last.empty() ? "" : last + " -> ") + now;
            }
        }
        if (asBefore > 0) {
            text += (text.empty() ? "" : ", and ") + std::to_string(asBefore) + " as before";
        }
        line(kind == ValueKind::Setting ? "settings" : "status", json, text);
        return true;
    }

    bool showCapabilities(std::span<const uint8_t> body) {
        const auto& catalogue = m_session.catalogue();
        std::map<uint8_t, std::vector<uint64_t>> options;
        for (const auto& entry : kzclient::parseEntries(body)) {
            auto& list = options[entry.id];
            if (!entry.value.empty()) {
                list.push_back(kzclient::bigEndian(entry.value));
            }
        }
        ordered_json json = ordered_json::array();
        std::string text;
        for (const auto& [id, list] : options) {
            json.push_back({{"id", id}, {"name", catalogue.settingName(id)}, {"options", list}});
            text += (text.empty() ? "" : "; ") + catalogue.settingName(id) + " may be";
            for (const auto option : list) {
                text += " " + catalogue.optionName(id, option);
            }
            text += list.empty() ? " nothing" : "";
        }
        line("capabilities", json, text);
        return true;
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
        timespec now{};
        clock_gettime(CLOCK_REALTIME, &now);
        std::tm local{};
        localtime_r(&now.tv_sec, &local);
        char clock[32];
        std::snprintf(clock, sizeof(clock), "%02d:%02d:%02d.%03ld", local.tm_hour, local.tm_min, local.tm_sec,
                      now.tv_nsec / 1000000);
        m_session.print({{"time", clock}, {"what", what}, {"values", json}},
                        std::string(clock) + "  " + what + "  " + text);
    }

    Session& m_session;
    const Wanted& m_wanted;
    std::map<std::pair<ValueKind, uint8_t>, std::string> m_last;
};

}  // namespace

void addWatchCommand(CLI::App& app, Session& session) {
    auto wanted = std::make_shared<Wanted>();
    CLI::App* command = addCommand(app, "watch", "Print every change until interrupted; without options, everything",
                                   [&session, wanted] { Watch(session, *wanted).run(); });
    command->add_option("--setting", wanted->settings, "Only these settings, by id or name");
    command->add_option("--status", wanted->statuses, "Only these status fields, by id or name");
    command->add_flag("--caps", wanted->capabilities, "Only changes of what may be chosen");
    command->add_option("--feature", wanted->features, "Only these features")
        ->check(CLI::IsMember({"cah", "ota", "live", "presets"}));
    command->add_option("--count", wanted->count, "Stop after so many changes");
    command->add_option("--for", wanted->seconds, "Stop after so many seconds");
}

}  // namespace kzble
