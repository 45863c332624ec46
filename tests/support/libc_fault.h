#pragma once

#include <atomic>
#include <cerrno>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "support/libc_functions.h"
#include "support/where.h"

// Functions of the C library that answer what a test tells them to. Every test program defines them
// itself (libc_functions.h lists them): each call goes through the program's own function, which
// calls the C library's, or the sanitizer's, unless a test has scripted answers.
//
// Covered are the calls that the program's own code makes by these names: the product's, the test's
// and GoogleTest's. Not covered are calls inside the C library (`popen` does not come by `fork`)
// and inside shared libraries (libstdc++'s streams and threads, modules); `clock_gettime` alone is
// covered there too, so that std::chrono follows a scripted clock.

namespace LibcFault {

/// The C library's (or sanitizer's) own function.
[[nodiscard]] void* FindReal(const char* name) noexcept;

template <auto F>
inline constinit std::atomic<void*> g_Real{nullptr};

template <auto F>
[[nodiscard]] auto RealPointer() noexcept {
    void* real = g_Real<F>.load(std::memory_order_acquire);
    if (real == nullptr) {
        real = FindReal(NameOf<F>::value);
        g_Real<F>.store(real, std::memory_order_release);
    }
    return reinterpret_cast<decltype(F)>(real);
}

/// Logs as `syslog` does, with a text that is taken as it stands.
void SendToSyslog(int priority, const char* text);

/// Calls the real function, whatever is scripted: `LibcFault::Real<&::open>("/x", O_RDONLY)`.
template <auto F, typename... A>
auto Real(A... arguments) {
    if constexpr (std::string_view{NameOf<F>::value} == "syslog") {
        return SendToSyslog(arguments...);
    } else {
        return RealPointer<F>()(arguments...);
    }
}

/// The calling thread calls the real functions while this lives. For test support code.
class Off {
  public:
    Off() noexcept { ++t_Depth; }
    ~Off() { --t_Depth; }
    Off(const Off&) = delete;
    Off& operator=(const Off&) = delete;
    [[nodiscard]] static bool IsOn() noexcept { return t_Depth != 0; }

  private:
    static constinit thread_local int t_Depth;
};

/// The result with which a function reports `error`.
template <auto F, typename R>
[[nodiscard]] R FailResult(int error) noexcept {
    if constexpr (kFailsBy<F> == FailsBy::kErrorNumber) {
        return error;
    } else if constexpr (std::string_view{NameOf<F>::value} == "mmap") {
        return MAP_FAILED;
    } else if constexpr (std::is_pointer_v<R>) {
        return nullptr;
    } else if constexpr (std::is_unsigned_v<R>) {
        return 0;
    } else {
        return -1;
    }
}

}  // namespace LibcFault

/// Scripts one function of the C library for a scope.
///
///     FaultOf<&::open> fault;
///     fault.PassThrough();                                 // the first call is a real one
///     fault.Fail(EACCES);                                  // the second gives -1 and that errno
///     fault.Answer([](const char*, int flags, mode_t) {    // the third gives what this gives
///         return LibcFault::Real<&::open>("/dev/null", flags);
///     });
///     EXPECT_FALSE(lock.Take());
///     EXPECT_EQ(fault.Calls(), 3);
///
/// Answers are used up in the order in which they were scripted, one a call; calls behind the last
/// one are real, or as `Always` says. An answer that was never asked for fails the test at the end
/// of the scope, at the line that scripted it. An answer may call the function again: that is a
/// real call. Functions without `errno` (pthread_*, sigwait) give the error as their result.
///
/// In a `FakeHost::Run`, script inside the body: a script from outside is a copy there.
///
/// REQUIRES: one of a function at a time; no thread is in the function at the end of the scope.
/// Thread-safety: scripted by one thread, asked by any.
template <auto F, typename Signature = typename LibcFault::SignatureOf<F>::Type>
class FaultOf;

namespace LibcFault {

template <auto F>
inline constinit std::atomic<FaultOf<F>*> g_Fault{nullptr};

/// What a function of the program does: asks the script if there is one.
template <auto F, typename... A>
auto Dispatch(A... arguments) {
    FaultOf<F>* fault = g_Fault<F>.load(std::memory_order_acquire);
    if (fault == nullptr || Off::IsOn()) return Real<F>(arguments...);
    return fault->Take(arguments...);
}

/// A lock that calls nothing that could be scripted.
class SpinLock {
  public:
    void lock() noexcept {
        while (m_Taken.test_and_set(std::memory_order_acquire))
            (void)RealPointer<&::sched_yield>()();
    }
    void unlock() noexcept { m_Taken.clear(std::memory_order_release); }

  private:
    std::atomic_flag m_Taken;
};

/// Fails the test at the place of a script that was not used up; the program if two overlap.
void ReportLeftOver(const char* function, const std::string& what, const Where& where);
[[noreturn]] void DieOfOverlap(const char* function);

}  // namespace LibcFault

template <auto F, typename R, typename... A>
class FaultOf<F, R(A...)> {
  public:
    using Function = std::function<R(A...)>;
    using Predicate = std::function<bool(A...)>;

    FaultOf() {
        FaultOf* none = nullptr;
        if (!LibcFault::g_Fault<F>.compare_exchange_strong(none, this)) {
            LibcFault::DieOfOverlap(LibcFault::NameOf<F>::value);
        }
    }
    ~FaultOf() {
        LibcFault::g_Fault<F>.store(nullptr, std::memory_order_release);
        for (const Step& step : m_Steps) {
            LibcFault::ReportLeftOver(LibcFault::NameOf<F>::value, step.what, step.where);
        }
    }
    FaultOf(const FaultOf&) = delete;
    FaultOf& operator=(const FaultOf&) = delete;

    /// The next `times` calls fail with that error number.
    void Fail(int error, int times = 1, Where where = Where::Here()) {
        Add("Fail", Failing(error), times, where);
    }

    /// The next `times` calls give that result and, unless `error` is 0, set `errno` to it.
    template <typename V>
    void Return(V value, int error = 0, int times = 1, Where where = Where::Here()) {
        Add("Return", Giving(value, error), times, where);
    }

    /// The next `times` calls are real ones.
    void PassThrough(int times = 1, Where where = Where::Here()) {
        Add("PassThrough", Function{}, times, where);
    }

    /// The next `times` calls are answered by `answer`, which sets `errno` itself.
    void Answer(Function answer, int times = 1, Where where = Where::Here()) {
        Add("Answer", std::move(answer), times, where);
    }

    /// Every call behind the scripted ones is answered so. Need not be asked for.
    void Always(Function answer) { Set(m_Always, std::move(answer)); }
    void AlwaysFail(int error) { Always(Failing(error)); }

    /// The script concerns only calls for whose arguments `concerned` is true: the others are real
    /// and not counted.
    ///
    ///     fault.Only([](const char* path, int, mode_t) { return path == kLockPath; });
    void Only(Predicate concerned) { Set(m_Only, std::move(concerned)); }

    /// How many calls there were that the script concerned.
    [[nodiscard]] int Calls() const { return m_Calls.load(std::memory_order_acquire); }

    /// For the program's own function.
    R Take(A... arguments) {
        if (t_Answering) return LibcFault::Real<F>(arguments...);
        const Answering guard;
        const Predicate concerned = Get(m_Only);
        if (concerned && !concerned(arguments...)) return LibcFault::Real<F>(arguments...);
        const Function answer = Next();
        return answer ? answer(arguments...) : LibcFault::Real<F>(arguments...);
    }

  private:
    struct Step {
        std::string what;
        Function answer;  ///< empty: a real call
        Where where;
    };

    /// While a thread is in an answer, its calls of the function are real.
    struct Answering {
        Answering() { t_Answering = true; }
        ~Answering() { t_Answering = false; }
    };

    static Function Failing(int error) {
        return [error](A...) {
            if (LibcFault::kFailsBy<F> == LibcFault::FailsBy::kErrno) errno = error;
            return LibcFault::FailResult<F, R>(error);
        };
    }

    template <typename V>
    static Function Giving(V value, int error) {
        return [value, error](A...) {
            if (error != 0) errno = error;
            return static_cast<R>(value);
        };
    }

    void Add(const char* what, Function answer, int times, const Where& where) {
        const std::lock_guard hold{m_Lock};
        for (int i = 0; i < times; ++i) m_Steps.push_back({what, answer, where});
    }

    template <typename T>
    void Set(T& field, T value) {
        const std::lock_guard hold{m_Lock};
        field = std::move(value);
    }

    template <typename T>
    T Get(const T& field) {
        const std::lock_guard hold{m_Lock};
        return field;
    }

    Function Next() {
        const std::lock_guard hold{m_Lock};
        ++m_Calls;
        if (m_Steps.empty()) return m_Always;
        Function answer = std::move(m_Steps.front().answer);
        m_Steps.pop_front();
        return answer;
    }

    static inline thread_local bool t_Answering = false;

    LibcFault::SpinLock m_Lock;  ///< guards what follows
    std::deque<Step> m_Steps;
    Function m_Always;
    Predicate m_Only;
    std::atomic<int> m_Calls{0};
};

/// Collects what is sent to syslog while it lives; nothing of it reaches the machine.
///
///     SyslogCapture log;
///     Debug.Init("zorn");
///     EXPECT_EQ(log.Lines(), (std::vector<std::string>{"ERROR: Error during opening ..."}));
///
/// Thread-safety: any thread may log meanwhile.
class SyslogCapture {
  public:
    struct Entry {
        int priority;
        std::string text;
        bool operator==(const Entry&) const = default;
    };

    SyslogCapture();

    [[nodiscard]] std::vector<Entry> Entries() const;
    /// The texts alone.
    [[nodiscard]] std::vector<std::string> Lines() const;
    /// What `openlog` was called with last; empty identity and 0 before.
    [[nodiscard]] std::string Identity() const;
    [[nodiscard]] int Options() const;
    [[nodiscard]] int Facility() const;

  private:
    mutable LibcFault::SpinLock m_Lock;
    std::vector<Entry> m_Entries;
    std::string m_Identity;
    int m_Options = 0;
    int m_Facility = 0;
    FaultOf<&::syslog> m_Syslog;
    FaultOf<&::openlog> m_Openlog;
};
