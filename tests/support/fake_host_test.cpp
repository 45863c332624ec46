#include "support/fake_host.h"

#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/coverage.h"

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

namespace {

std::string ReadFile(const fs::path& path) {
    std::ifstream in{path, std::ios::binary};
    return {std::istreambuf_iterator<char>{in}, {}};
}

/// What a shell command prints.
std::string Output(const std::string& command) {
    FILE* pipe = popen(command.c_str(), "r");
    std::string text;
    for (int c = fgetc(pipe); c != EOF; c = fgetc(pipe)) text.push_back(static_cast<char>(c));
    (void)pclose(pipe);
    return text;
}

mode_t ModeOf(const fs::path& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

/// A tree to put on a host: a file, a link, and a file with a hole.
fs::path MakeArchive() {
    const std::string folder = testing::TempDir() + "zorn-archive-" + std::to_string(getpid());
    fs::create_directories(folder + "/proc/self");
    fs::create_directories(folder + "/dev");
    fs::create_directories(folder + "/etc");
    std::ofstream{folder + "/proc/self/mounts"} << "/dev/sda1 / ext4 rw 0 0\n";
    std::ofstream{folder + "/dev/mem"} << "start";
    fs::resize_file(folder + "/dev/mem", 1 << 26);
    fs::create_symlink("../proc/self/mounts", folder + "/etc/mtab");
    const fs::path archive = folder + ".tar.zst";
    EXPECT_EQ(std::system(("tar --zstd -Scf " + archive.native() + " -C " + folder + " .").c_str()),
              0);
    fs::remove_all(folder);
    return archive;
}

}  // namespace

TEST(FakeHost, HoldsNothingOfTheRealMachineButUsr) {
    FakeHost host;
    host.Run([] {
        EXPECT_EQ(Output("ls -A /sys /run /root /opt /var/log"),
                  "/opt:\n\n/root:\n\n/run:\n\n/sys:\n\n/var/log:\n");
        EXPECT_FALSE(fs::exists("/proc/meminfo"));
        EXPECT_FALSE(fs::exists("/etc/localtime"));
        EXPECT_FALSE(fs::exists("/dev/mem"));
        EXPECT_TRUE(fs::exists("/usr/bin/env"));
        EXPECT_TRUE(fs::exists("/bin/sh"));
    });
}

TEST(FakeHost, HasDevicesThatWork) {
    FakeHost host;
    host.Run([] {
        EXPECT_EQ(Output("head -c 3 /dev/zero | od -An -tx1; echo gone > /dev/null"),
                  " 00 00 00\n");
        EXPECT_EQ(Output("head -c 8 /dev/urandom | wc -c"), "8\n");
        EXPECT_EQ(Output("echo through > /dev/stdout"), "through\n");
    });
}

TEST(FakeHost, TakesAFileInPlaceOfADevice) {
    FakeHost host;
    host.File("/dev/random", "not random");
    host.Run([] { EXPECT_EQ(ReadFile("/dev/random"), "not random"); });
}

TEST(FakeHost, ShowsFilesWithTheModesThatTheTestGave) {
    FakeHost host;
    host.File("/etc/one", "1\n");
    host.File("/etc/deep/down/two", "2\n", 0400);
    host.Directory("/etc/closed", 0700);
    host.Run([] {
        EXPECT_EQ(ReadFile("/etc/one"), "1\n");
        EXPECT_EQ(ModeOf("/etc/one"), 0644u);
        EXPECT_EQ(ReadFile("/etc/deep/down/two"), "2\n");
        EXPECT_EQ(ModeOf("/etc/deep/down/two"), 0400u);
        EXPECT_EQ(ModeOf("/etc/deep"), 0755u);
        EXPECT_EQ(ModeOf("/etc/closed"), 0700u);
    });
}

TEST(FakeHost, PutsANewFileInPlaceOfAnOldOneOrALink) {
    FakeHost host;
    host.File("/target", "kept");
    host.Link("/file", "/target");
    host.File("/file", "new");
    host.File("/file", "newer");
    EXPECT_EQ(host.Read("/file"), "newer");
    EXPECT_EQ(host.Read("/target"), "kept");
}

TEST(FakeHost, FollowsLinksInsideOfItselfOnly) {
    FakeHost host;
    host.Link("/away", "/etc");  // absolute: the host's own /etc
    host.File("/away/zorn-test-mark", "inside");
    EXPECT_EQ(host.Read("/etc/zorn-test-mark"), "inside");
    EXPECT_FALSE(fs::exists("/etc/zorn-test-mark"));
    host.Link("/up", "../../../../etc/zorn-test-mark");
    EXPECT_EQ(host.Read("/up"), "inside");
}

TEST(FakeHost, SaysWhichPathItCannotMake) {
    FakeHost host;
    host.File("/file", "");
    EXPECT_THROW(host.File("/file/below", ""), std::system_error);
    EXPECT_THROW(host.File("relative", ""), std::system_error);
    try {
        (void)host.Read("/missing");
        FAIL() << "no exception";
    } catch (const std::system_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("/missing"));
        EXPECT_EQ(error.code().value(), ENOENT);
    }
}

TEST(FakeHost, TellsWhatIsThere) {
    FakeHost host;
    host.File("/a/c", "");
    host.File("/a/b", "");
    host.Link("/a/broken", "nowhere");
    EXPECT_TRUE(host.Exists("/a/b"));
    EXPECT_FALSE(host.Exists("/a/broken"));
    EXPECT_FALSE(host.Exists("/a/x"));
    EXPECT_THAT(host.List("/a"), ElementsAre("b", "broken", "c"));
    EXPECT_THAT(host.List("/missing"), ElementsAre());
}

TEST(FakeHost, TellsWherePathsLieOutside) {
    FakeHost host;
    host.File("/var/lib/x", "text");
    host.Link("/short", "/var/lib/x");
    EXPECT_EQ(ReadFile(host.Path("/short")), "text");
    EXPECT_EQ(host.Path("/short"), host.Path("/var/lib/x"));
    EXPECT_EQ(host.Path("/var/lib/new").parent_path(), host.Path("/var/lib"));
}

TEST(FakeHost, KeepsWhatARunHasWritten) {
    FakeHost host;
    host.Run([] { std::ofstream{"/var/log/first"} << "1"; });
    EXPECT_EQ(host.Read("/var/log/first"), "1");
    host.Run([] { EXPECT_EQ(ReadFile("/var/log/first"), "1"); });
}

TEST(FakeHost, LeavesNothingBehind) {
    fs::path root;
    {
        FakeHost host;
        root = host.Path("/");
        host.Run([] {
            fs::create_directories("/tmp/locked/below");
            fs::permissions("/tmp/locked", fs::perms::none);
        });
        EXPECT_TRUE(fs::exists(root));
    }
    EXPECT_FALSE(fs::exists(root));
}

TEST(FakeHost, DoesNotLetARunWriteIntoTheRealUsrOrTheTrees) {
    if (kMeasuresCoverage) GTEST_SKIP() << "the build tree is writable where coverage is measured";
    FakeHost host;
    host.Run([] {
        for (const std::string& folder :
             {std::string{"/usr/bin"}, fs::path{FakeHost::Executable()}.parent_path().native()}) {
            EXPECT_EQ(open((folder + "/zorn-test-mark").c_str(), O_CREAT | O_WRONLY, 0600), -1);
            EXPECT_EQ(errno, EROFS) << folder;
        }
    });
}

TEST(FakeHost, FindsCommandsByPath) {
    FakeHost host;
    host.Command("localcli", "echo \"localcli $*\"");
    host.Command("speaks-awk", "#!/usr/bin/env -S sed -n 2p\nsecond line");
    host.Run([] {
        EXPECT_EQ(Output("localcli hardware pci list"), "localcli hardware pci list\n");
        EXPECT_EQ(Output("speaks-awk /usr/local/bin/speaks-awk"), "second line\n");
    });
}

TEST(FakeHost, CoversACommandOfTheRealMachine) {
    FakeHost host;
    host.Command("/bin/ls", "echo covered");
    host.Command("/sbin/lspci", "echo fake lspci");
    host.Run([] {
        EXPECT_EQ(Output("/bin/ls"), "covered\n");
        EXPECT_EQ(Output("/usr/bin/ls"), "covered\n");
        EXPECT_EQ(Output("/sbin/lspci"), "fake lspci\n");
        EXPECT_EQ(Output("/bin/echo others stay"), "others stay\n");
    });
}

TEST(FakeHost, HidesWhatIsRemoved) {
    FakeHost host;
    host.File("/etc/x", "");
    host.Directory("/full/folder");
    host.File("/full/folder/file", "");
    for (const char* path : {"/etc/x", "/full", "/bin/ls", "/dev/tty"}) host.Remove(path);
    EXPECT_FALSE(host.Exists("/etc/x"));
    EXPECT_FALSE(host.Exists("/bin/ls"));
    host.Run([] {
        for (const char* path : {"/etc/x", "/full", "/bin/ls", "/usr/bin/ls", "/dev/tty"}) {
            EXPECT_FALSE(fs::exists(path)) << path;
        }
    });
    host.Command("/bin/ls", "echo back");
    host.Run([] { EXPECT_EQ(Output("/bin/ls"), "back\n"); });
}

TEST(FakeHost, GivesMemoryThatCanBeReadAndMapped) {
    FakeHost host;
    host.Memory("/dev/mem", {{0xF0000, "_SM_"}, {0x7FE0000, "table"}}, 0x8000000);
    host.Run([] {
        const int fd = open("/dev/mem", O_RDONLY);
        char text[4];
        EXPECT_EQ(pread(fd, text, sizeof text, 0xF0000), 4);
        EXPECT_EQ(std::string(text, 4), "_SM_");
        void* map = mmap(nullptr, 0x1000, PROT_READ, MAP_SHARED, fd, 0x7FE0000);
        EXPECT_STREQ(static_cast<const char*>(map), "table");
        EXPECT_EQ(lseek(fd, 0, SEEK_END), 0x8000000);
        struct stat status {};
        EXPECT_EQ(fstat(fd, &status), 0);
        EXPECT_LT(status.st_blocks * 512, 0x10000);
        munmap(map, 0x1000);
        close(fd);
    });
}

TEST(FakeHost, HasAProcWithNothingButItsOwnProcesses) {
    FakeHost host;
    host.Run([] {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator{"/proc"}) {
            names.push_back(entry.path().filename());
        }
        EXPECT_THAT(names,
                    testing::UnorderedElementsAre("self", "thread-self", std::to_string(getpid())));
        EXPECT_THAT(ReadFile("/proc/self/status"), HasSubstr("VmRSS:"));
        EXPECT_THAT(ReadFile("/proc/" + std::to_string(getpid()) + "/status"), HasSubstr("VmRSS:"));
        EXPECT_THAT(Output("cat /proc/self/comm"), "cat\n");
    });
    EXPECT_THAT(host.List("/proc"), ElementsAre("self", "thread-self"));
}

TEST(FakeHost, TakesAProcSelfOfTheTest) {
    FakeHost host;
    host.Run([] {});  // has used the kernel's before
    host.File("/proc/self/mounts", "/dev/sda1 / ext4 rw 0 0\n");
    host.File("/proc/meminfo", "MemTotal: 1 kB\n");
    host.Run([] {
        EXPECT_EQ(ReadFile("/proc/self/mounts"), "/dev/sda1 / ext4 rw 0 0\n");
        EXPECT_EQ(ReadFile("/proc/meminfo"), "MemTotal: 1 kB\n");
        EXPECT_FALSE(fs::exists("/proc/self/status"));
        EXPECT_TRUE(fs::exists("/proc/self/exe"));
    });
}

TEST(FakeHost, GivesTheKernelsWholeProcWhenAsked) {
    FakeHost host;
    host.KernelProc();
    host.Run([] {
        EXPECT_TRUE(fs::exists("/proc/meminfo"));
        EXPECT_THAT(ReadFile("/proc/self/mountinfo"), Not(HasSubstr(" /sys ")));
    });
}

TEST(FakeHost, UnpacksARecordedMachineOverWhatIsThere) {
    FakeHost host;
    const fs::path archive = MakeArchive();
    host.Run([] {});
    host.Unpack(archive);
    fs::remove(archive);
    host.Run([] {
        EXPECT_EQ(ReadFile("/etc/mtab"), "/dev/sda1 / ext4 rw 0 0\n");
        EXPECT_TRUE(fs::exists("/etc/passwd"));
        struct stat status {};
        EXPECT_EQ(stat("/dev/mem", &status), 0);
        EXPECT_EQ(status.st_size, 1 << 26);
        EXPECT_LT(status.st_blocks, 1024);
    });
}

TEST(FakeHost, SaysWhyAnArchiveCannotBeUnpacked) {
    FakeHost host;
    EXPECT_THROW(host.Unpack("/nonexistent.tar.zst"), std::runtime_error);
}

TEST(FakeHost, HasALoopbackInterfaceAndNoOther) {
    FakeHost host;
    host.Run([] {
        struct if_nameindex* interfaces = if_nameindex();
        EXPECT_STREQ(interfaces[0].if_name, "lo");
        EXPECT_EQ(interfaces[1].if_name, nullptr);
        if_freenameindex(interfaces);
        EXPECT_THAT(Output("ip -o link show up"), HasSubstr("lo:"));
    });
}

TEST(FakeHost, KeepsInterfacesFromRunToRun) {
    FakeHost host;
    host.Ip({"link add eth0 type veth peer name peer0", "addr add 192.0.2.1/24 dev eth0",
             "link add br0 type bridge", "link set eth0 up"});
    const auto look = [] {
        EXPECT_NE(if_nametoindex("eth0"), 0u);
        EXPECT_NE(if_nametoindex("peer0"), 0u);
        EXPECT_NE(if_nametoindex("br0"), 0u);
        EXPECT_THAT(Output("ip -o -4 addr show dev eth0"), HasSubstr("192.0.2.1/24"));
    };
    host.Run(look);
    host.Run(look);
    EXPECT_EQ(if_nametoindex("peer0"), 0u);
}

TEST(FakeHost, SaysWhatIpRefuses) {
    FakeHost host;
    try {
        host.Ip({"link add eth0 type nonsense"});
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr("Unknown device type"));
    }
}

TEST(FakeHost, SeesTheBuiltServiceWhereItSays) {
    FakeHost host;
    host.Run([] {
        // Built by its own target: only its folder is sure to be there.
        EXPECT_TRUE(fs::is_directory(fs::path{FakeHost::Executable()}.parent_path()));
        EXPECT_TRUE(FakeHost::LibraryDirectory().ends_with("/lib"));
    });
}

TEST(RecordedMachine, IsEmptyForAnUnknownName) {
    EXPECT_FALSE(RecordedMachine("no-such-machine"));
}

TEST(RecordedMachine, UnpacksOntoAHost) {
    const auto machine = RecordedMachine("pc-bare");
    if (!machine) GTEST_SKIP() << kNoRecordings;
    FakeHost host;
    host.Unpack(*machine / "tree.tar.zst");
    host.Run([] {
        EXPECT_TRUE(fs::exists("/proc/bus/pci/devices"));
        EXPECT_THAT(ReadFile("/etc/os-release"), HasSubstr("Debian"));
        EXPECT_FALSE(ReadFile("/etc/mtab").empty());
    });
}
