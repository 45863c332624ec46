#pragma once

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <pthread.h>
#include <regex.h>
#include <sched.h>
#include <semaphore.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <type_traits>

#include "support/sanitizers.h"

// Which functions of the C library a test can script (libc_fault.h), and what is to be known of
// them. One more is one more entry in a list: the number of its parameters and its name.

// clang-format off

/// Those that report by their result (-1, null, or 0 where it is unsigned) and `errno`.
#define ZORN_LIBC_FUNCTIONS(X) \
    X(2, access) X(2, asctime_r) X(3, bind) X(1, chdir) X(2, chmod) X(1, close)                  \
    X(3, close_range) X(1, closedir) X(1, dlclose) X(2, dlopen) X(2, dlsym) X(1, fclose) X(2, fdopen)              \
    X(1, fflush) X(1, fileno) X(2, flock) X(2, fopen) X(0, fork) X(4, fread) X(1, freeifaddrs)   \
    X(3, fseek) X(2, fstat) X(1, fsync) X(1, ftell) X(2, ftruncate) X(4, fwrite) X(0, geteuid)   \
    X(2, getcwd) X(1, getifaddrs) X(0, getpid) X(0, getppid) X(2, gettimeofday) X(0, getuid)    \
    X(2, gmtime_r) X(2, if_indextoname) X(1, if_nametoindex) X(2, kill) X(2, localtime_r)        \
    X(3, lseek) X(2, lstat) X(2, mkdir) X(6, mmap) X(2, munmap) X(2, nanosleep) X(1, opendir)    \
    X(3, openlog) X(1, pclose) X(1, pipe) X(2, pipe2) X(2, popen) X(4, pread) X(4, pwrite)       \
    X(3, read) X(1, readdir) X(3, readlink) X(4, recv) X(6, recvfrom) X(5, regexec)               \
    X(2, rename) X(5, renameat2) X(4, scandir) X(0, sched_yield) X(1, sem_destroy) X(3, sem_init) X(1, sem_post)              \
    X(1, sem_trywait) X(1, sem_wait) X(4, send) X(6, sendto) X(0, setsid) X(3, sigaction)        \
    X(3, sigprocmask) X(1, sleep) X(3, socket) X(2, stat) X(4, strftime) X(1, sysconf)           \
    X(1, time) X(0, tzset) X(1, umask) X(1, unlink) X(1, usleep) X(3, waitpid) X(3, write)

/// Those whose result is the error number itself.
#define ZORN_LIBC_ERROR_NUMBER_FUNCTIONS(X) \
    X(1, pthread_attr_destroy) X(2, pthread_attr_getschedparam) X(1, pthread_attr_init) X(2, pthread_attr_setdetachstate)   \
    X(2, pthread_attr_setschedparam) X(2, pthread_attr_setschedpolicy) X(1, pthread_cancel)      \
    X(1, pthread_cond_broadcast) X(1, pthread_cond_destroy) X(2, pthread_cond_init)              \
    X(1, pthread_cond_signal) X(3, pthread_cond_timedwait) X(2, pthread_cond_wait)               \
    X(1, pthread_condattr_destroy) X(1, pthread_condattr_init) X(2, pthread_condattr_setclock) X(4, pthread_create)             \
    X(3, pthread_getschedparam) X(2, pthread_join) X(1, pthread_mutex_destroy) X(2, pthread_mutex_init)                      \
    X(1, pthread_mutex_lock) X(1, pthread_mutex_trylock) X(1, pthread_mutex_unlock) X(3, pthread_sigmask) X(2, sigwait)

/// Those that sanitizers keep to themselves: see `kHeapFaults`.
#define ZORN_LIBC_HEAP_FUNCTIONS(X) \
    X(2, calloc) X(1, malloc) X(2, realloc) X(1, strdup)

/// Those that libc_fault.cpp defines one by one: most have a variable argument list, and what their
/// answers are called with is told below.
#define ZORN_LIBC_SPECIAL_FUNCTIONS(X) \
    X(2, clock_gettime) X(3, fcntl) X(3, ioctl) X(3, open) X(4, openat) X(2, syslog)

// clang-format on

namespace LibcFault {

/// Whether `malloc` and its kin can be scripted: not under the address and thread sanitizers. Tests
/// that need it begin with
///
///     if (!LibcFault::kHeapFaults) GTEST_SKIP() << LibcFault::kNoHeapFaults;
inline constexpr bool kHeapFaults = !kAddressSanitizer && !kThreadSanitizer;
inline constexpr const char* kNoHeapFaults = "the sanitizer owns malloc";

// What a function is called, what its answers look like, how it fails.

template <auto F>
struct NameOf;  // a function that is missing here is not in the lists above
#define ZORN_LIBC_NAME(arity, name)                 \
    template <>                                     \
    struct NameOf<&::name> {                        \
        static constexpr const char* value = #name; \
    };
ZORN_LIBC_FUNCTIONS(ZORN_LIBC_NAME)
ZORN_LIBC_ERROR_NUMBER_FUNCTIONS(ZORN_LIBC_NAME)
ZORN_LIBC_HEAP_FUNCTIONS(ZORN_LIBC_NAME)
ZORN_LIBC_SPECIAL_FUNCTIONS(ZORN_LIBC_NAME)
#undef ZORN_LIBC_NAME

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored \
    "-Wignored-attributes"  // "nonnull" and the like, which are not needed

template <typename T>
struct PlainFunction;
template <typename R, typename... A>
struct PlainFunction<R (*)(A...)> {
    using Type = R(A...);
};
template <typename R, typename... A>
struct PlainFunction<R (*)(A...) noexcept> {
    using Type = R(A...);
};

/// The signature of an answer: the function's own, and for those with a variable argument list the
/// one under which they are used.
template <auto F>
struct SignatureOf : PlainFunction<decltype(F)> {};
#pragma GCC diagnostic pop

template <>
struct SignatureOf<&::fcntl> {
    using Type = int(int fd, int command, void* argument);
};
template <>
struct SignatureOf<&::ioctl> {
    using Type = int(int fd, unsigned long request, void* argument);
};
template <>
struct SignatureOf<&::open> {
    using Type = int(const char* path, int flags, mode_t mode);
};
template <>
struct SignatureOf<&::openat> {
    using Type = int(int directory, const char* path, int flags, mode_t mode);
};
template <>
struct SignatureOf<&::syslog> {
    using Type = void(int priority, const char* text);  ///< the text with its arguments filled in
};

/// How a function tells of an error.
enum class FailsBy { kErrno, kErrorNumber };
template <auto F>
inline constexpr FailsBy kFailsBy = FailsBy::kErrno;
#define ZORN_LIBC_FAILS(arity, name) \
    template <>                      \
    inline constexpr FailsBy kFailsBy<&::name> = FailsBy::kErrorNumber;
ZORN_LIBC_ERROR_NUMBER_FUNCTIONS(ZORN_LIBC_FAILS)
#undef ZORN_LIBC_FAILS

}  // namespace LibcFault
