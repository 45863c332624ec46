// docs/zornctl-json.md against what zornctl writes: the keys, types and listed values that are
// documented are those that are produced, no more and no less.

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <set>
#include <sstream>

#include "trace/open_debug.h"
#include "zornctl/command_line/command_table.h"
#include "zornctl/healthy_host.h"
#include "zornctl/system/service_paths.h"
#include "zornctl/trace_samples.h"
#include "zornctl/zornctl_run.h"

using namespace zornctl;

namespace {

using Words = std::set<std::string>;

struct Key {
    Words types;
    Words values;  ///< where the documents list them, or those produced

    bool operator==(const Key&) const = default;
};

using Keys = std::map<std::string, Key>;

// --- The document --------------------------------------------------------------------------------

/// The texts between backticks.
std::vector<std::string> Quoted(const std::string& text) {
    std::vector<std::string> quoted;
    for (size_t at = text.find('`'); at != text.npos; at = text.find('`', at)) {
        const size_t end = text.find('`', at + 1);
        quoted.push_back(text.substr(at + 1, end - at - 1));
        at = end + 1;
    }
    return quoted;
}

Words TypesOf(const std::string& cell) {
    Words types;
    std::istringstream words{cell};
    for (std::string word; words >> word;) {
        if (word != "or") types.insert(word);
    }
    return types;
}

/// The values that a row lists behind "one of"; empty if it lists none.
Words ValuesOf(const std::string& cell) {
    const auto list = cell.find("one of ");
    if (list == cell.npos) return {};
    const auto values = Quoted(cell.substr(list));
    return {values.begin(), values.end()};
}

/// The sections of the document that hold a table of keys, by their headings.
std::map<std::string, Keys> ReadDocument() {
    std::ifstream file{ZORN_SOURCE_DIR "/docs/zornctl-json.md"};
    std::map<std::string, Keys> sections;
    std::string heading;
    for (std::string line; std::getline(file, line);) {
        if (line.starts_with("## ")) heading = line.substr(3);
        if (!line.starts_with("| `")) continue;
        std::istringstream row{line.substr(1)};
        std::string key;
        std::string type;
        std::string what;
        std::getline(row, key, '|');
        std::getline(row, type, '|');
        std::getline(row, what, '|');
        sections[heading][Quoted(key).at(0)] = {TypesOf(type), ValuesOf(what)};
    }
    return sections;
}

// --- What is produced ----------------------------------------------------------------------------

/// Adds what stands in `value`, each leaf by its path.
void Collect(Keys& keys, const std::string& path, const nlohmann::json& value) {
    if (value.is_object()) {
        for (const auto& [name, member] : value.items()) {
            Collect(keys, path.empty() ? name : path + "." + name, member);
        }
    } else if (value.is_array()) {
        for (const auto& element : value) Collect(keys, path + "[]", element);
    } else {
        keys[path].types.insert(value.type_name());
        if (value.is_string()) keys[path].values.insert(value.get<std::string>());
    }
}

/// A machine on which each value of each key occurs in one of the calls below.
class JsonOutput : public testing::Test {
  protected:
    JsonOutput() {
        MakeHealthy(m_Host);
        m_Host.Directory("/opt/Corvanthimex/lib64", 0777);
        m_Host.File("/log", Line(1, "head") +
                                Line(5, "------ WRAP ----- Cycle=1, CntInitEnd=" +
                                            std::to_string(Line(1, "head").size()) +
                                            ", CurrentByteCnt=9 (MaxCnt=9999)") +
                                Line(6, "newest \xFF") + "cut\n" + Line(3, "older"));
        m_Host.File("/unknown",
                    "yyyy-mm-dd hh:mm:ss.mmm [0000000012]     9400 KB !zorn          a\n");
        m_Host.File("/config/global_trace.ini",
                    "[GlobalDebugSettings]\nDynamicUpdate=-1\n[zorn]\nFileDebugLevel=3\n"
                    "[EndOfFile]\n");
        m_Host.Directory("/empty");
        m_Host.Run([] {
            OpenDebug debug;
            debug.m_TraceLevel = 1;
            debug.m_RingSize = 16384;
            const RecursiveLockGuard hold{debug.Lock()};
            ASSERT_TRUE(debug.InitRingBuffer("/ring", 16384));
        });
    }

    Keys Produce(const std::vector<std::vector<std::string>>& calls) {
        Keys keys;
        for (auto call : calls) {
            call.emplace_back("--json");
            const auto run =
                RunZornctl(m_Host, call, {.environment = {{"QX_LOG_FILE_MAX_SIZE", "1000"}}});
            Collect(keys, "", run.Json());
        }
        return keys;
    }

    /// The objects of a follower, until it has shown `last`.
    Keys Follow(const std::vector<std::string>& arguments, const std::string& last) {
        auto follower = StartZornctl(m_Host, arguments);
        EXPECT_TRUE(follower.WaitForStandardOutput(last));
        Keys keys;
        std::istringstream lines{follower.StandardOutput()};
        for (std::string line; std::getline(lines, line);) {
            Collect(keys, "", nlohmann::json::parse(line));
        }
        return keys;
    }

    FakeHost m_Host;
};

Keys Union(Keys keys, const Keys& more) {
    for (const auto& [name, key] : more) {
        keys[name].types.insert(key.types.begin(), key.types.end());
        keys[name].values.insert(key.values.begin(), key.values.end());
    }
    return keys;
}

/// The sections that are compared below.
const Words kCompared{"`log`, `ring`",
                      "`log --follow`, `ring --follow`",
                      "`check-config`",
                      "`doctor`",
                      "`registry list`",
                      "`registry get`",
                      "`registry export`",
                      "`registry set`, `registry delete`, `registry create`, `registry import`",
                      "`xml check`",
                      "`xml get`",
                      "`help`, `generate`",
                      "`--version`",
                      "Failures"};

void Compare(const std::string& heading, Keys produced) {
    SCOPED_TRACE(heading);
    const auto sections = ReadDocument();
    ASSERT_TRUE(kCompared.contains(heading) && sections.contains(heading));
    const auto documented = Union(sections.at("Every object"), sections.at(heading));
    for (auto& [name, key] : produced) {
        const auto row = documented.find(name);
        if (row == documented.end() || row->second.values.empty()) key.values.clear();
    }
    for (const auto& [name, key] : documented) {
        EXPECT_TRUE(produced.contains(name)) << name << " is documented and not produced";
        EXPECT_EQ(produced[name].types, key.types) << name;
        EXPECT_EQ(produced[name].values, key.values) << name;
    }
    for (const auto& [name, key] : produced) {
        EXPECT_TRUE(documented.contains(name)) << name << " is produced and not documented";
    }
}

TEST(JsonDocument, HasASectionForEverySubcommand) {
    Words names;
    for (const auto& [heading, keys] : ReadDocument()) {
        for (const auto& name : Quoted(heading)) names.insert(name);
    }
    for (const auto& command : Commands()) {
        const std::string name{command.name};
        EXPECT_TRUE(!command.actions.empty() || names.contains(name)) << name;
        for (const auto& action : command.actions) {
            EXPECT_TRUE(names.contains(name + " " + std::string{action.name})) << action.name;
        }
    }
}

TEST(JsonDocument, HasNoSectionThatIsNotCompared) {
    Words headings{kCompared};
    headings.insert("Every object");  // with each of the others
    Words documented;
    for (const auto& [heading, keys] : ReadDocument()) documented.insert(heading);
    EXPECT_EQ(documented, headings);
}

TEST_F(JsonOutput, IsWhatIsDocumentedOfLogAndRing) {
    Compare("`log`, `ring`", Produce({{"log", "/log"}, {"log", "/unknown"}, {"ring", "/ring"}}));
}

TEST_F(JsonOutput, IsWhatIsDocumentedOfFollowing) {
    const auto log = Follow({"log", "-f", "--json", "/log"}, "newest \\\\xff");
    const auto unknown = Follow({"log", "-f", "--json", "/unknown"}, "9400");
    const auto ring = Follow({"ring", "-f", "--json", "/ring"}, "Start of initialization");
    Compare("`log --follow`, `ring --follow`", Union(Union(log, unknown), ring));
}

TEST_F(JsonOutput, IsWhatIsDocumentedOfCheckConfig) {
    Compare("`check-config`", Produce({{"check-config", "--directory", "/config"},
                                       {"check-config", "--directory", "/empty"},
                                       {"check-config"}}));
}

TEST_F(JsonOutput, IsWhatIsDocumentedOfDoctor) {
    auto produced = Produce({{"doctor"}});
    m_Host.Remove("/sys/class");
    Compare("`doctor`", Union(produced, Produce({{"doctor"}})));
}

TEST_F(JsonOutput, IsWhatIsDocumentedOfTheRegistry) {
    m_Host.File(std::string{kRegistryDirectory} + "/registry",
                "[HKEY_USERS]\na=s=1\nb=es=2\nc=b=00 \nd=d=4\ne=s=\xFF\n\n\n");
    m_Host.File("/in", "[HKEY_USERS]\nx=s=1\nlost\n\n\n");
    const std::string key = "HKEY_USERS";
    Compare("`registry list`", Produce({{"registry", "list"}, {"registry", "list", "-r"}}));
    Compare("`registry get`", Produce({{"registry", "get", key, "a"},
                                       {"registry", "get", key, "b"},
                                       {"registry", "get", key, "c"},
                                       {"registry", "get", key, "d"},
                                       {"registry", "get", key, "e"}}));
    Compare("`registry export`", Produce({{"registry", "export"}}));
    Compare("`registry set`, `registry delete`, `registry create`, `registry import`",
            Produce({{"registry", "set", key, "a", "x"},
                     {"registry", "create", "HKEY_USERS/k"},
                     {"registry", "delete", key, "a"},
                     {"registry", "import", "--force", "/in"}}));
}

TEST_F(JsonOutput, IsWhatIsDocumentedOfXml) {
    m_Host.File("/good.xml", "<list><item id='7'>a</item></list>");
    m_Host.File("/bad.xml", "<a></b></a><c/>");
    Compare("`xml check`", Produce({{"xml", "check", "/good.xml", "/bad.xml"}}));
    Compare("`xml get`", Produce({{"xml", "get", "//item", "/good.xml"}}));
}

TEST_F(JsonOutput, IsWhatIsDocumentedOfTheTextsAboutItself) {
    Compare("`help`, `generate`",
            Produce({{"help"}, {"--help"}, {"log", "--help"}, {"generate", "man"}}));
    Compare("`--version`", Produce({{"--version"}}));
}

TEST_F(JsonOutput, IsWhatIsDocumentedOfFailures) {
    Compare("Failures", Produce({{"log", "/missing"}, {"lgo"}, {"log", "/empty"}, {"ring"}}));
}

}  // namespace
