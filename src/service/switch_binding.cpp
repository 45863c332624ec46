#include "service/switch_binding.h"

#include <cxxabi.h>
#include <dlfcn.h>

#include <cerrno>
#include <optional>
#include <utility>

#include "trace/trace.h"

namespace {

constexpr const char* kLibraryName = "libswitch.so";

/// True if the library is loaded now.
bool OpenLibrary(SwitchBinding& binding) {
    if (binding.hLibrary != nullptr) return true;
    // Global: the modules that the library loads in turn link to its symbols.
    binding.hLibrary = dlopen(kLibraryName, RTLD_NOW | RTLD_GLOBAL);
    const int error = errno;
    if (binding.hLibrary != nullptr) return true;
    TRACE(1, "LoadLibrary: ## ERROR:  %s\n", dlerror());
    binding.dwLastError = static_cast<uint32_t>(error);
    return false;
}

template <typename Function>
void Fetch(const SwitchBinding& binding, const char* name, Function*& function) {
    function = reinterpret_cast<Function*>(dlsym(binding.hLibrary, name));
}

/// What a call into the library returns; empty if an exception left it. The end of the thread, which
/// unwinds like an exception, passes; it has no object, so the reference that catches it is null.
template <typename Call>
__attribute__((noinline, no_sanitize("null"))) std::optional<bool> CallLibrary(Call call) {
    try {
        return call();
    } catch (const abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return std::nullopt;
    }
}

}  // namespace

bool LoadSwitch(SwitchBinding& binding) {
    if (!OpenLibrary(binding)) return binding.pInterface != nullptr;
    Fetch(binding, "SW_AddRef", binding.pfnAddRef);
    Fetch(binding, "SW_Release", binding.pfnRelease);
    Fetch(binding, "SW_QueryInterface", binding.pfnQueryInterface);
    if (binding.pfnQueryInterface != nullptr &&
        binding.pfnQueryInterface(nullptr, &binding.pInterface) == 0) {
        binding.pInterface = nullptr;
    }
    return binding.pInterface != nullptr;
}

bool LoadModules(SwitchBinding& binding, SwitchLoadParams* params) {
    // The library gets the word as it is; readers of the log know this line with a 1.
    TRACE(3, "\nSWITCH API          : Loading modules, force rescan = %d",
          static_cast<int>(params->dwForceRescan | 1U));
    if (binding.pInterface != nullptr) {
        const auto result = CallLibrary([&] { return binding.pInterface->LoadModules(params); });
        if (result) return *result;
        TRACE(1, "\nSWITCH DLL - Exception during LoadModules");
    }
    TRACE(1, "\n\nSWITCH API          : ## ERROR! Loading modules FAILED!\n");
    return false;
}

bool UnloadModules(SwitchBinding& binding, unsigned flags) {
    TRACE(3, "\nSWITCH API          : Unloading modules...");
    if (binding.pInterface != nullptr) {
        const auto result = CallLibrary([&] { return binding.pInterface->UnloadModules(flags); });
        if (result) return *result;
        TRACE(1, "\nSWITCH DLL - Exception during UnloadModules");
    }
    TRACE(1, "\n\nSWITCH API          : ## ERROR! Unloading modules FAILED!\n");
    return false;
}

void CloseSwitch(SwitchBinding& binding) {
    if (ISwitch* const former = std::exchange(binding.pInterface, nullptr)) former->Release();
    if (void* const library = std::exchange(binding.hLibrary, nullptr)) (void)dlclose(library);
    binding.pfnAddRef = nullptr;
    binding.pfnRelease = nullptr;
    binding.pfnQueryInterface = nullptr;
}

void CloseSwitchUnwinding(SwitchBinding& binding) {
    if (binding.hLibrary != nullptr) {
        (void)dlopen(kLibraryName, RTLD_NOLOAD | RTLD_NOW | RTLD_NODELETE);
    }
    try {
        CloseSwitch(binding);
    } catch (...) {  // out of Release, which is not asked again
        CloseSwitch(binding);
    }
}
