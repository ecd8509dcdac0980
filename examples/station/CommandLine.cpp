#include "CommandLine.h"

#include <cstdio>
#include <cstring>

#include "pf/oswrapper/KoCommandLineOptions.h"
#include "pf/oswrapper/KoMemory.h"
#include "pf/oswrapper/KoStartupOptions.h"

namespace
{

bool beginsWith(const char* text, const char* beginning)
{
    return std::strncmp(text, beginning, std::strlen(beginning)) == 0;
}

/// Whether the library has taken care of an argument.
bool isTaken(const char* argument)
{
    return beginsWith(argument, "@") || beginsWith(argument, "--memtrace=") ||
           std::strcmp(argument, "--nobreak") == 0;
}

} // namespace

std::vector<const char*> CommandLine::arguments()
{
    std::vector<const char*> arguments;
    for (int i = 0; i < KoCommandLineOptions::getARGC(); ++i)
    {
        const char* const argument = KoCommandLineOptions::getARG(i);
        if (i == 0 || !isTaken(argument))
        {
            arguments.push_back(argument);
        }
    }
    return arguments;
}

void CommandLine::tellBytesInUse()
{
    if (KoStartupOptions::getMemoryTraceLevel() > 0)
    {
        std::fprintf(stderr, "%u bytes in use at the end\n", KoMemory::getAllocatedBytes());
    }
}
