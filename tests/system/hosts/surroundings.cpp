#include <pthread.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <string>

#include "tracing_host.h"

namespace {

void SayBlockedSignals(const char* who) {
    sigset_t blocked;
    (void)pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    std::string numbers;
    for (int number = 1; number < NSIG; ++number) {
        if (sigismember(&blocked, number) == 1) numbers += " " + std::to_string(number);
    }
    Debug.TraceAlways(0, "HOST: blocked in %s:%s", who, numbers.c_str());
}

void* SayAsModuleThread(void* /*argument*/) {
    SayBlockedSignals("a module's thread");
    return nullptr;
}

constexpr int kRestorerFlag = 0x04000000;  // the C library adds it to every action on x86-64

void SayDisposition(int number) {
    struct sigaction action {};
    (void)sigaction(number, nullptr, &action);
    Debug.TraceAlways(0, "HOST: signal %d is %s, mask %s, flags %d", number,
                      action.sa_handler == SIG_IGN ? "ignored" : "not ignored",
                      sigisemptyset(&action.sa_mask) == 1 ? "empty" : "not empty",
                      action.sa_flags & ~kRestorerFlag);
}

void WriteIntoBrokenPipe() {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0) return;
    (void)close(ends[0]);
    const ssize_t written = write(ends[1], "x", 1);
    Debug.TraceAlways(0, "HOST: write into a broken pipe: %zd, errno %d", written, errno);
    (void)close(ends[1]);
}

/// Says in which surroundings modules start.
class SurroundingsHost final : public TracingHost {
    void StartModules() override {
        const mode_t mask = umask(0);
        (void)umask(mask);
        std::array<char, 256> directory{};
        (void)!getcwd(directory.data(), directory.size());
        Debug.TraceAlways(0, "HOST: umask %03o, directory %s", mask, directory.data());
        Debug.TraceAlways(0, "HOST: %s", getsid(0) == getpid() ? "session leader" : "no leader");
        SayBlockedSignals("the main thread");
        pthread_t thread{};
        if (pthread_create(&thread, nullptr, SayAsModuleThread, nullptr) == 0) {
            (void)pthread_join(thread, nullptr);
        }
        SayDisposition(SIGPIPE);
        SayDisposition(SIGIO);
        WriteIntoBrokenPipe();
        (void)raise(SIGIO);
        (void)fputs("standard output is as it was\n", stdout);
        (void)fflush(stdout);
        (void)fputs("standard error is as it was\n", stderr);
    }
};

}  // namespace

EXPORT_HOST(SurroundingsHost)
