// Neighbours of the daemon that start anew or hang.
#include "fixture.h"

#include <thread>

namespace e2e {
namespace {

constexpr const char* kShutter = "01 01 01";
constexpr const char* kCahQuery = "f5 7e";
constexpr const char* kHeartRate = "02 03 48 52 4d";
constexpr const char* kStream = "03 48 52 54 45 00 00 53 02 01 00";
constexpr const char* kSample = "01 00 12 34";
constexpr std::chrono::milliseconds kAtOnce{500};  // less than any hung call
constexpr std::chrono::milliseconds kPause{2000};  // of a hung service

class Neighbour : public E2e {
  protected:
    std::chrono::milliseconds timeOf(const Script& script) {
        const auto begin = std::chrono::steady_clock::now();
        play(script);
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
    }
};

TEST_F(Neighbour, RadioStackThatStartsAnewGetsItsQueuesOpenedAndLosesItsClients) {
    serve();
    play({joins(1), joins(2), pushes(R"({"status": {"29": "a name of more than one packet"}})"), settles()});
    const std::string left = "csi_set 11: 00 00 00 00";
    for (const long depth : {kRadioDepth, 1L}) {
        play({calls(registration(1))});
        rig->radio.reset();
        EXPECT_TRUE(rig->daemon.waitForText("The radio-stack daemon has removed its queues"));
        Queue::openForSending(kEventQueue).send(fromHex("00"));  // the other queues are served meanwhile
        EXPECT_TRUE(rig->daemon.waitForText("Invalid command category received"));
        rig->radio.emplace(depth);
        EXPECT_TRUE(rig->daemon.waitForText("The radio-stack daemon's queues are open again"));

        play({calls(left + ", " + (depth == 1 ? "" : left + ", ") + registration(0)), connects(1), opens(1, kQuery),
              asks(1, kQuery, "13 08", "13 00 08 00")});
    }
    // What the new queue could never take is answered in part.
    play({asks(1, kQuery, "13 1d 08", "13 01 08 00"), quiet()});
}

TEST_F(Neighbour, NetworkDaemonThatStartsAnewOrRefusesGetsTheSubscriptionAgain) {
    const auto answer = [](uint8_t result) {
        return TlvMessage{17, {{kTlvCommand, textBytes("CR")}, {kTlvArgument, {}}, {kTlvResponse, {result}}}}.encode();
    };
    const auto subscribed = [this] { return rig->receiveNet().text().substr(0, 5); };
    serve();

    rig->network.reset();
    rig->openNetworkDaemon();
    EXPECT_EQ(subscribed(), "18 CR");
    for (int refused = 0; refused < 2; ++refused) {
        play({tells(kCsiQueue, answer(1))});
        EXPECT_EQ(subscribed(), "18 CR");
    }
    play({tells(kCsiQueue, answer(0))});
    EXPECT_FALSE(rig->network->receive(2 * kAtOnce)) << "it is sent once";
}

TEST_F(Neighbour, ControlDaemonThatStartsAnewGetsTheRegistrationAgain) {
    for (const auto& vanishes : {goes, hangs}) {
        serve();
        play({joins(1), calls(registration(1)), vanishes("control"), asks(1, kCommand, kShutter, "01 01"),
              comesBack("control"), asks(1, kCommand, kShutter, "01 00"),
              logs("[WARN ] Registered again with kzControl for push notifications"), settles()});
        const std::string all = rig->camera.takeCalls();
        EXPECT_TRUE(all.ends_with(registration(1))) << all;

        play({joins(2), asks(1, kCommand, kShutter, "01 00"), calls("csi_set 92: 0b, command 3: 01")});
    }
}

TEST_F(Neighbour, RegistrationThatNobodyTookIsMadeWhenTheControlDaemonIsBack) {
    serve();
    play({goes("control"), joins(1), logs("[ERROR] Unable to register with kzControl for push notifications"),
          comesBack("control"), logs("[WARN ] Registered again with kzControl for push notifications")});
}

TEST_F(Neighbour, HungServiceCostsOneDeadlineARequestAndAfterTwoNone) {
    const char* const unread =
        "f5 fe 08 7f 10 7f 18 7f 20 7f 28 7f 30 7f 38 7f 40 7f 48 7f 50 7f 58 7f 60 7f 68 00 70 00 78 00 88 01 00 90 01 00 98 01 00 a0 01 00";
    serve();
    play({joins(1), settles(), hangs("csi"), calls(registration(1))});
    const Script asked = {asks(1, kQuery, kCahQuery, unread)};
    for (int request = 0; request < 2; ++request) {
        play(asked);
        play({calls("csi_get 97")});
    }

    play({logs("[ERROR] The CSI service does not answer; it is asked once in two seconds until it does",
               "serviceGuard.cpp")});
    EXPECT_LT(timeOf(asked), kAtOnce);
    play({asks(1, kCommand, kShutter, "01 00"), calls("command 3: 01")});
    std::this_thread::sleep_for(kPause);
    play({asks(1, kQuery, kCahQuery, unread), calls("csi_get 97")});
    EXPECT_LT(timeOf(asked), kAtOnce);
    std::this_thread::sleep_for(kPause);
    play({calls(""), comesBack("csi"), asks(1, kCommand, kShutter, "01 00"), calls("csi_set 92: 0b, command 3: 01"),
          logs("[WARN ] The CSI service answers again", "serviceGuard.cpp")});
}

TEST_F(Neighbour, MetadataServiceThatComesBackGetsTheSamples) {
    serve();
    play({joins(1), asks(1, kSensorData, kHeartRate, "02 00"), asks(1, kSensorData, kStream, "03 00")});
    for (const auto& vanishes : {goes, hangs}) {
        play({vanishes("ipc"), writes(1, kSensorData, kSample), logs("[ERROR] IPC Failed to Init IPC -1"),
              comesBack("ipc"), settles()});
        rig->camera.takeCalls();
        play({writes(1, kSensorData, kSample)});
        EXPECT_TRUE(waitUntil([&] { return rig->camera.takeCalls().find("ipc-send") != std::string::npos; }));
    }
}

// The last sample of each is still to be handed over.
TEST_F(Neighbour, SensorsThatVanishWhileAllServicesHangAreGoneInTime) {
    serve();
    Script gone;
    for (uint32_t id = 1; id <= 20; ++id) {
        play({joins(id), asks(id, kSensorData, kHeartRate, "02 00"), asks(id, kSensorData, kStream, "03 00"),
              writes(id, kSensorData, kSample)});
        gone.push_back(disconnects(id));
    }
    gone.push_back(settles());
    play({settles(), hangs("csi"), hangs("control"), hangs("ipc")});
    rig->camera.takeCalls();

    EXPECT_LT(timeOf(gone), std::chrono::milliseconds(4000)) << "two calls of one service and one of another";
    EXPECT_EQ(rig->daemon.count("Unable to unregister"), 0u) << "that waits for the tick";
}

}  // namespace
}  // namespace e2e
