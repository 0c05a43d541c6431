// Plays worked examples of protocol/protocol.json on the real daemon. What the keys of an example mean stands in
// protocol/README.md.
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "engine/script.h"

namespace e2e {

using Json = nlohmann::ordered_json;

// protocol/protocol.json.
const Json& protocol();
// "42*3" stands for "42 42 42", in bytes and in calls.
std::string expand(const std::string& text);
// The element of `list` whose `key` is `value`; throws when there is none.
const Json& find(const Json& list, const char* key, const Json& value);

class ExamplePlayer {
  public:
    // A served daemon; it is brought into the state that every example starts from.
    explicit ExamplePlayer(Rig& rig);

    // Plays one example of a row as a client of its own, and brings the camera back. Throws std::runtime_error where
    // the daemon does otherwise.
    void play(const Json& interface, const Json& row, const Json& example);

  private:
    void playSteps(const Json& interface, const Json& row, const Json& example);
    void prepare(const Json& interface, const Json& before);
    void act(const Json& interface, const Json& step);
    void check(const Json& interface, const Json& row, const Json& example, const Json& step);
    void restore(const Json& example);
    void forget();  // what has happened so far
    std::vector<std::string> received(size_t atLeast);
    std::string cameraCalls();
    std::string netSets();

    void setReplies(const Json& replies);
    void notify(const Json& keys);
    void pushValues(const Json& values);

    Rig& m_rig;
    size_t m_logStart = 0;
};

}  // namespace e2e
