#include "host/cli/Program.h"

int main(int argc, char** argv) { return corvane::host::runProgram(argc, argv); }
