// The file of the ring on bad days: what would stop or kill the process that has it mapped.

#include <fcntl.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/libc_fault.h"
#include "trace/open_debug.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

namespace {

constexpr const char* kDirectory = "/var/log/tolbrin";
constexpr const char* kRing = "/var/log/tolbrin/ring_startup_zorn";
constexpr size_t kSize = 1 << 20;

class RingFile : public testing::Test {
  protected:
    RingFile() { m_Host.Directory(kDirectory); }

    /// A process with a trace at level 1 that has not armed the ring yet.
    void Run(const std::function<void(OpenDebug&)>& body) {
        m_Host.Run([&] {
            setenv("QX_LOG_DEBUG_LEVEL", "1", 1);
            OpenDebug debug;
            debug.Init("zorn");
            debug.m_MemoryTraces = 0;
            body(debug);
        });
    }

    FakeHost m_Host;
};

struct stat StatusOf(const char* path) {
    struct stat status {};
    EXPECT_EQ(stat(path, &status), 0) << path;
    return status;
}

/// Writes more than a pass.
void WritePass(OpenDebug& debug) {
    const uint32_t wraps = debug.m_RingWrapCount;
    while (debug.m_RingWrapCount == wraps) debug.Trace(1, "%s", std::string(900, 'x').c_str());
}

TEST_F(RingFile, HasAllItsBlocksBeforeItIsMapped) {
    Run([](OpenDebug& debug) {
        FaultOf<&::mmap> map;
        map.Answer(
            [](void* address, size_t length, int protection, int flags, int fd, off_t offset) {
                struct stat status {};
                EXPECT_EQ(fstat(fd, &status), 0);
                EXPECT_GE(status.st_blocks * 512, off_t{kSize});
                return LibcFault::Real<&::mmap>(address, length, protection, flags, fd, offset);
            });
        EXPECT_TRUE(debug.ArmRingBuffer());
    });
}

TEST_F(RingFile, NeedsNoMoreRoomOnADiskThatIsFull) {
    Run([](OpenDebug& debug) {
        ASSERT_EQ(mount("none", kDirectory, "tmpfs", 0, "size=3m"), 0);
        EXPECT_TRUE(debug.ArmRingBuffer());
        const int filler = open("/var/log/tolbrin/filler", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        const std::string block(4096, '#');
        while (write(filler, block.data(), block.size()) > 0) {
        }
        EXPECT_EQ(errno, ENOSPC);
        close(filler);
        WritePass(debug);
        WritePass(debug);
        EXPECT_THAT(FileText(kRing), HasSubstr("xxx\n## TRACE-END ##\n"));
    });
}

TEST_F(RingFile, IsRefusedByADiskThatHasNoRoomForIt) {
    Run([](OpenDebug& debug) {
        ASSERT_EQ(mount("none", kDirectory, "tmpfs", 0, "size=900k"), 0);
        EXPECT_FALSE(debug.ArmRingBuffer());
        EXPECT_EQ(debug.m_TraceTarget, 1u);
        EXPECT_EQ(debug.m_RingFd, -1);
    });
    EXPECT_THAT(FileText(m_Host.Path("/var/log/tolbrin/log.zorn")),
                HasSubstr("### InitRingBuffer(): (2) write m_InternalDebugBuffer to "
                          "/var/log/tolbrin/ring_startup_zorn failed ###\n"))
        << "the log was opened before the mount";
}

TEST_F(RingFile, IsNotTheOneThatAnotherProcessHasMapped) {
    Run([](OpenDebug& first) {
        EXPECT_TRUE(first.ArmRingBuffer());
        const ino_t file = StatusOf(kRing).st_ino;
        OpenDebug second;
        second.Init("zorn");
        EXPECT_TRUE(second.ArmRingBuffer());
        EXPECT_NE(StatusOf(kRing).st_ino, file);
        WritePass(first);
        second.Trace(1, "of the second one");
        EXPECT_THAT(FileText(kRing), HasSubstr("of the second one\n## TRACE-END ##\n"));
        EXPECT_THAT(FileText(kRing), testing::Not(HasSubstr("xxxx")));
    });
}

TEST_F(RingFile, LeavesOtherNamesOfAFormerRingAlone) {
    m_Host.File(kRing, "former");
    Run([](OpenDebug& debug) {
        ASSERT_EQ(link(kRing, "/var/log/tolbrin/kept"), 0);
        EXPECT_TRUE(debug.ArmRingBuffer());
    });
    EXPECT_EQ(m_Host.Read("/var/log/tolbrin/kept"), "former");
}

TEST_F(RingFile, LiesWhereALinkPoints) {
    m_Host.Link(kRing, "/var/tmp/elsewhere");
    Run([](OpenDebug& debug) { EXPECT_TRUE(debug.ArmRingBuffer()); });
    EXPECT_THAT(m_Host.Read("/var/tmp/elsewhere"), SizeIs(kSize));
    EXPECT_EQ(std::filesystem::read_symlink(m_Host.Path(kDirectory) / "ring_startup_zorn"),
              "/var/tmp/elsewhere");
}

TEST_F(RingFile, CutsWhatIsLongerBehindALink) {
    m_Host.File("/var/tmp/elsewhere", std::string(kSize + 5000, 'o'));
    m_Host.Link(kRing, "/var/tmp/elsewhere");
    Run([](OpenDebug& debug) { EXPECT_TRUE(debug.ArmRingBuffer()); });
    EXPECT_THAT(m_Host.Read("/var/tmp/elsewhere"), SizeIs(kSize));
}

/// Arms a ring in whose place there is something else, which fails with a line in the log.
void ExpectNoRing(OpenDebug& debug) {
    EXPECT_FALSE(debug.ArmRingBuffer());
    EXPECT_EQ(debug.m_TraceTarget, 1u);
    EXPECT_EQ(debug.m_RingFd, -1);
    EXPECT_THAT(FileLines(kLog),
                ElementsAre("### InitRingBuffer(): (2) write m_InternalDebugBuffer to "
                            "/var/log/tolbrin/ring_startup_zorn failed ###"));
}

TEST_F(RingFile, IsNoPipeThatNobodyReads) {
    Run([](OpenDebug& debug) {
        ASSERT_EQ(mkfifo(kRing, 0600), 0);
        ExpectNoRing(debug);
        EXPECT_TRUE(S_ISFIFO(StatusOf(kRing).st_mode));
    });
}

TEST_F(RingFile, IsNoDevice) {
    m_Host.Link(kRing, "/dev/zero");
    Run(ExpectNoRing);
}

TEST_F(RingFile, MayBeRenamedOrRemovedWhileItIsWritten) {
    Run([](OpenDebug& debug) {
        EXPECT_TRUE(debug.ArmRingBuffer());
        ASSERT_EQ(rename(kRing, "/var/log/tolbrin/moved"), 0);
        WritePass(debug);
        debug.Trace(1, "moved");
        EXPECT_THAT(FileText("/var/log/tolbrin/moved"), HasSubstr("moved\n## TRACE-END ##\n"));
        ASSERT_EQ(unlink("/var/log/tolbrin/moved"), 0);
        WritePass(debug);
        debug.EndOfInitialization();
        debug.Trace(1, "running");
        EXPECT_THAT(FileText("/var/log/tolbrin/ring_zorn"),
                    HasSubstr("running\n## TRACE-END ##\n"));
    });
}

TEST_F(RingFile, KillsTheProcessIfItIsCutWhileItIsMapped) {
    Run([](OpenDebug& debug) {
        EXPECT_TRUE(debug.ArmRingBuffer());
        for (const off_t size : {off_t{0}, off_t{kSize / 2}}) {
            const pid_t writer = fork();
            if (writer == 0) {
                (void)signal(SIGBUS, SIG_DFL);  // which a sanitizer has taken
                if (truncate(kRing, size) == 0) WritePass(debug);
                _exit(0);
            }
            int status = 0;
            EXPECT_EQ(waitpid(writer, &status, 0), writer);
            EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGBUS) << status;
            EXPECT_EQ(truncate(kRing, off_t{kSize}), 0) << "what goes on here needs it";
        }
    });
}

}  // namespace
