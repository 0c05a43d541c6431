// A phone: asks for all that a phone can ask for, and is told of the changes that it is interested in.
#include <algorithm>

#include "skylark/bleMessage.h"
#include "soakClient.h"
#include "soakRequest.h"
#include "wsdkCommands/WSDK_NotifyPresetStatus.pb.h"

namespace soak {
namespace {

constexpr std::chrono::seconds kCheckPeriod{1};
constexpr std::chrono::seconds kWaitingPush{3};
constexpr std::chrono::seconds kStale{8};       // a push may hold a value that is as old as that
constexpr std::chrono::seconds kMuchStale{30};  // and after a fault, as that
constexpr uint8_t kFetchSettings = 0x3b;
constexpr uint8_t kProtobuf = 0xf5;

// First bytes of pushes.
struct PushRow {
    uint8_t first;
    Kind kind;
};
constexpr PushRow kValuePushes[] = {{0x92, Kind::Setting}, {0x93, Kind::Status}, {0xa2, Kind::Capabilities}};
// Actions of protobuf pushes. Answers have others, because the requests of a soak use the even actions.
struct FeaturePushRow {
    uint8_t action;
    Feature feature;
};
constexpr FeaturePushRow kFeaturePushes[] = {{0xf5, kStreamBitrate}, {0xf7, kUpdatePercent}, {0xff, kUploadPermission}};
constexpr uint8_t kPresetsPush = 0xf3;

struct Family {
    unsigned weight;
    Requests (*make)(Asker& phone);
};
constexpr Family kFamilies[] = {
    {30, changeOwnSetting}, {30, askForValues},  {5, askForNames},
    {6, changeInterest},    {4, askForFeatures}, {25, askForSomethingFixed},
};

class Phone : public Client, private Asker {
  public:
    Phone(World& world, size_t index) : Client(world, index, {{}, KZ_CALLER_BLE_RC, false}), m_duty(dutyOf(index)) {}

  private:
    // ---- Asker
    World& world() override { return Client::world(); }
    Random& random() override { return Client::random(); }
    size_t index() const override { return Client::index(); }
    const OwnedSetting& owned() const override { return m_world.board.owned(index()); }
    void watch(Cell& cell, const Bytes& known) override {
        if (m_watched.insert_or_assign(&cell, known).second) {
            cell.watch();
        }
    }
    void mayWatch(Cell& cell) override { m_between[&cell] = Clock::now(); }
    void unwatch(Cell& cell) override {
        if (m_watched.erase(&cell) != 0) {
            cell.unwatch();
            mayWatch(cell);
        }
    }
    bool watches(const Cell& cell) const override { return m_watched.count(const_cast<Cell*>(&cell)) != 0; }

    // ---- Client
    void begin() override;
    void work() override;
    void takeWhatComes(std::chrono::milliseconds duration) override;
    void ended() override;

    Requests choose();
    void carryOut(const Request& request);
    void judge(const Request& request, const Bytes& answer, Clock::time_point asked);
    // What the camera may still answer or push now because of what goes on around the daemon.
    Clock::time_point validSince(Clock::time_point asked) const;
    void fetchCatalogue();
    void takePush(const kzclient::Message& message);
    void takeValues(Kind kind, const Bytes& push);
    void takeValue(Cell* cell, const Bytes& value, const Bytes& push);
    void takeFeature(const Bytes& push);
    void checkWatched();
    void checkFeatures(Clock::time_point now);

    World& m_world = Client::world();
    std::unique_ptr<Duty> m_duty;
    std::map<Cell*, Bytes> m_watched;              // and what the phone was told last
    std::map<Cell*, Clock::time_point> m_between;  // when the interest was asked for or lost
    Clock::time_point m_connectedSince{};
    Clock::time_point m_checked{};
    Clock::time_point m_toldOfFeatures{};
};

// ---------------------------------------------------------------- connection

void Phone::begin() {
    m_connectedSince = Clock::now();
    link().enableNotifications();
    for (const Request& request : firstInterests(*this)) {
        carryOut(request);
    }
}

void Phone::ended() {
    while (!m_watched.empty()) {
        unwatch(*m_watched.begin()->first);
    }
    m_between.clear();
}

void Phone::work() {
    takeWhatComes({});
    if (below(random(), 2000) == 0) {
        disconnect();
    } else if (below(random(), 500) == 0) {
        fetchCatalogue();
    } else {
        for (const Request& request : choose()) {
            carryOut(request);
        }
    }
}

// ---------------------------------------------------------------- requests

Requests Phone::choose() {
    if (m_duty != nullptr && chance(random(), 30)) {
        return m_duty->next(*this);
    }
    unsigned all = 0;
    for (const Family& family : kFamilies) {
        all += family.weight;
    }
    auto choice = static_cast<unsigned>(below(random(), all));
    const Family* family = kFamilies;
    while (choice >= family->weight) {
        choice -= family++->weight;
    }
    return family->make(*this);
}

void Phone::carryOut(const Request& request) {
    const auto asked = Clock::now();
    request.before();
    try {
        judge(request, ask(request.stream, request.message, [this](const auto& message) { takePush(message); }), asked);
    } catch (const NoAnswer&) {
        request.after({}, Outcome::Unknown);
        throw;
    } catch (const kzclient::Error&) {
        ++m_world.tally.cut;
        request.after({}, Outcome::Unknown);
        throw;
    }
}

void Phone::judge(const Request& request, const Bytes& answer, Clock::time_point asked) {
    const bool disturbed = m_world.weather.disturbed(request.needs, asked);
    const bool right = request.right(answer, validSince(asked));
    if (!right && disturbed) {
        ++m_world.tally.failures;
    } else if (!right) {
        m_world.tally.wrong(name() + ": " + request.name + ": " + kzclient::hex(request.message) + " -> " +
                            kzclient::hex(answer));
    }
    request.after(answer, !right ? Outcome::Unknown : disturbed ? Outcome::Likely : Outcome::Sure);
}

Clock::time_point Phone::validSince(Clock::time_point asked) const {
    return m_world.weather.disturbed(kEveryPart, asked - kStale) ? asked - kStale : asked;
}

void Phone::fetchCatalogue() {
    const std::unique_lock transfer(m_world.transfer, std::try_to_lock);
    if (!transfer) {
        return;
    }
    Request request{"catalogue", KZ_STR_ID_COMMAND, {kFetchSettings}, kNoPart, [this](const Bytes& answer, auto) {
                        return answer.size() == m_world.catalogueFile.size() + 2 && answer[1] == 0 &&
                               std::equal(answer.begin() + 2, answer.end(), m_world.catalogueFile.begin());
                    }};
    carryOut(request);
    ++m_world.tally.catalogues;
}

// ---------------------------------------------------------------- pushes

void Phone::takeWhatComes(std::chrono::milliseconds duration) {
    const auto until = Clock::now() + duration;
    while (const auto message = link().receive(until)) {
        takePush(*message);
    }
    if (Clock::now() > m_checked + kCheckPeriod) {
        m_checked = Clock::now();
        checkWatched();
    }
}

void Phone::takePush(const kzclient::Message& message) {
    const Bytes& push = message.bytes;
    const auto* const row = std::find_if(std::begin(kValuePushes), std::end(kValuePushes),
                                         [&](const PushRow& one) { return !push.empty() && push[0] == one.first; });
    if (message.streamId != KZ_STR_ID_QUERY_RESPONSE || push.size() < 2) {
        m_world.tally.wrong(name() + ": unasked, on stream " + std::to_string(message.streamId) + ": " +
                            kzclient::hex(push));
    } else if (row != std::end(kValuePushes)) {
        takeValues(row->kind, push);
    } else {
        takeFeature(push);
    }
}

void Phone::takeValues(Kind kind, const Bytes& push) {
    std::map<uint8_t, Bytes> values;
    try {
        for (const auto& entry : kzclient::parseEntries(std::span(push).subspan(2))) {
            values[entry.id].insert(values[entry.id].end(), entry.value.begin(), entry.value.end());
        }
    } catch (const kzclient::Error&) {
        m_world.tally.wrong(name() + ": no push: " + kzclient::hex(push));
    }
    for (const auto& [id, value] : values) {
        takeValue(m_world.board.find(kind, id), value, push);
    }
}

void Phone::takeValue(Cell* cell, const Bytes& value, const Bytes& push) {
    const auto known = m_watched.find(cell);
    const auto now = Clock::now();
    const bool calm = !m_world.weather.disturbed(kEveryPart, now - kStale);
    if (known == m_watched.end()) {
        const auto between = m_between.find(cell);  // a push that found no room is sent on a later tick as it was
        if (between == m_between.end() || between->second + (calm ? kWaitingPush : kStale) < now) {
            m_world.tally.wrong(name() + ": push that it did not register for: " + kzclient::hex(push));
        }
        return;
    }
    if (!cell->mayBe(value, now - (calm ? kStale : kMuchStale))) {
        m_world.tally.wrong(name() + ": " + cell->name() + " pushed as " + kzclient::hex(value));
    }
    if (value != known->second && cell->kind() != Kind::Presets) {
        ++m_world.tally.pushesReceived;
    }
    known->second = value;
}

void Phone::takeFeature(const Bytes& push) {
    const auto payload = std::span(push).subspan(2);
    wsdk_commands::WSDK_NotifyPresetStatus presets;
    if (push[0] == kProtobuf && push[1] == kPresetsPush &&
        presets.ParseFromArray(payload.data(), static_cast<int>(payload.size())) &&
        presets.preset_group_array_size() != 0) {
        Cell* const cell = m_world.board.find(Kind::Presets, 0);
        takeValue(cell, cell->newest(), push);
        return;
    }
    const auto* const row =
        std::find_if(std::begin(kFeaturePushes), std::end(kFeaturePushes),
                     [&](const FeaturePushRow& one) { return push[0] == kProtobuf && push[1] == one.action; });
    if (row == std::end(kFeaturePushes)) {
        m_world.tally.wrong(name() + ": unasked: " + kzclient::hex(push));
    } else if (const auto value = featureValue(row->feature, payload)) {
        m_toldOfFeatures = Clock::now();
        takeValue(m_world.board.find(Kind::Feature, row->feature), *value, push);
    }
}

// What the phone was told last must be what the camera has, when that was changed in calm times: of pushes that find no
// room the newest waits, and the radio may be crowded after a fault of any part.
void Phone::checkWatched() {
    for (auto& [cell, known] : m_watched) {
        const auto due = cell->kind() != Kind::Feature ? cell->due() : std::nullopt;
        if (due && known != due->value && !m_world.weather.disturbed(kEveryPart, due->since)) {
            m_world.tally.lost(name() + ": push of " + cell->name() + ": it knows " + kzclient::hex(known) +
                               ", the camera has " + kzclient::hex(due->value));
            known = due->value;
        }
    }
    checkFeatures(Clock::now());
}

// A push of a feature that finds no room makes way for the next one. So each may be missing, but not all of them: they
// change several times a second.
void Phone::checkFeatures(Clock::time_point now) {
    const bool watches = m_watched.count(m_world.board.find(Kind::Feature, kStreamBitrate)) != 0;
    const bool changing = m_world.stage.scene() == Stage::Scene::Working && !m_world.quiet;
    if (!watches || !changing || m_world.weather.disturbed(kEveryPart, now - kStale)) {
        m_toldOfFeatures = now;
    } else if (m_toldOfFeatures + kStale < now) {
        m_world.tally.lost(name() + ": pushes of features");
        m_toldOfFeatures = now;
    }
}

}  // namespace

std::unique_ptr<Client> makePhone(World& world, size_t index) {
    return std::make_unique<Phone>(world, index);
}

}  // namespace soak
