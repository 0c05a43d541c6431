#include "trial.h"

#include <signal.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>
#include <system_error>

namespace kzcheck {
namespace {

// Where a child leaves its outcome.
struct Shared {
    std::atomic<bool> complete;
    Result result;
    char seen[400];
};

struct Unmap {
    void operator()(Shared* shared) const { munmap(shared, sizeof *shared); }
};

std::unique_ptr<Shared, Unmap> makeShared() {
    void* const memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
    return std::unique_ptr<Shared, Unmap>(new (memory) Shared{});
}

// The queue and the child of the check that is running, for the signal handler.
std::atomic<const char*> g_queueName = nullptr;
std::atomic<pid_t> g_child = 0;

void endOnInterrupt(int) {
    if (const char* const name = g_queueName; name != nullptr) {
        mq_unlink(name);
    }
    if (const pid_t child = g_child; child > 0) {
        kill(-child, SIGKILL);
    }
    _exit(130);
}

Outcome check(const Promise& promise, const TrialOptions& options, const OwnQueue& queue) {
    const Platform platform = load(options.files);  // in this folder, to which a search path may be relative
    if (chdir("/") != 0) {
        throw std::system_error(errno, std::generic_category(), "/");
    }
    const std::string missing = platform.firstMissing(promise.functions);
    return missing.empty() ? promise.check({platform, queue}) : broken("needs %s, which is missing", missing.c_str());
}

// As the daemon is when it calls the libraries, but for its signal handlers and its working directory.
void becomeDaemon() {
    setpgid(0, 0);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE}) {
        signal(number, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    umask(0);
    dup2(STDERR_FILENO, STDOUT_FILENO);  // what a library prints is no part of the report
}

[[noreturn]] void runChild(const Promise& promise, const TrialOptions& options, const OwnQueue& queue, Shared& shared) {
    Outcome outcome;
    try {
        becomeDaemon();
        outcome = check(promise, options, queue);
    } catch (const std::exception& error) {
        outcome = notTried("%s", error.what());
    }
    shared.result = outcome.result;
    std::strncpy(shared.seen, outcome.seen.c_str(), sizeof shared.seen - 1);
    shared.complete = true;
    _exit(0);
}

// Whether the child ended by itself; its status.
bool waitFor(pid_t child, int patienceMs, int& status) {
    for (int waited = 0; waited < patienceMs; ++waited) {
        if (waitpid(child, &status, WNOHANG) == child) {
            return true;
        }
        usleep(1000);
    }
    kill(-child, SIGKILL);
    waitpid(child, &status, 0);
    return false;
}

Outcome outcomeOf(const Shared& shared, bool ended, int status, int patienceMs) {
    if (shared.complete) {
        return {shared.result, shared.seen};
    }
    if (!ended) {
        return broken("hangs: stopped after %d ms", patienceMs);
    }
    if (WIFSIGNALED(status)) {
        return broken("crashes: signal %d (%s)", WTERMSIG(status), strsignal(WTERMSIG(status)));
    }
    return broken("ends the process with status %d", WEXITSTATUS(status));
}

}  // namespace

void removeQueueOnInterrupt() {
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        signal(number, endOnInterrupt);
    }
}

Outcome tryPromise(const Promise& promise, const TrialOptions& options) {
    std::optional<OwnQueue> queue;
    try {
        if (promise.ownQueue == nullptr) {
            queue.emplace();
        } else {
            queue.emplace(promise.ownQueue);
        }
    } catch (const std::system_error& error) {
        return error.code() == std::errc::file_exists ? notTried("%s exists: stop kzBleSdkD first", promise.ownQueue)
                                                      : notTried("cannot make the queue %s", error.what());
    }
    g_queueName = promise.ownQueue;
    const auto shared = makeShared();
    const pid_t child = fork();
    if (child == 0) {
        runChild(promise, options, *queue, *shared);
    }
    if (child < 0) {
        return notTried("fork: %s", std::strerror(errno));
    }
    g_child = child;
    setpgid(child, child);
    int status = 0;
    const bool ended = waitFor(child, options.patienceMs, status);
    kill(-child, SIGKILL);  // what a library started
    g_child = 0;
    g_queueName = nullptr;
    return outcomeOf(*shared, ended, status, options.patienceMs);
}

}  // namespace kzcheck
