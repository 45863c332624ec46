#pragma once

/// A variable of the environment and the value it had at `CDebug::Init` (a pointer into the
/// environment; null if it was not set). The last row of a table has a null name.
struct HeaderName {
    const char* name;
    const char* value;
};

/// The variables that the header shows as the suite's environment and as its configuration. The
/// values are process-wide state, written by `TakeHeaderEnvironment` and read under the trace's
/// lock.
extern HeaderName g_EnvironmentNames[42];
extern HeaderName g_ConfigurationNames[14];

/// Fills the value column of both tables.
void TakeHeaderEnvironment();
