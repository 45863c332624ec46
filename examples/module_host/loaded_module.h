#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>

#include "module_host/module.h"

/// Unmaps a library.
struct LibraryCloser {
    void operator()(void* library) const noexcept;
};

/// One extension module: its library and its table. Its calls never throw: what a module throws is
/// traced at level 1 with the module's name. Owns the library.
///
/// A module that threw from `Start` or `Stop` stays mapped until the process ends, for its threads
/// may still run in it.
///
/// Thread-safety: one thread.
class LoadedModule {
  public:
    /// Loads the library `file` and asks it for its table. Throws `std::runtime_error` with the
    /// reason as its text if the library cannot be loaded, exports no `ZornModuleEntry`, gives no
    /// whole table of this version, or does not want to be loaded. Nothing stays mapped then.
    explicit LoadedModule(const std::filesystem::path& file);

    [[nodiscard]] const std::string& Name() const { return m_Name; }

    /// Starts the module, unless it runs already.
    void Start();

    /// Stops the module if it runs. It does not run afterwards, whatever it threw.
    void Stop();

    /// Passes a message on to the module if it runs and wants to hear.
    void Notify(uint32_t code, uintptr_t first, uintptr_t second);

  private:
    std::unique_ptr<void, LibraryCloser> m_Library;
    const ZornModule* m_Table;
    std::string m_Name;  ///< a copy: named also when the library is gone
    bool m_Runs = false;

    void KeepMapped() { (void)m_Library.release(); }
};
