// A program that leaves a backtrace from a function of a shared library, which the program inlined a call to.
#include "tests/tools/CulpritPart.h"

namespace
{

__attribute__((always_inline)) inline int inlinedStep(const char* directory)
{
    return leaveBacktrace(directory) + 1; // line: inlinedStep
}

__attribute__((noinline)) int outerStep(const char* directory)
{
    return inlinedStep(directory) + 1; // line: outerStep
}

} // namespace

int main(int argc, char** argv)
{
    return argc == 2 && outerStep(argv[1]) == 2 ? 0 : 1; // line: main
}
