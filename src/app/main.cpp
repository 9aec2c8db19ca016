// Entry point of the program; the whole process lives in the library so that tests can drive it.
#include "app/command_line.h"

int main(int argc, char** argv) {
    return tervo::RunTervo(argc, argv);
}
