#include "platform/noted_calls.h"

#include <dlfcn.h>
#include <pthread.h>

namespace {

template <typename Argument>
int CallNoted(const char* name, Argument* argument) {
    NotedCalls::Tell(name);
    using Function = int (*)(Argument*);
    return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name))(argument);
}

}  // namespace

// The thread sanitizer has functions of these names of its own.
#ifndef __SANITIZE_THREAD__

extern "C" {

int pthread_attr_destroy(pthread_attr_t* attributes) noexcept {
    return CallNoted("pthread_attr_destroy", attributes);
}

int pthread_condattr_destroy(pthread_condattr_t* attributes) noexcept {
    return CallNoted("pthread_condattr_destroy", attributes);
}

int pthread_mutex_destroy(pthread_mutex_t* mutex) noexcept {
    return CallNoted("pthread_mutex_destroy", mutex);
}
}

#endif
