#include "service/file_lock.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/leak_census.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

/// The fields of a lock as they stand in memory.
struct FieldImage {
    int32_t fd;
    uint8_t isOpen;
    uint8_t isLocked;
    uint8_t isDestroyed;
    char path[261];
    uint32_t mode;
};
static_assert(offsetof(FieldImage, mode) == 268 && sizeof(FieldImage) == 272);
static_assert(sizeof(CFileLock) == sizeof(FieldImage) + sizeof(std::string));

FieldImage FieldsAt(const void* object) {
    FieldImage image;
    memcpy(&image, object, sizeof image);
    return image;
}

std::string_view NameAt(const void* object) {
    const void* const name = static_cast<const std::byte*>(object) + sizeof(FieldImage);
    return *static_cast<const std::string*>(name);
}

void ExpectNotHeld(const CFileLock& lock) {
    const FieldImage fields = FieldsAt(&lock);
    EXPECT_EQ(fields.fd, -1);
    EXPECT_EQ(fields.isOpen, 0);
    EXPECT_EQ(fields.isLocked, 0);
    EXPECT_EQ(fields.isDestroyed, 0);
    for (const char byte : fields.path) EXPECT_EQ(byte, 0);
    EXPECT_EQ(fields.mode, 0U);
    EXPECT_EQ(NameAt(&lock), "");
}

/// A folder of its own for each test, with the path of a lock file in it.
class FileLock : public testing::Test {
  protected:
    FileLock() {
        std::string pattern = (fs::temp_directory_path() / "zorn-lock.XXXXXX").string();
        m_Folder = mkdtemp(pattern.data());
        m_Path = (m_Folder / "thing.lock").string();
    }
    ~FileLock() override { fs::remove_all(m_Folder); }

    [[nodiscard]] bool Take(CFileLock& lock, unsigned timeoutMs = 0) const {
        return lock.Take(m_Path.c_str(), timeoutMs);
    }
    [[nodiscard]] bool FileExists() const { return fs::exists(fs::symlink_status(m_Path)); }
    void MakeFile() const { std::ofstream{m_Path} << "text"; }

    [[nodiscard]] std::string ReleaseLine() const {
        return "CFileLock           :   release file lock using file " + m_Path;
    }
    [[nodiscard]] std::string HeldLine(unsigned timeoutMs) const {
        return "CFileLock           : ## ERROR! Another one holds " + m_Path + ", also after " +
               std::to_string(timeoutMs) + " ms";
    }

    fs::path m_Folder;
    std::string m_Path;
};

/// Another process that holds a lock from construction to `End`.
class HoldingProcess {
  public:
    explicit HoldingProcess(const std::string& path) {
        EXPECT_EQ(pipe2(m_ToChild, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(m_ToParent, O_CLOEXEC), 0);
        m_Child = fork();
        if (m_Child == 0) Hold(path.c_str());
        CloseEnds(m_ToChild[0], m_ToParent[1]);
        char taken = 0;
        EXPECT_EQ(read(m_ToParent[0], &taken, 1), 1);
        EXPECT_EQ(taken, 1);
    }
    ~HoldingProcess() {
        if (m_Child > 0) End();
    }

    /// Lets the process destroy its lock and waits for its end.
    void End() {
        CloseEnds(m_ToChild[1], m_ToParent[0]);
        int status = 0;
        EXPECT_EQ(waitpid(m_Child, &status, 0), m_Child);
        EXPECT_EQ(status, 0);
        m_Child = -1;
    }

  private:
    [[noreturn]] void Hold(const char* path) const {
        CloseEnds(m_ToChild[1], m_ToParent[0]);
        bool taken = false;
        {
            CFileLock lock;
            taken = lock.Take(path, 0);
            (void)!write(m_ToParent[1], &taken, 1);
            char end = 0;
            (void)!read(m_ToChild[0], &end, 1);
        }
        _exit(taken ? 0 : 1);
    }

    static void CloseEnds(int first, int second) {
        close(first);
        close(second);
    }

    int m_ToChild[2];
    int m_ToParent[2];
    pid_t m_Child;
};

// --- Holding and letting go ----------------------------------------------------------------------

TEST_F(FileLock, BeginsInTheNotHeldState) {
    const CFileLock lock;
    ExpectNotHeld(lock);
}

TEST_F(FileLock, NeverTakenDoesNothingVisibleWhenItGoes) {
    MakeFile();
    FaultOf<&::fsync> sync;
    FaultOf<&::flock> flock;
    FaultOf<&::unlink> unlink;
    TraceCapture trace{6};
    { const CFileLock lock; }
    EXPECT_THAT(trace.Lines(), IsEmpty());
    EXPECT_TRUE(FileExists());
    EXPECT_EQ(sync.Calls() + flock.Calls() + unlink.Calls(), 0);
}

TEST_F(FileLock, FillsItsFieldsWhenItIsTaken) {
    CFileLock lock;
    ASSERT_TRUE(Take(lock));
    const FieldImage fields = FieldsAt(&lock);
    EXPECT_GE(fields.fd, 0);
    EXPECT_EQ(fields.isOpen, 1);
    EXPECT_EQ(fields.isLocked, 1);
    EXPECT_EQ(fields.isDestroyed, 0);
    EXPECT_STREQ(fields.path, m_Path.c_str());
    EXPECT_EQ(fields.mode, 0600U);
    EXPECT_EQ(NameAt(&lock), "thing.lock");
}

TEST_F(FileLock, MakesTheFileForItsOwnerAloneAndClosesItOnExec) {
    CFileLock lock;
    TraceCapture trace{6};
    ASSERT_TRUE(Take(lock));
    struct stat status {};
    ASSERT_EQ(stat(m_Path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode, mode_t{S_IFREG | 0600});
    EXPECT_EQ(fcntl(FieldsAt(&lock).fd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(FieldsAt(&lock).fd, F_GETFL) & O_ACCMODE, O_RDWR);
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST_F(FileLock, TakesAFileThatIsThereAndLeavesItsContent) {
    MakeFile();
    CFileLock lock;
    ASSERT_TRUE(Take(lock));
    EXPECT_EQ(fs::file_size(m_Path), 4U);
}

TEST_F(FileLock, RemovesTheFileWithOneLineWhenItGoes) {
    TraceCapture trace{5};
    {
        CFileLock lock;
        ASSERT_TRUE(Take(lock));
        EXPECT_THAT(trace.Lines(), IsEmpty());
    }
    EXPECT_FALSE(FileExists());
    EXPECT_EQ(trace.Lines(), (Lines{ReleaseLine()}));
}

TEST_F(FileLock, TracesItsReleaseAtLevel5Only) {
    TraceCapture trace{4};
    {
        CFileLock lock;
        ASSERT_TRUE(Take(lock));
    }
    EXPECT_FALSE(FileExists());
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST_F(FileLock, GoesStepByStep) {
    TraceCapture trace{5};
    std::vector<std::string> steps;
    FaultOf<&::fsync> sync;
    FaultOf<&::flock> flock;
    FaultOf<&::close> close;
    FaultOf<&::unlink> unlink;
    {
        CFileLock lock;
        ASSERT_TRUE(Take(lock));
        const int held = FieldsAt(&lock).fd;
        sync.Answer([&, held](int fd) {
            EXPECT_EQ(fd, held);
            EXPECT_THAT(trace.Lines(), ElementsAre(ReleaseLine()));
            steps.emplace_back("fsync");
            return 0;
        });
        flock.Answer([&, held](int fd, int operation) {
            EXPECT_EQ(fd, held);
            EXPECT_EQ(operation, LOCK_UN);
            steps.emplace_back("flock");
            return LibcFault::Real<&::flock>(fd, operation);
        });
        close.Answer([&, held](int fd) {
            EXPECT_EQ(fd, held);
            steps.emplace_back("close");
            return LibcFault::Real<&::close>(fd);
        });
        unlink.Answer([&](const char* path) {
            steps.emplace_back(std::string{"unlink "} + path);
            return LibcFault::Real<&::unlink>(path);
        });
    }
    EXPECT_THAT(steps, ElementsAre("fsync", "flock", "close", "unlink " + m_Path));
}

TEST_F(FileLock, IgnoresWhatFailsAsItGoes) {
    FaultOf<&::fsync> sync;
    FaultOf<&::flock> flock;
    FaultOf<&::close> close;
    FaultOf<&::unlink> unlink;
    TraceCapture trace{5};
    {
        CFileLock lock;
        ASSERT_TRUE(Take(lock));
        sync.Fail(EIO);
        flock.Fail(ENOLCK);
        close.Answer([](int fd) {
            EXPECT_EQ(LibcFault::Real<&::close>(fd), 0);
            errno = EIO;
            return -1;
        });
        unlink.Fail(EROFS);
    }
    EXPECT_EQ(trace.Lines(), (Lines{ReleaseLine()}));
    EXPECT_TRUE(FileExists());
    CFileLock next;
    EXPECT_TRUE(Take(next));
}

TEST_F(FileLock, LeavesItsMemoryMarkedAsDestroyed) {
    alignas(CFileLock) std::byte memory[sizeof(CFileLock)];
    auto* const lock = new (memory) CFileLock;
    ASSERT_TRUE(Take(*lock));
    lock->~CFileLock();
    const FieldImage fields = FieldsAt(memory);
    EXPECT_EQ(fields.fd, -1);
    EXPECT_EQ(fields.isOpen, 0);
    EXPECT_EQ(fields.isLocked, 0);
    EXPECT_EQ(fields.isDestroyed, 1);
}

// --- Taking --------------------------------------------------------------------------------------

TEST_F(FileLock, IsRefusedWhileAnotherObjectHoldsIt) {
    CFileLock holder;
    ASSERT_TRUE(Take(holder));
    CFileLock lock;
    TraceCapture trace{1};
    EXPECT_FALSE(Take(lock));
    EXPECT_EQ(trace.Lines(), (Lines{HeldLine(0)}));
    ExpectNotHeld(lock);
    EXPECT_TRUE(FileExists());
}

TEST_F(FileLock, IsRefusedWhileAnotherProcessHoldsItAndGivenAfterwards) {
    HoldingProcess holder{m_Path};
    CFileLock lock;
    EXPECT_FALSE(Take(lock));
    holder.End();
    EXPECT_FALSE(FileExists());
    EXPECT_TRUE(Take(lock));
    EXPECT_TRUE(FileExists());
}

TEST_F(FileLock, IsTriedOnceWithALimitOfZero) {
    CFileLock holder;
    ASSERT_TRUE(Take(holder));
    FaultOf<&::nanosleep> sleep;
    FaultOf<&::flock> flock;
    CFileLock lock;
    EXPECT_FALSE(Take(lock, 0));
    EXPECT_EQ(sleep.Calls(), 0);
    EXPECT_EQ(flock.Calls(), 1);
}

/// CLOCK_MONOTONIC in the hands of the test; `nanosleep` moves it.
class SteadyClock {
  public:
    SteadyClock() {
        m_Clock.Only([](clockid_t clock, timespec*) { return clock == CLOCK_MONOTONIC; });
        m_Clock.Always([this](clockid_t, timespec* now) {
            *now = {m_Now / kSecond, m_Now % kSecond};
            return 0;
        });
        m_Sleep.Always([this](const timespec* span, timespec*) {
            m_Sleeps.push_back(span->tv_sec * kSecond + span->tv_nsec);
            m_Now += m_Sleeps.back();
            if (onSleep) onSleep();
            return 0;
        });
    }

    std::function<void()> onSleep;
    [[nodiscard]] const std::vector<int64_t>& Sleeps() const { return m_Sleeps; }

  private:
    static constexpr int64_t kSecond = 1'000'000'000;
    int64_t m_Now = 5 * kSecond + 999'999'999;  // so that the fraction overflows at once
    std::vector<int64_t> m_Sleeps;
    FaultOf<&::clock_gettime> m_Clock;
    FaultOf<&::nanosleep> m_Sleep;
};

TEST_F(FileLock, IsWaitedForUpToTheLimitAndNotBeyondIt) {
    CFileLock holder;
    ASSERT_TRUE(Take(holder));
    CFileLock lock;
    TraceCapture trace{1};
    {
        SteadyClock clock;
        FaultOf<&::flock> flock;
        EXPECT_FALSE(Take(lock, 25));
        EXPECT_THAT(clock.Sleeps(), ElementsAre(10'000'000, 10'000'000, 5'000'000));
        EXPECT_EQ(flock.Calls(), 4);
    }
    EXPECT_EQ(trace.Lines(), (Lines{HeldLine(25)}));
    ExpectNotHeld(lock);
}

TEST_F(FileLock, IsTakenWithinTheLimitWhenTheHolderGoes) {
    HoldingProcess holder{m_Path};
    CFileLock lock;
    TraceCapture trace{1};
    SteadyClock clock;
    clock.onSleep = [&] {
        if (clock.Sleeps().size() == 2) holder.End();
    };
    EXPECT_TRUE(Take(lock, 25));
    EXPECT_EQ(clock.Sleeps().size(), 2U);
    EXPECT_TRUE(FileExists());
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST_F(FileLock, IsWaitedForWithoutLimitOnDemand) {
    HoldingProcess holder{m_Path};
    CFileLock lock;
    SteadyClock clock;
    clock.onSleep = [&] {
        if (clock.Sleeps().size() == 1000) holder.End();
    };
    EXPECT_TRUE(Take(lock, CFileLock::kNoTimeout));
    EXPECT_EQ(clock.Sleeps().size(), 1000U);
}

TEST_F(FileLock, IsTriedAgainAfterInterruptions) {
    CFileLock lock;
    FaultOf<&::open> open;
    FaultOf<&::flock> flock;
    open.Fail(EINTR, 2);
    flock.Fail(EINTR, 3);
    EXPECT_TRUE(Take(lock, 0));
    EXPECT_EQ(open.Calls(), 3);
    EXPECT_EQ(flock.Calls(), 4);
}

TEST_F(FileLock, WaitsOnWhenASignalCutsASleepShort) {
    CFileLock holder;
    ASSERT_TRUE(Take(holder));
    FaultOf<&::clock_gettime> clock;
    int64_t now = 0;
    clock.Only([](clockid_t id, timespec*) { return id == CLOCK_MONOTONIC; });
    clock.Always([&](clockid_t, timespec* time) {
        *time = {0, now};
        return 0;
    });
    FaultOf<&::nanosleep> sleep;
    sleep.Always([&](const timespec*, timespec*) {
        now += 4'000'000;
        errno = EINTR;
        return -1;
    });
    CFileLock lock;
    EXPECT_FALSE(Take(lock, 10));
    EXPECT_EQ(sleep.Calls(), 3);
}

TEST_F(FileLock, IsNotTakenTwiceByOneObject) {
    CFileLock lock;
    ASSERT_TRUE(Take(lock));
    const FieldImage before = FieldsAt(&lock);
    TraceCapture trace{1};
    EXPECT_FALSE(lock.Take((m_Folder / "other.lock").c_str(), 0));
    EXPECT_EQ(trace.Lines(),
              (Lines{"CFileLock           : ## ERROR! Already holding lock file " + m_Path}));
    const FieldImage after = FieldsAt(&lock);
    EXPECT_EQ(memcmp(&before, &after, offsetof(FieldImage, mode)), 0);
    EXPECT_FALSE(fs::exists(m_Folder / "other.lock"));
}

TEST_F(FileLock, TakesNoRelativeAndNoEmptyPath) {
    for (const std::string path : {"thing.lock", "./thing.lock", ""}) {
        CFileLock lock;
        TraceCapture trace{1};
        EXPECT_FALSE(lock.Take(path.c_str(), 0));
        EXPECT_EQ(trace.Lines(),
                  (Lines{"CFileLock           : ## ERROR! No absolute path of at most "
                         "260 characters: " +
                         path}));
        ExpectNotHeld(lock);
    }
}

TEST_F(FileLock, TakesPathsOfUpTo260Characters) {
    fs::path folder = m_Folder / std::string(100, 'a');
    fs::create_directory(folder);
    const std::string stem = folder.string() + "/";
    const std::string longest = stem + std::string(260 - stem.size(), 'b');
    {
        CFileLock lock;
        EXPECT_TRUE(lock.Take(longest.c_str(), 0));
        EXPECT_EQ(FieldsAt(&lock).path, longest);
        EXPECT_TRUE(fs::exists(longest));
    }
    EXPECT_FALSE(fs::exists(longest));
    const std::string tooLong = longest + "b";
    CFileLock lock;
    TraceCapture trace{1};
    EXPECT_FALSE(lock.Take(tooLong.c_str(), 0));
    EXPECT_EQ(
        trace.Lines(),
        (Lines{"CFileLock           : ## ERROR! No absolute path of at most 260 characters: " +
               tooLong}));
    EXPECT_FALSE(fs::exists(tooLong));
    ExpectNotHeld(lock);
}

TEST_F(FileLock, TakesNoLink) {
    fs::create_symlink(m_Folder / "target", m_Path);
    CFileLock lock;
    TraceCapture trace{1};
    EXPECT_FALSE(Take(lock));
    EXPECT_EQ(trace.Lines(), (Lines{"CFileLock           : ## ERROR! Cannot open lock file " +
                                    m_Path + " (errno=40: Too many levels of symbolic links)"}));
    EXPECT_FALSE(fs::exists(m_Folder / "target"));
    EXPECT_TRUE(FileExists());
    ExpectNotHeld(lock);
}

TEST_F(FileLock, TakesNoDirectory) {
    fs::create_directory(m_Path);
    CFileLock lock;
    TraceCapture trace{1};
    EXPECT_FALSE(Take(lock));
    EXPECT_EQ(trace.Lines(), (Lines{"CFileLock           : ## ERROR! Cannot open lock file " +
                                    m_Path + " (errno=21: Is a directory)"}));
    ExpectNotHeld(lock);
}

TEST_F(FileLock, TakesNoPipe) {
    ASSERT_EQ(mkfifo(m_Path.c_str(), 0600), 0);
    CFileLock lock;
    TraceCapture trace{1};
    EXPECT_FALSE(Take(lock));
    EXPECT_EQ(trace.Lines(), (Lines{"CFileLock           : ## ERROR! Lock file " + m_Path +
                                    " is not a regular file"}));
    EXPECT_TRUE(FileExists());
    ExpectNotHeld(lock);
}

TEST_F(FileLock, IsNotTakenInAMissingFolder) {
    CFileLock lock;
    TraceCapture trace{1};
    const std::string path = (m_Folder / "missing" / "lock").string();
    EXPECT_FALSE(lock.Take(path.c_str(), CFileLock::kNoTimeout));
    EXPECT_EQ(trace.Lines(), (Lines{"CFileLock           : ## ERROR! Cannot open lock file " +
                                    path + " (errno=2: No such file or directory)"}));
    ExpectNotHeld(lock);
}

TEST_F(FileLock, IsNotTakenWhenTheFileCannotBeLookedAt) {
    FaultOf<&::fstat> status;
    status.Fail(EIO);
    CFileLock lock;
    TraceCapture trace{1};
    EXPECT_FALSE(Take(lock));
    EXPECT_EQ(trace.Lines(), (Lines{"CFileLock           : ## ERROR! Cannot open lock file " +
                                    m_Path + " (errno=5: Input/output error)"}));
    ExpectNotHeld(lock);
}

TEST_F(FileLock, IsNotTakenWhereThereAreNoLocks) {
    FaultOf<&::flock> flock;
    flock.Fail(ENOLCK);
    CFileLock lock;
    TraceCapture trace{1};
    EXPECT_FALSE(Take(lock, CFileLock::kNoTimeout));
    EXPECT_EQ(trace.Lines(), (Lines{"CFileLock           : ## ERROR! Cannot lock " + m_Path +
                                    " (errno=37: No locks available)"}));
    ExpectNotHeld(lock);
}

TEST_F(FileLock, WritesNoLineWhileTheTraceIsDisabled) {
    CFileLock lock;
    TraceCapture trace{0};
    EXPECT_FALSE(lock.Take("relative", 0));
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

// --- The file is replaced meanwhile
// ---------------------------------------------------------------

TEST_F(FileLock, TakesTheNewFileWhenTheFormerHolderRemovesTheOneItHasOpened) {
    FaultOf<&::flock> flock;
    flock.Answer([this](int fd, int operation) {
        fs::remove(m_Path);
        return LibcFault::Real<&::flock>(fd, operation);
    });
    SteadyClock clock;
    CFileLock lock;
    EXPECT_TRUE(Take(lock, 1000));
    EXPECT_EQ(flock.Calls(), 2);
    EXPECT_EQ(clock.Sleeps().size(), 1U);
    struct stat named {};
    struct stat held {};
    ASSERT_EQ(stat(m_Path.c_str(), &named), 0);
    ASSERT_EQ(fstat(FieldsAt(&lock).fd, &held), 0);
    EXPECT_EQ(named.st_ino, held.st_ino);
}

TEST_F(FileLock, TakesTheNewFileWhenAnotherOneStandsInItsPlace) {
    FaultOf<&::flock> flock;
    flock.Answer([this](int fd, int operation) {
        std::ofstream{m_Folder / "new"} << "new";
        fs::rename(m_Folder / "new", m_Path);
        return LibcFault::Real<&::flock>(fd, operation);
    });
    SteadyClock clock;
    CFileLock lock;
    EXPECT_TRUE(Take(lock, 1000));
    EXPECT_EQ(flock.Calls(), 2);
    EXPECT_EQ(fs::file_size(m_Path), 3U);
}

TEST_F(FileLock, IsNotTakenOnAFileThatIsReplacedUntilTheTimeIsOver) {
    FaultOf<&::flock> flock;
    flock.Always([this](int fd, int operation) {
        fs::remove(m_Path);
        return LibcFault::Real<&::flock>(fd, operation);
    });
    SteadyClock clock;
    CFileLock lock;
    TraceCapture trace{1};
    EXPECT_FALSE(Take(lock, 15));
    EXPECT_EQ(flock.Calls(), 3);
    EXPECT_EQ(trace.Lines(), (Lines{HeldLine(15)}));
    ExpectNotHeld(lock);
}

// --- Cancellation --------------------------------------------------------------------------------

/// A thread that runs `body`.
class Thread {
  public:
    explicit Thread(std::function<void()> body) : m_Body(std::move(body)) {
        EXPECT_EQ(pthread_create(&m_Thread, nullptr, &Run, this), 0);
    }
    void Cancel() const { EXPECT_EQ(pthread_cancel(m_Thread), 0); }
    /// True if it was cancelled.
    [[nodiscard]] bool Join() const {
        void* result = nullptr;
        EXPECT_EQ(pthread_join(m_Thread, &result), 0);
        return result == PTHREAD_CANCELED;
    }

  private:
    static void* Run(void* self) {
        static_cast<Thread*>(self)->m_Body();
        return nullptr;
    }

    std::function<void()> m_Body;
    pthread_t m_Thread{};
};

TEST_F(FileLock, HoldsNothingAfterACancellationOfTheWait) {
    CFileLock holder;
    ASSERT_TRUE(Take(holder));
    std::atomic<bool> waits{false};
    FaultOf<&::nanosleep> sleep;
    sleep.Always([&](const timespec* span, timespec* left) {
        waits = true;
        return LibcFault::Real<&::nanosleep>(span, left);
    });
    const LeakCensus census;
    Thread thread{[this] {
        CFileLock lock;
        (void)Take(lock, CFileLock::kNoTimeout);
    }};
    while (!waits) sched_yield();
    thread.Cancel();
    EXPECT_TRUE(thread.Join());
    EXPECT_THAT(census.Leaks(), IsEmpty());
    EXPECT_TRUE(FileExists());
}

TEST_F(FileLock, IsTakenAndLetGoWholeByAThreadWithACancellationPending) {
    std::atomic<bool> taken{false};
    Thread thread{[&] {
        pthread_cancel(pthread_self());
        CFileLock lock;
        taken = Take(lock, CFileLock::kNoTimeout);
        pthread_testcancel();
    }};
    EXPECT_TRUE(thread.Join());
    EXPECT_TRUE(taken);
    EXPECT_FALSE(FileExists());
}

TEST_F(FileLock, GoesInPeaceInAThreadWithACancellationPending) {
    TraceCapture trace{5};  // whose file is a cancellation point too
    Thread thread{[this] {
        CFileLock lock;
        EXPECT_TRUE(Take(lock));
        pthread_cancel(pthread_self());
    }};
    EXPECT_FALSE(thread.Join());
    EXPECT_FALSE(FileExists());
    EXPECT_EQ(trace.Lines(), (Lines{ReleaseLine()}));
}

}  // namespace
