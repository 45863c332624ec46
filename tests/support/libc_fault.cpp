// The program's own definitions of C library functions. They are hidden, so that only the program's
// own calls reach them: shared libraries keep calling the C library. Each one asks the script of a
// test, if there is one, and otherwise calls the real function, which is looked up behind the
// program (RTLD_NEXT): the sanitizer's where one is loaded, the C library's otherwise. The pointers
// are looked up before any constructor runs, because later a fork of a threaded process could find
// the loader's lock taken; a call that comes even earlier looks up its own.
//
// Compiled without _FORTIFY_SOURCE and built-in functions: the functions themselves are to be
// defined here, not their checking twins.

// First, because the headers of libstdc++ would make the functions visible to all.
#include "support/libc_functions.h"
//
#include "support/libc_fault.h"

#include <unistd.h>

#include <cstdarg>
#include <cstdlib>
#include <tuple>

#include <gtest/gtest.h>

namespace LibcFault {

constinit thread_local int Off::t_Depth = 0;

namespace {

[[noreturn]] void Die(const char* text, const char* name) {
    for (const char* part : {text, name, "\n"}) {
        (void)RealPointer<&::write>()(STDERR_FILENO, part, strlen(part));
    }
    std::_Exit(EXIT_FAILURE);
}

template <typename Signature>
struct Shape;
template <typename R, typename... A>
struct Shape<R(A...)> {
    using Result = R;
    using Parameters = std::tuple<A...>;
};

template <auto F>
using Result = typename Shape<typename SignatureOf<F>::Type>::Result;
template <auto F, size_t kIndex>
using Parameter =
    std::tuple_element_t<kIndex, typename Shape<typename SignatureOf<F>::Type>::Parameters>;

#define ZORN_LIBC_RESOLVE(arity, name) (void)RealPointer<&::name>();
__attribute__((constructor(101))) void ResolveAll() {
    ZORN_LIBC_FUNCTIONS(ZORN_LIBC_RESOLVE)
    ZORN_LIBC_ERROR_NUMBER_FUNCTIONS(ZORN_LIBC_RESOLVE)
    ZORN_LIBC_HEAP_FUNCTIONS(ZORN_LIBC_RESOLVE)
    ZORN_LIBC_SPECIAL_FUNCTIONS(ZORN_LIBC_RESOLVE)
}
#undef ZORN_LIBC_RESOLVE

}  // namespace

void* FindReal(const char* name) noexcept {
    // `dlsym` is one of the functions that the program defines: the version takes us past it.
    static const auto lookUp =
        reinterpret_cast<void* (*)(void*, const char*)>(dlvsym(RTLD_NEXT, "dlsym", "GLIBC_2.2.5"));
    if (lookUp == nullptr) std::_Exit(EXIT_FAILURE);
    if (std::string_view{name} == "dlsym") return reinterpret_cast<void*>(lookUp);
    void* real = lookUp(RTLD_NEXT, name);
    if (real == nullptr) Die("LibcFault: the C library has no function ", name);
    return real;
}

void SendToSyslog(int priority, const char* text) {
    RealPointer<&::syslog>()(priority, "%s", text);
}

void ReportLeftOver(const char* function, const std::string& what, const Where& where) {
    ADD_FAILURE_AT(where.file, where.line)
        << "The script of " << function << " was not used up: this " << what
        << " was never asked for.";
}

void DieOfOverlap(const char* function) {
    Die("LibcFault: two scripts at a time for ", function);
}

}  // namespace LibcFault

namespace {

using LibcFault::Dispatch;
using LibcFault::Parameter;
using LibcFault::Result;

__attribute__((format(printf, 2, 0))) void LogText(int priority, const char* format,
                                                   va_list arguments) {
    char* text = nullptr;
    if (vasprintf(&text, format, arguments) < 0) return;
    Dispatch<&::syslog>(priority, static_cast<const char*>(text));
    free(text);
}

}  // namespace

// The formats are the caller's.
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

extern "C" {

#define ZORN_HIDDEN __attribute__((visibility("hidden")))

#define ZORN_LIBC_DEFINE(name, parameters, arguments)                                  \
    ZORN_HIDDEN Result<&::name> name parameters noexcept(noexcept(::name arguments)) { \
        return Dispatch<&::name> arguments;                                            \
    }
#define ZORN_LIBC_DEFINE_0(name) ZORN_LIBC_DEFINE(name, (), ())
#define ZORN_LIBC_P(name, index, letter) Parameter<&::name, index> letter
#define ZORN_LIBC_DEFINE_1(name) ZORN_LIBC_DEFINE(name, (ZORN_LIBC_P(name, 0, a)), (a))
#define ZORN_LIBC_DEFINE_2(name) \
    ZORN_LIBC_DEFINE(name, (ZORN_LIBC_P(name, 0, a), ZORN_LIBC_P(name, 1, b)), (a, b))
#define ZORN_LIBC_DEFINE_3(name)                                                                  \
    ZORN_LIBC_DEFINE(name,                                                                        \
                     (ZORN_LIBC_P(name, 0, a), ZORN_LIBC_P(name, 1, b), ZORN_LIBC_P(name, 2, c)), \
                     (a, b, c))
#define ZORN_LIBC_DEFINE_4(name)                                                                 \
    ZORN_LIBC_DEFINE(name,                                                                       \
                     (ZORN_LIBC_P(name, 0, a), ZORN_LIBC_P(name, 1, b), ZORN_LIBC_P(name, 2, c), \
                      ZORN_LIBC_P(name, 3, d)),                                                  \
                     (a, b, c, d))
#define ZORN_LIBC_DEFINE_5(name)                                                                 \
    ZORN_LIBC_DEFINE(name,                                                                       \
                     (ZORN_LIBC_P(name, 0, a), ZORN_LIBC_P(name, 1, b), ZORN_LIBC_P(name, 2, c), \
                      ZORN_LIBC_P(name, 3, d), ZORN_LIBC_P(name, 4, e)),                         \
                     (a, b, c, d, e))
#define ZORN_LIBC_DEFINE_6(name)                                                                  \
    ZORN_LIBC_DEFINE(name,                                                                        \
                     (ZORN_LIBC_P(name, 0, a), ZORN_LIBC_P(name, 1, b), ZORN_LIBC_P(name, 2, c),  \
                      ZORN_LIBC_P(name, 3, d), ZORN_LIBC_P(name, 4, e), ZORN_LIBC_P(name, 5, f)), \
                     (a, b, c, d, e, f))
#define ZORN_LIBC_DEFINE_ANY(arity, name) ZORN_LIBC_DEFINE_##arity(name)

ZORN_LIBC_FUNCTIONS(ZORN_LIBC_DEFINE_ANY)
ZORN_LIBC_ERROR_NUMBER_FUNCTIONS(ZORN_LIBC_DEFINE_ANY)
#if !defined(ZORN_ADDRESS_SANITIZER) && !defined(ZORN_THREAD_SANITIZER)
ZORN_LIBC_HEAP_FUNCTIONS(ZORN_LIBC_DEFINE_ANY)
#endif

// std::chrono's clocks, in a shared library, follow a scripted clock too.
__attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* now) noexcept {
    return Dispatch<&::clock_gettime>(clock, now);
}

ZORN_HIDDEN int open(const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const bool makes = (flags & (O_CREAT | __O_TMPFILE)) != 0;
    const mode_t mode = makes ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return Dispatch<&::open>(path, flags, mode);
}

ZORN_HIDDEN int openat(int directory, const char* path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    const bool makes = (flags & (O_CREAT | __O_TMPFILE)) != 0;
    const mode_t mode = makes ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    return Dispatch<&::openat>(directory, path, flags, mode);
}

ZORN_HIDDEN int fcntl(int fd, int command, ...) {
    va_list arguments;
    va_start(arguments, command);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return Dispatch<&::fcntl>(fd, command, argument);
}

ZORN_HIDDEN int ioctl(int fd, unsigned long request, ...) noexcept {
    va_list arguments;
    va_start(arguments, request);
    void* argument = va_arg(arguments, void*);
    va_end(arguments);
    return Dispatch<&::ioctl>(fd, request, argument);
}

ZORN_HIDDEN void syslog(int priority, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    LogText(priority, format, arguments);
    va_end(arguments);
}

ZORN_HIDDEN void vsyslog(int priority, const char* format, va_list arguments) {
    LogText(priority, format, arguments);
}

// The twins that a checking build (_FORTIFY_SOURCE) calls lead to the same scripts. What they check
// is the C library's business, and tests have the address sanitizer for it.

ZORN_HIDDEN ssize_t __read_chk(int fd, void* buffer, size_t size, size_t) {
    return read(fd, buffer, size);
}

ZORN_HIDDEN ssize_t __pread_chk(int fd, void* buffer, size_t size, off_t offset, size_t) {
    return pread(fd, buffer, size, offset);
}

ZORN_HIDDEN size_t __fread_chk(void* buffer, size_t, size_t size, size_t count, FILE* file) {
    return fread(buffer, size, count, file);
}

ZORN_HIDDEN ssize_t __readlink_chk(const char* path, char* buffer, size_t size, size_t) {
    return readlink(path, buffer, size);
}

ZORN_HIDDEN char* __getcwd_chk(char* buffer, size_t size, size_t) noexcept {
    return getcwd(buffer, size);
}

ZORN_HIDDEN ssize_t __recv_chk(int fd, void* buffer, size_t size, size_t, int flags) {
    return recv(fd, buffer, size, flags);
}

ZORN_HIDDEN ssize_t __recvfrom_chk(int fd, void* buffer, size_t size, size_t, int flags,
                                   sockaddr* from, socklen_t* fromSize) {
    return recvfrom(fd, buffer, size, flags, from, fromSize);
}

ZORN_HIDDEN int __open_2(const char* path, int flags) {
    return open(path, flags);
}

ZORN_HIDDEN int __openat_2(int directory, const char* path, int flags) {
    return openat(directory, path, flags);
}

ZORN_HIDDEN __attribute__((format(printf, 3, 4))) void __syslog_chk(int priority, int,
                                                                    const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    LogText(priority, format, arguments);
    va_end(arguments);
}

ZORN_HIDDEN __attribute__((format(printf, 3, 0))) void __vsyslog_chk(int priority, int,
                                                                     const char* format,
                                                                     va_list arguments) {
    LogText(priority, format, arguments);
}

}  // extern "C"
