// That the libraries can be loaded, and what they may do to the process that loads them.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>

#include "csi/csiKeys.h"
#include "kzControlCommands.h"
#include "kzCtrlD/kzCtrlRecords.h"
#include "promise.h"

namespace kzcheck {
namespace {

constexpr const char* kExercised =
    "kzcontrol_interface_open kzcontrol_send_command_param_response kzc_state_get_model_number csi_get kzIpcInit "
    "kzIpcDestroy";
constexpr int kRounds = 100;
constexpr int kPastCalls = 93;  // exit status of a child that got past its calls: a library that ends it picks another

template <size_t Index>
Outcome loads(const Scene& scene) {
    const Platform::Library& library = scene.platform.libraries[Index];
    if (library.path.empty()) {
        return broken("%s", library.error.c_str());
    }
    if (!library.missing.empty()) {
        return broken("%s lacks %s and %zu more", library.path.c_str(), library.missing.front().c_str(),
                      library.missing.size() - 1);
    }
    return kept("%s: %zu functions", library.path.c_str(), library.functions);
}

// One call of each library, and the records of its own that each can keep.
Call exercise(const Platform& platform) {
    uint8_t model = 0;
    uint8_t value[4];
    uint32_t length = 0;
    Channel channel;
    const Call calls[] = {
        timed([&] { return platform.open(); }),
        timed([&] { return platform.modelNumber(&model); }),
        timed([&] { return platform.csiGet(CSI_MODEL_NUMBER, sizeof value, &length, value); }),
        timed([&] { return std::min(platform.ipcInit("metadata", channel.record), 0); }),
        timed([&] { return std::min(platform.ipcDestroy(channel.record), 0); }),
    };
    for (const Call& call : calls) {
        if (!answered(call)) {
            return call;
        }
    }
    return {};
}

int entriesOf(const char* directory) {
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<int>(std::distance(begin(entries), end(entries)));
}

Outcome startsNoThread(const Scene&) {
    const int threads = entriesOf("/proc/self/task");
    return threads == 1 ? kept("1 thread") : broken("%d threads after loading", threads);
}

// Runs `work` in a child; its exit status, -1 when a signal ended it.
template <typename Work>
int statusOfChild(const Work& work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Outcome survivesFork(const Scene& scene) {
    const int status = statusOfChild([&] { _exit(exercise(scene.platform).result == 0 ? kPastCalls : 1); });
    return status == kPastCalls ? kept("calls answer in a forked process")
                                : broken("a call fails in a process that was forked after loading");
}

Outcome worksFromAnotherThread(const Scene& scene) {
    Call call = exercise(scene.platform);
    if (!answered(call)) {
        return broken("already the first thread gets %s", describe(call).c_str());
    }
    std::thread([&] { call = exercise(scene.platform); }).join();
    return answered(call) ? kept("both threads get 0") : broken("the second thread gets %s", describe(call).c_str());
}

Outcome leavesProcessAlone(const Scene& scene) {
    exercise(scene.platform);
    for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGPIPE}) {
        struct sigaction action {};
        sigaction(number, nullptr, &action);
        if (action.sa_handler != SIG_DFL) {
            return broken("the handler of signal %d (%s) is another one", number, strsignal(number));
        }
    }
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, nullptr, &blocked);
    if (!sigisemptyset(&blocked)) {
        return broken("signals are blocked");
    }
    if (const mode_t mask = umask(0); mask != 0) {
        return broken("the file mode mask is %03o", mask);
    }
    const auto directory = std::filesystem::current_path();
    return directory == "/" ? kept("all as before") : broken("the working directory is %s", directory.c_str());
}

Outcome leaksNothing(const Scene& scene) {
    const Call call = exercise(scene.platform);
    if (!answered(call)) {
        return broken("a call gets %s", describe(call).c_str());
    }
    const int descriptors = entriesOf("/proc/self/fd");
    const int threads = entriesOf("/proc/self/task");
    for (int i = 0; i < kRounds; ++i) {
        exercise(scene.platform);
    }
    const int moreDescriptors = entriesOf("/proc/self/fd") - descriptors;
    const int moreThreads = entriesOf("/proc/self/task") - threads;
    return moreDescriptors <= 0 && moreThreads <= 0
               ? kept("%d descriptors, %d threads", descriptors, threads)
               : broken("%d rounds of calls leave %d descriptors and %d threads more", kRounds, moreDescriptors,
                        moreThreads);
}

Outcome endsInOrder(const Scene& scene) {
    const int status = statusOfChild([&] {
        exercise(scene.platform);
        std::exit(kPastCalls);  // runs the libraries' destructors
    });
    return status == kPastCalls ? kept("its exit status arrives")
                                : broken("the process does not reach its end, status %d", status);
}

constexpr Promise kPromises[] = {
    {"load.kzCtrlD", "libkzCtrlD.so is found and exports its 8 functions", "", nullptr, loads<0>},
    {"load.csi", "libcsi.so is found and exports its 2 functions", "", nullptr, loads<1>},
    {"load.kzipc", "libkzipc.so is found and exports its 3 functions", "", nullptr, loads<2>},
    {"process.threads", "loading starts no thread: the daemon forks after it", "", nullptr, startsNoThread},
    {"process.fork", "the libraries work in a process that was forked after loading", kExercised, nullptr,
     survivesFork},
    {"process.thread", "what one thread opened, another one may use", kExercised, nullptr, worksFromAnotherThread},
    {"process.state", "signals, file mode mask and working directory stay as they were", kExercised, nullptr,
     leavesProcessAlone},
    {"process.leaks", "calls leave no descriptors and threads behind", kExercised, nullptr, leaksNothing},
    {"process.end", "the process can end in order", kExercised, nullptr, endsInOrder},
};

}  // namespace

std::span<const Promise> libraryPromises() {
    return kPromises;
}

}  // namespace kzcheck
