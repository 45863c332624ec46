// What it costs to run /bin/true and wait for it, beside the C library's posix_spawn, where a process
// may have a million descriptors open: all of them but the standard streams are kept from the command.
//
//   RunTrue            RunCommandAndWait
//   RunTrueSpawn       posix_spawn that closes from 3 on, waitpid
//   RunTrueLoop        fork, a close for each of a million numbers, exec, waitpid

#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>

#include "platform/run_command.h"

namespace {

constexpr rlim_t kOpenFiles = 1'000'000;

/// Takes as much of that as the caller may have (only root may have more than before), and shows it.
void AllowOpenFiles(benchmark::State& state) {
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    if (files.rlim_max < kOpenFiles) {
        const rlimit raised{kOpenFiles, kOpenFiles};
        setrlimit(RLIMIT_NOFILE, &raised);
        getrlimit(RLIMIT_NOFILE, &files);
    }
    files.rlim_cur = std::min(kOpenFiles, files.rlim_max);
    setrlimit(RLIMIT_NOFILE, &files);
    state.counters["limit"] = static_cast<double>(files.rlim_cur);
}

char* const* Arguments() {
    static char s_Path[] = "/bin/true";
    static char* s_Arguments[] = {s_Path, nullptr};
    return s_Arguments;
}

bool AwaitSuccess(pid_t pid) {
    int status = -1;
    return waitpid(pid, &status, 0) == pid && status == 0;
}

void RunTrue(benchmark::State& state) {
    AllowOpenFiles(state);
    for (auto _ : state) {
        if (!RunCommandAndWait("/bin/true", nullptr, 0, false)) state.SkipWithError("failed");
    }
}
BENCHMARK(RunTrue)->UseRealTime();

void RunTrueSpawn(benchmark::State& state) {
    AllowOpenFiles(state);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
    for (auto _ : state) {
        pid_t pid = 0;
        if (posix_spawn(&pid, Arguments()[0], &actions, nullptr, Arguments(), environ) != 0 ||
            !AwaitSuccess(pid)) {
            state.SkipWithError("failed");
        }
    }
    posix_spawn_file_actions_destroy(&actions);
}
BENCHMARK(RunTrueSpawn)->UseRealTime();

void RunTrueLoop(benchmark::State& state) {
    for (auto _ : state) {
        const pid_t pid = fork();
        if (pid == 0) {
            for (int fd = 3; fd < static_cast<int>(kOpenFiles); ++fd) close(fd);
            execv(Arguments()[0], Arguments());
            _exit(255);
        }
        if (!AwaitSuccess(pid)) state.SkipWithError("failed");
    }
}
BENCHMARK(RunTrueLoop)->UseRealTime();

}  // namespace
