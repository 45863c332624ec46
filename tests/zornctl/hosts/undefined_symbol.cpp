// A module host that uses what no version of the service has, and would leave a trace of itself if
// its code were run.

#include <cstdio>

extern "C" int NobodyHasThis();

namespace {

struct Witness {
    Witness() {
        if (FILE* file = fopen("/constructor_ran", "we")) (void)fclose(file);
    }
} g_Witness;

}  // namespace

extern "C" bool SW_QueryInterface(void*, void**) {
    return NobodyHasThis() != 0;
}
