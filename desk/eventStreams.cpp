#include "eventStreams.h"

#include <iterator>
#include <map>
#include <string>
#include <thread>

#include "apiError.h"

namespace kzdesk {
namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kType = "text/event-stream";
constexpr const char* kHeartbeatLine = ": still here\n\n";
constexpr std::chrono::milliseconds kTurn{500};  // how soon it is noticed that a reader has gone

constexpr std::chrono::milliseconds kDevicesTurn{20};  // how late an event of a device may come between the state's

bool write(httplib::DataSink& sink, const std::string& text) {
    return sink.write(text.data(), text.size());
}

// Counts one stream more; throws when there are `most` already.
void count(std::atomic<int>& streams, int most) {
    if (streams.fetch_add(1) >= most) {
        streams.fetch_sub(1);
        throw ApiError(429, "too-many-streams", "there are " + std::to_string(most) + " event streams of it already");
    }
}

// Sends what there is, if anything, and a heartbeat when there was nothing for long. False when the reader has gone.
bool speak(httplib::DataSink& sink, const std::string& text, Clock::time_point& spoken) {
    const bool isQuiet = text.empty() && Clock::now() - spoken < EventStreams::kHeartbeat;
    if (isQuiet) {
        return sink.is_writable();
    }
    spoken = Clock::now();
    return write(sink, text.empty() ? kHeartbeatLine : text);
}

// How far a reader of all devices has come with each.
class FollowedDevices {
  public:
    // What is new. A device that has gone meanwhile is read to its end.
    std::string read(DeviceTable& devices) {
        const auto logs = devices.logs();
        for (const auto& [number, log] : logs) {
            m_places.try_emplace(number, Place{log, 0, false});
        }
        std::erase_if(m_places, [&](const auto& one) { return one.second.isRead && logs.count(one.first) == 0; });
        std::string text;
        for (auto& [number, place] : m_places) {
            if (place.isRead) {
                continue;
            }
            const EventLog::Batch batch = place.log->read(place.last, Clock::time_point{});
            text += batch.text;
            place.last = batch.last;
            place.isRead = batch.finished;
        }
        return text;
    }

  private:
    struct Place {
        std::shared_ptr<EventLog> log;
        uint64_t last;  // id of the last event that was read
        bool isRead;    // to its end
    };
    std::map<unsigned, Place> m_places;
};

}  // namespace

void EventStreams::ofDevice(std::shared_ptr<Device> device, uint64_t after, httplib::Response& response) {
    count(device->streams(), Device::kMostStreams);
    ++m_open;
    response.set_chunked_content_provider(
        kType,
        [device, last = after, spoken = Clock::now()](size_t /*offset*/, httplib::DataSink& sink) mutable {
            const EventLog::Batch batch = device->events().read(last, Clock::now() + kTurn);
            last = batch.last;
            const bool goesOn = speak(sink, batch.text, spoken);
            if (goesOn && batch.finished) {
                sink.done();
            }
            return goesOn;
        },
        [this, device](bool /*success*/) {
            --device->streams();
            --m_open;
        });
}

void EventStreams::ofState(bool withDevices, httplib::Response& response) {
    count(m_ofState, kMostOfState);
    ++m_open;
    response.set_chunked_content_provider(
        kType,
        [this, withDevices, followed = FollowedDevices(), sent = std::string(), spoken = Clock::now()](
            size_t /*offset*/, httplib::DataSink& sink) mutable {
            const std::string ofDevices = withDevices ? followed.read(m_devices) : std::string();
            if (m_stopping) {
                write(sink, ofDevices + eventText(0, "end", {{"reason", "desk stops"}}));
                sink.done();
                return true;
            }
            const std::string event = m_state.recentEvent();
            const bool goesOn = speak(sink, ofDevices + (event == sent ? std::string() : event), spoken);
            sent = event;
            std::this_thread::sleep_for(withDevices ? kDevicesTurn : CameraState::kAge);
            return goesOn;
        },
        [this](bool /*success*/) {
            --m_ofState;
            --m_open;
        });
}

void EventStreams::stop(std::chrono::milliseconds patience) {
    m_stopping = true;
    const auto deadline = Clock::now() + patience;
    while (m_open > 0 && Clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

}  // namespace kzdesk
