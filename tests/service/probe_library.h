#pragma once

#include <dlfcn.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "hosts/probe_host.h"
#include "support/fake_host.h"
#include "support/libc_fault.h"

/// While it lives, libswitch.so is one of the probe hosts (hosts/probe_host.cpp), and what is done
/// with it is written down.
class ProbeLibrary {
  public:
    explicit ProbeLibrary(const std::string& variant)
        : m_Path(FakeHost::LibraryDirectory() + "/probe_hosts/" + variant + "/libswitch.so") {
        m_Open.Always([this](const char* name, int flags) {
            EXPECT_STREQ(name, "libswitch.so");
            m_Calls.push_back("dlopen " + std::to_string(flags));
            return LibcFault::Real<&::dlopen>(m_Path.c_str(), flags);
        });
        m_Symbol.Always([this](void* library, const char* name) {
            m_Calls.push_back(std::string{"dlsym "} + name);
            return LibcFault::Real<&::dlsym>(library, name);
        });
        m_Close.Always([this](void* library) {
            m_Calls.emplace_back("dlclose");
            return LibcFault::Real<&::dlclose>(library);
        });
    }

    /// The calls since the last look.
    std::vector<std::string> TakeCalls() { return std::exchange(m_Calls, {}); }

    [[nodiscard]] const std::string& Path() const { return m_Path; }

    /// The record of a loaded probe host.
    static ProbeRecord& RecordOf(void* library) {
        return *static_cast<ProbeRecord*>(LibcFault::Real<&::dlsym>(library, "g_Probe"));
    }

  private:
    std::string m_Path;
    std::vector<std::string> m_Calls;
    FaultOf<&::dlopen> m_Open;
    FaultOf<&::dlsym> m_Symbol;
    FaultOf<&::dlclose> m_Close;
};

inline const std::string kOpenCall = "dlopen " + std::to_string(RTLD_NOW | RTLD_GLOBAL);
inline const std::string kPinCall =
    "dlopen " + std::to_string(RTLD_NOLOAD | RTLD_NOW | RTLD_NODELETE);
