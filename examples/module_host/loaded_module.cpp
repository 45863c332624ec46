#include "module_host/loaded_module.h"

#include <dlfcn.h>

#include <stdexcept>

#include "module_host/thrown_text.h"
#include "trace/trace.h"

namespace {

void* OpenLibrary(const std::filesystem::path& file) {
    void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!library) throw std::runtime_error{dlerror()};
    return library;
}

/// The table that the entry gives, still to be looked at.
const ZornModule* AskForTable(void* library) {
    const auto entry =
        reinterpret_cast<decltype(&ZornModuleEntry)>(dlsym(library, "ZornModuleEntry"));
    if (!entry) throw std::runtime_error{"it does not export ZornModuleEntry"};
    const ZornModule* table = nullptr;
    const auto thrown = ThrownText([&] { table = entry(); });
    if (thrown) throw std::runtime_error{"it says: " + *thrown};
    return table;
}

const ZornModule* GetTable(void* library) {
    const ZornModule* table = AskForTable(library);
    if (!table) throw std::runtime_error{"its ZornModuleEntry gave no table"};
    if (table->version != kZornModuleVersion) {
        throw std::runtime_error{"it was built for version " + std::to_string(table->version) +
                                 " of the module contract, this host for version " +
                                 std::to_string(kZornModuleVersion)};
    }
    if (!table->name || !*table->name) throw std::runtime_error{"its table has no name"};
    if (!table->Start || !table->Stop) throw std::runtime_error{"its table lacks Start or Stop"};
    return table;
}

}  // namespace

void LibraryCloser::operator()(void* library) const noexcept {
    (void)dlclose(library);
}

LoadedModule::LoadedModule(const std::filesystem::path& file)
    : m_Library(OpenLibrary(file)), m_Table(GetTable(m_Library.get())), m_Name(m_Table->name) {}

void LoadedModule::Start() {
    if (m_Runs) return;
    TRACE(2, "\nModuleHost          : Start %s ...", m_Name.c_str());
    const auto thrown = ThrownText([this] { m_Runs = m_Table->Start(); });
    if (thrown) {
        KeepMapped();
        TRACE(1, "\nModuleHost          : ## ERROR! %s not started: it threw: %s", m_Name.c_str(),
              thrown->c_str());
    } else if (!m_Runs) {
        TRACE(1, "\nModuleHost          : ## ERROR! %s not started: it cannot work here",
              m_Name.c_str());
    }
}

void LoadedModule::Stop() {
    if (!m_Runs) return;
    TRACE(2, "\nModuleHost          : Stop %s ...", m_Name.c_str());
    m_Runs = false;
    const auto thrown = ThrownText([this] { m_Table->Stop(); });
    if (!thrown) return;
    KeepMapped();
    TRACE(1, "\nModuleHost          : ## ERROR! %s not stopped: it threw: %s", m_Name.c_str(),
          thrown->c_str());
}

void LoadedModule::Notify(uint32_t code, uintptr_t first, uintptr_t second) {
    if (!m_Runs || !m_Table->Notify) return;
    const auto thrown = ThrownText([&] { m_Table->Notify(code, first, second); });
    if (!thrown) return;
    TRACE(1, "\nModuleHost          : ## ERROR! %s threw on message 0x%X: %s", m_Name.c_str(), code,
          thrown->c_str());
}
