extern "C" int InMissingLibrary() {
    return 1;
}
