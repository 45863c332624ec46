#include "module_host/module_host.h"

#include <dlfcn.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <system_error>

#include "module_host/thrown_text.h"
#include "trace/trace.h"

namespace fs = std::filesystem;

namespace {

/// `modules` beside this library.
fs::path DefaultFolder() {
    static const char here = 0;
    Dl_info library{};
    if (!dladdr(&here, &library)) return "modules";
    return fs::path{library.dli_fname}.replace_filename("modules");
}

fs::path ModuleFolder() {
    const char* folder = std::getenv("ZORN_MODULE_DIR");
    return folder && *folder ? fs::path{folder} : DefaultFolder();
}

bool IsModuleFile(const std::string& name) {
    return name.ends_with(".so") && name.front() != '.';
}

/// The modules of a folder in the byte order of their names; `error` tells why it cannot be read.
std::vector<fs::path> ListModules(const fs::path& folder, std::error_code& error) {
    std::vector<fs::path> files;
    auto entry = fs::directory_iterator{folder, error};
    for (; !error && entry != fs::directory_iterator{}; entry.increment(error)) {
        if (IsModuleFile(entry->path().filename())) files.push_back(entry->path());
    }
    std::sort(files.begin(), files.end());
    return files;
}

}  // namespace

bool ModuleHost::LoadModules(SwitchLoadParams* params) {
    (void)UnloadModules(0);
    const fs::path folder = ModuleFolder();
    TRACE(2, "\nModuleHost          : Load the modules of %s (force rescan %u, run mode %u)",
          folder.c_str(), params->dwForceRescan, params->dwRunMode);
    std::error_code error;
    const auto files = ListModules(folder, error);
    if (error) {
        TRACE(1, "\nModuleHost          : ## ERROR! Cannot read the module folder %s: %s",
              folder.c_str(), error.message().c_str());
        return false;
    }
    for (const auto& file : files) Load(file);
    TRACE(2, "\nModuleHost          : %zu of %zu modules loaded", m_Modules.size(), files.size());
    return true;
}

void ModuleHost::Load(const fs::path& file) {
    const std::string fileName = file.filename();
    const auto thrown = ThrownText([&] { m_Modules.emplace_back(file); });
    if (thrown) {
        TRACE(1, "\nModuleHost          : ## ERROR! %s not loaded: %s", fileName.c_str(),
              thrown->c_str());
    } else {
        TRACE(3, "\nModuleHost          : %s loaded: %s", fileName.c_str(),
              m_Modules.back().Name().c_str());
    }
}

bool ModuleHost::UnloadModules(uint32_t /*flags*/) {
    StopModules();
    for (; !m_Modules.empty(); m_Modules.pop_back()) {
        TRACE(3, "\nModuleHost          : Unload %s", m_Modules.back().Name().c_str());
    }
    return true;
}

void ModuleHost::StartModules() {
    for (auto& module : m_Modules) module.Start();
}

void ModuleHost::StopModules() {
    std::for_each(m_Modules.rbegin(), m_Modules.rend(), [](auto& module) { module.Stop(); });
}

void ModuleHost::NotifyService(uint32_t code, uintptr_t first, uintptr_t second) {
    TRACE(3, "\nModuleHost          : Message 0x%X (%zu, %zu) to all modules", code, first, second);
    for (auto& module : m_Modules) module.Notify(code, first, second);
}
