// The executable on machines that are broken in one way each. It starts and serves, or ends with
// status 0 or 1, and never by a signal that nobody sent.

#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/sanitizers.h"

using testing::HasSubstr;

namespace {

constexpr const char* kLogDirectory = "/var/log/tolbrin";
constexpr const char* kLog = "/var/log/tolbrin/log.zorn";
constexpr const char* kIni =
    "/opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig/global_trace.ini";
constexpr const char* kWaiting = "ZORN-MAIN:  Waiting for signals...";

/// A machine whose module host says on its standard output when the service is ready, so that a log
/// is not needed for it.
class BadDay : public testing::Test {
  protected:
    BadDay() { m_Machine.Directory(kLogDirectory); }

    static std::map<std::string, std::string> Environment() {
        return {{"LD_LIBRARY_PATH", FakeHost::LibraryDirectory() + "/system_hosts/obedient"},
                {"QX_LOG_DEBUG_LEVEL", "3"}};
    }

    HostProcess Start(std::map<std::string, std::string> environment = Environment()) {
        return m_Machine.Start({FakeHost::Executable()}, {.environment = std::move(environment)});
    }

    /// A shell line that ends with `exec zorn`.
    HostProcess StartByShell(const std::string& line,
                             std::map<std::string, std::string> environment = Environment()) {
        return m_Machine.Start({"/bin/bash", "-c", line}, {.environment = std::move(environment)});
    }

    /// The service waits for signals: it has blocked SIGTERM, which it takes in sigwait.
    static void ExpectServesAndStops(HostProcess& zorn) {
        EXPECT_TRUE(HostProcess::WaitUntil([&] { return WaitsForSignals(zorn.Id()); }))
            << zorn.StandardError();
        zorn.Signal(SIGHUP);
        zorn.Signal(SIGALRM);
        zorn.Signal(SIGTERM);
        EXPECT_EQ(zorn.Wait(), Exited(0)) << zorn.StandardError();
    }

    static bool WaitsForSignals(pid_t pid) {
        char path[64];
        snprintf(path, sizeof path, "/proc/%d/wchan", pid);
        FILE* file = fopen(path, "re");
        if (file == nullptr) return true;  // ended: the wait shows how
        char place[64] = {};
        (void)!fread(place, 1, sizeof place - 1, file);
        (void)fclose(file);
        return std::string{place}.find("sigtimedwait") != std::string::npos;
    }

    FakeHost m_Machine;
};

// --- The log -------------------------------------------------------------------------------------

TEST_F(BadDay, ServesWithoutALogDirectory) {
    m_Machine.Remove(kLogDirectory);
    HostProcess zorn = Start();
    ExpectServesAndStops(zorn);
    EXPECT_FALSE(m_Machine.Exists(kLogDirectory));
}

TEST_F(BadDay, ServesWhereTheLogIsADirectory) {
    m_Machine.Directory(kLog);
    HostProcess zorn = Start();
    ExpectServesAndStops(zorn);
}

TEST_F(BadDay, ServesWhereTheDiskIsFull) {
    m_Machine.Link(kLog, "/dev/full");
    HostProcess zorn = Start();
    ExpectServesAndStops(zorn);
}

TEST_F(BadDay, FollowsASymbolicLinkToTheLog) {
    m_Machine.Link(kLog, "/var/log/elsewhere");
    HostProcess zorn = Start();
    ASSERT_TRUE(zorn.WaitForFileText("/var/log/elsewhere", kWaiting));
    ExpectServesAndStops(zorn);
}

TEST_F(BadDay, DoesNotHangOnAFifoInPlaceOfTheLog) {
    m_Machine.Run([] { ASSERT_EQ(mkfifo(kLog, 0600), 0); });
    std::vector<std::string> line{FakeHost::Executable()};
    line.resize(2000, "an argument that the log would hold, for which no fifo has room");
    HostProcess zorn = m_Machine.Start(line, {.environment = Environment()});
    ExpectServesAndStops(zorn);
}

TEST_F(BadDay, ServesAThousandHangUps) {
    HostProcess zorn = Start();
    ASSERT_TRUE(zorn.WaitForFileText(kLog, kWaiting));
    for (int i = 0; i < 1000; ++i) zorn.Signal(SIGHUP);
    zorn.Signal(SIGALRM);
    ASSERT_TRUE(zorn.WaitForFileText(kLog, "(SIGALRM) caught -> ignoring"));
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
}

// --- The settings --------------------------------------------------------------------------------

TEST_F(BadDay, ServesWithAnyKindOfIniFile) {
    std::string binary;
    for (int i = 0; i < 65536; ++i) binary += static_cast<char>(i * 7919 >> 3);
    const std::string good = "[zorn]\nFileDebugLevel=3\n[EndOfFile]\n";
    const std::string files[] = {
        "",
        std::string(10 << 20, '['),
        std::string(10 << 20, 'x') + good,
        binary,
        binary + good,
        "[zorn]\nFileDebugLevel=3\n",
        std::string(1, '\0') + good,
        "[zorn]\nRingBufferDirectory=" + std::string(100000, '/') + "\n[EndOfFile]\n",
        "[zorn]\nRingBufferDirectory=%s%n%s\n[EndOfFile]\n",
    };
    for (const auto& text : files) {
        m_Machine.File(kIni, text);
        HostProcess zorn = Start();
        ExpectServesAndStops(zorn);
    }
}

TEST_F(BadDay, ServesWithAnIniFileThatCannotBeRead) {
    for (const char* target : {"/proc/self/mem", "/dev/null", "/nowhere", "global_trace.ini"}) {
        m_Machine.Link(kIni, target);
        HostProcess zorn = Start();
        ExpectServesAndStops(zorn);
    }
}

TEST_F(BadDay, KeepsServingWhenTheIniFileVanishes) {
    m_Machine.File(
        kIni, "[GlobalDebugSettings]\nDynamicUpdate=1\n[zorn]\nFileDebugLevel=3\n[EndOfFile]\n");
    auto environment = Environment();
    environment.erase("QX_LOG_DEBUG_LEVEL");
    HostProcess zorn = Start(environment);
    ASSERT_TRUE(zorn.WaitForFileText(kLog, kWaiting));
    m_Machine.Remove(kIni);
    ExpectServesAndStops(zorn);
    EXPECT_THAT(m_Machine.Read(kLog), HasSubstr("ZORN-MAIN: ## EXIT PROCESS ZORN ##"));
}

// --- The process ---------------------------------------------------------------------------------

TEST_F(BadDay, ServesWithClosedStandardStreams) {
    HostProcess zorn = StartByShell("exec " + FakeHost::Executable() + " 0<&- 1>&- 2>&-");
    ASSERT_TRUE(zorn.WaitForFileText(kLog, kWaiting));
    ExpectServesAndStops(zorn);
}

TEST_F(BadDay, ServesWithAProgramNameOf128KiB) {
    HostProcess zorn =
        StartByShell("name=$(head -c 131000 /dev/zero | tr '\\0' n); exec -a \"$name\" " +
                     FakeHost::Executable());
    ASSERT_TRUE(zorn.WaitForFileText(kLog, kWaiting));
    ExpectServesAndStops(zorn);
}

TEST_F(BadDay, ServesWithAnEmptyArgumentList) {
    if (kAddressSanitizer) GTEST_SKIP() << "its leak check reads what this /proc has not";
    m_Machine.Run([] {
        const pid_t child = fork();
        if (child == 0) {
            const auto environment = Environment();
            std::vector<std::string> words;
            for (const auto& [name, value] : environment) words.push_back(name + "=" + value);
            std::vector<char*> envp;
            for (auto& word : words) envp.push_back(word.data());
            envp.push_back(nullptr);
            char* argv[] = {nullptr};
            execve(FakeHost::Executable().c_str(), argv, envp.data());
            _exit(127);
        }
        EXPECT_TRUE(HostProcess::WaitUntil([] {
            FILE* file = fopen(kLog, "re");
            if (file == nullptr) return false;
            std::string text(8192, '\0');
            text.resize(fread(text.data(), 1, text.size(), file));
            (void)fclose(file);
            return text.find(kWaiting) != std::string::npos;
        }));
        kill(child, SIGTERM);
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
    });
}

TEST_F(BadDay, ServesWithAMebibyteOfEnvironment) {
    auto environment = Environment();
    environment["QX_LOG_NOHDR_TOSDTERR"] = "0";
    for (int i = 0; i < 8; ++i) {
        environment["QX_FILLER_" + std::to_string(i)] = std::string(120'000, '%');
    }
    environment["QX_SYSTEM"] = std::string(120'000, 's');
    HostProcess zorn = Start(environment);
    ASSERT_TRUE(zorn.WaitForFileText(kLog, kWaiting));
    ExpectServesAndStops(zorn);
}

TEST_F(BadDay, ServesWithHostileVariables) {
    const char* const values[] = {"", "%s%s%s%n", "-1", "99999999999999999999", "\x01\xFF\n", "/"};
    const char* const names[] = {"QX_LOG_DYNAMIC_UPDATE",
                                 "QX_LOG_FILE_DIR",
                                 "QX_LOG_FILE_MAX_SIZE",
                                 "QX_LOG_RINGBUF_DIR",
                                 "QX_LOG_DEBUG_LEVEL",
                                 "TraceFileLimit",
                                 "QX_LOG_RINGBUF_WEIGHT",
                                 "QX_LOG_NOHDR_TOSDTERR",
                                 "QX_LOG_RINGBUF_WEIGHT_ZORN",
                                 "QX_SYSTEM",
                                 "QX_OS",
                                 "QX_NICKNAME"};
    for (const char* value : values) {
        auto environment = Environment();
        for (const char* name : names) environment[name] = value;
        HostProcess zorn = Start(environment);
        ExpectServesAndStops(zorn);
    }
}

TEST_F(BadDay, EndsOrServesWithEightDescriptors) {
    HostProcess zorn = m_Machine.Start({"/usr/bin/prlimit", "--nofile=8", FakeHost::Executable()},
                                       {.environment = Environment()});
    ASSERT_TRUE(zorn.WaitForFileText(kLog, kWaiting));
    ExpectServesAndStops(zorn);
}

TEST_F(BadDay, EndsWithStatus1WithTooFewDescriptorsForTheModuleHost) {
    HostProcess zorn = m_Machine.Start({"/usr/bin/prlimit", "--nofile=4", FakeHost::Executable()},
                                       {.environment = Environment()});
    const ProcessEnd end = zorn.Wait();
    EXPECT_THAT(end, testing::AnyOf(Exited(1), Exited(127)))
        << "127: the linker could not start it";
}

TEST_F(BadDay, ServesWithoutProc) {
    if (kAddressSanitizer) GTEST_SKIP() << "the sanitizer itself needs /proc";
    HostProcess zorn = StartByShell("mount -t tmpfs none /proc && exec " + FakeHost::Executable());
    ASSERT_TRUE(zorn.WaitForFileText(kLog, kWaiting));
    zorn.Signal(SIGTERM);
    EXPECT_EQ(zorn.Wait(), Exited(0));
    EXPECT_THAT(m_Machine.Read(kLog), HasSubstr("]        0 KB !zorn          "));
}

}  // namespace
