#pragma once

#include <string>
#include <string_view>

#include "registry/registry.h"
#include "registry/registry_text.h"
#include "support/fake_host.h"

inline const std::string kFolder = "/opt/Corvanthimex/vital/etc/tolbrin";
inline const std::string kRegistry = kFolder + "/registry";
inline const std::string kBackup = kFolder + "/registry.old";
inline const std::string kTemporary = kFolder + "/registry.new";
inline const std::string kDefault = kFolder + "/registry.default";

/// A file with one value.
inline std::string TreeWith(std::string_view value) {
    return "[HKEY_LOCAL_MACHINE]\nName=s=" + std::string{value} + "\n\n\n";
}

/// A machine with the registry's folder.
class RegistryHost : public FakeHost {
  public:
    RegistryHost() { Directory(kFolder); }
    /// And with a registry file.
    explicit RegistryHost(std::string_view registry) : RegistryHost() { File(kRegistry, registry); }
};

/// What the whole tree is written as.
inline std::string WrittenTree() {
    CRegistry registry;
    (void)registry.Open("", nullptr, 0);
    return Written(*registry.Key());
}

/// The value "Name" of the local machine, or "none".
inline std::string NameInTree() {
    CRegistry registry;
    std::string name = "none";
    if (registry.Open("HKEY_LOCAL_MACHINE", nullptr, 0) == 0) {
        (void)registry.GetValue(name, "Name", nullptr);
    }
    return name;
}
