// The daemon's entry: starts the server, watches it once a second, and takes everything down in order. A signal stops
// it like the shutdown debug record does.
#include <cstdio>
#include <cstring>

#include "kzBleServer.h"
#include "kzVersion.h"
#include "logWriter.h"
#include "standardStreams.h"
#include "startUpMemory.h"
#include "stopSignals.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleSdkD.cpp";

constexpr std::chrono::seconds kCheckPeriod{1};
constexpr int kStartChecks = 10;  // how long the command thread may take to report itself

// Whether the command thread has begun to run. It counts, too, if it was stopped again between two checks.
bool WaitForCommandThread() {
    for (int check = 0; check < kStartChecks; ++check) {
        if (KzBleServer::GetInstance()->HasRun()) {
            return true;
        }
        LOG_DEBUG("Waiting for kzBleSdkD skylark thread to start");
        if (WaitForStop(kCheckPeriod)) {
            return true;  // the end of main stops the thread, whether it has begun or not
        }
    }
    return false;
}

// Until the server has stopped or a signal has stopped it.
void WatchServer() {
    while (KzBleServer::GetInstance()->IsRunning()) {
        if (WaitForStop(kCheckPeriod)) {
            LOG_INFO("Shutting down Server");
            KzBleServer::GetInstance()->SetRunning(false);
        }
    }
}

// The end of a daemon that was asked to stop, at whatever point that was.
int StopInOrder() {
    KzBleServer::Destroy();
    LOG_INFO("Exiting kzBleD daemon");
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc > 1 && std::strcmp(argv[1], "--version") == 0) {
        std::printf("kzBleSdkD %s\n", kzVersion);
        return 0;
    }
    SecureStandardStreams();
    CatchSignals();
    UseOneHeap();
    kzUtilSetLogLevel(KZ_LOG_DEBUG);
    if (const int result = daemon_init(); result != 0) {
        LOG_ERROR("kzBleD daemon_init failed %d", result);
        return result;
    }
    kzLogStartWriter();
    LOG_INFO("Starting kzBleD daemon");
    if (const int result = KzBleServer::GetInstance()->Start(); result != 0) {
        if (IsStopAsked()) {
            return StopInOrder();
        }
        LOG_ERROR("Failed to start daemon [%s]\n", argc > 0 ? argv[0] : "");
        KzBleServer::Destroy();
        return result;
    }
    if (!WaitForCommandThread()) {
        KzBleServer::Destroy();
        LOG_ERROR("Exiting kzBleSdkD daemon due to error");
        return -1;
    }
    ReleaseStartUpMemory();
    WatchServer();
    unsubscribeCSIbleSdk();
    return StopInOrder();
}
