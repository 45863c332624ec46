#include "zornctl/system/trace_settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <random>

#include "support/every_prefix.h"
#include "support/fake_host.h"
#include "support/libc_fault.h"
#include "trace/open_debug.h"
#include "zornctl/output/failure.h"
#include "zornctl/system/service_paths.h"

using namespace zornctl;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

namespace fs = std::filesystem;

constexpr const char* kDirectory = zornctl::kConfigDirectory;

// --- The trace as the judge ----------------------------------------------------------------------

const Setting& Find(const TraceSettings& settings, std::string_view name) {
    for (const auto& row : settings.rows) {
        if (row.name == name) return row;
    }
    throw std::runtime_error{"no setting " + std::string{name}};
}

uint32_t Number(const TraceSettings& settings, std::string_view name) {
    return static_cast<uint32_t>(std::stoul(Find(settings, name).value));
}

/// Compares every setting with what the trace of this process makes of the same machine.
void CompareWithTheTrace() {
    SyslogCapture quiet;  // a directory that is not there
    OpenDebug debug;
    debug.Init("zorn");
    const auto settings = SettleTraceSettings(ReadSettingsInput(kDirectory, OwnEnvironment()));
    EXPECT_EQ(Number(settings, "level"), debug.m_TraceLevelSaved);
    EXPECT_EQ(Number(settings, "log_max_size"), debug.m_LogMaxSize);
    EXPECT_EQ(settings.logMaxSize, debug.m_LogMaxSize);
    EXPECT_EQ(Number(settings, "dynamic_update"), debug.m_DynamicUpdate);
    EXPECT_EQ(Number(settings, "ring_factor"),
              static_cast<uint32_t>(std::max(debug.m_RingFactor, 1)));
    EXPECT_EQ(Number(settings, "ring_weight"),
              static_cast<uint32_t>(std::max(debug.m_RingWeight, 1)));
    EXPECT_EQ(Number(settings, "no_header"), static_cast<uint32_t>(debug.m_NoHeader));
    EXPECT_EQ(Number(settings, "memory_figure") != 0, debug.m_MemoryTraces != 0);
    EXPECT_EQ(Number(settings, "trace_flags"), debug.m_TraceFlags);
    EXPECT_EQ(Find(settings, "directory").value, debug.m_LogDirectory);
    EXPECT_EQ(settings.logPath, debug.m_LogPath);
}

TEST(TraceSettings, AreThoseOfTheTraceWithoutADirectory) {
    FakeHost host;
    host.Run(CompareWithTheTrace);
}

TEST(TraceSettings, AreThoseOfTheTraceWithAnEmptyDirectory) {
    FakeHost host;
    host.Directory(kDirectory);
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "5", 1);
        CompareWithTheTrace();
    });
}

/// Makes directories and environments of pieces that are known to be awkward.
class MadeMachine {
  public:
    explicit MadeMachine(unsigned seed) : m_Random(seed) {}

    void Make() {
        std::error_code error;
        fs::remove_all(kDirectory, error);
        fs::create_directories(kDirectory);
        for (const char* name : {"a.ini", "global_trace.ini", "z.ini.bak", ".#lock.ini", "x.txt"}) {
            if (Pick(1) == 0) std::ofstream{fs::path{kDirectory} / name} << File();
        }
        for (const char* name : {"QX_LOG_DYNAMIC_UPDATE", "QX_LOG_FILE_DIR", "QX_LOG_FILE_MAX_SIZE",
                                 "QX_LOG_RINGBUF_DIR", "QX_LOG_DEBUG_LEVEL", "TraceFileLimit",
                                 "QX_LOG_RINGBUF_WEIGHT", "QX_LOG_NOHDR_TOSDTERR"}) {
            (void)unsetenv(name);
            if (Pick(3) == 0) (void)setenv(name, Value().c_str(), 1);
        }
    }

    [[nodiscard]] std::string Describe() const {
        std::string text;
        for (const auto& entry : fs::directory_iterator{kDirectory}) {
            text += entry.path().filename().native() + ":\n" + FileText(entry.path()) + "\n";
        }
        for (const auto& [name, value] : OwnEnvironment()) {
            if (name.starts_with("QX_") || name == "TraceFileLimit")
                text += name + "=" + value + "\n";
        }
        return text;
    }

  private:
    size_t Pick(size_t limit) { return std::uniform_int_distribution<size_t>{0, limit}(m_Random); }

    std::string Value() {
        const std::vector<std::string> values{"0",
                                              "3",
                                              "",
                                              "x",
                                              "-1",
                                              "0x10",
                                              "010",
                                              "4294967295",
                                              "0xFFFFFFFF",
                                              "5x",
                                              " 7 ",
                                              "99999999999999999999",
                                              "/var/log/other",
                                              "/var/log/tolbrin\r",
                                              std::string(300, 'd')};
        return values[Pick(values.size() - 1)];
    }

    std::string Section(const std::string& name) {
        std::string text = "[" + name + "]\n";
        for (const char* key :
             {"FileDebugLevel", "TraceFlags", "RingBufferSizeFactor", "RingBufferSizeWeight",
              "RingBufferDirectory", "NoHeaderToStderr", "MemoryTracesFlag", "DynamicUpdate"}) {
            if (Pick(5) == 0) text += std::string{"# "} + key + " is a comment\n";
            if (Pick(7) == 0) text += "[cut";
            if (Pick(1) == 0)
                text += std::string{key} + (Pick(3) == 0 ? " =" : "=") + Value() + "\n";
        }
        return text;
    }

    std::string File() {
        std::string text = Pick(4) == 0 ? "no section\n" : "";
        for (const char* name : {"GlobalDebugSettings", "zorn", "ZORN", "other"}) {
            if (Pick(2) == 0) text += Section(name);
        }
        return Pick(5) == 0 ? text : text + "[EndOfFile]\n";
    }

    std::mt19937 m_Random;
};

TEST(TraceSettings, AreThoseOfTheTraceOnAnyMachine) {
    FakeHost host;
    host.Directory("/var/log/tolbrin");
    host.Run([] {
        for (unsigned seed = 0; seed < 1000 && !testing::Test::HasFailure(); ++seed) {
            MadeMachine machine{seed};
            machine.Make();
            CompareWithTheTrace();
            if (testing::Test::HasFailure()) ADD_FAILURE() << seed << '\n' << machine.Describe();
        }
    });
}

// --- Origins -------------------------------------------------------------------------------------

SettingsInput Input(const std::vector<std::pair<std::string, std::string>>& files,
                    const Environment& environment = {}) {
    SettingsInput input{"/config", files.empty() ? ENOENT : 0, {}, environment};
    for (const auto& [name, text] : files) input.files.push_back({"/config/" + name, text, {}});
    return input;
}

std::string OriginOf(const TraceSettings& settings, std::string_view name) {
    const auto& row = Find(settings, name);
    switch (row.origin) {
        case SettingOrigin::kEnvironment:
            return "environment: " + row.place;
        case SettingOrigin::kFile:
            return "file: " + row.place;
        case SettingOrigin::kDefault:
            return "default" + row.place;
        case SettingOrigin::kNone:
            break;
    }
    return "none" + row.place;
}

TEST(TraceSettings, TellWhereEachValueComesFrom) {
    const auto settings = SettleTraceSettings(
        Input({{"global_trace.ini",
                "[GlobalDebugSettings]\nDynamicUpdate=60\n[zorn]\nFileDebugLevel=3\n"
                "RingBufferDirectory=/var/log/x\n[EndOfFile]\n"}},
              {{"QX_LOG_DEBUG_LEVEL", "5"}}));
    EXPECT_EQ(OriginOf(settings, "level"), "environment: QX_LOG_DEBUG_LEVEL");
    EXPECT_EQ(Find(settings, "level").value, "5");
    EXPECT_EQ(OriginOf(settings, "dynamic_update"),
              "file: /config/global_trace.ini [GlobalDebugSettings] DynamicUpdate");
    EXPECT_EQ(OriginOf(settings, "directory"),
              "file: /config/global_trace.ini [zorn] RingBufferDirectory");
    EXPECT_EQ(OriginOf(settings, "ring_factor"), "default");
    EXPECT_THAT(settings.warnings, IsEmpty());
    EXPECT_EQ(settings.logPath, "/var/log/x/log.zorn");
}

TEST(TraceSettings, HaveNoOriginWhereTheDirectoryIsEmpty) {
    SettingsInput input{"/config", 0, {}, {{"QX_LOG_DEBUG_LEVEL", "5"}}};
    const auto settings = SettleTraceSettings(input);
    for (const auto& row : settings.rows) EXPECT_EQ(row.origin, SettingOrigin::kNone) << row.name;
    EXPECT_EQ(settings.logPath, "/log.zorn");
}

// --- Traps ---------------------------------------------------------------------------------------

/// "PLACE: CAUSE" of all warnings.
std::vector<std::string> Warnings(const SettingsInput& input) {
    std::vector<std::string> texts;
    for (const auto& warning : SettleTraceSettings(input).warnings) {
        EXPECT_NE(warning.remedy, "");
        texts.push_back(warning.place + ": " + warning.cause);
    }
    return texts;
}

std::string ZornFile(const std::string& lines) {
    return "[zorn]\n" + lines + "[EndOfFile]\n";
}

TEST(TraceWarnings, AreNoneForPlainSettings) {
    EXPECT_THAT(Warnings(Input({{"zorn.ini", ZornFile("FileDebugLevel=3\nTraceFlags = 0x1F\r\n")}},
                               {{"QX_LOG_FILE_MAX_SIZE", "1000"},
                                {"QX_LOG_RINGBUF_WEIGHT_ZORN", "x"},
                                {"QX_OS", ""}})),
                IsEmpty());
    EXPECT_THAT(Warnings(Input({})), IsEmpty());
}

TEST(TraceWarnings, TellOfAFileWithoutTrailer) {
    EXPECT_THAT(Warnings(Input({{"a.ini", "[zorn]\nFileDebugLevel=3\n"}})),
                ElementsAre("/config/a.ini: does not end with [EndOfFile]: the whole file is "
                            "ignored"));
    EXPECT_THAT(Warnings(Input({{"a.ini", "[other]\n"}, {"b.ini", "[EndOfFile"}, {"c.ini", ""}})),
                testing::SizeIs(3));
    EXPECT_THAT(Warnings(Input({{"a.ini", "[other]\n[endoffile] \n"}})), IsEmpty());
}

TEST(TraceWarnings, TellOfAKeyMetInsideOtherText) {
    const std::string place = "/config/a.ini [zorn] FileDebugLevel: ";
    const std::string cause =
        "the name is met first inside other text, a comment perhaps, and "
        "what is read is what follows the next '='";
    for (const char* lines :
         {"# FileDebugLevel is new\nFileDebugLevel=3\n", ";FileDebugLevel=5\nFileDebugLevel=3\n",
          "MyFileDebugLevel=3\n", "FileDebugLevel2=3\n", "FileDebugLevel\nTraceFlags=3\n"}) {
        EXPECT_THAT(Warnings(Input({{"a.ini", ZornFile(lines)}})), testing::Contains(place + cause))
            << lines;
    }
}

TEST(TraceWarnings, TellOfAKeyWithoutAValue) {
    EXPECT_THAT(Warnings(Input({{"a.ini", ZornFile("FileDebugLevel=\nTraceFlags=3\n")}})),
                testing::Contains("/config/a.ini [zorn] FileDebugLevel: nothing stands behind '=': "
                                  "what the next line holds is read"));
}

TEST(TraceWarnings, TellOfAValueOfAllOnes) {
    for (const char* value : {"0xFFFFFFFF", "4294967295", "-1"}) {
        const std::string line = std::string{"FileDebugLevel="} + value + "\n";
        EXPECT_THAT(Warnings(Input({{"a.ini", ZornFile(line)}})),
                    ElementsAre("/config/a.ini [zorn] FileDebugLevel: a value of all ones counts "
                                "as if the key were not there"));
    }
}

TEST(TraceWarnings, TellHowAnIniNumberIsRead) {
    const auto warnings = [](const std::string& value) {
        return Warnings(Input({{"a.ini", ZornFile("FileDebugLevel=" + value + "\n")}}));
    };
    const std::string place = "/config/a.ini [zorn] FileDebugLevel: ";
    EXPECT_THAT(warnings("010"), ElementsAre(place + "a number that begins with 0 is read as "
                                                     "octal: it counts as 8"));
    EXPECT_THAT(warnings("high"), ElementsAre(place + "'high' counts as 0: it is no decimal number "
                                                      "of 32 bits"));
    EXPECT_THAT(warnings("3 ; finest"), ElementsAre(place + "'3 ; finest' counts as 3: it is no "
                                                            "decimal number of 32 bits"));
    EXPECT_THAT(warnings("4294967296"), ElementsAre(place + "'4294967296' counts as 0: it is no "
                                                            "decimal number of 32 bits"));
    EXPECT_THAT(warnings("0x1F"), IsEmpty());
    EXPECT_THAT(warnings("0"), IsEmpty());
}

TEST(TraceWarnings, TellOfAVariableThatIsEmptyOrNoNumber) {
    const auto warnings = [](const std::string& value) {
        return Warnings(Input({}, {{"QX_LOG_DEBUG_LEVEL", value}}));
    };
    EXPECT_THAT(warnings(""), ElementsAre("QX_LOG_DEBUG_LEVEL: is set but empty: it counts as 0"));
    EXPECT_THAT(warnings("0x5"), ElementsAre("QX_LOG_DEBUG_LEVEL: '0x5' counts as 0: it is no "
                                             "decimal number of 32 bits"));
    EXPECT_THAT(warnings("-1"), ElementsAre("QX_LOG_DEBUG_LEVEL: '-1' counts as 4294967295: it is "
                                            "no decimal number of 32 bits"));
    EXPECT_THAT(Warnings(Input({}, {{"TraceFileLimit", "2 MB"}})), testing::SizeIs(1));
}

TEST(TraceWarnings, TellOfAVariableWithoutEffect) {
    EXPECT_THAT(Warnings(Input({}, {{"QX_LOG_FILE_DIR", "/x"}})),
                ElementsAre("QX_LOG_FILE_DIR: is read and has no effect"));
}

TEST(TraceWarnings, TellOfAVariableThatIsSpelledAsOneWouldExpect) {
    const auto settings = SettleTraceSettings(Input({}, {{"QX_LOG_NOHDR_TOSTDERR", "0"}}));
    ASSERT_EQ(settings.warnings.size(), 1u);
    EXPECT_EQ(settings.warnings[0].place, "QX_LOG_NOHDR_TOSTDERR");
    EXPECT_EQ(settings.warnings[0].cause, "is no variable of the trace");
    EXPECT_EQ(settings.warnings[0].remedy, "did you mean QX_LOG_NOHDR_TOSDTERR?");
}

TEST(TraceWarnings, TellOfTheDirectoryOfTheLog) {
    const auto warnings = [](const std::string& value) {
        return Warnings(Input({}, {{"QX_LOG_RINGBUF_DIR", value}}));
    };
    EXPECT_THAT(warnings("/var/log"), IsEmpty());
    EXPECT_THAT(warnings(""), ElementsAre("QX_LOG_RINGBUF_DIR: is set but empty: the log goes to "
                                          "the root directory"));
    EXPECT_THAT(warnings("logs"), ElementsAre("QX_LOG_RINGBUF_DIR: 'logs' begins where the service "
                                              "is started"));
    EXPECT_THAT(warnings("/x "), ElementsAre("QX_LOG_RINGBUF_DIR: blanks or a carriage return at "
                                             "the ends of the value belong to the path"));
    EXPECT_THAT(warnings("/" + std::string(255, 'x')),
                ElementsAre("QX_LOG_RINGBUF_DIR: is longer than 255 bytes: the path is cut there"));
}

TEST(TraceWarnings, TellOfAnEmptyDirectory) {
    SettingsInput input{"/config", 0, {}, {}};
    EXPECT_THAT(Warnings(input),
                ElementsAre("/config: the directory holds no ini file: no setting is made, not "
                            "even the default ones, and the environment is not read"));
}

TEST(TraceWarnings, TellOfAFileThatCannotBeRead) {
    SettingsInput input{"/config", true, {{"/config/a.ini", std::nullopt, "Is a directory"}}, {}};
    EXPECT_THAT(Warnings(input), ElementsAre("/config/a.ini: cannot be read: Is a directory"));
}

TEST(TraceWarnings, TellOfASecondFileWithTheSection) {
    const auto text = ZornFile("FileDebugLevel=3\n");
    EXPECT_THAT(Warnings(Input({{"a.ini", text}, {"b.ini", text}})),
                ElementsAre("/config/b.ini: has a section [zorn] too: only that of /config/a.ini "
                            "is read"));
}

TEST(TraceWarnings, TellOfASectionThatEndsWithinALine) {
    EXPECT_THAT(Warnings(Input({{"a.ini", ZornFile("TraceFlags=1\nFileDebugLevel=3 [x\n")}})),
                testing::Contains("/config/a.ini [zorn] : a '[' within a line ends the section: "
                                  "what follows is ignored"));
}

TEST(TraceWarnings, TellOfAKeyInTheOtherSection) {
    EXPECT_THAT(Warnings(Input({{"a.ini", ZornFile("DynamicUpdate=60\n")}})),
                ElementsAre("/config/a.ini [zorn] DynamicUpdate: is not read in this section"));
    EXPECT_THAT(Warnings(Input({{"global_trace.ini",
                                 "[GlobalDebugSettings]\nFileDebugLevel=3\n[EndOfFile]\n"}})),
                ElementsAre("/config/global_trace.ini [GlobalDebugSettings] FileDebugLevel: is not "
                            "read in this section"));
}

// --- Reading -------------------------------------------------------------------------------------

TEST(ReadSettingsInput, ReadsTheFilesThatTheTraceReadsInTheirOrder) {
    FakeHost host;
    for (const char* name : {"b.ini", "a.ini.bak", "c.txt", ".#a.ini"}) {
        host.File(std::string{kDirectory} + "/" + name, name);
    }
    host.Directory(std::string{kDirectory} + "/d.ini");
    host.Run([] {
        const auto input = ReadSettingsInput(kDirectory, {});
        EXPECT_EQ(input.error, 0);
        ASSERT_EQ(input.files.size(), 3u);
        EXPECT_EQ(input.files[0].path, std::string{kDirectory} + "/a.ini.bak");
        EXPECT_EQ(input.files[0].text, "a.ini.bak");
        EXPECT_EQ(input.files[1].text, "b.ini");
        EXPECT_EQ(input.files[2].text, std::nullopt);
        EXPECT_EQ(input.files[2].error, "Is a directory");
    });
}

TEST(ReadSettingsInput, TellsWhyADirectoryCannotBeRead) {
    FakeHost host;
    host.File("/file", "");
    host.Link("/loop", "loop");
    host.Directory("/secret", 0);
    host.Run(
        [] {
            EXPECT_EQ(ReadSettingsInput("/nowhere", {}).error, ENOENT);
            EXPECT_EQ(ReadSettingsInput("/file", {}).error, ENOTDIR);
            EXPECT_EQ(ReadSettingsInput("/loop", {}).error, ELOOP);
            EXPECT_EQ(ReadSettingsInput("/secret", {}).error, EACCES);
        },
        {.uid = 1000});
}

TEST(TraceSettings, AreThoseOfTheTraceWithADirectoryThatCannotBeRead) {
    FakeHost host;
    host.Link(kDirectory, "TraceConfig");
    host.Run([] {
        setenv("QX_LOG_DEBUG_LEVEL", "5", 1);
        CompareWithTheTrace();
    });
}

TEST(TraceSettings, ShowTheSizeOfTheRingThatApplies) {
    for (const char* text : {"0", "-1", "x", ""}) {
        SettingsInput input;
        input.error = ENOENT;
        input.environment = {{"TraceFileLimit", text}, {"QX_LOG_RINGBUF_WEIGHT", text}};
        const auto settings = SettleTraceSettings(input);
        EXPECT_EQ(Find(settings, "ring_factor").value, "1") << text;
        EXPECT_EQ(Find(settings, "ring_weight").value, "1") << text;
    }
}

TEST(ParseEnvironment, NeverLooksBeyondTheText) {
    EveryPrefix(std::string_view{"A=1\0=\0B\0A=2\0C=", 15},
                [](std::string_view text) { (void)ParseEnvironment(text); });
}

TEST(ParseEnvironment, KeepsTheFirstOfTwoAndSkipsWhatIsNone) {
    using namespace std::string_view_literals;
    EXPECT_EQ(ParseEnvironment("A=1\0B=\0A=2\0none\0C=x=y"sv),
              (Environment{{"A", "1"}, {"B", ""}, {"C", "x=y"}}));
    EXPECT_EQ(ParseEnvironment(""), Environment{});
}

}  // namespace
