#include "platform/thread.h"

#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <functional>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/event.h"
#include "platform/victim.h"
#include "support/fake_host.h"
#include "support/host_process.h"
#include "support/libc_fault.h"
#include "support/sanitizers.h"
#include "support/trace_capture.h"
#include "trace/trace.h"

using testing::ElementsAre;

namespace {

constexpr bool kJoinable = true;
constexpr bool kDetached = false;

/// A thread's number as the trace shows it.
std::string Number(pthread_t thread) {
    char text[16];
    snprintf(text, sizeof text, "%08X", static_cast<unsigned>(thread));
    return text;
}

/// A pointer as the trace shows it.
std::string Shown(const void* pointer) {
    char text[32];
    snprintf(text, sizeof text, "%p", pointer);
    return text;
}

/// A thread's function that calls `*function`, a std::function.
void* Call(void* function) {
    (*static_cast<std::function<void()>*>(function))();
    return nullptr;
}

void* ReturnArgument(void* argument) {
    return argument;
}

/// Something that stays in a thread until the test lets it go, or somebody cancels it.
class Work {
  public:
    /// The routine; its argument is the object.
    static void* Run(void* self) {
        const FrameSweeper sweeper;
        static_cast<Work*>(self)->Stay();
        return nullptr;
    }

    void LetGo() { (void)m_Go.Set(); }
    [[nodiscard]] bool AwaitEnd() const {
        return HostProcess::WaitUntil([this] { return m_HasEnded.load(); });
    }
    [[nodiscard]] bool AwaitBegin() const {
        return HostProcess::WaitUntil([this] { return m_HasBegun.load(); });
    }
    [[nodiscard]] bool HasEnded() const { return m_HasEnded; }
    [[nodiscard]] bool WasCancelled() const { return m_HasEnded && !m_HasReturned; }

  private:
    /// Told also when a cancellation unwinds.
    struct End {
        std::atomic<bool>& told;
        ~End() { told = true; }
    };

    void Stay() {
        const End end{m_HasEnded};
        m_HasBegun = true;
        (void)m_Go.Wait(kWaitForever, false);
        m_HasReturned = true;
    }

    CEvent m_Go{false, true, nullptr};
    std::atomic<bool> m_HasBegun{false};
    std::atomic<bool> m_HasReturned{false};
    std::atomic<bool> m_HasEnded{false};
};

bool StartWork(CThread& thread, Work& work, bool waitable) {
    return thread.Start(Work::Run, &work, 0, false, 0, nullptr, waitable);
}

/// Lets `F` fail in a start with that priority: false, the line at level 2, and no thread.
template <auto F>
void ExpectStartFails(unsigned long priority, bool waitable, const std::string& line) {
    for (const unsigned level : {1U, 2U}) {
        const TraceCapture trace{level};
        CThread thread;
        FaultOf<F> fault;
        fault.Fail(EPERM);
        EXPECT_FALSE(thread.Start(ReturnArgument, nullptr, priority, false, 0, nullptr, waitable));
        EXPECT_EQ(thread.Id(), pthread_t{0});
        EXPECT_EQ(trace.LinesWith("failed"), level == 2 ? Lines{line} : Lines{});
    }
}

}  // namespace

TEST(Thread, HoldsNoneAtFirstAndCannotBeCopied) {
    const CThread thread;
    EXPECT_EQ(thread.Id(), pthread_t{0});
    EXPECT_FALSE(std::is_copy_constructible_v<CThread>);
    EXPECT_FALSE(std::is_copy_assignable_v<CThread>);
}

// Start

TEST(ThreadStart, RunsTheRoutineAndTracesItsSteps) {
    const TraceCapture trace{5};
    CThread thread;
    int argument = 0;
    ASSERT_TRUE(thread.Start(ReturnArgument, &argument, 0, false, 0x10000, nullptr, kJoinable));
    const std::string number = Number(thread.Id());
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
    EXPECT_THAT(
        trace.Lines(),
        ElementsAre("CThread::Start: Start a thread, Prio=0, Suspend=0, StackSize=0x00010000, "
                    "Waitable=1, KillAliveThread=0",
                    "pthread_attr_init: 0", "ThreadPrio=0",
                    "CThread::Start: thread=0x" + number +
                        " created, Prio=0, Waitable=1, StackSize=0x10000",
                    "CThread::WaitForTermination: a joinable Thread = 0x" + number +
                        " has terminated, pstat=" + Shown(&argument)));
}

TEST(ThreadStart, WritesEachLineAtItsLevel) {
    const struct {
        unsigned level;
        size_t lines;
    } cases[] = {{1, 0}, {2, 2}, {3, 2}, {4, 3}, {5, 4}};
    for (const auto& [level, lines] : cases) {
        const TraceCapture trace{level};
        CThread thread;
        ASSERT_TRUE(thread.Start(ReturnArgument, nullptr, 0, false, 0, nullptr, kJoinable));
        EXPECT_EQ(trace.Lines().size(), lines) << level;
        EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
    }
}

TEST(ThreadStart, OfASuspendedThreadStartsItAtOnce) {
    const TraceCapture trace{5};
    CThread thread;
    int argument = 0;
    ASSERT_TRUE(thread.Start(ReturnArgument, &argument, 0, true, 0, &argument, kJoinable));
    EXPECT_THAT(trace.LinesWith("Suspend"),
                ElementsAre("CThread::Start: Start a thread, Prio=0, Suspend=1, "
                            "StackSize=0x00000000, Waitable=1, KillAliveThread=0"));
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
}

TEST(ThreadStart, TakesTheDefaultStackWhateverIsAskedFor) {
    pthread_attr_t standard{};
    ASSERT_EQ(pthread_getattr_default_np(&standard), 0);
    size_t expected = 0;
    ASSERT_EQ(pthread_attr_getstacksize(&standard, &expected), 0);
    size_t size = 0;
    std::function<void()> look = [&size] {
        pthread_attr_t own{};
        EXPECT_EQ(pthread_getattr_np(pthread_self(), &own), 0);
        EXPECT_EQ(pthread_attr_getstacksize(&own, &size), 0);
        pthread_attr_destroy(&own);
    };
    CThread thread;
    ASSERT_TRUE(thread.Start(Call, &look, 0, false, 0x10000, nullptr, kJoinable));
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
    EXPECT_EQ(size, expected);
}

TEST(ThreadStart, MakesTheThreadDetachedUnlessItIsWaitable) {
    for (const bool waitable : {kJoinable, kDetached}) {
        std::atomic<int> state{-1};
        std::function<void()> look = [&state] {
            pthread_attr_t own{};
            int detached = -1;
            EXPECT_EQ(pthread_getattr_np(pthread_self(), &own), 0);
            EXPECT_EQ(pthread_attr_getdetachstate(&own, &detached), 0);
            pthread_attr_destroy(&own);
            state = detached;
        };
        CThread thread;
        ASSERT_TRUE(thread.Start(Call, &look, 0, false, 0, nullptr, waitable));
        ASSERT_TRUE(HostProcess::WaitUntil([&] { return state != -1; }));
        EXPECT_EQ(state, waitable ? PTHREAD_CREATE_JOINABLE : PTHREAD_CREATE_DETACHED);
        EXPECT_TRUE(thread.Kill());
    }
}

TEST(ThreadStart, WithPriorityZeroLeavesTheSchedulingAlone) {
    const FaultOf<&::pthread_attr_setschedpolicy> policy;
    const FaultOf<&::pthread_attr_getschedparam> former;
    const FaultOf<&::pthread_attr_setschedparam> parameters;
    CThread thread;
    ASSERT_TRUE(thread.Start(ReturnArgument, nullptr, 0, false, 0, nullptr, kJoinable));
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
    EXPECT_EQ(policy.Calls() + former.Calls() + parameters.Calls(), 0);
}

TEST(ThreadStart, WithAPriorityGivesAThreadThatInheritsItsScheduling) {
    FakeHost host;
    for (const uid_t user : {0U, 65534U}) {
        host.Run(
            [] {
                std::function<void()> look = [] {
                    int policy = -1;
                    sched_param parameters{};
                    EXPECT_EQ(pthread_getschedparam(pthread_self(), &policy, &parameters), 0);
                    EXPECT_EQ(policy, SCHED_OTHER);
                    EXPECT_EQ(parameters.sched_priority, 0);
                };
                FaultOf<&::pthread_attr_setschedparam> fault;
                fault.Answer([](pthread_attr_t* attributes, const sched_param* parameters) {
                    int policy = -1;
                    EXPECT_EQ(pthread_attr_getschedpolicy(attributes, &policy), 0);
                    EXPECT_EQ(policy, SCHED_RR);
                    EXPECT_EQ(parameters->sched_priority, 63);
                    return LibcFault::Real<&::pthread_attr_setschedparam>(attributes, parameters);
                });
                const TraceCapture trace{2};
                CThread thread;
                ASSERT_TRUE(thread.Start(Call, &look, 63, false, 0, nullptr, kJoinable));
                const std::string number = Number(thread.Id());
                EXPECT_THAT(trace.Lines(),
                            ElementsAre("ThreadPrio=63", "CThread::Start: thread=0x" + number +
                                                             " created, Prio=63, Waitable=1, "
                                                             "StackSize=0x0"));
                EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
            },
            {.uid = user});
    }
}

TEST(ThreadStart, RefusesAPriorityThatRoundRobinDoesNotHave) {
    for (const unsigned long priority : {100UL, 0x100000000UL}) {
        const TraceCapture trace{2};
        CThread thread;
        EXPECT_FALSE(thread.Start(ReturnArgument, nullptr, priority, false, 0, nullptr, kJoinable));
        const std::string shown = std::to_string(static_cast<int>(priority));
        EXPECT_THAT(trace.Lines(),
                    ElementsAre("ThreadPrio=" + shown,
                                "pthread_attr_setschedparam failed: error=22 priority=" + shown));
    }
}

TEST(ThreadStart, IsFalseWithALineIfAStepFails) {
    ExpectStartFails<&::pthread_attr_init>(0, kJoinable, "pthread_attr_init failed: 1");
    ExpectStartFails<&::pthread_attr_setdetachstate>(0, kDetached,
                                                     "pthread_attr_setdetachstate failed: 1");
    ExpectStartFails<&::pthread_attr_setschedpolicy>(7, kJoinable,
                                                     "pthread_attr_setschedpolicy failed: 1");
    ExpectStartFails<&::pthread_attr_getschedparam>(7, kJoinable,
                                                    "pthread_attr_getschedparam failed: 1");
    ExpectStartFails<&::pthread_attr_setschedparam>(
        7, kJoinable, "pthread_attr_setschedparam failed: error=1 priority=7");
    ExpectStartFails<&::pthread_create>(0, kJoinable, "pthread_create failed: 1");
    ExpectStartFails<&::pthread_create>(0, kDetached, "pthread_create failed: 1");
}

TEST(ThreadStart, TellsWhatItIsToDoBeforeItKills) {
    const TraceCapture trace{5};
    CThread thread{true};
    FaultOf<&::pthread_attr_setdetachstate> fault;
    fault.Fail(EPERM);
    EXPECT_FALSE(thread.Start(ReturnArgument, nullptr, 7, true, 1, nullptr, kDetached));
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CThread::Start: Start a thread, Prio=7, Suspend=1, "
                            "StackSize=0x00000001, Waitable=0, KillAliveThread=1",
                            "CThread::Kill: Try to kill the Thread = 0x00000000",
                            "CThread::Kill: Thread = 0x000000000 doesn't exist !",
                            "pthread_attr_init: 0", "pthread_attr_setdetachstate failed: 1"))
        << "the priority is shown behind the mode only";
}

TEST(ThreadStart, ShowsADetachedThreadAsNotWaitable) {
    const TraceCapture trace{5};
    CThread thread;
    ASSERT_TRUE(thread.Start(ReturnArgument, nullptr, 0, false, 0x20, nullptr, kDetached));
    const std::string number = Number(thread.Id());
    EXPECT_THAT(trace.Lines(), ElementsAre("CThread::Start: Start a thread, Prio=0, Suspend=0, "
                                           "StackSize=0x00000020, Waitable=0, KillAliveThread=0",
                                           "pthread_attr_init: 0", "ThreadPrio=0",
                                           "CThread::Start: thread=0x" + number +
                                               " created, Prio=0, Waitable=0, StackSize=0x20"));
    EXPECT_TRUE(thread.Kill());
}

// As they are set here, attributes hold no memory of their own.
TEST(ThreadStart, NeverDestroysItsAttributes) {
    const FaultOf<&::pthread_attr_destroy> destroy;
    for (const bool waitable : {kJoinable, kDetached}) {
        CThread thread;
        EXPECT_TRUE(thread.Start(ReturnArgument, nullptr, 7, false, 0, nullptr, waitable));
        EXPECT_TRUE(thread.Kill());
    }
    CThread thread;
    FaultOf<&::pthread_create> create;
    create.Fail(EAGAIN);
    EXPECT_FALSE(thread.Start(ReturnArgument, nullptr, 7, false, 0, nullptr, kJoinable));
    EXPECT_EQ(destroy.Calls(), 0);
}

TEST(ThreadStart, IsFalseForADetachedThreadWithoutMemory) {
    if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
    const TraceCapture trace{2};
    CThread thread;
    {
        FaultOf<&::malloc> fault;
        fault.Fail(ENOMEM);
        EXPECT_FALSE(thread.Start(ReturnArgument, nullptr, 0, false, 0, nullptr, kDetached));
    }
    EXPECT_THAT(trace.LinesWith("failed"), ElementsAre("pthread_create failed: 12"));
}

TEST(ThreadStart, ThatFailsKeepsTheThreadHeldBefore) {
    CThread thread;
    ASSERT_TRUE(thread.Start(ReturnArgument, nullptr, 0, false, 0, nullptr, kJoinable));
    const pthread_t held = thread.Id();
    {
        FaultOf<&::pthread_create> fault;
        fault.Answer([](pthread_t* made, const pthread_attr_t*, void* (*)(void*), void*) {
            *made = 4711;  // as the C library does
            return EAGAIN;
        });
        EXPECT_FALSE(thread.Start(ReturnArgument, nullptr, 0, false, 0, nullptr, kJoinable));
    }
    EXPECT_EQ(thread.Id(), held);
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
}

TEST(ThreadStart, ForgetsAThreadThatIsStillHeld) {
    Work first;
    CThread thread;
    ASSERT_TRUE(StartWork(thread, first, kJoinable));
    const pthread_t forgotten = thread.Id();
    ASSERT_TRUE(thread.Start(ReturnArgument, nullptr, 0, false, 0, nullptr, kJoinable));
    EXPECT_FALSE(first.HasEnded());
    EXPECT_NE(thread.Id(), forgotten);
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
    first.LetGo();
    EXPECT_EQ(pthread_join(forgotten, nullptr), 0);
}

TEST(ThreadStart, KillsAThreadThatIsStillHeldIfToldAtConstruction) {
    const TraceCapture trace{5};
    Work first;
    Work second;
    CThread thread{true};
    ASSERT_TRUE(StartWork(thread, first, kDetached));
    ASSERT_TRUE(first.AwaitBegin());
    const std::string number = Number(thread.Id());
    ASSERT_TRUE(StartWork(thread, second, kJoinable));
    ASSERT_TRUE(first.AwaitEnd());
    EXPECT_TRUE(first.WasCancelled());
    second.LetGo();
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
    EXPECT_THAT(trace.LinesWith("Start a thread"),
                testing::Each(testing::EndsWith("KillAliveThread=1")));
    EXPECT_THAT(
        trace.LinesWith("Kill:"),
        ElementsAre("CThread::Kill: Try to kill the Thread = 0x00000000",
                    "CThread::Kill: Thread = 0x000000000 doesn't exist !",
                    "CThread::Kill: Try to kill the Thread = 0x" + number,
                    "CThread::Kill: Try to kill a non-joinable Thread = 0x0" + number,
                    "CThread::Kill: Killing a non-joinable thread 0x" + number,
                    "CThread::Kill: a non-joinable thread 0x" + number + " cancel invoked"));
}

TEST(ThreadStart, LetsTheThreadInheritTheSignalMask) {
    sigset_t blocked{};
    sigset_t former{};
    sigemptyset(&blocked);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM}) sigaddset(&blocked, signal);
    ASSERT_EQ(pthread_sigmask(SIG_SETMASK, &blocked, &former), 0);
    sigset_t seen{};
    std::function<void()> look = [&seen] { pthread_sigmask(SIG_SETMASK, nullptr, &seen); };
    CThread thread;
    EXPECT_TRUE(thread.Start(Call, &look, 0, false, 0, nullptr, kJoinable));
    EXPECT_EQ(pthread_sigmask(SIG_SETMASK, &former, nullptr), 0);
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
    for (int signal = 1; signal < 32; ++signal) {
        EXPECT_EQ(sigismember(&seen, signal), sigismember(&blocked, signal)) << signal;
    }
}

// WaitForTermination

TEST(ThreadWaitForTermination, IsTrueWithoutAThread) {
    const TraceCapture trace{1};
    CThread thread;
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
    EXPECT_TRUE(thread.WaitForTermination(1000));
    const std::string line = "CThread::WaitForTermination: Thread = 0x000000000 doesn't exist !";
    EXPECT_THAT(trace.Lines(), ElementsAre(line, line));
}

TEST(ThreadWaitForTermination, LetsGoOfTheThread) {
    CThread thread;
    ASSERT_TRUE(thread.Start(ReturnArgument, nullptr, 0, false, 0, nullptr, kJoinable));
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
    EXPECT_EQ(thread.Id(), pthread_t{0});
}

TEST(ThreadWaitForTermination, IgnoresTheLimitBehindAWarning) {
    const TraceCapture trace{1};
    Work work;
    CThread thread;
    ASSERT_TRUE(StartWork(thread, work, kJoinable));
    const std::string number = Number(thread.Id());
    std::function<void()> letGo = [&work] {
        const auto begin = std::chrono::steady_clock::now();
        EXPECT_TRUE(HostProcess::WaitUntil([begin] {  // for longer than the limit
            return std::chrono::steady_clock::now() - begin > std::chrono::milliseconds{5};
        }));
        work.LetGo();
    };
    CThread other;
    {
        FaultOf<&::pthread_join> join;
        join.Answer([&](pthread_t id, void** result) {
            EXPECT_TRUE(other.Start(Call, &letGo, 0, false, 0, nullptr, kJoinable));
            return LibcFault::Real<&::pthread_join>(id, result);
        });
        EXPECT_TRUE(thread.WaitForTermination(1));
    }
    EXPECT_TRUE(work.HasEnded());
    EXPECT_TRUE(other.WaitForTermination(kWaitForever));
    EXPECT_THAT(trace.LinesWith(number),
                ElementsAre("CThread::WaitForTermination: WARNING: can't wait for Thread = 0x" +
                                number + " termination with timeout",
                            "CThread::WaitForTermination: a joinable Thread = 0x" + number +
                                " has terminated, pstat=(nil)"));
}

TEST(ThreadWaitForTermination, IsFalseForADetachedThreadWhichGoesOn) {
    Work work;
    CThread thread;
    ASSERT_TRUE(StartWork(thread, work, kDetached));
    const std::string number = Number(thread.Id());
    const std::string line =
        "CThread::WaitForTermination: WARNING: Can't wait for detached thread 0x" + number;
    {
        const TraceCapture trace{1};
        EXPECT_FALSE(thread.WaitForTermination(kWaitForever));
        EXPECT_FALSE(thread.WaitForTermination(1000));
        EXPECT_THAT(trace.Lines(),
                    ElementsAre(line,
                                "CThread::WaitForTermination: WARNING: can't wait for Thread = 0x" +
                                    number + " termination with timeout",
                                line));
    }
    EXPECT_FALSE(work.HasEnded());
    EXPECT_EQ(Number(thread.Id()), number);
    work.LetGo();
    EXPECT_TRUE(work.AwaitEnd());
    EXPECT_FALSE(work.WasCancelled());
}

TEST(ThreadWaitForTermination, IsFalseIfTheJoinFailsAndKeepsTheThread) {
    const TraceCapture trace{1};
    CThread thread;
    ASSERT_TRUE(thread.Start(ReturnArgument, nullptr, 0, false, 0, nullptr, kJoinable));
    const std::string number = Number(thread.Id());
    {
        FaultOf<&::pthread_join> fault;
        fault.Fail(EDEADLK);
        EXPECT_FALSE(thread.WaitForTermination(kWaitForever));
    }
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CThread::WaitForTermination: ERROR ! ThreadJoin failed, Thread = 0x" +
                            number + ", Err = 0x00000023"));
    EXPECT_EQ(Number(thread.Id()), number);
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
}

TEST(ThreadWaitForTermination, WarnsAlsoOfALimitOfZero) {
    const TraceCapture trace{1};
    CThread thread;
    int argument = 0;
    ASSERT_TRUE(thread.Start(ReturnArgument, &argument, 0, false, 0, nullptr, kJoinable));
    const std::string number = Number(thread.Id());
    EXPECT_TRUE(thread.WaitForTermination(0));
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CThread::WaitForTermination: WARNING: can't wait for Thread = 0x" +
                                number + " termination with timeout",
                            "CThread::WaitForTermination: a joinable Thread = 0x" + number +
                                " has terminated, pstat=" + Shown(&argument)));
}

TEST(ThreadWaitForTermination, CanBeRepeatedByTheNextCallerIfItIsCancelled) {
    if (kThreadSanitizer) GTEST_SKIP() << "the thread sanitizer does not bear a cancelled join";
    Work work;
    CThread thread;
    ASSERT_TRUE(StartWork(thread, work, kJoinable));
    Victim victim{[&thread] { (void)thread.WaitForTermination(kWaitForever); }};
    victim.Cancel();
    EXPECT_TRUE(victim.EndedByCancellation());
    work.LetGo();
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
}

// Kill

TEST(ThreadKill, ShowsWhatAJoinableThreadReturned) {
    const TraceCapture trace{1};
    CThread thread;
    int argument = 0;
    ASSERT_TRUE(thread.Start(ReturnArgument, &argument, 0, false, 0, nullptr, kJoinable));
    const std::string number = Number(thread.Id());
    EXPECT_TRUE(thread.Kill());
    EXPECT_THAT(trace.LinesWith("pstat"),
                ElementsAre("CThread::Kill: a joinable Thread = 0x" + number +
                            " has terminated, pstat=" + Shown(&argument)));
}

TEST(ThreadKill, IsFalseWithoutAThread) {
    const TraceCapture trace{1};
    CThread thread;
    EXPECT_FALSE(thread.Kill());
    EXPECT_THAT(trace.Lines(), ElementsAre("CThread::Kill: Try to kill the Thread = 0x00000000",
                                           "CThread::Kill: Thread = 0x000000000 doesn't exist !"));
}

TEST(ThreadKill, WaitsForAJoinableThreadUntilItEndsByItself) {
    const TraceCapture trace{1};
    Work work;
    CThread thread;
    ASSERT_TRUE(StartWork(thread, work, kJoinable));
    const std::string number = Number(thread.Id());
    {
        FaultOf<&::pthread_join> join;
        join.Answer([&work](pthread_t id, void** result) {
            EXPECT_FALSE(work.HasEnded());
            work.LetGo();
            return LibcFault::Real<&::pthread_join>(id, result);
        });
        EXPECT_TRUE(thread.Kill());
    }
    EXPECT_FALSE(work.WasCancelled());
    EXPECT_EQ(thread.Id(), pthread_t{0});
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CThread::Kill: Try to kill the Thread = 0x" + number,
                            "CThread::Kill: Try to join a joinable Thread = 0x" + number,
                            "CThread::Kill: a joinable Thread = 0x" + number +
                                " has terminated, pstat=(nil)"));
}

TEST(ThreadKill, IsFalseInTheThreadItselfAndKeepsIt) {
    if (kThreadSanitizer) GTEST_SKIP() << "it takes a join that fails for the end of the thread";
    const TraceCapture trace{1};
    CThread thread;
    CEvent started{false, true, nullptr};
    std::function<void()> kill = [&] {
        EXPECT_EQ(started.Wait(kWaitForever, false), kWaitSignalled);
        EXPECT_FALSE(thread.Kill());
    };
    ASSERT_TRUE(thread.Start(Call, &kill, 0, false, 0, nullptr, kJoinable));
    const std::string number = Number(thread.Id());
    const pthread_t id = thread.Id();
    EXPECT_TRUE(started.Set());
    EXPECT_EQ(pthread_join(id, nullptr), 0);
    EXPECT_EQ(thread.Id(), id);
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CThread::Kill: Try to kill the Thread = 0x" + number,
                            "CThread::Kill: Try to join a joinable Thread = 0x" + number,
                            "CThread::Kill: ERROR ! ThreadJoin failed, Thread = 0x" + number +
                                ", Err = 0x00000023"));
}

TEST(ThreadKill, CancelsADetachedThread) {
    for (const unsigned level : {1U, 2U}) {
        Work work;
        CThread thread;
        ASSERT_TRUE(StartWork(thread, work, kDetached));
        ASSERT_TRUE(work.AwaitBegin());
        const std::string number = Number(thread.Id());
        const TraceCapture trace{level};
        EXPECT_TRUE(thread.Kill());
        EXPECT_EQ(thread.Id(), pthread_t{0});
        EXPECT_TRUE(work.AwaitEnd());
        EXPECT_TRUE(work.WasCancelled());
        Lines lines{"CThread::Kill: Try to kill the Thread = 0x" + number,
                    "CThread::Kill: Try to kill a non-joinable Thread = 0x0" + number};
        if (level == 2) {
            lines.push_back("CThread::Kill: Killing a non-joinable thread 0x" + number);
            lines.push_back("CThread::Kill: a non-joinable thread 0x" + number + " cancel invoked");
        }
        EXPECT_EQ(trace.Lines(), lines);
    }
}

TEST(ThreadKill, OfADetachedThreadThatHasEndedOnlyLetsGo) {
    Work work;
    CThread thread;
    ASSERT_TRUE(StartWork(thread, work, kDetached));
    const pthread_t id = thread.Id();
    const std::string number = Number(id);
    work.LetGo();
    ASSERT_TRUE(work.AwaitEnd());
    EXPECT_EQ(thread.Id(), id);  // stale until now
    const TraceCapture trace{2};
    FaultOf<&::pthread_getschedparam> look;  // in case that its very last steps are to come
    look.Always([](pthread_t, int*, sched_param*) { return ESRCH; });
    EXPECT_TRUE(thread.Kill());
    EXPECT_EQ(thread.Id(), pthread_t{0});
    EXPECT_THAT(trace.Lines(),
                ElementsAre("CThread::Kill: Try to kill the Thread = 0x" + number,
                            "CThread::Kill: Try to kill a non-joinable Thread = 0x0" + number));
}

TEST(ThreadKill, LetsGoOfADetachedThreadThatTheSystemDoesNotKnow) {
    Work work;
    CThread thread;
    ASSERT_TRUE(StartWork(thread, work, kDetached));
    const std::string number = Number(thread.Id());
    {
        const TraceCapture trace{2};
        const FaultOf<&::pthread_cancel> cancel;
        FaultOf<&::pthread_getschedparam> look;
        look.Fail(ESRCH);
        EXPECT_TRUE(thread.Kill());
        EXPECT_EQ(cancel.Calls(), 0);
        EXPECT_THAT(trace.Lines(),
                    ElementsAre("CThread::Kill: Try to kill the Thread = 0x" + number,
                                "CThread::Kill: Try to kill a non-joinable Thread = 0x0" + number));
    }
    EXPECT_EQ(thread.Id(), pthread_t{0});
    work.LetGo();
    EXPECT_TRUE(work.AwaitEnd());
}

TEST(ThreadKill, IsFalseIfADetachedThreadCannotBeCancelledAndLetsGo) {
    Work work;
    CThread thread;
    ASSERT_TRUE(StartWork(thread, work, kDetached));
    const std::string number = Number(thread.Id());
    {
        const TraceCapture trace{2};
        FaultOf<&::pthread_cancel> fault;
        fault.Fail(ESRCH);
        EXPECT_FALSE(thread.Kill());
        EXPECT_THAT(trace.LinesWith("unable"),
                    ElementsAre("CThread::Kill: unable to cancel a non-joinable thread 0x" +
                                number + " (err = 0x00000003)"));
    }
    EXPECT_EQ(thread.Id(), pthread_t{0});
    work.LetGo();
    EXPECT_TRUE(work.AwaitEnd());
    EXPECT_FALSE(work.WasCancelled());
}

TEST(ThreadKill, TellsAtLevelTwoThatADetachedThreadCannotBeCancelled) {
    Work work;
    CThread thread;
    ASSERT_TRUE(StartWork(thread, work, kDetached));
    {
        const TraceCapture trace{1};
        FaultOf<&::pthread_cancel> fault;
        fault.Fail(ESRCH);
        EXPECT_FALSE(thread.Kill());
        EXPECT_TRUE(trace.LinesWith("unable").empty());
    }
    work.LetGo();
    EXPECT_TRUE(work.AwaitEnd());
}

TEST(ThreadStart, LetsTheOthersRunOnce) {
    CThread thread;
    {
        const FaultOf<&::sched_yield> yield;
        ASSERT_TRUE(thread.Start(ReturnArgument, nullptr, 0, false, 0, nullptr, kJoinable));
        EXPECT_EQ(yield.Calls(), 1);
    }
    EXPECT_TRUE(thread.WaitForTermination(kWaitForever));
}

TEST(ThreadKill, IsFalseForADetachedThreadThatAFailedStartCalledJoinable) {
    Work work;
    CThread thread;
    ASSERT_TRUE(StartWork(thread, work, kDetached));
    {
        FaultOf<&::pthread_attr_init> fault;
        fault.Fail(ENOMEM);
        EXPECT_FALSE(thread.Start(ReturnArgument, nullptr, 0, false, 0, nullptr, kJoinable));
    }
    const FaultOf<&::pthread_join> join;
    const TraceCapture trace{1};
    EXPECT_FALSE(thread.Kill());
    EXPECT_EQ(join.Calls(), 0);
    EXPECT_THAT(trace.LinesWith("ERROR"),
                ElementsAre("CThread::Kill: ERROR ! ThreadJoin failed, Thread = 0x" +
                            Number(thread.Id()) + ", Err = 0x00000016"));
    work.LetGo();
    EXPECT_TRUE(work.AwaitEnd());
}

TEST(ThreadTrace, DoesNotChangeTheResults) {
    ASSERT_FALSE(Debug.IsEnabled());
    CThread thread;
    EXPECT_FALSE(thread.Kill());
    EXPECT_TRUE(thread.WaitForTermination(0));
    EXPECT_TRUE(thread.Start(ReturnArgument, nullptr, 0, false, 0, nullptr, kJoinable));
    EXPECT_TRUE(thread.Kill());
}
