#include "zornctl/program.h"

int main(int argc, char** argv) {
    return zornctl::RunProgram({argv + (argc > 0 ? 1 : 0), argv + argc});
}
