// The phone that works on the presets, and takes pictures in between: the camera refuses a change of preset while it
// captures.
#include <algorithm>
#include <set>

#include "skylark/bleMessage.h"
#include "soakRequest.h"
#include "wsdkCommands/WSDK_NotifyPresetStatus.pb.h"
#include "wsdkCommands/WSDK_RequestCreateCustomPreset.pb.h"

namespace soak {
namespace {

constexpr uint32_t kFactoryPresets[] = {0x0, 0x1, 0x2, 0x3, 0x4, 0x10000, 0x10001, 0x10002, 0x10003, 0x20000, 0x20001};
constexpr size_t kFactoryCount = 12;
constexpr size_t kMostCustom = 3;
constexpr int kVideoGroup = 1000;
constexpr int kVideoMode = 12;

// The same shutter by four roads: on and off.
struct ShutterRow {
    uint8_t stream;
    const char* on;
    const char* off;
    const char* answer;
};
constexpr ShutterRow kShutters[] = {
    {KZ_STR_ID_COMMAND, "01 01 01", "01 01 00", "01 00"},
    {KZ_STR_ID_COMMAND, "f0 01 08 01", "f0 01 08 00", "f0 81 08 01"},
    {KZ_STR_ID_SETTINGS, "f3 71 08 01", "f3 71 08 00", "f3 f1 08 01"},
    {KZ_STR_ID_QUERY, "f5 70 08 01", "f5 70 08 00", "f5 f0 08 01"},
};

// A message with one number as its field 1.
Bytes withNumber(Bytes message, uint32_t value) {
    message.push_back(0x08);
    for (; value >= 0x80; value >>= 7) {
        message.push_back(static_cast<uint8_t>(value | 0x80));
    }
    message.push_back(static_cast<uint8_t>(value));
    return message;
}

template <typename Message>
std::optional<Message> payload(const Bytes& answer, const Bytes& head) {
    Message message;
    const bool begins = answer.size() >= head.size() && std::equal(head.begin(), head.end(), answer.begin());
    return begins && message.ParseFromArray(answer.data() + head.size(), static_cast<int>(answer.size() - head.size()))
               ? std::optional(message)
               : std::nullopt;
}

class PresetDuty : public Duty {
  public:
    Requests next(Asker& phone) override {
        m_cell = phone.world().board.find(Kind::Presets, 0);
        if (!m_known) {
            return {exactly("shutter off", KZ_STR_ID_COMMAND, "01 01 00", "01 00", kControl), endOfEdit(), list(phone)};
        }
        switch (below(phone.random(), 5)) {
            case 0:
                return shutter(phone);
            case 1:
                return {load(anyOf(phone.random(), kFactoryPresets))};
            case 2:
                return {m_custom.size() < kMostCustom ? create() : remove(*m_custom.begin())};
            case 3:
                return edit(anyOf(phone.random(), kFactoryPresets));
            default:
                return {list(phone)};
        }
    }

    bool knowsState() const override { return m_known; }

  private:
    // Marks what it changes: the clients that watch the presets are told.
    Request changing(Request request) {
        request.needs = kControl;
        request.before = [this] {
            const Bytes next = settingValue(kWide, ++m_version);
            m_cell->changing(next);
        };
        request.after = [this, after = request.after](const Bytes& answer, Outcome outcome) {
            m_cell->changed(outcome);
            m_known = m_known && outcome == Outcome::Sure;
            after(answer, outcome);
        };
        return request;
    }

    Requests shutter(Asker& phone) {
        const ShutterRow& row = anyOf(phone.random(), kShutters);
        Requests requests;
        for (const char* message : {row.on, row.off}) {
            requests.push_back(exactly("shutter", row.stream, message, row.answer, kControl));
            requests.back().after = [this](const Bytes&, Outcome outcome) {
                m_known = m_known && outcome == Outcome::Sure;
            };
        }
        return requests;
    }

    Request load(uint32_t preset) {
        Bytes message{0x40, 4};
        for (int shift = 24; shift >= 0; shift -= 8) {
            message.push_back(static_cast<uint8_t>(preset >> shift));
        }
        return changing({"preset load", KZ_STR_ID_COMMAND, message, kControl, [](const Bytes& answer, auto) {
                             return answer == Bytes{0x40, 0};
                         }});
    }

    Request create() {
        wsdk_commands::WSDK_RequestCreateCustomPreset wish;
        wish.set_group_id(static_cast<wsdk_commands::WSDK_EnumPresetGroup>(kVideoGroup));
        wish.set_mode(static_cast<wsdk_commands::WSDK_EnumFlatMode>(kVideoMode));
        wish.set_icon_id(static_cast<wsdk_commands::WSDK_EnumPresetIcon>(1));
        wish.set_title_id(static_cast<wsdk_commands::WSDK_EnumPresetTitle>(2));
        wish.set_title_number(static_cast<int>(m_version % 50));
        Bytes message{0xf1, 0x76};
        const std::string body = wish.SerializeAsString();
        message.insert(message.end(), body.begin(), body.end());
        const auto created = [](const Bytes& answer) {
            return payload<wsdk_commands::WSDK_ResponseCreateCustomPreset>(answer, {0xf1, 0xf6});
        };
        return changing({"preset create", KZ_STR_ID_COMMAND, message, kControl,
                         [=](const Bytes& answer, auto) {
                             const auto response = created(answer);
                             return response && response->result() == RESULT_SUCCESS && response->has_preset_id();
                         },
                         [] {},
                         [=, this](const Bytes& answer, Outcome outcome) {
                             if (outcome == Outcome::Sure) {
                                 m_custom.insert(created(answer)->preset_id());
                             }
                         }});
    }

    Request remove(int preset) {
        return changing({"preset remove", KZ_STR_ID_COMMAND, withNumber({0xf1, 0x6e}, static_cast<uint32_t>(preset)),
                         kControl,
                         [](const Bytes& answer, auto) {
                             return answer == Bytes{0xf1, 0xee, 8, 1};
                         },
                         [] {}, [=, this](const Bytes&, Outcome) { m_custom.erase(preset); }});
    }

    Requests edit(uint32_t preset) {
        Request start{"preset edit", KZ_STR_ID_COMMAND, withNumber({0xf1, 0x72}, preset), kControl,
                      [](const Bytes& answer, auto) {
                          return answer == Bytes{0xf1, 0xf2, 8, 1};
                      }};
        Request end = endOfEdit();
        end.right = [](const Bytes& answer, auto) { return answer == Bytes{0xf1, 0xf3, 8, 1}; };
        return {changing(start), changing(end)};
    }

    // Whether there was an edit or not.
    Request endOfEdit() {
        return {"preset edit end", KZ_STR_ID_COMMAND, {0xf1, 0x73}, kControl, [](const Bytes& answer, auto) {
                    return answer.size() == 4 && answer[1] == 0xf3;
                }};
    }

    // Has all presets of the camera's own, and of the others those that were made.
    Request list(Asker& phone) {
        const auto customOf = [](const Bytes& answer) -> std::optional<std::set<int>> {
            const auto status = payload<wsdk_commands::WSDK_NotifyPresetStatus>(answer, {0xf5, 0xf2});
            if (!status) {
                return std::nullopt;
            }
            std::set<int> custom;
            size_t factory = 0;
            for (const auto& group : status->preset_group_array()) {
                for (const auto& preset : group.preset_array()) {
                    if (preset.user_defined()) {
                        custom.insert(preset.id());
                    } else {
                        ++factory;
                    }
                }
            }
            return factory == kFactoryCount ? std::optional(custom) : std::nullopt;
        };
        return {"preset list",
                KZ_STR_ID_QUERY,
                bytesOf("f5 72 08 01"),
                kControl,
                [=, this](const Bytes& answer, auto) {
                    const auto custom = customOf(answer);
                    return custom && (!m_known || *custom == m_custom);
                },
                [this, &phone] {
                    mayWatchFeatures(phone);
                    phone.mayWatch(*m_cell);
                },
                [=, this, &phone](const Bytes& answer, Outcome outcome) {
                    if (outcome == Outcome::Sure) {
                        m_custom = *customOf(answer);
                        m_known = true;
                    }
                    watchFeatures(phone);
                    phone.watch(*m_cell, m_cell->newest());
                }};
    }

    static constexpr uint8_t kWide = 30;  // a setting with values of four bytes

    Cell* m_cell = nullptr;
    bool m_known = false;
    std::set<int> m_custom;
    uint32_t m_version = 0;
};

}  // namespace

std::unique_ptr<Duty> presetDuty() {
    return std::make_unique<PresetDuty>();
}

}  // namespace soak
