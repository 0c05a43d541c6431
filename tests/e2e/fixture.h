// What the end-to-end tests share: a rig, and a check at the end that the daemon is still well.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "engine/script.h"

namespace e2e {

// A command that calls nothing but the analytics key, and its answer: the catalogue's version.
constexpr const char* kAskVersion = "3a";
constexpr const char* kVersion = "3a 00 04 31 2e 32 35";

// The call that begins (1) or ends (0) the control daemon's pushes: operation, the queue name in 256 bytes, four zeros.
inline std::string registration(uint8_t operation) {
    Bytes record = little32(operation) + textBytes(kEventQueue);
    record.resize(264);
    return "command 0: " + toHex(record);
}

class E2e : public testing::Test {
  protected:
    // The daemon must have survived the test unless the test ended it. Under a sanitizer it is shut down orderly, so
    // that a leak counts as a failure too; that takes up to a second.
    void TearDown() override {
        if (m_daemonStays) {
            EXPECT_TRUE(rig->daemon.running()) << "the daemon ended during the test";
#ifdef KZ_SANITIZED
            EXPECT_EQ(rig->shutDown(), 0);
#endif
        }
    }

    // A serving daemon in a new rig.
    void serve(const Rig::Options& options = {}) {
        prepare(options);
        rig->start();
        m_daemonStays = true;
    }
    // A rig without a daemon as yet.
    void prepare(const Rig::Options& options = {}) {
        rig.reset();
        rig = std::make_unique<Rig>(options);
    }
    void play(const Script& script) {
        e2e::play(*rig, script);
    }

    std::unique_ptr<Rig> rig;

  private:
    bool m_daemonStays = false;
};

}  // namespace e2e
