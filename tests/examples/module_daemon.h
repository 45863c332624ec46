#pragma once

#include <signal.h>

#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "support/fake_host.h"
#include "support/trace_capture.h"

inline constexpr const char* kLog = "/var/log/tolbrin/log.zorn";

/// The real daemon on a fake machine, with the reference module host and what a test puts into
/// /modules.
class ModuleDaemonTest : public testing::Test {
  protected:
    FakeHost m_Machine;
    StartOptions m_Options;

    ModuleDaemonTest() {
        m_Machine.Directory("/modules");
        m_Machine.Directory("/var/log/tolbrin");
        m_Options.environment = {{"LD_LIBRARY_PATH", FakeHost::LibraryDirectory()},
                                 {"ZORN_MODULE_DIR", "/modules"},
                                 {"QX_LOG_DEBUG_LEVEL", "2"}};
    }

    void Install(const std::string& module) {
        m_Machine.Link("/modules/" + module + ".so", TEST_MODULES "/" + module + ".so");
    }

    /// Starts the daemon and waits until it waits for signals.
    HostProcess StartDaemon() {
        if (m_Machine.Exists(kLog)) m_Machine.Remove(kLog);
        auto daemon = m_Machine.Start({FakeHost::Executable()}, m_Options);
        EXPECT_TRUE(daemon.WaitForFileText(kLog, "Waiting for signals..."));
        return daemon;
    }

    /// The daemon's whole life with a SIGTERM at its end.
    void RunDaemon() {
        auto daemon = StartDaemon();
        daemon.Signal(SIGTERM);
        EXPECT_EQ(daemon.Wait(), Exited(0)) << daemon.StandardError();
    }

    /// The lines of the log that a module or the module host wrote.
    [[nodiscard]] Lines ModuleLines() const {
        Lines lines;
        std::istringstream log{m_Machine.Read(kLog)};
        for (std::string line; std::getline(log, line);) {
            const auto text = CutTracePrefix(line);
            for (const char* writer :
                 {"ModuleHost ", "TestModule ", "MachineReport ", "Heartbeat "}) {
                if (text.starts_with(writer)) lines.emplace_back(text);
            }
        }
        return lines;
    }
};
