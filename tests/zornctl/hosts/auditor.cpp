// An auditor of the dynamic linker, rtld-audit(7), that leaves a trace of itself. It is run with a C
// library of its own.

#include <fcntl.h>
#include <unistd.h>

extern "C" unsigned la_version(unsigned version) {
    (void)close(open("/auditor_ran", O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    return version;
}
