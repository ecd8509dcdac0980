// Uses the library before its own constructors have run, from a constructor of its own, and from main();
// prints what it saw. With the argument "report" it reports an assertion at each of these times instead, and
// after the library's destructors.

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <dirent.h>
#include <unistd.h>

#include "pf/base/CKoString.h"
#include "pf/containers/CKoCircularByteBuffer.h"
#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoMemory.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/KoStartupOptions.h"
#include "pf/stream/CKoNullStream.h"

namespace
{

/// What was seen before any constructor of any library ran. Plain data, so that nothing overwrites it later.
struct SeenEarly
{
    unsigned int traceLevel;
    bool isBreakEnabled;
    void* block;
    void* alignedBlock;
    unsigned int bytesAfterNew;
    unsigned long long bias;
    int threadCount;
    char text[16];
    bool isEmptyStringUsable;
};

SeenEarly sEarly;

constexpr std::align_val_t OVER_ALIGNMENT{256};

/// Counted with plain calls: the standard library is not constructed yet when it is called first.
int countThreads()
{
    int count = 0;
    DIR* const threads = opendir("/proc/self/task");
    for (const dirent* entry = readdir(threads); entry != nullptr; entry = readdir(threads))
    {
        count += entry->d_name[0] != '.' ? 1 : 0;
    }
    closedir(threads);
    return count;
}

void useStrings()
{
    CKoString text;
    const CKoString empty(CKoCircularByteBuffer::EMPTY_STRING);
    text.append("early").append(empty);
    std::strcpy(sEarly.text, text.c_str());
    sEarly.isEmptyStringUsable = empty.isEmpty() && empty == CKoString() && *empty.begin() == 0;
}

void reportLate()
{
    doAssert(3, "load_probe", "after the destructors");
}

/// Runs before every shared library's constructors. What it leaves for the exit runs after their destructors.
void runEarly(int argc, char** argv, char** environment)
{
    environ = environment; // which the C library's own constructor would do
    if (argc > 1 && std::strcmp(argv[1], "report") == 0)
    {
        std::atexit(reportLate);
        doAssert(1, "load_probe", "before the constructors");
        return;
    }
    sEarly.block = ::operator new(100);
    sEarly.alignedBlock = ::operator new(60, OVER_ALIGNMENT);
    sEarly.bytesAfterNew = KoMemory::getAllocatedBytes();
    sEarly.traceLevel = KoStartupOptions::getMemoryTraceLevel();
    sEarly.isBreakEnabled = KoStartupOptions::isBreakEnabled();
    sEarly.bias = KoOperatingSystem::getMonotonicBias(nullptr);
    sEarly.threadCount = countThreads();
    useStrings();
}

__attribute__((section(".preinit_array"), used)) void (*const sRunEarly)(int, char**, char**) = &runEarly;

/// A client's static object: the library's are all there by now.
struct StaticClient
{
    StaticClient()
        : isNullStringUsable(CKoString::null.isEmpty() && CKoString(CKoString::null) == CKoString())
    {
        CKoNullStream::INSTANCE << CKoString("nowhere");
        char byte = 'x';
        bytesRead = CKoNullStream::INSTANCE.doRead(&byte, 1);
    }

    bool isNullStringUsable;
    unsigned int bytesRead;
};

const StaticClient sClient;

} // namespace

int main(int argc, char** argv)
{
    if (argc > 1 && std::strcmp(argv[1], "report") == 0)
    {
        doAssert(2, "load_probe", "between them");
        return 0;
    }
    const unsigned int before = KoMemory::getAllocatedBytes();
    ::operator delete(sEarly.block);
    ::operator delete(sEarly.alignedBlock, OVER_ALIGNMENT);
    const unsigned int released = before - KoMemory::getAllocatedBytes();
    const bool isAligned =
        reinterpret_cast<std::uintptr_t>(sEarly.alignedBlock) % static_cast<std::size_t>(OVER_ALIGNMENT) == 0;
    std::printf("early: level %u, break %d, bytes %u, aligned %d, text %s, empty %d\n", sEarly.traceLevel,
                static_cast<int>(sEarly.isBreakEnabled), sEarly.bytesAfterNew, static_cast<int>(isAligned),
                sEarly.text, static_cast<int>(sEarly.isEmptyStringUsable));
    std::printf("static: null string %d, null stream read %u\n", static_cast<int>(sClient.isNullStringUsable),
                sClient.bytesRead);
    std::printf("main: level %u, break %d, released %u, same bias %d, threads added %d\n",
                KoStartupOptions::getMemoryTraceLevel(), static_cast<int>(KoStartupOptions::isBreakEnabled()),
                released, static_cast<int>(KoOperatingSystem::getMonotonicBias(nullptr) == sEarly.bias),
                countThreads() - sEarly.threadCount);
    return 0;
}
