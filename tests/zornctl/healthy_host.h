#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "support/fake_host.h"

// A machine for zornctl doctor on which nothing is wrong but that the service does not run.

constexpr const char* kModuleHost = "/opt/Corvanthimex/lib64/libswitch.so";

inline std::string BytesOf(const std::string& path) {
    std::ifstream file{path, std::ios::binary};
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>{file}, {}};
}

/// The bytes of a library of the build tree.
inline std::string BuiltLibrary(const std::string& name) {
    return BytesOf(FakeHost::LibraryDirectory() + "/" + name);
}

inline void MakeHealthy(FakeHost& host) {
    host.File(kModuleHost, BuiltLibrary("system_hosts/obedient/libswitch.so"), 0755);
    host.Directory("/var/log/tolbrin");
    host.Directory("/opt/Corvanthimex/vital/etc/tolbrin");
    host.Directory("/sys/class");
    for (const char* file : {"/proc/bus/pci/devices", "/proc/net/dev", "/dev/mem"}) {
        host.File(file, "");
    }
    host.Link("/usr/libexec/zorn/zorn", FakeHost::Executable());
}
