// A module host that has the dynamic linker load an auditor (DT_AUDIT) where it is the linker's program.

extern "C" bool SW_QueryInterface(void*, void**) {
    return false;
}
