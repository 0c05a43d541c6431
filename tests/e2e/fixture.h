// What the end-to-end tests share: a rig, and a check at the end that the daemon is still well.
#pragma once

#include <gtest/gtest.h>

#include "engine/script.h"

namespace e2e {

class E2e : public testing::Test {
  protected:
    // The daemon must have survived the test unless the test ended it. Under a sanitizer it is shut down orderly, so
    // that a leak counts as a failure too; that takes up to a second.
    void TearDown() override {
        if (m_rig && m_rig->daemon.pid() > 0) {
            EXPECT_TRUE(m_rig->daemon.running()) << "the daemon ended during the test";
#ifdef KZ_SANITIZED
            EXPECT_EQ(m_rig->shutDown(), 0);
#endif
        }
        if (m_rig && HasFailure()) {
            constexpr size_t kShown = 6000;
            const std::string log = m_rig->daemon.log();
            std::cout << "daemon log:\n" << log.substr(log.size() - std::min(log.size(), kShown)) << std::endl;
        }
    }

    // A serving daemon in a new rig.
    Rig& serve(const Rig::Options& options = Rig::Options()) {
        m_rig = std::make_unique<Rig>(options);
        m_rig->start();
        return *m_rig;
    }
    Rig& prepare(const Rig::Options& options = Rig::Options()) {
        m_rig = std::make_unique<Rig>(options);
        return *m_rig;
    }

    std::unique_ptr<Rig> m_rig;
};

}  // namespace e2e
