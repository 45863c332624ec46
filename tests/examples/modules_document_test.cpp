// The code and the commands of docs/modules.md, run as they stand there.

#include <fstream>
#include <iterator>

#include "examples/module_daemon.h"

namespace {

class ModulesDocument : public ModuleDaemonTest {
  protected:
    ModulesDocument() {
        std::ifstream file{SOURCE_DIRECTORY "/docs/modules.md"};
        m_Text.assign(std::istreambuf_iterator<char>{file}, {});
    }

    /// The only fenced block of that language.
    [[nodiscard]] std::string Block(const std::string& language) const {
        const std::string head = "\n```" + language + "\n";
        const auto begin = m_Text.find(head);
        if (begin == m_Text.npos || m_Text.find(head, begin + 1) != m_Text.npos) {
            ADD_FAILURE() << "docs/modules.md does not hold one block of " << language;
            return {};
        }
        const auto first = begin + head.size();
        return m_Text.substr(first, m_Text.find("\n```", first) + 1 - first);
    }

  private:
    std::string m_Text;
};

TEST_F(ModulesDocument, ItsModuleIsBuiltByItsCommandAndRuns) {
    m_Machine.File("/modules/heartbeat.cpp", Block("cpp"));
    m_Machine.File("/modules/build", Block("sh"));
    auto build =
        m_Machine.Start({"/bin/sh", "-e", "build"},
                        {.environment = {{"ZORN", SOURCE_DIRECTORY}}, .directory = "/modules"});
    ASSERT_EQ(build.Wait(), Exited(0)) << build.StandardError();
    EXPECT_EQ(build.StandardError(), "");

    auto daemon = StartDaemon();
    ASSERT_TRUE(daemon.WaitForFileText(kLog, "Heartbeat           : beat 1\n"));
    daemon.Signal(SIGTERM);
    EXPECT_EQ(daemon.Wait(), Exited(0)) << daemon.StandardError();

    auto lines = ModuleLines();
    ASSERT_EQ(std::erase(lines, "Heartbeat           : beat 1"), 1u);
    EXPECT_EQ(lines,
              (Lines{"ModuleHost          : Load the modules of /modules (force rescan 0, run "
                     "mode 5)",
                     "ModuleHost          : 1 of 1 modules loaded",
                     "ModuleHost          : Start heartbeat ...",
                     "ModuleHost          : Stop heartbeat ..."}));
}

}  // namespace
