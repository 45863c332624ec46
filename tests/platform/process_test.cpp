#include "platform/process.h"

#include <dirent.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/libc_fault.h"

// ReadProcFileLine, GetProcessName

TEST(ReadProcFileLine, GivesTheFirstLineWithoutItsNewline) {
    FakeHost host;
    host.File("/proc/4711/two", "first line\nsecond\n");
    host.File("/proc/4711/open", std::string{"no\0end", 6});
    host.File("/proc/4711/blank", "\nsecond\n");
    host.File("/proc/4711/empty", "");
    host.Run([] {
        std::string line = "former";
        EXPECT_TRUE(ReadProcFileLine(4711, "two", line));
        EXPECT_EQ(line, "first line");
        EXPECT_TRUE(ReadProcFileLine(4711, "open", line));
        EXPECT_EQ(line, (std::string{"no\0end", 6}));
        EXPECT_TRUE(ReadProcFileLine(4711, "blank", line));
        EXPECT_EQ(line, "");
        line = "former";
        EXPECT_TRUE(ReadProcFileLine(4711, "empty", line));
        EXPECT_EQ(line, "");
    });
}

TEST(ReadProcFileLine, IsFalseIfTheFileCannotBeOpened) {
    FakeHost host;
    host.File("/proc/4711/comm", "zorn\n");
    host.Run([] {
        std::string line = "kept";
        EXPECT_FALSE(ReadProcFileLine(4711, "missing", line));
        EXPECT_FALSE(ReadProcFileLine(4712, "comm", line));
        EXPECT_FALSE(ReadProcFileLine(-1, "comm", line));
        FaultOf<&::fopen> fault;
        fault.Fail(EMFILE);
        EXPECT_FALSE(GetProcessName(line, 4711));
        EXPECT_EQ(line, "kept");
    });
}

// GetProcessPath, GetProcessNameAndPath

TEST(GetProcessPath, TellsTheRealKernelsAnswer) {
    std::string path;
    EXPECT_TRUE(GetProcessPath(path, getpid()));
    EXPECT_EQ(path, std::filesystem::read_symlink("/proc/self/exe").native());
}

TEST(GetProcessPath, TakesAsMuchAsItsBufferHolds) {
    FaultOf<&::readlink> fault;
    fault.Answer([](const char* path, char* buffer, size_t size) {
        EXPECT_STREQ(path, "/proc/4711/exe");
        EXPECT_EQ(size, 4096U);
        memset(buffer, 'x', size);
        return static_cast<ssize_t>(size);
    });
    std::string path;
    EXPECT_TRUE(GetProcessPath(path, 4711));
    EXPECT_EQ(path, std::string(4096, 'x'));
}

TEST(GetProcessPath, IsFalseWithoutAText) {
    FaultOf<&::readlink> fault;
    fault.Fail(EACCES);
    fault.Return(0);
    std::string path = "kept";
    EXPECT_FALSE(GetProcessPath(path, 4711));
    EXPECT_FALSE(GetProcessPath(path, 4711));
    EXPECT_EQ(path, "kept");
}

TEST(GetProcessNameAndPath, SetsEachAndIsTrueForBoth) {
    FakeHost host;
    host.File("/proc/1001/comm", "both\n");
    host.Link("/proc/1001/exe", "/usr/bin/both");
    host.File("/proc/1002/comm", "kthreadd\n");
    host.Link("/proc/1003/exe", "/usr/bin/path");
    host.Run([] {
        const struct {
            pid_t pid;
            bool result;
            const char* name;
            const char* path;
        } cases[] = {{1001, true, "both", "/usr/bin/both"},
                     {1002, false, "kthreadd", "kept"},
                     {1003, false, "kept", "/usr/bin/path"},
                     {1004, false, "kept", "kept"}};
        for (const auto& row : cases) {
            std::string name = "kept";
            std::string path = "kept";
            EXPECT_EQ(GetProcessNameAndPath(row.pid, name, path), row.result) << row.pid;
            EXPECT_EQ(name, row.name) << row.pid;
            EXPECT_EQ(path, row.path) << row.pid;
        }
    });
}

// FindProcessByName

TEST(FindProcessByName, ComparesTheShortNameExactly) {
    FakeHost host;
    host.File("/proc/100001/comm", "wanted2\n");
    host.File("/proc/100002/comm", "Wanted\n");
    host.File("/proc/100003/comm", "wanted\n");
    host.Directory("/proc/100004");  // ended meanwhile
    host.File("/proc/sys/comm", "no number\n");
    host.File("/proc/0/comm", "no number\n");
    host.File("/proc/-5/comm", "no number\n");
    host.Run([] {
        pid_t pid = 0;
        EXPECT_TRUE(FindProcessByName(&pid, "wanted"));
        EXPECT_EQ(pid, 100003);
        for (const char* name : {"want", "wanted ", "wanted\n", "", "no number", "WANTED"}) {
            pid = 0;
            EXPECT_FALSE(FindProcessByName(&pid, name)) << name;
            EXPECT_EQ(pid, -1) << name;
        }
    });
}

// As far as it is a number, the name of a folder counts as one.
TEST(FindProcessByName, TakesTheNumberAtTheFrontOfAName) {
    FakeHost host;
    host.Directory("/proc/100005x");
    host.File("/proc/100005/comm", "wanted\n");
    host.File("/proc/x100006/comm", "other\n");
    host.Run([] {
        // The folder of that number itself is not among the entries.
        FaultOf<&::readdir> entries;
        entries.Always([](DIR* folder) {
            dirent* entry = LibcFault::Real<&::readdir>(folder);
            while (entry != nullptr && std::string{entry->d_name} == "100005") {
                entry = LibcFault::Real<&::readdir>(folder);
            }
            return entry;
        });
        pid_t pid = 0;
        EXPECT_TRUE(FindProcessByName(&pid, "wanted"));
        EXPECT_EQ(pid, 100005);
        EXPECT_FALSE(FindProcessByName(&pid, "other"));
        EXPECT_EQ(pid, -1);
    });
}

TEST(FindProcessByName, TakesTheFirstMatch) {
    FakeHost host;
    for (const char* number : {"100001", "100002", "100003"}) {
        host.File(std::string{"/proc/"} + number + "/comm", "same\n");
    }
    host.Run([] {
        int first = 0;
        for (const auto& entry : std::filesystem::directory_iterator{"/proc"}) {
            first = atoi(entry.path().filename().c_str());
            if (first > 100000) break;
        }
        pid_t pid = 0;
        EXPECT_TRUE(FindProcessByName(&pid, "same"));
        EXPECT_EQ(pid, first);
    });
}

TEST(FindProcessByName, NeverFindsANameAboveFifteenCharacters) {
    FakeHost host;
    host.KernelProc();
    host.Run([] {
        ASSERT_EQ(prctl(PR_SET_NAME, "a-name-of-20-letters"), 0);
        pid_t pid = 0;
        EXPECT_FALSE(FindProcessByName(&pid, "a-name-of-20-letters"));
        EXPECT_EQ(pid, -1);
        EXPECT_TRUE(FindProcessByName(&pid, "a-name-of-20-le"));
        EXPECT_EQ(pid, getpid());
    });
}

TEST(FindProcessByName, IsFalseIfProcCannotBeOpened) {
    FaultOf<&::opendir> fault;
    fault.Fail(EACCES);
    pid_t pid = 0;
    EXPECT_FALSE(FindProcessByName(&pid, "zorn"));
    EXPECT_EQ(pid, -1);
}

// ReadProcStatusField, GetProcessMemory

TEST(ReadProcStatusField, GivesBytes) {
    FakeHost host;
    host.File("/proc/4711/status", "VmRSS:\t3 MB\n");
    host.Run([] {
        uint64_t value = 0;
        EXPECT_TRUE(ReadProcStatusField(4711, &value, "VmRSS:"));
        EXPECT_EQ(value, 3U << 20);
    });
}

TEST(ReadProcStatusField, LeavesTheValueOfAnAbsentKey) {
    FakeHost host;
    host.File("/proc/4711/status", "VmRSS:\t3 MB\n");
    host.Run([] {
        uint64_t value = 5000;
        EXPECT_FALSE(ReadProcStatusField(4711, &value, "VmHWM:"));
        EXPECT_FALSE(ReadProcStatusField(4712, &value, "VmRSS:"));
        EXPECT_EQ(value, 5000U);
    });
}

TEST(GetProcessMemory, ReadsBytesAndSubtractsTheLibraries) {
    FakeHost host;
    host.File("/proc/1001/status",
              "VmPeak:\t  90 kB\nVmSize:\t  80 kB\nVmLib:\t  30 kB\nVmSwap:\t  7 kB\n");
    host.File("/proc/1002/status", "VmPeak:\t  90 kB\nVmSize:\t  80 kB\n");
    host.File("/proc/1003/status", "VmPeak:\t  90 kB\nVmLib:\t  1 kB\n");
    host.File("/proc/1004/status", "VmSize:\t  80 kB\n");
    host.File("/proc/1005/status", "Name:\tkthreadd\n");
    host.Run([] {
        constexpr uint64_t kKiB = 1024;
        const struct {
            pid_t pid;
            bool result;
            uint64_t size, peak, swap, data;
        } cases[] = {{1001, true, 80 * kKiB, 90 * kKiB, 7 * kKiB, 50 * kKiB},
                     {1002, true, 80 * kKiB, 90 * kKiB, 0, 80 * kKiB},
                     {1003, false, 0, 90 * kKiB, 0, -kKiB},
                     {1004, false, 80 * kKiB, 0, 0, 80 * kKiB},
                     {1005, false, 0, 0, 0, 0},
                     {1006, false, 0, 0, 0, 0}};
        for (const auto& row : cases) {
            uint64_t size = 1, peak = 1, swap = 1, reserved = 1, data = 1;
            EXPECT_EQ(GetProcessMemory(row.pid, &size, &peak, &swap, &reserved, &data), row.result)
                << row.pid;
            EXPECT_EQ(size, row.size) << row.pid;
            EXPECT_EQ(peak, row.peak) << row.pid;
            EXPECT_EQ(swap, row.swap) << row.pid;
            EXPECT_EQ(reserved, 0U) << row.pid;
            EXPECT_EQ(data, row.data) << row.pid;
        }
    });
}

TEST(GetProcessMemory, AnswersForTheRealKernel) {
    uint64_t size = 0, peak = 0, swap = 0, reserved = 0, data = 0;
    EXPECT_TRUE(GetProcessMemory(getpid(), &size, &peak, &swap, &reserved, &data));
    EXPECT_LE(size, peak);
    EXPECT_LT(data, size);
}

// QueryProcessFlag

TEST(QueryProcessFlag, IsAlwaysSet) {
    for (const uintptr_t ignored : {uintptr_t{0}, UINTPTR_MAX}) {
        int flag = 0;
        EXPECT_EQ(QueryProcessFlag(ignored, &flag), 0);
        EXPECT_EQ(flag, 1);
    }
}
