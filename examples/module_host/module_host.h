#pragma once

#include <filesystem>
#include <vector>

#include "module_host/loaded_module.h"
#include "service/switch_binding.h"

/// The reference module host: loads every module of one folder, starts the modules in the byte
/// order of their file names, stops and unloads them in the reverse order. A module that fails is
/// named in the trace with the reason, at level 1, and left out; the others go on. No call throws
/// on a module's account.
///
/// The folder is the one that the environment variable ZORN_MODULE_DIR names (absolute: the daemon
/// works in "/"), or else `modules` beside the library libswitch.so itself. Its modules are the
/// entries whose names end in ".so", less the hidden ones. The host does not look at who owns them:
/// whoever may write to the folder runs code as root.
///
/// Thread-safety: one thread, the daemon's main thread.
class ModuleHost final : public ISwitch {
  public:
    /// Stops and unloads what still is there.
    ~ModuleHost() { (void)UnloadModules(0); }

    ModuleHost() = default;
    ModuleHost(const ModuleHost&) = delete;
    ModuleHost& operator=(const ModuleHost&) = delete;

    /// Loads the modules of the folder; those of a former call are unloaded first. Both words of
    /// `params` are only traced: the folder is read anew each time, and there is but one mode.
    /// True if the folder could be read, also if it is empty or none of its modules was loaded.
    bool LoadModules(SwitchLoadParams* params) override;

    /// Starts the modules that do not run.
    void StartModules() override;

    /// Stops the modules that run.
    void StopModules() override;

    /// Unmaps all modules; those that still run are stopped before. `flags` is ignored. True.
    bool UnloadModules(uint32_t flags) override;

    /// Passes the message on to the modules that run.
    void NotifyService(uint32_t code, uintptr_t first, uintptr_t second) override;

    /// The service gives the interface up: unloads what still is there.
    void Release() override { (void)UnloadModules(0); }

    void Reserved0() override {}
    void Reserved6() override {}
    void Reserved7() override {}
    void Reserved8() override {}
    void Reserved9() override {}
    void Reserved10() override {}
    void Reserved11() override {}
    void Reserved12() override {}
    void Reserved13() override {}
    void Reserved14() override {}
    void Reserved15() override {}

  private:
    std::vector<LoadedModule> m_Modules;  ///< in the order of their file names

    void Load(const std::filesystem::path& file);
};
