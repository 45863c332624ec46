#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

/// How a process ended. Prints as "exited with 1", "killed by signal 6 (Aborted)" or "still
/// running".
struct ProcessEnd {
    enum class Kind { kExited, kKilled, kRunning } kind;
    int value;  ///< exit status, signal number, or 0

    bool operator==(const ProcessEnd&) const = default;
};
std::ostream& operator<<(std::ostream& out, const ProcessEnd& end);

inline constexpr ProcessEnd Exited(int status) {
    return {ProcessEnd::Kind::kExited, status};
}
inline constexpr ProcessEnd Killed(int signal) {
    return {ProcessEnd::Kind::kKilled, signal};
}
inline constexpr ProcessEnd kStillRunning{ProcessEnd::Kind::kRunning, 0};

/// How long the waiting operations here wait at most: far more than any of them needs.
inline constexpr std::chrono::seconds kPatience{30};

/// A program started by `FakeHost::Start`. What it writes is kept in memory, so it never blocks.
///
///     auto zorn = host.Start({FakeHost::Executable()});
///     ASSERT_TRUE(zorn.WaitForFileText("/var/log/tolbrin/log.zorn", "Waiting for signals"));
///     zorn.Signal(SIGTERM);
///     EXPECT_EQ(zorn.Wait(), Exited(0));
///
/// One that still runs when its object goes is killed. REQUIRES: its host outlives it.
/// Thread-safety: one thread.
class HostProcess {
  public:
    HostProcess(HostProcess&&) noexcept;
    HostProcess& operator=(HostProcess&&) noexcept;
    ~HostProcess();

    /// Its process number, which is the same inside and outside.
    [[nodiscard]] pid_t Id() const;

    /// Sends a signal; nothing if it has ended.
    void Signal(int number);

    /// Waits for its end; `kStillRunning` if that does not come in time. May be called again.
    ProcessEnd Wait(std::chrono::milliseconds limit = kPatience);

    /// What it has written so far.
    [[nodiscard]] std::string StandardOutput() const;
    [[nodiscard]] std::string StandardError() const;

    /// Waits until the file `path` of the host holds `text` somewhere. Fails, and shows what the
    /// file and the standard error hold, when the process ends without that or time runs out.
    [[nodiscard]] testing::AssertionResult WaitForFileText(std::string_view path,
                                                           std::string_view text);

    /// The same for what it writes to its standard error or its standard output.
    [[nodiscard]] testing::AssertionResult WaitForStandardError(std::string_view text);
    [[nodiscard]] testing::AssertionResult WaitForStandardOutput(std::string_view text);

    /// Waits until `condition` holds; false when time runs out. For what no file tells.
    template <typename Condition>
    [[nodiscard]] static bool WaitUntil(Condition condition) {
        const auto end = std::chrono::steady_clock::now() + kPatience;
        while (!condition()) {
            if (std::chrono::steady_clock::now() > end) return false;
            Nap();
        }
        return true;
    }

  private:
    friend class FakeHost;
    struct State;
    explicit HostProcess(std::unique_ptr<State> state);
    static void Nap();
    testing::AssertionResult WaitForText(const std::function<std::string()>& read,
                                         std::string_view where, std::string_view text);

    std::unique_ptr<State> m_State;
};
