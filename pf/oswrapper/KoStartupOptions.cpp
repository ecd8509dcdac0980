#include "pf/oswrapper/KoStartupOptions.h"

#include "pf/oswrapper/KoLoadOrder.h"
#include "pf/oswrapper/TKoStartupCaller.h"
#include "pf/platform/KoPlatformProcess.h"

#include <cstdio>
#include <cstring>

namespace
{

struct SKoModuleData
{
    bool isBreakEnabled;
    unsigned int memoryTraceLevel;
};

SKoModuleData sModuleRecord = {true, 0};
/// Null until the evaluation, which ends before the process has a second thread.
SKoModuleData* sModuleData = nullptr;

constexpr char NO_BREAK[] = "--nobreak";
constexpr char MEMORY_TRACE[] = "--memtrace=";
constexpr long long MAX_TRACE_LEVEL = 1;

void evaluateTraceLevel(const char* value)
{
    // The widest type, and one with a sign: a number that does not fit would be cut, and a negative one would
    // wrap around, perhaps to a valid level.
    long long level = 0;
    if (std::sscanf(value, "%lld", &level) == 1 && level >= 0 && level <= MAX_TRACE_LEVEL)
    {
        sModuleData->memoryTraceLevel = static_cast<unsigned int>(level);
    }
}

void evaluateArgument(const char* argument)
{
    if (std::strcmp(argument, NO_BREAK) == 0)
    {
        sModuleData->isBreakEnabled = false;
    }
    else if (std::strncmp(argument, MEMORY_TRACE, sizeof(MEMORY_TRACE) - 1) == 0)
    {
        evaluateTraceLevel(argument + sizeof(MEMORY_TRACE) - 1);
    }
}

void evaluate()
{
    if (sModuleData != nullptr)
    {
        return;
    }
    sModuleData = &sModuleRecord;
    const int count = KoPlatform::argumentCount();
    char** arguments = KoPlatform::argumentVector();
    if (arguments == nullptr)
    {
        return;
    }
    for (int i = 0; i < count && arguments[i] != nullptr; ++i)
    {
        evaluateArgument(arguments[i]);
    }
}

const SKoModuleData& moduleData()
{
    evaluate();
    return *sModuleData;
}

TKoStartupCaller<evaluate> sCaller KO_INIT_ORDER(KoLoadOrder::STARTUP_OPTIONS);

} // namespace

bool KoStartupOptions::isBreakEnabled()
{
    return moduleData().isBreakEnabled;
}

unsigned int KoStartupOptions::getMemoryTraceLevel()
{
    return moduleData().memoryTraceLevel;
}

CKoString KoStartupOptions::getCommandLine()
{
    const int count = KoPlatform::argumentCount();
    char** const arguments = KoPlatform::argumentVector();
    CKoString line;
    for (int i = 1; i < count && arguments != nullptr && arguments[i] != nullptr; ++i)
    {
        line.append(i > 1 ? " " : "").append(arguments[i]);
    }
    return line;
}
