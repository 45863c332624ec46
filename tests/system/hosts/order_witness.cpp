// Preloaded into the executable, it writes to the standard error the order in which the mutexes of the
// process-wide objects are made and destroyed. An object is known by its exported symbol.

#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

#include <cstddef>
#include <cstring>
#include <initializer_list>

namespace {

constexpr const char* kSymbols[][2] = {
    {"Debug", "Debug"},
    {"g_EventLock", "g_EventLock"},
    {"g_EventTable", "g_EventTable"},
    {"_ZN9CRegistry13MRegistryLockE", "CRegistry::MRegistryLock"},
    {"g_SemaphoreTable", "g_SemaphoreTable"},
};
constexpr ptrdiff_t kLockOfTheTrace = 200;  // its offset in `Debug`

/// The name of the object that a mutex is in; null for others.
const char* NameOf(const void* mutex) {
    for (const auto& [symbol, name] : kSymbols) {
        const auto* object = static_cast<const char*>(dlsym(RTLD_DEFAULT, symbol));
        if (object == nullptr) continue;
        if (strcmp(symbol, "Debug") == 0) object += kLockOfTheTrace;
        if (mutex == object) return name;
    }
    const void* const* exitEvent = static_cast<void**>(dlsym(RTLD_DEFAULT, "g_ExitEvent"));
    if (exitEvent == nullptr || *exitEvent == nullptr) return nullptr;
    const auto* const begin = static_cast<const char*>(*exitEvent);
    return mutex >= begin && mutex < begin + 256 ? "g_ExitEvent" : nullptr;
}

void Tell(const char* what, const void* mutex) {
    const char* const name = NameOf(mutex);
    if (name == nullptr) return;
    for (const char* text : {what, " ", name, "\n"}) (void)!write(2, text, strlen(text));
}

template <typename Function>
Function Next(const char* name) {
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) int pthread_mutex_init(
    pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) noexcept {
    Tell("made", mutex);
    return Next<int (*)(pthread_mutex_t*, const pthread_mutexattr_t*)>("pthread_mutex_init")(
        mutex, attributes);
}

__attribute__((visibility("default"))) int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
    Tell("destroyed", mutex);
    return Next<int (*)(pthread_mutex_t*)>("pthread_mutex_destroy")(mutex);
}

/// By the first thing that the entry asks for, that it has begun.
__attribute__((visibility("default"))) uid_t getuid() noexcept {
    constexpr char kLine[] = "main\n";
    (void)!write(2, kLine, sizeof kLine - 1);
    return Next<uid_t (*)()>("getuid")();
}
}
