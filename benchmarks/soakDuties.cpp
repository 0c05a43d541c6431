// The phones that stream, look after the cloud, and set the clock.
#include <algorithm>

#include "skylark/bleMessage.h"
#include "soakRequest.h"
#include "wsdkCommands/WSDK_EnumAssociationState.pb.h"
#include "wsdkCommands/WSDK_NotifyCAHStatus.pb.h"
#include "wsdkCommands/WSDK_NotifyLiveStreamStatus.pb.h"

namespace soak {
namespace {

constexpr uint8_t kCommand = KZ_STR_ID_COMMAND;
constexpr uint8_t kSettings = KZ_STR_ID_SETTINGS;
constexpr uint8_t kQuery = KZ_STR_ID_QUERY;

template <typename Message>
std::optional<Message> answered(const Bytes& answer, uint8_t action) {
    Message message;
    const bool whole = answer.size() > 2 && answer[1] == action &&
                       message.ParseFromArray(answer.data() + 2, static_cast<int>(answer.size() - 2));
    return whole ? std::optional(message) : std::nullopt;
}

// ---------------------------------------------------------------- live stream

class StreamDuty : public Duty {
  public:
    Requests next(Asker& phone) override {
        constexpr std::chrono::seconds kNotice{2};  // until the daemon has been told of the new state
        if (m_known && Clock::now() > m_since + kNotice && chance(phone.random(), 50)) {
            return {state()};
        }
        if (chance(phone.random(), 20)) {
            return {exactly("release network", kCommand, "f1 78", "f1 f8 08 01", kNetwork)};
        }
        if (!m_known || Clock::now() > m_since + 2 * kNotice) {
            return {change(m_known ? !m_streams : true)};
        }
        return {};
    }

  private:
    Request change(bool streams) {
        Request request =
            exactly("live stream", kCommand, streams ? "f1 79 0a 04 72 74 6d 70 10 01 18 07" : "f1 79 0a 00",
                    "f1 f9 08 01", kControl | kNetwork);
        request.after = [=, this](const Bytes&, Outcome outcome) {
            m_known = outcome == Outcome::Sure;
            m_streams = streams;
            m_since = Clock::now();
        };
        return request;
    }

    Request state() {
        const auto expected =
            m_streams ? wsdk_commands::WSDK_LIVE_STREAM_STATE_READY : wsdk_commands::WSDK_LIVE_STREAM_STATE_IDLE;
        return {"live state", kQuery, bytesOf("f5 74"), kNetwork, [=](const Bytes& answer, auto) {
                    const auto status = answered<wsdk_commands::WSDK_NotifyLiveStreamStatus>(answer, 0xf4);
                    return status && status->live_stream_status() == expected;
                }};
    }

    bool m_known = false;
    bool m_streams = false;
    Clock::time_point m_since{};
};

// The end of a stream loads a preset, which the camera refuses while it captures: so one phone does both.
class PresetAndStreamDuty : public Duty {
  public:
    Requests next(Asker& phone) override {
        const bool stream = chance(phone.random(), 20) && m_presets->knowsState();
        return stream ? m_stream.next(phone) : m_presets->next(phone);
    }

  private:
    const std::unique_ptr<Duty> m_presets = presetDuty();
    StreamDuty m_stream;
};

// ---------------------------------------------------------------- cloud

class CloudDuty : public Duty {
  public:
    Requests next(Asker& phone) override {
        switch (below(phone.random(), 5)) {
            case 0:
                return {associate(phone.random())};
            case 1:
                return {association(phone.random())};
            case 2:
                return {autoClear(chance(phone.random(), 50))};
            case 3:
                return {exactly("upload", kCommand, chance(phone.random(), 50) ? "f1 68 08 01" : "f1 68 08 00",
                                "f1 e8 08 01", kNetwork)};
            default:
                return {status()};
        }
    }

  private:
    // A message whose field 1 is the name of one of some users.
    static Bytes withUser(Bytes head, const std::string& user) {
        head.insert(head.end(), {0x0a, static_cast<uint8_t>(user.size())});
        head.insert(head.end(), user.begin(), user.end());
        return head;
    }
    static std::string anyUser(Random& random) { return "user " + std::to_string(below(random, 4)); }

    Request associate(Random& random) {
        const std::string user = anyUser(random);
        return {"associate",
                kSettings,
                withUser({0xf3, 0x7f}, user),
                kNetwork,
                [](const Bytes& answer, auto) {
                    return answer == Bytes{0xf3, 0xff, 8, 1};
                },
                [] {},
                [=, this](const Bytes&, Outcome outcome) { m_user = outcome == Outcome::Sure ? user : ""; }};
    }

    Request association(Random& random) {
        const std::string user = anyUser(random);
        const auto expected = user == m_user ? wsdk_commands::WSDK_ASSOCIATION_STATE_ASSOCIATED
                                             : wsdk_commands::WSDK_ASSOCIATION_STATE_ASSOCIATED_ANOTHER_USER;
        const Bytes answerWhenKnown{0xf5, 0xfc, 8, static_cast<uint8_t>(expected), 0x10, 1};
        return {"association", kQuery, withUser({0xf5, 0x7c}, user), kNetwork,
                [=, known = !m_user.empty()](const Bytes& answer, auto) {
                    return known ? answer == answerWhenKnown : answer.size() == answerWhenKnown.size();
                }};
    }

    Request autoClear(bool on) {
        Request request = exactly("auto clear", kSettings, on ? "f3 77 08 01" : "f3 77 08 00", "f3 f7 08 01", kControl);
        request.after = [=, this](const Bytes&, Outcome outcome) {
            m_autoClear = outcome == Outcome::Sure ? std::optional(on) : std::nullopt;
        };
        return request;
    }

    Request status() {
        return {"cloud status", kQuery, bytesOf("f5 7e"), kNetwork,
                [expected = m_autoClear](const Bytes& answer, auto) {
                    const auto status = answered<wsdk_commands::WSDK_NotifyCAHStatus>(answer, 0xfe);
                    return status && status->cah_feature_enable() &&
                           (!expected || status->cah_auto_clear_enable() == *expected);
                }};
    }

    std::string m_user;  // empty while it is not known
    std::optional<bool> m_autoClear;
};

// ---------------------------------------------------------------- clock

// Sets a time and reads it back within the minute.
class ClockDuty : public Duty {
  public:
    Requests next(Asker& phone) override {
        Random& random = phone.random();
        const auto any = [&](size_t limit, size_t first) { return static_cast<uint8_t>(first + below(random, limit)); };
        const Bytes time{0x07, 0xe8, any(12, 1), any(28, 1), any(24, 0), any(60, 0), 0};
        const bool zoned = chance(random, 50);
        Bytes set{static_cast<uint8_t>(zoned ? 0x0f : 0x0d), static_cast<uint8_t>(zoned ? 10 : 7)};
        set.insert(set.end(), time.begin(), time.end());
        if (zoned) {
            set.insert(set.end(), {0xfd, 0x30, 1});  // 12 hours west, daylight saving
        }
        const uint8_t get = zoned ? 0x10 : 0x0e;
        const auto asked = std::make_shared<Clock::time_point>(Clock::now());
        Request setting{"set clock", kCommand, set, kControl, [id = set[0]](const Bytes& answer, auto) {
                            return answer == Bytes{id, 0};
                        }};
        setting.before = [=] { *asked = Clock::now(); };
        setting.after = [this](const Bytes&, Outcome outcome) { m_sure = outcome == Outcome::Sure; };
        Request reading{"clock", kCommand, {get}, kControl, [=, this](const Bytes& answer, auto) {
                            const bool fresh = m_sure && Clock::now() < *asked + std::chrono::seconds(50);
                            return answer.size() == (zoned ? 13u : 11u) && answer[0] == get && answer[1] == 0 &&
                                   (!fresh || std::equal(time.begin(), time.end() - 1, answer.begin() + 3));
                        }};
        return {setting, reading};
    }

  private:
    bool m_sure = false;
};

}  // namespace

std::unique_ptr<Duty> dutyOf(size_t phone) {
    switch (phone) {
        case 0:
            return std::make_unique<PresetAndStreamDuty>();
        case 1:
            return std::make_unique<CloudDuty>();
        case 2:
            return std::make_unique<ClockDuty>();
        default:
            return nullptr;
    }
}

}  // namespace soak
