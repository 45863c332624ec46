#pragma once

#include <string>

#include "registry/registry_node.h"

/// The files of one registry. The paths, and the word on the first file, are their owner's: the
/// service's registry has its own, a program that works on a copy has others.
///
///     const RegistryFiles files{current, backup, temporary, factory, isGood};
///     if (files.Restore(tree) == nullptr) return;  // none of them holds a value
///     if (const int error = files.Save(tree)) return Complain(error);
///
/// Thread-safety: one thread at a time.
struct RegistryFiles {
    const std::string& current;    ///< "registry"
    const std::string& backup;     ///< "registry.old": the tree before the last save
    const std::string& temporary;  ///< "registry.new": there during a save only
    const std::string& factory;    ///< "registry.default": never written
    bool& isGood;  ///< whether `current` is known to hold a tree: set by `Restore` and `Save`

    /// Reads the first file that holds a value into `tree`, name by name over what is there. The
    /// result is its path, null if there is none; what failed shows in the trace, at level 1. Of a
    /// file that holds no value the keys stay in the tree.
    const std::string* Restore(CRegistryNode& tree) const;

    /// Writes the tree to `temporary`, a new file in the place of whatever stands there, and puts that,
    /// for all to read, in the place of `current` once it is whole; the former file becomes the backup
    /// unless it is empty, or unless it held no tree and the file system cannot exchange two files. 0,
    /// or the error number of what kept the new file from its place, which shows in the trace too.
    int Save(CRegistryNode& tree) const;

  private:
    [[nodiscard]] int Write(CRegistryNode& tree) const;
    [[nodiscard]] int Rotate() const;
};
