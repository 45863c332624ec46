// The code and the commands of docs/modules.md, run as they stand there.

#include "examples/module_daemon.h"
#include "support/fenced_block.h"

namespace {

const std::string kDocument = SOURCE_DIRECTORY "/docs/modules.md";

using ModulesDocument = ModuleDaemonTest;

TEST_F(ModulesDocument, ItsModuleIsBuiltByItsCommandAndRuns) {
    m_Machine.File("/modules/heartbeat.cpp", FencedBlock(kDocument, "cpp"));
    m_Machine.File("/modules/build", FencedBlock(kDocument, "sh"));
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
