#include "trace/startup_header.h"

#include <cstdlib>

#include "trace/debug.h"

constinit HeaderName g_EnvironmentNames[42] = {
    {"LD_LIBRARY_PATH", nullptr},
    {"QX_SYSTEM", nullptr},
    {"QX_OS", nullptr},
    {"QX_OS_MAJOR", nullptr},
    {"QX_OS_MINOR", nullptr},
    {"QX_VVOS", nullptr},
    {"QX_RELEASE", nullptr},
    {"QX_VENDOR", nullptr},
    {"QX_HOSTNAME", nullptr},
    {"QX_HOSTOSREVMAJOR", nullptr},
    {"QX_HOSTOSREVMINOR", nullptr},
    {"QX_SYSNAME", nullptr},
    {"QX_VERSION", nullptr},
    {"QX_NICKNAME", nullptr},
    {"QX_HWPLATFORM", nullptr},
    {"QX_RUNNINGONVM", nullptr},
    {"QX_RUNNINGONPAN", nullptr},
    {"QX_VMREL", nullptr},
    {"QX_ARCH", nullptr},
    {"QX_REPO", nullptr},
    {"QX_RAID_EXISTS", nullptr},
    {"QX_RAID_READY", nullptr},
    {"QX_RAID_VERSION", nullptr},
    {"QX_INSTALL_DATE", nullptr},
    {"QX_USE_SG_IO_HDR_T", nullptr},
    {"QX_AGENT_X_SOCKET", nullptr},
    {"QX_ZORN_REPLY_TIME", nullptr},
    {"QX_DAEMON_COREFILE_LIMIT", nullptr},
    {"QX_VME_WAIT_TIME_FOR_VMSERVER", nullptr},
    {"QX_SCS_PROVIDER_TRACE", nullptr},
    {"QX_SCS_NOSIGNAL", nullptr},
    {"QX_LOG_DYNAMIC_UPDATE", nullptr},
    {"QX_SCS_DEBUG_LEVEL", nullptr},
    {"QX_LOG_FILE_DIR", nullptr},
    {"QX_LOG_FILE_MAX_SIZE", nullptr},
    {"QX_LOG_RINGBUF_DIR", nullptr},
    {"QX_LOG_DEBUG_LEVEL", nullptr},
    {"QX_LOG_RINGBUF_WEIGHT", nullptr},
    {"QX_LOG_NOHDR_TOSDTERR", nullptr},
    {"LWD_QX_HOME", nullptr},
    {"LWD_SYSLOG_FIFO", nullptr},
    {nullptr, nullptr},
};

constinit HeaderName g_ConfigurationNames[14] = {
    {"AgentPermission", nullptr},
    {"AgentShut", nullptr},
    {"ShutdownDelay", nullptr},
    {"UserGroup", nullptr},
    {"ScanTapeDevices", nullptr},
    {"TraceFileLimit", nullptr},
    {"NoAccountCheck", nullptr},
    {"InventoryRescan", nullptr},
    {"CDPollInterval", nullptr},
    {"AgentsToBeStarted", nullptr},
    {"WaitForZornSockets", nullptr},
    {"WaitForZornTerm", nullptr},
    {"InvAgtPollNetUtilization", nullptr},
    {nullptr, nullptr},
};

namespace {

const char* OrNotSet(const char* value) {
    return value != nullptr ? value : "NotSet";
}

}  // namespace

void TakeHeaderEnvironment() {
    for (HeaderName* table : {g_EnvironmentNames, g_ConfigurationNames}) {
        for (HeaderName* row = table; row->name != nullptr; ++row) row->value = getenv(row->name);
    }
}

void CDebug::PrintHeader(unsigned target) {
    PrintCommandLine(target);
    PrintTo(target, "\nTarnhollow Environment:");
    PrintNames(target, g_EnvironmentNames);
    PrintOwnWeight(target);
    PrintTo(target, "\nTarnhollow Configuration File:");
    PrintNames(target, g_ConfigurationNames);
    PrintIniValues(target);
    PrintInternalValues(target);
    PrintTo(target, "\n# End of header.");
}

void CDebug::PrintCommandLine(unsigned target) {
    if (m_Argc <= 0) return;
    PrintTo(target, "\n%s Command Line Options:", m_ProgramName != nullptr ? m_ProgramName : "");
    for (int i = 0; i < m_Argc; ++i) PrintTo(target, "\nargv[%d] = \"%s\"", i, m_Argv[i]);
}

void CDebug::PrintNames(unsigned target, const HeaderName* row) {
    for (; row->name != nullptr; ++row) {
        PrintTo(target, "\n%s=%s", row->name, OrNotSet(row->value));
    }
}

/// The weight that is meant for this program alone, as it stands in the environment now.
void CDebug::PrintOwnWeight(unsigned target) {
    char variable[48] = "QX_LOG_RINGBUF_WEIGHT";
    if (m_ProgramName != nullptr && *m_ProgramName != '\0') {
        AppendNameSuffix(variable, sizeof variable, m_ProgramName);
    }
    PrintTo(target, "\n%s=%s", variable, OrNotSet(getenv(variable)));
}

// Numbers are printed signed: an absent one reads -1.

void CDebug::PrintIniValues(unsigned target) {
    PrintTo(target, "\nDebug values from ini file :");
    PrintTo(target, "\nDynamicUpdate              : %d", static_cast<int>(m_IniDynamicUpdate));
    PrintTo(target, "\nDebugLevel                 : %d", static_cast<int>(m_FileDebugLevel));
    PrintTo(target, "\nRingBufferSizeFactor       : %d", static_cast<int>(m_IniRingFactor));
    PrintTo(target, "\nRingBufferSizeWeight       : %d", static_cast<int>(m_IniRingWeight));
    PrintTo(target, "\nRingBufferDirectory        : %s", m_IniRingDirectory);
    PrintTo(target, "\nNo Header to LogFile       : %d", static_cast<int>(m_IniNoHeader));
}

void CDebug::PrintInternalValues(unsigned target) {
    PrintTo(target, "\nInternal Debug values      :");
    PrintTo(target, "\nProcess PID                : %d", m_Pid);
    PrintTo(target, "\nTrace Target               : %d", static_cast<int>(m_TraceTarget));
    PrintTo(target, "\nTrace Level                : %d", static_cast<int>(m_TraceLevel));
    PrintTo(target, "\nTrace Level Saved          : %d", static_cast<int>(m_TraceLevelSaved));
    PrintTo(target, "\nApplication Init Done      : %d", static_cast<int>(m_InitDone));
    PrintTo(target, "\nLogFile Path               : %s", m_LogPath);
    PrintTo(target, "\nLogFile Max Size           : %d", static_cast<int>(m_LogMaxSize));
    PrintTo(target, "\nRing Buffer FD             : %d", m_RingFd);
    PrintTo(target, "\nRing Buffer Factor         : %d", m_RingFactor);
    PrintTo(target, "\nRing Buffer Weight         : %d", m_RingWeight);
    PrintTo(target, "\nRing Buffer Size           : %d", static_cast<int>(m_RingSize));
    PrintTo(target, "\nRing Buffer Directory      : %s", m_LogDirectory);
    PrintTo(target, "\nRing Buffer Path           : %s", m_RingPath);
    PrintTo(target, "\nNo Header to LogFile       : %d", m_NoHeader);
}
