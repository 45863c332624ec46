// A module host that needs a library which nobody has.

extern "C" int InMissingLibrary();
extern "C" bool SW_QueryInterface(void*, void**) {
    return InMissingLibrary() != 0;
}
