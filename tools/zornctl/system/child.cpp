#include "zornctl/system/child.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "platform/unique_fd.h"
#include "zornctl/output/failure.h"

namespace zornctl {

namespace {

constexpr size_t kErrorLimit = size_t{1} << 20U;

struct Pipe {
    Pipe() {
        std::array<int, 2> ends{-1, -1};
        if (pipe2(ends.data(), O_CLOEXEC) != 0) throw SystemFailure("pipe", errno);
        reader.Reset(ends[0]);
        writer.Reset(ends[1]);
    }
    UniqueFd reader;
    UniqueFd writer;
};

/// What happens to descriptors and signals between fork and exec.
class SpawnPlan {
  public:
    SpawnPlan(int input, const Pipe& output, const Pipe& error) {
        (void)posix_spawn_file_actions_init(&m_Files);
        (void)posix_spawnattr_init(&m_Attributes);
        if (input >= 0) {
            (void)posix_spawn_file_actions_adddup2(&m_Files, input, STDIN_FILENO);
        } else {
            (void)posix_spawn_file_actions_addopen(&m_Files, STDIN_FILENO, "/dev/null", O_RDONLY,
                                                   0);
        }
        (void)posix_spawn_file_actions_adddup2(&m_Files, output.writer.Get(), STDOUT_FILENO);
        (void)posix_spawn_file_actions_adddup2(&m_Files, error.writer.Get(), STDERR_FILENO);
        sigset_t defaults;
        (void)sigemptyset(&defaults);
        (void)sigaddset(&defaults, SIGPIPE);
        (void)posix_spawnattr_setsigdefault(&m_Attributes, &defaults);
        (void)posix_spawnattr_setflags(&m_Attributes, POSIX_SPAWN_SETSIGDEF);
    }
    ~SpawnPlan() {
        (void)posix_spawn_file_actions_destroy(&m_Files);
        (void)posix_spawnattr_destroy(&m_Attributes);
    }
    SpawnPlan(const SpawnPlan&) = delete;
    SpawnPlan& operator=(const SpawnPlan&) = delete;

    /// 0, or the error number.
    int Spawn(pid_t& pid, char** arguments, char** environment) {
        return posix_spawnp(&pid, arguments[0], &m_Files, &m_Attributes, arguments, environment);
    }

  private:
    posix_spawn_file_actions_t m_Files{};
    posix_spawnattr_t m_Attributes{};
};

std::vector<char*> Pointers(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (auto& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

pid_t Start(std::vector<std::string> arguments, const ChildOptions& options, const Pipe& output,
            const Pipe& error) {
    auto environment = options.environment;
    const char* const path = getenv("PATH");
    environment.push_back(std::string{"PATH="} + (path != nullptr ? path : "/usr/bin:/bin"));
    SpawnPlan plan{options.input, output, error};
    pid_t pid = -1;
    const int failed = plan.Spawn(pid, Pointers(arguments).data(), Pointers(environment).data());
    if (failed != 0) {
        throw Failure{ExitStatus::kNoAccess, arguments[0],
                      SystemFailure({}, failed).cause + " (could not be started)",
                      "install it, or mend PATH"};
    }
    return pid;
}

/// Takes what there is to read; false at the end.
bool TakeSome(const UniqueFd& reader, std::string& text) {
    std::array<char, 65536> chunk;
    const ssize_t got = read(reader.Get(), chunk.data(), chunk.size());
    if (got > 0) text.append(chunk.data(), static_cast<size_t>(got));
    return got > 0 || (got < 0 && errno == EINTR);
}

/// Reads both until they end; false if one got too long.
bool ReadBoth(Pipe& output, Pipe& error, ChildResult& result, size_t limit) {
    while (output.reader || error.reader) {
        std::array<pollfd, 2> ready{
            {{output.reader.Get(), POLLIN, 0}, {error.reader.Get(), POLLIN, 0}}};
        if (poll(ready.data(), ready.size(), -1) < 0) continue;
        if (ready[0].revents != 0 && !TakeSome(output.reader, result.output)) output.reader.Reset();
        if (ready[1].revents != 0 && !TakeSome(error.reader, result.error)) error.reader.Reset();
        if (result.output.size() > limit || result.error.size() > kErrorLimit) return false;
    }
    return true;
}

int WaitFor(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

ChildResult RunChild(const std::vector<std::string>& arguments, const ChildOptions& options) {
    Pipe output;
    Pipe error;
    const pid_t pid = Start(arguments, options, output, error);
    output.writer.Reset();
    error.writer.Reset();
    ChildResult result;
    if (!ReadBoth(output, error, result, options.limit)) (void)kill(pid, SIGKILL);
    result.status = WaitFor(pid);
    return result;
}

std::string FirstLine(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of('\n'), text.size()));
    if (text.empty()) return "no reason given";
    return std::string{text.substr(0, text.find('\n'))};
}

}  // namespace zornctl
