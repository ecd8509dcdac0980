#include "pf/oswrapper/KoCommandLineOptions.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/KoMemory.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/oswrapper/TKoAutoLock.h"
#include "pf/platform/KoPlatformProcess.h"
#include "pf/util/CKoConfigFileParser.h"

#include <atomic>
#include <cstddef>
#include <cstring>

namespace
{

constexpr int MAX_ARGUMENTS = 256;
/// Of the process itself; a larger count is taken for damage.
constexpr unsigned int MAX_OWN_ARGUMENTS = 100U;
constexpr char OPTION_FILE_MARK = '@';
constexpr unsigned int TEXT_STEP = 1024U;

static_assert(CKoConfigFileParser::MAX_LINE < TEXT_STEP, "every line fits into one step, with its zero");

int sArgc = 0;
const char* sArgv[MAX_ARGUMENTS];
std::atomic<bool> sWin32PrefixesEnabled{false};
std::atomic<bool> sCmdLineArgsInitialized{false};

/// Where the next text of an option file goes. Texts never move: a block without room is left behind full,
/// and another one begins. Blocks are never released.
char* sTextEnd = nullptr;
std::size_t sTextRoom = 0U;

CKoCriticalSection& initLock()
{
    static CKoCriticalSection sLock;
    return sLock;
}

/// \return a copy that stays; null, after a report, without memory.
const char* keepText(const char* text)
{
    const std::size_t size = std::strlen(text) + 1U;
    if (size > sTextRoom)
    {
        auto* const block = static_cast<char*>(KoMemory::alloc(TEXT_STEP));
        if (block == nullptr)
        {
            doAssert(__LINE__, "KoCommandLineOptions", "no memory for an argument");
            return nullptr;
        }
        sTextEnd = block;
        sTextRoom = TEXT_STEP;
    }
    char* const copy = sTextEnd;
    std::memcpy(copy, text, size);
    sTextEnd += size;
    sTextRoom -= size;
    return copy;
}

/// Adds each line of an option file to the arguments.
class CommandLineConfigParser final : public CKoConfigFileParser::ICallback
{
public:
    bool processConfigFileEntry(unsigned short, const char* line) override
    {
        if (line == nullptr || sArgc >= MAX_ARGUMENTS)
        {
            return false;
        }
        const char* const text = keepText(line);
        if (text != nullptr)
        {
            sArgv[sArgc++] = text;
        }
        return true;
    }
};

void addOptionFile(const char* path)
{
    CommandLineConfigParser adder;
    CKoConfigFileParser parser;
    parser.addSectionCallback("COMMANDLINE", 0U, &adder);
    if (!parser.parse(path))
    {
        KoSyslog::logMsg(0, KoSyslog::Error, "Error opening command line option file %s", path);
    }
}

/// \return whether the process's own arguments can be used.
bool copyOwnArguments()
{
    const int count = KoPlatform::argumentCount();
    if (static_cast<unsigned int>(count) - 1U >= MAX_OWN_ARGUMENTS)
    {
        KoSyslog::logMsg(0, KoSyslog::Notice,
                         "KoCommandLineOptions: _argc corrupt due to bug in statically linked libc on ARM");
        KoSyslog::logMsg(0, KoSyslog::Notice,
                         "KoCommandLineOptions: command line arguments will NOT be evaluated");
        KoPlatform::dropArguments();
        return false;
    }
    char** const arguments = KoPlatform::argumentVector();
    for (int i = 0; i < count; ++i)
    {
        sArgv[i] = arguments[i];
    }
    sArgc = count;
    return true;
}

void initCmdLineArgs()
{
    // Whoever receives log lines may ask for options while a line of this function is logged.
    if (initLock().isHeldByCaller())
    {
        return;
    }
    const TKoAutoLock<CKoCriticalSection> guard(initLock());
    // Set by a thread that held the lock.
    if (sCmdLineArgsInitialized.load(std::memory_order_relaxed))
    {
        return;
    }
    // Relaxed: a flag of its own, which orders nothing.
    sWin32PrefixesEnabled.store(true, std::memory_order_relaxed);
    if (!copyOwnArguments())
    {
        return;
    }
    // Files add arguments, which may name files in turn.
    for (int i = 1; i < sArgc; ++i)
    {
        if (sArgv[i] != nullptr && *sArgv[i] == OPTION_FILE_MARK)
        {
            addOptionFile(sArgv[i] + 1);
        }
    }
    // Pairs with the load in ensureInitialized.
    sCmdLineArgsInitialized.store(true, std::memory_order_release);
}

void ensureInitialized()
{
    // Pairs with the store in initCmdLineArgs: whoever sees it set sees the arguments.
    if (!sCmdLineArgsInitialized.load(std::memory_order_acquire))
    {
        initCmdLineArgs();
    }
}

bool isOption(const char* text)
{
    return text != nullptr &&
           (*text == '-' || (*text == '/' && sWin32PrefixesEnabled.load(std::memory_order_relaxed)));
}

const char* removePrefix(const char* text)
{
    while (isOption(text))
    {
        ++text;
    }
    return text;
}

/// Looks for an option. \param from the index to begin with. \return the index of its argument; sArgc if it
/// is not there. \param rest what follows the name in that argument.
int findOption(const char* name, int from, const char*& rest)
{
    const std::size_t length = std::strlen(name);
    for (int i = from; i < sArgc; ++i)
    {
        if (!isOption(sArgv[i]))
        {
            continue;
        }
        const char* const option = removePrefix(sArgv[i]);
        if (std::strncmp(option, name, length) == 0 && (option[length] == '\0' || option[length] == '='))
        {
            rest = option + length;
            return i;
        }
    }
    return sArgc;
}

} // namespace

int KoCommandLineOptions::getARGC()
{
    ensureInitialized();
    return sArgc;
}

const char* const* KoCommandLineOptions::getARGV()
{
    ensureInitialized();
    return sArgv;
}

const char* KoCommandLineOptions::getARG(int index)
{
    return index >= 0 && index < getARGC() ? sArgv[index] : nullptr;
}

bool KoCommandLineOptions::isOptionSet(const char* name)
{
    ensureInitialized();
    const char* rest = nullptr;
    return name != nullptr && findOption(removePrefix(name), 1, rest) < sArgc;
}

const char* KoCommandLineOptions::getOptionArg(const char* name)
{
    ensureInitialized();
    if (name == nullptr)
    {
        return nullptr;
    }
    const char* const bareName = removePrefix(name);
    const char* rest = nullptr;
    for (int i = findOption(bareName, 1, rest); i < sArgc; i = findOption(bareName, i + 1, rest))
    {
        if (*rest == '=')
        {
            return rest + 1;
        }
        if (i + 1 < sArgc && !isOption(sArgv[i + 1]))
        {
            return sArgv[i + 1];
        }
    }
    return nullptr;
}

bool KoCommandLineOptions::win32PrefixesEnabled()
{
    ensureInitialized();
    return sWin32PrefixesEnabled.load(std::memory_order_relaxed);
}

void KoCommandLineOptions::disableWin32Prefixes()
{
    ensureInitialized();
    sWin32PrefixesEnabled.store(false, std::memory_order_relaxed);
}
