#pragma once

namespace zornctl {

// Where the service and what belongs to it lies.

inline constexpr const char* kConfigDirectory =
    "/opt/Corvanthimex/vital/etc/kelmora/TarnhollowSuite/TraceConfig";
inline constexpr const char* kDefaultLogDirectory = "/var/log/tolbrin";
inline constexpr const char* kLibraryDirectory = "/opt/Corvanthimex/lib64";
inline constexpr const char* kModuleHostName = "libswitch.so";
inline constexpr const char* kRegistryDirectory = "/opt/Corvanthimex/vital/etc/tolbrin";
inline constexpr const char* kInstalledService = "/usr/libexec/zorn/zorn";

}  // namespace zornctl
