#include "service/service.h"

int main(int argc, char** argv) {
    return RunService(argc, argv);
}
