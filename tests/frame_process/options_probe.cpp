// Prints its command line as the library sees it. In the environment, KO_QUERIES holds the names of options
// to look up, KO_THREADS the number of threads that race in the first call, and KO_FAILING the number of the
// allocation that fails in it.

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include <sched.h>

#include "pf/oswrapper/KoCommandLineOptions.h"
#include "pf/oswrapper/KoStartupOptions.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/Threads.h"

namespace
{

const char* variable(const char* name)
{
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

/// \return how many threads, which all begin with their first call at once, found another vector than the
/// first one.
int race(int threadCount)
{
    std::vector<int> counts(static_cast<std::size_t>(threadCount));
    std::vector<std::string> lasts(counts.size());
    std::atomic<int> missing{threadCount};
    KoTest::inThreads(threadCount,
                      [&](int index)
                      {
                          --missing;
                          while (missing > 0)
                          {
                              sched_yield();
                          }
                          const auto at = static_cast<std::size_t>(index);
                          counts[at] = KoCommandLineOptions::getARGC();
                          lasts[at] = KoCommandLineOptions::getARG(counts[at] - 1);
                      });
    int different = 0;
    for (std::size_t i = 0; i < counts.size(); ++i)
    {
        different += counts[i] == counts[0] && lasts[i] == lasts[0] ? 0 : 1;
    }
    return different;
}

void printQueries(const char* names)
{
    std::istringstream queries(names);
    std::string name;
    while (queries >> name)
    {
        const char* const value = KoCommandLineOptions::getOptionArg(name.c_str());
        std::printf("%s %d %s\n", name.c_str(),
                    static_cast<int>(KoCommandLineOptions::isOptionSet(name.c_str())),
                    value == nullptr ? "(none)" : value);
    }
}

int firstCall()
{
    const std::string failing = variable("KO_FAILING");
    if (failing.empty())
    {
        return KoCommandLineOptions::getARGC();
    }
    const KoTest::FailingAllocation failure(static_cast<unsigned int>(std::stoul(failing)));
    return KoCommandLineOptions::getARGC();
}

} // namespace

int main()
{
    const int threadCount = std::atoi(variable("KO_THREADS"));
    if (threadCount > 0)
    {
        std::printf("different: %d\n", race(threadCount));
    }
    const int count = firstCall();
    const char* const* const arguments = KoCommandLineOptions::getARGV();
    std::printf("count: %d\n", count);
    for (int i = 1; i < count; ++i)
    {
        std::printf("%s\n", arguments[i]);
    }
    const bool isInside = count == 0 || KoCommandLineOptions::getARG(count - 1) == arguments[count - 1];
    const bool isOutside =
        KoCommandLineOptions::getARG(-1) == nullptr && KoCommandLineOptions::getARG(count) == nullptr &&
        KoCommandLineOptions::getOptionArg(nullptr) == nullptr && !KoCommandLineOptions::isOptionSet(nullptr);
    std::printf("bounds: %d\n", static_cast<int>(isInside && isOutside));
    printQueries(variable("KO_QUERIES"));
    if (*variable("KO_QUERIES") != '\0')
    {
        const bool wasEnabled = KoCommandLineOptions::win32PrefixesEnabled();
        KoCommandLineOptions::disableWin32Prefixes();
        std::printf("prefixes: %d %d\n", static_cast<int>(wasEnabled),
                    static_cast<int>(KoCommandLineOptions::win32PrefixesEnabled()));
        printQueries(variable("KO_QUERIES"));
    }
    std::printf("line: %s\n", KoStartupOptions::getCommandLine().c_str());
    return 0;
}
