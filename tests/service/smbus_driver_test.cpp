#include "service/smbus_driver.h"

#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/leak_census.h"
#include "support/libc_fault.h"
#include "support/trace_capture.h"
#include "trace/debug.h"

using testing::IsEmpty;

namespace {

constexpr const char* kNotAvailable =
    "ZORN-MAIN: INFO: smbus-driver is not available on this OS (But, don't worry about this, it "
    "might "
    "be OK on some OS systems!)";
constexpr const char* kEvaluating =
    "ZORN-MAIN::DiscoverSmbusDriverInfo: evaluating IOCTL_SMBUS_DRIVER_INFO (0xC00873FF)";

// --- The version ---------------------------------------------------------------------------------

TEST(RequestorVersion, Of107006Is000A4606) {
    EXPECT_EQ(RequestorVersion(ParseVersion("10.70-06")), 0x000A4606U);
}

TEST(RequestorVersion, IsMadeOfTheVersionRecord) {
    EXPECT_STREQ(kVersionRecord.Version, "10.70-06");
}

TEST(ParseVersion, TakesThreeNumbers) {
    const VersionNumber number = ParseVersion("10.70-06");
    EXPECT_EQ(number.Major, 10U);
    EXPECT_EQ(number.Minor, 70U);
    EXPECT_EQ(number.Patch, 6U);
}

TEST(ParseVersion, TakesWhatParsesAndLeavesTheRestZero) {
    EXPECT_EQ(RequestorVersion(ParseVersion("")), 0U);
    EXPECT_EQ(RequestorVersion(ParseVersion("x10.70-06")), 0U);
    EXPECT_EQ(RequestorVersion(ParseVersion("10")), 0x000A0000U);
    EXPECT_EQ(RequestorVersion(ParseVersion("10.70")), 0x000A4600U);
    EXPECT_EQ(RequestorVersion(ParseVersion("10-70.06")), 0x000A0000U);
    EXPECT_EQ(RequestorVersion(ParseVersion("10.70-06-99")), 0x000A4606U);
}

TEST(VersionRecord, HoldsItsTextsInTheirOrder) {
    const VersionRecord& record = kVersionRecord;
    const char* const* const texts = &record.Built;
    const char* const expected[] = {
        "2024/04/16-15:56", "/usr/sbin/mirl", "-",    "Tarnhollow Agentless Service Daemon",
        "10.70-06",         "Kelmora",        "mirl", "Tarnhollow Linux Agents"};
    static_assert(sizeof record == 9 * sizeof(const char*));
    for (size_t i = 0; i < std::size(expected); ++i) EXPECT_STREQ(texts[i], expected[i]);
}

// --- The driver ----------------------------------------------------------------------------------

/// The driver as the test wants it: it sees what the service sends and answers.
class FakeDriver {
  public:
    using Answer = std::function<void(SMBUS_IOCTL_BLOCK&, SMBUS_DRIVER_INFO&)>;

    explicit FakeDriver(Answer answer) {
        m_Open.Answer([this](const char* path, int flags, mode_t) {
            EXPECT_STREQ(path, "/dev/pci/smbus");
            EXPECT_EQ(flags, O_RDWR | O_CLOEXEC);
            m_Fd = LibcFault::Real<&::open>("/dev/null", O_RDWR | O_CLOEXEC);
            return m_Fd;
        });
        m_Ioctl.Answer([this, answer](int fd, unsigned long request, void* argument) {
            EXPECT_EQ(fd, m_Fd);
            EXPECT_EQ(request, 0xC00873FFUL);
            auto& block = *static_cast<SMBUS_IOCTL_BLOCK*>(argument);
            sentBlock = block;
            auto& info = *static_cast<SMBUS_DRIVER_INFO*>(block.pInOutBuffer);
            sentInfo = info;
            answer(block, info);
            return 0;
        });
    }

    SMBUS_IOCTL_BLOCK sentBlock{};
    SMBUS_DRIVER_INFO sentInfo{};

  private:
    int m_Fd = -1;
    FaultOf<&::open> m_Open;
    FaultOf<&::ioctl> m_Ioctl;
};

void AnswerNothing(SMBUS_IOCTL_BLOCK& /*block*/, SMBUS_DRIVER_INFO& /*info*/) {}

/// Fills a text field without a terminator.
template <size_t Size>
void FillWhole(char (&field)[Size], char letter) {
    memset(field, letter, Size);
}

void AnswerEverything(SMBUS_IOCTL_BLOCK& block, SMBUS_DRIVER_INFO& info) {
    block.Success = 1;
    info.OSKernelVersionCode = 0x00050E15;
    info.smbus_VersionCode = 0x000A4605;
    info.smbus_ArchMode = 0x40;
    info.smbus_ArchXEN = 0xFFFFFFFF;
    info.smbus_ArchFacil = 3;
    info.smbus_IsSmbiHwFound = 1;
    info.smbus_IsBapiHwFound = 2;
    info.smbus_IsGabiHwFound = 3;
    info.smbus_IsSmbusHwFound = 4;
    info.smbus_IsBusIoHwFound = 5;
    info.smbus_IsCpuErrHwFound = 6;
    info.smbus_IsCpuApicHwFound = 7;
    info.smbus_IsCpuInfoHwFound = 0xFF;
    info.smbus_MajorDeviceNumber = 0xFD;
    info.smbus_IsKmpModule = 8;
    strcpy(info.smbus_Name, "smbus");
    strcpy(info.smbus_SrcVersion, "10.70-05");
    strcpy(info.smbus_SrcDate, "2024/01/02");
    strcpy(info.smbus_ObjDate, "2024/01/03");
    strcpy(info.smbus_OsArchitecture, "x86_64");
    strcpy(info.smbus_OsVersion, "SLES 15");
    strcpy(info.smbus_CompilerVersion, "gcc 12");
    strcpy(info.smbus_KernelVersion, "5.14.21");
    strcpy(info.smbus_ErrorReturnString, "none");
}

/// The lines of `AnswerEverything` but for the address.
Lines DumpOfEverything() {
    return {kEvaluating,
            "Version                     : 0x00000001",
            "CmdNumber                   : 0x000000FF",
            "SizeOfInOutBuffer           : 0x00000520",
            "pInOutBuffer                : 0x<address>",
            "Success                     : 0x00000001",
            "OSKernelVersionCode         : 0x00050E15",
            "smbus_VersionCode           : 0x000A4605",
            "smbus_ArchMode              : 0x00000040",
            "smbus_ArchXEN               : 0xFFFFFFFF",
            "smbus_ArchFacil             : 0x00000003",
            "RequestorVersion            : 0x000A4606",
            "smbus_IsSmbiHwFound         : 0x00000001",
            "smbus_IsBapiHwFound         : 0x00000002",
            "smbus_IsGabiHwFound         : 0x00000003",
            "smbus_IsSmbusHwFound        : 0x00000004",
            "smbus_IsBusIoHwFound        : 0x00000005",
            "smbus_IsCpuErrHwFound       : 0x00000006",
            "smbus_IsCpuApicHwFound      : 0x00000007",
            "smbus_IsCpuInfoHwFound      : 0x000000FF",
            "smbus_MajorDeviceNumber     : 0x000000FD",
            "smbus_IsKmpModule           : 0x00000008",
            "RequestorName               : ZORN",
            "smbus_Name                  : smbus",
            "smbus_SrcVersion            : 10.70-05",
            "smbus_SrcDate               : 2024/01/02",
            "smbus_ObjDate               : 2024/01/03",
            "smbus_OsArchitecture        : x86_64",
            "smbus_OsVersion             : SLES 15",
            "smbus_CompilerVersion       : gcc 12",
            "smbus_KernelVersion         : 5.14.21",
            "QX_SYSTEM                   : test-system",
            "QX_OS                       : test-os",
            "QX_NICKNAME                 : test-nickname",
            "smbus_ErrorReturnString     : none"};
}

/// The three variables as the test wants them; without them as far as it says nothing.
class SmbusDriver : public testing::Test {
  protected:
    SmbusDriver() {
        for (const char* name : {"QX_SYSTEM", "QX_OS", "QX_NICKNAME"}) unsetenv(name);
    }
    ~SmbusDriver() override {
        for (const char* name : {"QX_SYSTEM", "QX_OS", "QX_NICKNAME"}) unsetenv(name);
    }
};

TEST_F(SmbusDriver, IsSentTheBlockAndTheServicesData) {
    setenv("QX_SYSTEM", "test-system", 1);
    setenv("QX_OS", "test-os", 1);
    setenv("QX_NICKNAME", "test-nickname", 1);
    FakeDriver driver{AnswerNothing};
    DiscoverSmbusDriverInfo();
    EXPECT_EQ(driver.sentBlock.Version, 1U);
    EXPECT_EQ(driver.sentBlock.CmdNumber, 0xFFU);
    EXPECT_EQ(driver.sentBlock.SizeOfInOutBuffer, 0x520U);
    EXPECT_EQ(driver.sentBlock.Reserved0C, 0U);
    EXPECT_EQ(driver.sentBlock.Success, 0U);
    EXPECT_EQ(driver.sentBlock.Reserved1C, 0U);

    SMBUS_DRIVER_INFO expected{};  // all other bytes are zero
    expected.RequestorVersion = 0x000A4606;
    strcpy(expected.RequestorName, "ZORN");
    strcpy(expected.QX_SYSTEM, "test-system");
    strcpy(expected.QX_OS, "test-os");
    strcpy(expected.QX_NICKNAME, "test-nickname");
    EXPECT_EQ(memcmp(&driver.sentInfo, &expected, sizeof expected), 0);
}

TEST_F(SmbusDriver, IsSentZeroesForVariablesThatAreUnsetOrEmpty) {
    setenv("QX_OS", "", 1);
    FakeDriver driver{AnswerNothing};
    DiscoverSmbusDriverInfo();
    for (const char byte : driver.sentInfo.QX_SYSTEM) EXPECT_EQ(byte, 0);
    for (const char byte : driver.sentInfo.QX_OS) EXPECT_EQ(byte, 0);
    for (const char byte : driver.sentInfo.QX_NICKNAME) EXPECT_EQ(byte, 0);
}

TEST_F(SmbusDriver, IsSentValuesOfFullLengthWithoutATerminator) {
    setenv("QX_SYSTEM", std::string(32, 's').c_str(), 1);
    setenv("QX_OS", std::string(128, 'o').c_str(), 1);
    setenv("QX_NICKNAME", std::string(33, 'n').c_str(), 1);
    FakeDriver driver{AnswerNothing};
    DiscoverSmbusDriverInfo();
    const auto whole = [](const auto& field) { return std::string(field, sizeof field); };
    EXPECT_EQ(whole(driver.sentInfo.QX_SYSTEM), std::string(32, 's'));
    EXPECT_EQ(whole(driver.sentInfo.QX_OS), std::string(128, 'o'));
    EXPECT_EQ(whole(driver.sentInfo.QX_NICKNAME), std::string(32, 'n'));
    for (const char byte : driver.sentInfo.smbus_ErrorReturnString) EXPECT_EQ(byte, 0);
}

TEST_F(SmbusDriver, IsSentAnOsOfMoreThan128CharactersCutTo128) {
    setenv("QX_OS", (std::string(128, 'o') + "beyond").c_str(), 1);
    FakeDriver driver{AnswerNothing};
    DiscoverSmbusDriverInfo();
    EXPECT_EQ(std::string(driver.sentInfo.QX_OS, 128), std::string(128, 'o'));
    EXPECT_EQ(driver.sentInfo.QX_NICKNAME[0], 0);
}

TEST_F(SmbusDriver, HasItsWholeAnswerInTheTraceWordForWord) {
    setenv("QX_SYSTEM", "test-system", 1);
    setenv("QX_OS", "test-os", 1);
    setenv("QX_NICKNAME", "test-nickname", 1);
    std::string address;
    FakeDriver driver{[&](SMBUS_IOCTL_BLOCK& block, SMBUS_DRIVER_INFO& info) {
        char text[32];
        snprintf(text, sizeof text, "%p", static_cast<void*>(&info));
        address = text;
        AnswerEverything(block, info);
    }};
    TraceCapture trace{2};
    DiscoverSmbusDriverInfo();
    Lines expected = DumpOfEverything();
    expected[4] = "pInOutBuffer                : 0x" + address;  // which begins with 0x itself
    EXPECT_EQ(trace.Lines(), expected);
}

TEST_F(SmbusDriver, HasItsAnswerInTheTraceAtLevel2Only) {
    FakeDriver driver{AnswerEverything};
    TraceCapture trace{1};
    DiscoverSmbusDriverInfo();
    EXPECT_THAT(trace.Lines(), IsEmpty());
}

TEST_F(SmbusDriver, HasTextsWithoutATerminatorCutAtTheirFields) {
    FakeDriver driver{[](SMBUS_IOCTL_BLOCK& /*block*/, SMBUS_DRIVER_INFO& info) {
        FillWhole(info.RequestorName, 'a');
        FillWhole(info.smbus_Name, 'b');
        FillWhole(info.smbus_SrcVersion, 'c');
        FillWhole(info.smbus_SrcDate, 'd');
        FillWhole(info.smbus_ObjDate, 'e');
        FillWhole(info.smbus_OsArchitecture, 'f');
        FillWhole(info.smbus_OsVersion, 'g');
        FillWhole(info.smbus_CompilerVersion, 'h');
        FillWhole(info.smbus_KernelVersion, 'i');
        FillWhole(info.QX_SYSTEM, 'j');
        FillWhole(info.QX_OS, 'k');
        FillWhole(info.QX_NICKNAME, 'l');
        FillWhole(info.smbus_ErrorReturnString, 'm');
    }};
    TraceCapture trace{2};
    DiscoverSmbusDriverInfo();
    const Lines lines = trace.Lines();
    ASSERT_EQ(lines.size(), 35U);
    const Lines texts{lines.begin() + 22, lines.end()};
    EXPECT_EQ(texts, (Lines{"RequestorName               : " + std::string(32, 'a'),
                            "smbus_Name                  : " + std::string(32, 'b'),
                            "smbus_SrcVersion            : " + std::string(64, 'c'),
                            "smbus_SrcDate               : " + std::string(64, 'd'),
                            "smbus_ObjDate               : " + std::string(64, 'e'),
                            "smbus_OsArchitecture        : " + std::string(32, 'f'),
                            "smbus_OsVersion             : " + std::string(64, 'g'),
                            "smbus_CompilerVersion       : " + std::string(128, 'h'),
                            "smbus_KernelVersion         : " + std::string(160, 'i'),
                            "QX_SYSTEM                   : " + std::string(32, 'j'),
                            "QX_OS                       : " + std::string(128, 'k'),
                            "QX_NICKNAME                 : " + std::string(32, 'l'),
                            "smbus_ErrorReturnString     : " + std::string(384, 'm')}));
}

TEST_F(SmbusDriver, IsNotTakenAtItsWordAboutSuccess) {
    FakeDriver driver{
        [](SMBUS_IOCTL_BLOCK& block, SMBUS_DRIVER_INFO& /*info*/) { block.Success = 0xFFFFFFFF; }};
    TraceCapture trace{2};
    DiscoverSmbusDriverInfo();
    EXPECT_EQ(trace.LinesWith("Success"), (Lines{"Success                     : 0xFFFFFFFF"}));
    EXPECT_EQ(trace.Lines().size(), 35U);
}

/// What is said of a driver of that version while the trace is disabled.
Lines WarningsAbout(uint32_t driverVersion) {
    FakeDriver driver{[=](SMBUS_IOCTL_BLOCK& /*block*/, SMBUS_DRIVER_INFO& info) {
        info.smbus_VersionCode = driverVersion;
    }};
    TraceCapture trace{0};
    DiscoverSmbusDriverInfo();
    return trace.Lines();
}

TEST_F(SmbusDriver, NewerThanTheServiceIsWarnedOfAlsoWhileTheTraceIsDisabled) {
    EXPECT_EQ(
        WarningsAbout(0x000A4607),
        (Lines{"ZORN-MAIN: WARNING: zorn version (0x000A4606) is less than smbus driver version "
               "(0x000A4607)"}));
}

TEST_F(SmbusDriver, VersionsAreComparedAsUnsignedNumbers) {
    EXPECT_EQ(
        WarningsAbout(0xFFFFFFFF),
        (Lines{"ZORN-MAIN: WARNING: zorn version (0x000A4606) is less than smbus driver version "
               "(0xFFFFFFFF)"}));
}

TEST_F(SmbusDriver, OfTheSameVersionRaisesNothing) {
    EXPECT_THAT(WarningsAbout(0x000A4606), IsEmpty());
}

TEST_F(SmbusDriver, OlderThanTheServiceRaisesNothing) {
    EXPECT_THAT(WarningsAbout(0x000A4605), IsEmpty());
}

TEST_F(SmbusDriver, IsWarnedOfBeforeItsAnswerIsShown) {
    FakeDriver driver{[](SMBUS_IOCTL_BLOCK& /*block*/, SMBUS_DRIVER_INFO& info) {
        info.smbus_VersionCode = 0x000B0000;
    }};
    TraceCapture trace{2};
    DiscoverSmbusDriverInfo();
    const Lines lines = trace.Lines();
    ASSERT_EQ(lines.size(), 36U);
    EXPECT_EQ(lines[0],
              "ZORN-MAIN: WARNING: zorn version (0x000A4606) is less than smbus driver version "
              "(0x000B0000)");
    EXPECT_EQ(lines[1], kEvaluating);
}

/// The lines of the dump when the trace is disabled as line number `last` is written.
Lines DumpDisabledAt(int last) {
    FakeDriver driver{AnswerEverything};
    TraceCapture trace{2};
    FaultOf<&::gettimeofday> clock;  // asked once for each line that is written
    clock.PassThrough(last - 1);
    clock.Answer([](timeval* now, void* zone) {
        (void)Debug.Enable(false);
        return LibcFault::Real<&::gettimeofday>(now, zone);
    });
    DiscoverSmbusDriverInfo();
    EXPECT_EQ(clock.Calls(), last);
    return trace.Lines();
}

TEST_F(SmbusDriver, DumpStopsAtTheFirstLineThatFindsTheTraceDisabled) {
    const Lines all = DumpOfEverything();
    for (const int last : {1, 2, 6, 7, 22, 23, 31}) {  // ends and beginnings of the records
        const Lines lines = DumpDisabledAt(last);
        ASSERT_EQ(lines.size(), static_cast<size_t>(last));
        EXPECT_EQ(lines.back(), all[static_cast<size_t>(last - 1)]);
    }
}

TEST_F(SmbusDriver, DumpIsNotTakenUpAgainWhenTheTraceIsEnabledAgain) {
    FakeHost host;
    host.Directory("/var/log/tolbrin");
    host.Run([] {
        LeakCensus::MayStay("/var/log/tolbrin/log.zorn");
        setenv("QX_LOG_DEBUG_LEVEL", "2", 1);
        setenv("QX_LOG_DYNAMIC_UPDATE", "3600", 1);  // each call of the trace asks for the time
        (void)Debug.Init("zorn");
        FakeDriver driver{AnswerEverything};
        FaultOf<&::gettimeofday> lineTime;  // the third line disables the trace
        lineTime.PassThrough(2);
        lineTime.Answer([](timeval* now, void* zone) {
            (void)Debug.Enable(false);
            return LibcFault::Real<&::gettimeofday>(now, zone);
        });
        FaultOf<&::time> clock;  // a fourth one would enable it again
        clock.PassThrough(3);
        clock.Always([](time_t* now) {
            (void)Debug.Enable(true);
            return LibcFault::Real<&::time>(now);
        });
        DiscoverSmbusDriverInfo();
        EXPECT_EQ(lineTime.Calls(), 3);
        EXPECT_FALSE(Debug.IsEnabled());
    });
}

TEST_F(SmbusDriver, MissingIsTracedWithItsReasonAndAnInfoLine) {
    FakeHost host;  // without the device
    host.Run([] {
        TraceCapture trace{2};
        DiscoverSmbusDriverInfo();
        EXPECT_EQ(
            trace.Lines(),
            (Lines{"ZORN-MAIN::DiscoverSmbusDriverInfo: cannot open /dev/pci/smbus (errno=2: No "
                   "such file or directory)",
                   kNotAvailable}));
    });
}

TEST_F(SmbusDriver, MissingHasItsReasonFromLevel2OnOnly) {
    FakeHost host;
    host.Run([] {
        TraceCapture trace{1};
        DiscoverSmbusDriverInfo();
        EXPECT_EQ(trace.Lines(), (Lines{kNotAvailable}));
    });
}

TEST_F(SmbusDriver, MissingIsAnInfoLineAlsoWhileTheTraceIsDisabled) {
    FaultOf<&::open> open;
    open.Fail(EACCES);
    TraceCapture trace{0};
    DiscoverSmbusDriverInfo();
    EXPECT_EQ(trace.Lines(), (Lines{kNotAvailable}));
}

TEST_F(SmbusDriver, ThatRefusesIsTracedWithItsReasonAndClosed) {
    FaultOf<&::open> open;
    open.Answer([](const char*, int flags, mode_t) {
        return LibcFault::Real<&::open>("/dev/null", flags);
    });
    FaultOf<&::ioctl> ioctl;
    ioctl.Fail(ENOTTY);
    TraceCapture trace{2};
    FaultOf<&::close> close;  // spoils errno, as a close may
    close.Answer([&](int fd) {
        EXPECT_THAT(trace.Lines(), IsEmpty());  // closed before the failure is told
        EXPECT_EQ(LibcFault::Real<&::close>(fd), 0);
        errno = EIO;
        return -1;
    });
    DiscoverSmbusDriverInfo();
    EXPECT_EQ(trace.Lines(),
              (Lines{"ZORN-MAIN::DiscoverSmbusDriverInfo: IOCTL_SMBUS_DRIVER_INFO (0xC00873FF) to "
                     "/dev/pci/smbus failed (errno=25: Inappropriate ioctl for device)",
                     kNotAvailable}));
    EXPECT_EQ(close.Calls(), 1);
}

TEST_F(SmbusDriver, ThatRefusesIsAnInfoLineAloneBelowLevel2) {
    FaultOf<&::open> open;
    open.Answer([](const char*, int flags, mode_t) {
        return LibcFault::Real<&::open>("/dev/null", flags);
    });
    FaultOf<&::ioctl> ioctl;
    ioctl.Return(-7, EINVAL);  // any negative result counts
    TraceCapture trace{1};
    DiscoverSmbusDriverInfo();
    EXPECT_EQ(trace.Lines(), (Lines{kNotAvailable}));
}

TEST_F(SmbusDriver, AnswersWithAPositiveResultToo) {
    FaultOf<&::open> open;
    open.Answer([](const char*, int flags, mode_t) {
        return LibcFault::Real<&::open>("/dev/null", flags);
    });
    FaultOf<&::ioctl> ioctl;
    ioctl.Return(1);
    TraceCapture trace{2};
    DiscoverSmbusDriverInfo();
    EXPECT_EQ(trace.Lines().size(), 35U);
}

}  // namespace
