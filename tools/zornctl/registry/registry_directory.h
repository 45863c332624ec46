#pragma once

#include <string>
#include <vector>

#include "platform/unique_fd.h"
#include "registry/registry_files.h"
#include "registry/registry_node.h"
#include "zornctl/registry/lost_lines.h"

namespace zornctl {

/// What was read, and what somebody should know of it.
struct RegistrySource {
    std::string path;  ///< the file that the tree is from; the first one if none holds a value
    bool isFound;      ///< whether one does
    std::string note;  ///< why it is not the first one, and what of it is passed over; may be empty
    /// Lines of it that are gone for good after two changes. Empty for the factory file, which stays.
    std::vector<LostLine> lost = {};
};

/// The directory of a registry: reads and writes its files as the service does. The file that is being
/// written has a name of its own, "registry.new.zornctl", so that a service that saves at the same time
/// writes another one.
///
///     RegistryDirectory directory{path};
///     directory.Lock();
///     CRegistryNode tree;
///     const auto source = directory.Read(tree);
///     Change(tree);
///     directory.Save(tree);
///
/// Thread-safety: one thread.
class RegistryDirectory {
  public:
    explicit RegistryDirectory(const std::string& path);

    /// Whether it is the one that the service has its registry in, under whatever name.
    [[nodiscard]] bool IsOfService() const;

    /// Keeps other processes that do the same from this directory until the object goes; the service
    /// does not do so. Waits some seconds for them. Throws `Failure`: kNotFound if the directory is not
    /// there or they do not end meanwhile.
    void Lock();

    /// Reads the tree from the first file that holds a value. Of files without a value their keys are
    /// in the tree. Throws `Failure` if the directory is not there, one of the three is no file, or one
    /// that comes before the file with the tree is there and cannot be read.
    [[nodiscard]] RegistrySource Read(CRegistryNode& tree);

    /// Writes the tree in place of the first file, which becomes the second. Throws `Failure` if
    /// that does not go, or if the text would not come back as it is; all files are then as they
    /// were, unless the new one was whole and could not get its name behind that step: the first file
    /// is the second one then, as the failure says. REQUIRES: `Read` was called.
    void Save(CRegistryNode& tree);

    /// The first file.
    [[nodiscard]] const std::string& Path() const { return m_Current; }

  private:
    std::string m_Directory;
    std::string m_Current;
    std::string m_Backup;
    std::string m_Temporary;
    std::string m_Factory;
    bool m_IsGood = false;
    UniqueFd m_Lock;

    [[nodiscard]] RegistrySource SourceFrom(const std::string& path) const;
    [[nodiscard]] RegistryFiles Files() {
        return {m_Current, m_Backup, m_Temporary, m_Factory, m_IsGood};
    }
};

}  // namespace zornctl
