// One request of a soak's phone, with what must be answered.
#pragma once

#include <functional>
#include <span>
#include <vector>

#include "soakWorld.h"

namespace soak {

struct Request {
    std::string name;
    uint8_t stream = 0;
    Bytes message;
    unsigned needs = kNoPart;  // parts of the camera without which the answer may be another
    std::function<bool(const Bytes& answer, Clock::time_point asked)> right;
    // Before it is sent.
    std::function<void()> before = [] {};
    // After it was answered, or lost: then the answer is empty.
    std::function<void(const Bytes& answer, Outcome outcome)> after = [](const Bytes&, Outcome) {};
};
using Requests = std::vector<Request>;

// What a request needs to know of the phone that makes it.
class Asker {
  public:
    virtual ~Asker() = default;
    virtual World& world() = 0;
    virtual Random& random() = 0;
    virtual size_t index() const = 0;
    virtual const OwnedSetting& owned() const = 0;
    // From now on pushes of the value must come, until it is unwatched; `known` is what the answer said.
    virtual void watch(Cell& cell, const Bytes& known) = 0;
    // Pushes of the value may come from now on: one may be sent before the answer, which needs more room.
    virtual void mayWatch(Cell& cell) = 0;
    virtual void unwatch(Cell& cell) = 0;
    virtual bool watches(const Cell& cell) const = 0;
};

Bytes bytesOf(const std::string& hex);
Request exactly(std::string name, uint8_t stream, const std::string& message, const std::string& answer,
                unsigned needs);

// The number that a feature's state or push carries for the feature; nothing when it has none or cannot be read.
std::optional<Bytes> featureValue(Feature feature, std::span<const uint8_t> bytes);

// Who registered for one feature or for the presets is told of all features, but does not know their values yet.
void mayWatchFeatures(Asker& phone);
void watchFeatures(Asker& phone);

// ---- requests of every phone
Requests changeOwnSetting(Asker& phone);
Requests askForValues(Asker& phone);
Requests askForNames(Asker& phone);
Requests changeInterest(Asker& phone);
Requests askForFeatures(Asker& phone);
Requests askForSomethingFixed(Asker& phone);
// All interests that a phone begins with.
Requests firstInterests(Asker& phone);

// What one phone alone does, because it changes what there is once in the camera.
class Duty {
  public:
    virtual ~Duty() = default;
    virtual Requests next(Asker& phone) = 0;
    // Whether it knows the state that it left the camera in.
    virtual bool knowsState() const { return true; }
};
// Null for a phone that has none.
std::unique_ptr<Duty> dutyOf(size_t phone);
std::unique_ptr<Duty> presetDuty();

}  // namespace soak
