// The executable on machines that are broken in one way each. It starts and serves, or ends with
// status 0 or 1, and never by a signal that nobody sent; and what the log cannot hold it says in
// syslog.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/owned_fd.h"
#include "support/sanitizers.h"
#include "support/trace_capture.h"
#include "trace/startup_header.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr const char* kLogDirectory = "/var/log/tolbrin";
constexpr const char* kLog = "/var/log/tolbrin/log.zorn";
constexpr const char* kConfiguration =
    "/opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig";
constexpr const char* kIni =
    "/opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig/global_trace.ini";
constexpr const char* kRunMode = "ZORN-MAIN: RUN MODE: 5";  // at level 2
constexpr const char* kWaiting = "ZORN-MAIN:  Waiting for signals...";
constexpr const char* kAlarm = "(SIGALRM) caught -> ignoring";
constexpr const char* kExit = "ZORN-MAIN: ## EXIT PROCESS ZORN ##";
constexpr const char* kNoLog =
    "<11>zorn: ERROR: Error during opening /var/log/tolbrin/log.zorn --> proceed without it";

using Environment = std::map<std::string, std::string>;

Environment With(const std::string& moduleHost, Environment more = {}) {
    more["LD_LIBRARY_PATH"] = FakeHost::LibraryDirectory() + "/system_hosts/" + moduleHost;
    return more;
}

Environment AtLevel3(Environment more = {}) {
    more["QX_LOG_DEBUG_LEVEL"] = "3";
    return With("obedient", std::move(more));
}

/// What the programs of a machine send to syslog.
class SystemLog {
  public:
    explicit SystemLog(const FakeHost& machine)
        : m_Socket(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
        const OwnedFd folder{open(machine.Path("/dev").c_str(), O_PATH | O_CLOEXEC)};
        sockaddr_un name{};
        name.sun_family = AF_UNIX;
        (void)snprintf(name.sun_path, sizeof name.sun_path, "/proc/self/fd/%d/log", folder.Get());
        const auto* const address = reinterpret_cast<const sockaddr*>(&name);
        EXPECT_EQ(bind(m_Socket.Get(), address, sizeof name), 0) << strerror(errno);
    }

    /// The lines since the last call: priority, name and text; process numbers are masked.
    [[nodiscard]] std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        for (;;) {
            std::string text(2048, '\0');
            const ssize_t size = recv(m_Socket.Get(), text.data(), text.size(), 0);
            if (size < 0) return lines;
            text.resize(static_cast<size_t>(size));
            const std::regex head{"^(<[0-9]+>)[A-Z][a-z]{2} [ 0-9]{2} [0-9:]{8} "};
            text = std::regex_replace(text, head, "$1");
            text = std::regex_replace(text, std::regex{"^([^:]*)\\[[0-9]+\\]:"}, "$1[pid]:");
            lines.push_back(text.substr(0, text.find_last_not_of('\n') + 1));
        }
    }

  private:
    OwnedFd m_Socket;
};

/// A machine and the service on it.
struct Day {
    Day() { machine.Directory(kLogDirectory); }

    void Start(Environment environment = AtLevel3(),
               const std::vector<std::string>& command = {FakeHost::Executable()}) {
        zorn.emplace(machine.Start(command, {.environment = std::move(environment)}));
    }

    /// Starts a shell line that ends with `exec zorn` and perhaps more.
    void StartByShell(const std::string& line, Environment environment = AtLevel3()) {
        Start(std::move(environment), {"/bin/bash", "-c", line});
    }

    /// The text of a file as the service sees it, also below mounts of its own.
    [[nodiscard]] std::string ReadInside(const std::string& path) const {
        FILE* const file = fopen(PathInside(path).c_str(), "re");
        if (file == nullptr) return "";
        std::string text(size_t{1} << 20U, '\0');
        text.resize(fread(text.data(), 1, text.size(), file));
        (void)fclose(file);
        return text;
    }
    [[nodiscard]] std::string PathInside(const std::string& path) const {
        return "/proc/" + std::to_string(zorn->Id()) + "/root" + path;
    }

    [[nodiscard]] std::string Log() const { return machine.Read(kLog); }

    /// It sits in sigwait, or has ended.
    [[nodiscard]] bool IsSettled() {
        if (zorn->Wait(std::chrono::milliseconds{0}) != kStillRunning) return true;
        FILE* const file = fopen(("/proc/" + std::to_string(zorn->Id()) + "/wchan").c_str(), "re");
        if (file == nullptr) return true;
        char place[64] = {};
        (void)!fread(place, 1, sizeof place - 1, file);
        (void)fclose(file);
        return std::string_view{place}.find("sigtimedwait") != std::string_view::npos;
    }
    void WaitUntilSettled() {
        EXPECT_TRUE(HostProcess::WaitUntil([&] { return IsSettled(); })) << zorn->StandardError();
    }

    /// The service waits for signals, takes all of them and stops.
    void ExpectServesAndStops() {
        WaitUntilSettled();
        zorn->Signal(SIGHUP);
        zorn->Signal(SIGALRM);
        WaitUntilSettled();
        EXPECT_EQ(zorn->Wait(std::chrono::milliseconds{0}), kStillRunning);
        zorn->Signal(SIGTERM);
        EXPECT_EQ(zorn->Wait(), Exited(0));
        EXPECT_EQ(zorn->StandardError(), "");
    }

    FakeHost machine;
    SystemLog systemLog{machine};
    std::optional<HostProcess> zorn;
};

class BadDay : public testing::Test, protected Day {};

/// Days that begin at the same time: each takes the second that the service gives its modules.
class BadDays : public testing::Test {
  protected:
    Day& Add() { return *m_Days.emplace_back(std::make_unique<Day>()); }

    std::vector<std::unique_ptr<Day>> m_Days;
};

// --- The log -------------------------------------------------------------------------------------

TEST_F(BadDays, SayInSyslogThatThereIsNoLog) {
    Add().machine.Remove(kLogDirectory);
    m_Days.back()->Start();
    Add().machine.Directory(kLog);
    m_Days.back()->Start();
    Add().machine.Link(kLog, "log.zorn");
    m_Days.back()->Start();
    Add().machine.Link(kLog, "/nowhere/log");
    m_Days.back()->Start();
    Add().machine.Remove(kLogDirectory);
    m_Days.back()->machine.File(kLogDirectory, "a file");
    m_Days.back()->Start();
    Add().StartByShell("mount -t tmpfs -o ro none /var/log/tolbrin && exec " +
                       FakeHost::Executable());
    for (const auto& day : m_Days) {
        day->ExpectServesAndStops();
        EXPECT_THAT(day->systemLog.Lines(), ElementsAre(kNoLog));
    }
    EXPECT_FALSE(m_Days.front()->machine.Exists(kLogDirectory));
}

TEST_F(BadDay, DoesNotHangOnAFifoInPlaceOfTheLog) {
    machine.Run([] { ASSERT_EQ(mkfifo(kLog, 0600), 0); });
    std::vector<std::string> command{FakeHost::Executable()};
    command.resize(2000, "an argument that the log would hold, for which no fifo has room");
    Start(AtLevel3(), command);
    ExpectServesAndStops();
    EXPECT_THAT(systemLog.Lines(), ElementsAre(kNoLog));
    EXPECT_TRUE(std::filesystem::is_fifo(machine.Path(kLog)));
}

TEST_F(BadDay, SaysInSyslogThatTheDiskIsFullAndGoesOnWhenItIsNotAnyMore) {
    StartByShell(
        "cd /var/log/tolbrin && mount -t tmpfs -o size=64k none . && cd . && "
        "head -c 65536 /dev/zero >/var/log/tolbrin/filler; exec " +
        FakeHost::Executable());
    WaitUntilSettled();
    EXPECT_THAT(systemLog.Lines(),
                ElementsAre("<11>zorn: ERROR: Error during writing /var/log/tolbrin/log.zorn "
                            "(errno=28) --> lines are lost"));
    EXPECT_EQ(ReadInside(kLog), "");
    ASSERT_EQ(unlink(PathInside("/var/log/tolbrin/filler").c_str()), 0);
    zorn->Signal(SIGALRM);
    EXPECT_TRUE(HostProcess::WaitUntil(
        [this] { return ReadInside(kLog).find(kAlarm) != std::string::npos; }));
    EXPECT_THAT(systemLog.Lines(), IsEmpty());
    zorn->Signal(SIGTERM);
    EXPECT_EQ(zorn->Wait(), Exited(0));
}

TEST_F(BadDay, FollowsASymbolicLinkToTheLog) {
    machine.Link(kLog, "/var/log/elsewhere");
    Start();
    ExpectServesAndStops();
    EXPECT_THAT(machine.Read("/var/log/elsewhere"), HasSubstr(kExit));
    EXPECT_TRUE(std::filesystem::is_symlink(machine.Path(kLogDirectory) / "log.zorn"));
    EXPECT_THAT(systemLog.Lines(), IsEmpty());
}

TEST_F(BadDay, GoesOnAtItsPlaceWhenTheLogIsCut) {
    Start();
    WaitUntilSettled();
    const size_t size = Log().size();
    std::filesystem::resize_file(machine.Path(kLog), 0);
    ExpectServesAndStops();
    EXPECT_THAT(Log(), StartsWith(std::string(size, '\0') + "20"));
    EXPECT_THAT(Log(), HasSubstr(kExit));
}

TEST_F(BadDay, GoesOnWhenTheLogIsMovedAway) {
    Start();
    WaitUntilSettled();
    std::filesystem::rename(machine.Path(kLog), machine.Path("/var/log/tolbrin/log.zorn.1"));
    ExpectServesAndStops();
    EXPECT_THAT(machine.Read("/var/log/tolbrin/log.zorn.1"), HasSubstr(kExit));
    EXPECT_FALSE(machine.Exists(kLog));
}

TEST_F(BadDay, SurvivesASecondServiceThatTakesItsLogAndItsRing) {
    const auto environment = With("beating", {{"QX_LOG_DEBUG_LEVEL", "1"}, {"HOST_RING", ""}});
    const auto ring = [this] { return machine.Read("/var/log/tolbrin/ring_zorn"); };
    const auto number = [](const HostProcess& process) {
        return std::to_string(process.Id()) + "] ";
    };
    Start(environment);
    WaitUntilSettled();
    EXPECT_THAT(ring(), HasSubstr(number(*zorn)));
    auto second = machine.Start({FakeHost::Executable()}, {.environment = environment});
    EXPECT_TRUE(second.WaitForFileText("/var/log/tolbrin/ring_zorn", number(second)));
    EXPECT_TRUE(HostProcess::WaitUntil([&, before = ring()] { return ring() != before; }));
    EXPECT_THAT(ring(), Not(HasSubstr(number(*zorn))));
    ExpectServesAndStops();
    EXPECT_TRUE(HostProcess::WaitUntil([&, before = ring()] { return ring() != before; }));
    second.Signal(SIGTERM);
    EXPECT_EQ(second.Wait(), Exited(0));
}

TEST_F(BadDay, TakesAThousandHangUps) {
    Start();
    WaitUntilSettled();
    const auto descriptors = [this] {
        return std::distance(
            std::filesystem::directory_iterator{"/proc/" + std::to_string(zorn->Id()) + "/fd"}, {});
    };
    const auto before = descriptors();
    const auto count = [this](const std::string& text) {
        const std::string log = Log();
        size_t found = 0;
        for (size_t at = log.find(text); at != log.npos; at = log.find(text, at + 1)) ++found;
        return found;
    };
    for (size_t i = 1; i <= 1000; ++i) {
        const std::string last =
            i % 2 == 1 ? "Trace reset due to SIGHUP\n" : "Trace forced due to SIGHUP\n";
        zorn->Signal(SIGHUP);
        ASSERT_TRUE(HostProcess::WaitUntil([&] { return Log().ends_with(last); })) << i;
    }
    EXPECT_EQ(count("Trace reset due to SIGHUP"), 500u);
    EXPECT_EQ(count("Trace forced due to SIGHUP"), 500u);
    EXPECT_EQ(descriptors(), before);
    zorn->Signal(SIGTERM);
    EXPECT_EQ(zorn->Wait(), Exited(0));
    EXPECT_THAT(Log(), HasSubstr("... all modules stopped")) << "of level 2, which it has again";
}

// --- The settings --------------------------------------------------------------------------------

enum class Effect { kIgnored, kLevel3, kNoLogFile };

TEST_F(BadDays, TakeAnyKindOfIniFile) {
    std::string binary;
    for (int i = 0; i < 65536; ++i) binary += static_cast<char>(i * 7919 >> 3);
    const std::string good = "[zorn]\nFileDebugLevel=3\n[EndOfFile]\n";
    const std::string directory = "[zorn]\nRingBufferDirectory=";
    const struct {
        std::string text;
        Effect effect;
    } files[] = {
        {"", Effect::kIgnored},
        {"[EndOfFile]", Effect::kIgnored},
        {std::string(10 << 20, '['), Effect::kIgnored},
        {std::string(10 << 20, 'x') + good, Effect::kLevel3},
        {good + std::string(10 << 20, 'x'), Effect::kLevel3},
        {binary, Effect::kIgnored},
        {std::string(1, '\0') + good, Effect::kIgnored},
        {good + binary, Effect::kIgnored},
        {"[zorn]\nFileDebugLevel=3\n", Effect::kIgnored},
        {good + "]", Effect::kIgnored},
        {directory + std::string(100'000, '/') + "\n[EndOfFile]\n", Effect::kNoLogFile},
        {directory + "%s%n%s\n[EndOfFile]\n", Effect::kNoLogFile},
    };
    for (const auto& file : files) {
        Add().machine.File(kIni, file.text);
        m_Days.back()->Start(With("obedient"));
    }
    for (size_t i = 0; i < m_Days.size(); ++i) {
        SCOPED_TRACE(i);
        Day& day = *m_Days[i];
        day.ExpectServesAndStops();
        EXPECT_EQ(day.machine.Exists(kLog), files[i].effect != Effect::kNoLogFile);
        EXPECT_EQ(day.systemLog.Lines().size(), files[i].effect == Effect::kNoLogFile ? 1u : 0u);
        if (files[i].effect == Effect::kNoLogFile) continue;
        EXPECT_THAT(day.Log(), HasSubstr(kExit));
        EXPECT_EQ(day.Log().find(kRunMode) != std::string::npos,
                  files[i].effect == Effect::kLevel3);
    }
}

TEST_F(BadDays, TakeAnIniFileThatCannotBeReadForNone) {
    for (const char* target :
         {"/proc/self/mem", "/dev/null", "/dev/zero", "/nowhere", "global_trace.ini"}) {
        Add().machine.Link(kIni, target);
    }
    Add().machine.Directory(kIni);
    Add().machine.Run([] {
        std::filesystem::create_directories(kConfiguration);
        ASSERT_EQ(mkfifo(kIni, 0600), 0);
    });
    for (const auto& day : m_Days) day->Start(With("obedient"));
    for (const auto& day : m_Days) {
        day->ExpectServesAndStops();
        EXPECT_THAT(day->Log(), HasSubstr(kExit));
        EXPECT_THAT(day->Log(), Not(HasSubstr(kRunMode)));
    }
}

/// Writes the settings, with a time stamp that many seconds ahead.
void WriteSettings(Day& day, const char* level, int ahead) {
    day.machine.File(
        kIni, std::string{"[GlobalDebugSettings]\nDynamicUpdate=1\n[zorn]\nFileDebugLevel="} +
                  level + "\n[EndOfFile]\n");
    const timespec times[2] = {{time(nullptr) + ahead, 0}, {time(nullptr) + ahead, 0}};
    EXPECT_EQ(utimensat(AT_FDCWD, day.machine.Path(kIni).c_str(), times, 0), 0);
}

TEST_F(BadDay, KeepsItsLevelWhenTheIniFileVanishesDuringTheDynamicUpdate) {
    WriteSettings(*this, "1", 0);
    Start(With("beating"));
    ASSERT_TRUE(zorn->WaitForFileText(kLog, "HOST: beat 1 "));
    EXPECT_THAT(Log(), Not(HasSubstr("HOST: detail")));
    WriteSettings(*this, "4", 10);
    ASSERT_TRUE(zorn->WaitForFileText(kLog, "HOST: detail")) << "it looks at the file";
    machine.Remove(kIni);
    const auto detailsFromNow = [] { return "at " + std::to_string(time(nullptr) + 2) + ".\n"; };
    const auto detailAt = [this](const std::string& time) {
        const std::regex detail{"HOST: detail of beat [0-9]+ " + time};
        return HostProcess::WaitUntil([&] { return std::regex_search(Log(), detail); });
    };
    EXPECT_TRUE(detailAt(detailsFromNow()));
    WriteSettings(*this, "1", 20);
    EXPECT_TRUE(detailAt(detailsFromNow())) << "until the next start it is not looked at again";
    ExpectServesAndStops();
}

// --- The process ---------------------------------------------------------------------------------

TEST_F(BadDays, ServeWithClosedStandardStreams) {
    for (const char* closed : {"0<&-", "1>&-", "2>&-", "0<&- 1>&- 2>&-"}) {
        Add().StartByShell("exec " + FakeHost::Executable() + " " + closed);
    }
    for (const auto& day : m_Days) {
        day->ExpectServesAndStops();
        const std::string log = day->Log();
        EXPECT_THAT(log, HasSubstr(kRunMode));
        EXPECT_THAT(log, HasSubstr(kExit));
        EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), std::count(log.begin(), log.end(), '!'))
            << "nothing but lines of the trace";
    }
}

TEST_F(BadDay, ServesWithAProgramNameOf128KiB) {
    StartByShell("name=$(head -c 131000 /dev/zero | tr '\\0' n); exec -a \"$name\" " +
                 FakeHost::Executable());
    ExpectServesAndStops();
    EXPECT_THAT(Log(), HasSubstr("argv[0] = \"" + std::string(1024 - 11, 'n') + "\n"));
}

TEST_F(BadDay, ServesWithAnEmptyArgumentList) {
    machine.KernelProc();  // which the leak check of a sanitizer reads
    machine.Run([] {
        const pid_t child = fork();
        if (child == 0) {
            std::vector<std::string> words;
            for (const auto& [name, value] : AtLevel3()) words.push_back(name + "=" + value);
            std::vector<char*> envp;
            for (auto& word : words) envp.push_back(word.data());
            envp.push_back(nullptr);
            char* argv[] = {nullptr};
            execve(FakeHost::Executable().c_str(), argv, envp.data());
            _exit(127);
        }
        const auto log = [] {
            std::string text(8192, '\0');
            FILE* file = fopen(kLog, "re");
            text.resize(file == nullptr ? 0 : fread(text.data(), 1, text.size(), file));
            if (file != nullptr) (void)fclose(file);
            return text;
        };
        EXPECT_TRUE(
            HostProcess::WaitUntil([&] { return log().find(kWaiting) != std::string::npos; }));
        kill(child, SIGTERM);
        int status = 0;
        EXPECT_EQ(waitpid(child, &status, 0), child);
        EXPECT_EQ(status, 0);
        EXPECT_THAT(log(), HasSubstr(kExit));
    });
}

TEST_F(BadDay, ServesWithAMebibyteOfEnvironment) {
    Environment filler;
    for (int i = 0; i < 8; ++i)
        filler["QX_FILLER_" + std::to_string(i)] = std::string(120'000, '%');
    filler["QX_SYSTEM"] = std::string(120'000, 's');
    filler["QX_LOG_NOHDR_TOSDTERR"] = "0";
    Start(AtLevel3(filler));
    ExpectServesAndStops();
    EXPECT_THAT(Log(), HasSubstr("QX_SYSTEM=" + std::string(1024 - 10, 's') + "\n"));
    EXPECT_THAT(Log(), HasSubstr(kExit));
}

/// Every variable that the service reads or shows, set to the same.
Environment EveryVariable(const std::string& value) {
    Environment all;
    for (const HeaderName* table : {g_EnvironmentNames, g_ConfigurationNames}) {
        for (const HeaderName* row = table; row->name != nullptr; ++row) all[row->name] = value;
    }
    all["QX_LOG_RINGBUF_WEIGHT_ZORN"] = all["HOST_RING"] = value;
    return With("beating", all);
}

TEST_F(BadDays, ServeWithHostileVariables) {
    const struct {
        std::string value;
        const char* log;  ///< where it lies; null: nowhere
    } values[] = {
        {"", "/log.zorn"},
        {"/", "/log.zorn"},
        {"0", nullptr},
        {"-1", nullptr},
        {"2147483647", nullptr},
        {"99999999999999999999", nullptr},
        {"%s%s%s%n", nullptr},
        {"\x01\xFF\n[zorn]", nullptr},
        {"/var/../" + std::string(20'000, '/'), nullptr},
        {"/var/log/tolbrin", kLog},
    };
    for (const auto& value : values) Add().Start(EveryVariable(value.value));
    for (size_t i = 0; i < m_Days.size(); ++i) {
        SCOPED_TRACE(values[i].value.substr(0, 100));
        Day& day = *m_Days[i];
        day.ExpectServesAndStops();
        EXPECT_EQ(day.systemLog.Lines().size(), values[i].log == nullptr ? 1u : 0u);
        if (values[i].log != nullptr) {
            EXPECT_THAT(day.machine.Read(values[i].log), HasSubstr(kExit));
        }
    }
}

TEST_F(BadDay, FallsBackToTheLogWhereTheDiskHasNoRoomForTheRing) {
    StartByShell(
        "mount -t tmpfs -o size=3m none /var/log/tolbrin && exec " + FakeHost::Executable(),
        With("beating",
             {{"HOST_RING", ""}, {"TraceFileLimit", "2147483647"}, {"QX_LOG_DEBUG_LEVEL", "1"}}));
    WaitUntilSettled();
    EXPECT_THAT(ReadInside(kLog), HasSubstr("/ring_startup_zorn failed ###\n"));
    ExpectServesAndStops();
}

TEST_F(BadDays, EndOrServeWithFewDescriptors) {
    const int limits[] = {8, 7, 6, 5, 4, 3, 0};
    for (const int limit : limits) {
        Add().Start(AtLevel3(), {"/usr/bin/prlimit", "--nofile=" + std::to_string(limit),
                                 FakeHost::Executable()});
    }
    m_Days.front()->ExpectServesAndStops();
    EXPECT_THAT(m_Days.front()->Log(), HasSubstr(kExit));
    for (size_t i = 1; i < m_Days.size(); ++i) {
        Day& day = *m_Days[i];
        day.WaitUntilSettled();
        day.zorn->Signal(SIGTERM);
        const ProcessEnd end = day.zorn->Wait();
        EXPECT_THAT(end, testing::AnyOf(Exited(0), Exited(1), Exited(127)))
            << limits[i] << "; 127: the linker could not start it";
    }
}

TEST_F(BadDay, ServesWithoutProc) {
    if (kAddressSanitizer) GTEST_SKIP() << "the sanitizer itself needs /proc";
    StartByShell("mount -t tmpfs none /proc && exec " + FakeHost::Executable());
    ExpectServesAndStops();
    EXPECT_THAT(Log(), HasSubstr("]        0 KB !zorn          "));
    EXPECT_THAT(Log(), HasSubstr(kExit));
}

}  // namespace
