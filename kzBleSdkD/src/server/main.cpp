// The daemon's entry: starts the server, watches it once a second, and takes everything down in order.
#include <unistd.h>

#include "kzBleServer.h"
#include "logWriter.h"
#include "startUpMemory.h"
#include "utils.h"

namespace {

constexpr const char* kLogTag = "kzBleSdkD.cpp";

constexpr int kStartChecks = 10;  // a second apart: how long the command thread may take to report itself

// Whether the command thread has begun to run. It counts, too, if it was stopped again between two checks.
bool WaitForCommandThread() {
    for (int check = 0; check < kStartChecks; ++check) {
        if (KzBleServer::GetInstance()->HasRun()) {
            return true;
        }
        LOG_DEBUG("Waiting for kzBleSdkD skylark thread to start");
        sleep(1);
    }
    return false;
}

}  // namespace

int main(int argc, char** argv) {
    UseOneHeap();
    kzUtilSetLogLevel(KZ_LOG_DEBUG);
    if (const int result = daemon_init(); result != 0) {
        LOG_ERROR("kzBleD daemon_init failed %d", result);
        return result;
    }
    kzLogStartWriter();
    LOG_INFO("Starting kzBleD daemon");
    if (const int result = KzBleServer::GetInstance()->Start(); result != 0) {
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
    while (KzBleServer::GetInstance()->IsRunning()) {
        sleep(1);
    }
    unsubscribeCSIbleSdk();
    KzBleServer::Destroy();
    LOG_INFO("Exiting kzBleD daemon");
    return 0;
}
