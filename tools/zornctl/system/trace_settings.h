#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The settings of the trace as a service would find them: the same answers as
// `CDebugTraceConfig::ReadTraceConfig` (trace/debug_trace_config.h), each with its origin, and the
// traps that lie in the way.

namespace zornctl {

using Environment = std::map<std::string, std::string, std::less<>>;

/// An ini file of the configuration directory.
struct SettingsFile {
    std::string path;
    std::optional<std::string> text;  ///< empty: it could not be read
    std::string error;                ///< why, then
};

/// What the settings are made from.
struct SettingsInput {
    std::string directory;
    int error = 0;                    ///< why the directory cannot be read; 0: it was read
    std::vector<SettingsFile> files;  ///< in the order of their names
    Environment environment;
};

enum class SettingOrigin {
    kEnvironment,  ///< `Setting::place` is the variable
    kFile,         ///< `Setting::place` is "PATH [section] Key"
    kDefault,      ///< `Setting::place` is empty
    kNone,         ///< nothing is read: the configuration directory holds no ini file
};

struct Setting {
    std::string_view name;   ///< "level", for programs
    std::string_view title;  ///< the same for people
    std::string value;       ///< a decimal number or a path
    bool isNumber = true;
    SettingOrigin origin = SettingOrigin::kDefault;
    std::string place;
};

struct SettingWarning {
    std::string place;   ///< path or variable
    std::string cause;   ///< what is not as it seems
    std::string remedy;  ///< what to do
};

struct TraceSettings {
    std::vector<Setting> rows;
    std::vector<SettingWarning> warnings;
    std::string logDirectory;
    std::string logPath;
    uint32_t logMaxSize = 0;
};

/// Finds all settings and warnings. Pure. Thread-safety of all here: any thread; no state.
[[nodiscard]] TraceSettings SettleTraceSettings(const SettingsInput& input);

/// Reads the directory and its ini files. Of one that cannot be read the service takes as much as of
/// one that is not there: nothing.
[[nodiscard]] SettingsInput ReadSettingsInput(const std::string& directory,
                                              Environment environment);

/// The environment of this process.
[[nodiscard]] Environment OwnEnvironment();

/// The environment that a process was started with. Throws `Failure` if it cannot be read.
[[nodiscard]] Environment EnvironmentOf(uint32_t pid);

/// Reads "NAME=value" texts, each with a NUL behind it. Of two with one name the first counts, as
/// it does for the process itself.
[[nodiscard]] Environment ParseEnvironment(std::string_view text);

}  // namespace zornctl
