#include "replay.h"

#include <poll.h>

#include <algorithm>
#include <map>
#include <set>

#include "conversation.h"

namespace kzble {

namespace {

using kzcapture::Direction;
using kzcapture::Event;
using kzcapture::Frame;
using kzclient::Bytes;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using Place = Conversation::Place;

constexpr milliseconds kInVain{1000};            // who waited so long for an answer did not get one
constexpr milliseconds kSettle{200};             // for an answer that nobody expects
constexpr milliseconds kInterruptPatience{500};  // a signal just before a wait is seen this late

// What an answer with the clock has before and in its time.
constexpr size_t kBeforeTime = 3;  // id, result, length
constexpr size_t kTime = 7;        // year to second

bool readsClock(const Conversation::Request& request) {
    const auto* row = kzprotocol::requestOf(request.streamId, request.bytes);
    const std::string_view name = row == nullptr ? "" : row->name;
    return name == "get-time" || name == "get-local-time";
}

Bytes withoutTime(Bytes answer) {
    const auto begin = std::min(answer.size(), kBeforeTime);
    const auto end = std::min(answer.size(), kBeforeTime + kTime);
    std::fill(answer.begin() + static_cast<std::ptrdiff_t>(begin), answer.begin() + static_cast<std::ptrdiff_t>(end),
              0);
    return answer;
}

// One recorded connection and its counterpart, which is gone when the camera ended it.
struct Player {
    uint32_t number = 0;
    std::unique_ptr<kzclient::BleClient> client;
    bool gone = false;
    Conversation recorded{};
    Conversation live{};
    std::vector<kzcapture::Time> requested{};  // when each recorded request was complete
    std::set<Place> expected{};
    std::map<Place, Bytes> got{};
    steady_clock::time_point lastPart{};  // when a packet came that was not the last of its message

    // Takes what came until now.
    void listen() {
        try {
            while (!gone) {
                const auto packet = client->receivePacket(steady_clock::now());
                if (!packet) {
                    return;
                }
                if (auto heard = live.received(packet->streamId, packet->bytes)) {
                    got.emplace(heard->place, std::move(heard->bytes));
                } else {
                    lastPart = steady_clock::now();
                }
            }
        } catch (const kzclient::NoCamera&) {
            gone = true;  // which may be right: the recorded camera may have done the same
        }
    }

    void send(const Frame& frame) {
        expectConnection();
        if (frame.event == Event::Descriptor) {
            client->link().writeDescriptor(frame.stream, frame.bytes.front());
        } else {
            live.sent(frame.stream, frame.bytes);
            client->link().send(frame.stream, frame.bytes);
        }
    }

    void expectConnection() const {
        if (gone) {
            throw kzclient::NoCamera("the camera closed connection " + std::to_string(number) +
                                     " earlier than in the recording");
        }
    }

    // Throws NoCamera when there is nobody who could answer.
    void expectDaemon() const {
        expectConnection();
        client->link().daemon().expectSame();
        client->link().daemon().expectReading(milliseconds(0));
    }
};

class Replay {
  public:
    Replay(const ReplayOptions& options, const Connect& connect, const std::function<void(const Difference&)>& report)
        : m_options(options), m_connect(connect), m_report(report) {}

    ReplayResult run(const std::vector<Frame>& recording) {
        m_begin = m_frameTime = recording.front().time;
        for (const Frame& frame : recording) {
            const auto pause = std::max(frame.time - m_frameTime, std::chrono::nanoseconds(0));
            m_due += m_options.fast ? milliseconds(0) : std::chrono::duration_cast<steady_clock::duration>(pause);
            m_frameTime = frame.time;
            if (frame.direction == Direction::FromCamera && frame.event == Event::Packet) {
                hear(player(frame), frame);
            } else {
                listenUntil(m_due, [] { return false; });
                act(frame);
            }
        }
        while (!m_players.empty()) {
            end(m_players.begin()->second);
        }
        return m_result;
    }

  private:
    Player& player(const Frame& frame) {
        const auto known = m_players.find(frame.connection);
        return known != m_players.end()
                   ? known->second
                   : m_players.emplace(frame.connection, Player{frame.connection, m_connect(frame.peer())})
                         .first->second;
    }

    void act(const Frame& frame) {
        if (frame.event == Event::Connected || frame.event == Event::Disconnected) {
            const auto known = m_players.find(frame.connection);
            if (known != m_players.end()) {
                end(known->second);
            }
            if (frame.event == Event::Connected) {
                player(frame);
            }
            return;
        }
        Player& one = player(frame);
        if (frame.event == Event::Packet && one.recorded.sent(frame.stream, frame.bytes)) {
            one.requested.push_back(frame.time);
        }
        one.send(frame);
    }

    void hear(Player& one, const Frame& frame) {
        const auto heard = one.recorded.received(frame.stream, frame.bytes);
        if (!heard || !isCompared(heard->place)) {
            return;
        }
        one.expected.insert(heard->place);
        const auto came = [&] { return one.got.count(heard->place) != 0 || one.gone; };
        auto deadline = steady_clock::now() + one.client->timeout();
        while (!came() && steady_clock::now() < deadline) {
            listenUntil(deadline, came);
            deadline = one.lastPart + one.client->timeout();
        }
        m_due = std::max(m_due, steady_clock::now());
        const auto got = one.got.find(heard->place);
        if (got == one.got.end()) {
            one.expectDaemon();
            ++m_result.missing;
        }
        compare(one, heard->place, heard->bytes,
                got == one.got.end() ? std::nullopt : std::optional<Bytes>(got->second));
    }

    bool isCompared(const Place& place) const { return m_options.pushes || place.kind != Place::Kind::Unasked; }

    void compare(const Player& one, const Place& place, std::optional<Bytes> expected, std::optional<Bytes> got) {
        ++m_result.compared;
        const bool clock =
            place.kind == Place::Kind::Answer && expected && got && readsClock(one.recorded.requests()[place.number]);
        if (clock ? withoutTime(*expected) == withoutTime(*got) : expected == got) {
            return;
        }
        ++m_result.different;
        m_report({m_frameTime - m_begin, one.number, place.streamId, place.kind == Place::Kind::Answer,
                  rowOf(one, place, expected ? *expected : *got), std::move(expected), std::move(got)});
    }

    static const kzprotocol::Row* rowOf(const Player& one, const Place& place, const Bytes& message) {
        if (place.kind != Place::Kind::Answer) {
            return kzprotocol::pushOf(place.streamId, message);
        }
        const auto& request = one.recorded.requests()[place.number];
        return kzprotocol::requestOf(request.streamId, request.bytes);
    }

    // The recorded connection ends. What came besides is a difference; an answer only when the recorded device would
    // have heard it too.
    void end(Player& one) {
        const auto& requests = one.recorded.requests();
        if (std::any_of(requests.begin(), requests.end(), [](const auto& request) { return !request.answered; })) {
            listenUntil(steady_clock::now() + kSettle, [] { return false; });
        }
        one.listen();
        for (const auto& [place, bytes] : one.got) {
            const bool left = place.kind == Place::Kind::Answer && m_frameTime - one.requested[place.number] < kInVain;
            if (isCompared(place) && one.expected.count(place) == 0 && !left) {
                compare(one, place, std::nullopt, bytes);
            }
        }
        m_players.erase(one.number);
    }

    // Takes what all connections hear until the deadline, or until `done` says so.
    template <typename Done>
    void listenUntil(steady_clock::time_point deadline, Done done) {
        while (true) {
            std::vector<pollfd> links;
            for (auto& [number, one] : m_players) {
                one.listen();
                if (!one.gone) {
                    links.push_back({one.client->link().descriptor(), POLLIN, 0});
                }
            }
            const auto left = std::chrono::ceil<milliseconds>(deadline - steady_clock::now());
            if (done() || left.count() <= 0) {
                return;
            }
            kzclient::checkInterrupt();
            poll(links.data(), links.size(), static_cast<int>(std::min(left, kInterruptPatience).count()));
        }
    }

    const ReplayOptions& m_options;
    const Connect& m_connect;
    const std::function<void(const Difference&)>& m_report;
    std::map<uint32_t, Player> m_players;
    kzcapture::Time m_begin;
    kzcapture::Time m_frameTime;                           // of the frame that is played
    steady_clock::time_point m_due = steady_clock::now();  // when it would be played at the recorded pace
    ReplayResult m_result;
};

}  // namespace

ReplayResult replay(const std::vector<Frame>& recording, const ReplayOptions& options, const Connect& connect,
                    const std::function<void(const Difference&)>& report) {
    return Replay(options, connect, report).run(recording);
}

}  // namespace kzble
