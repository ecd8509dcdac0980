// Uses the library before its own constructors have run, from a constructor of its own, and from main();
// prints what it saw.

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <new>

#include "pf/base/CKoString.h"
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
    unsigned int bytesAfterNew;
    unsigned long long bias;
    char text[16];
    bool isEmptyStringUsable;
};

SeenEarly sEarly;

void useStrings()
{
    CKoString text;
    const CKoString empty(text);
    text.append("early").append(empty);
    std::strcpy(sEarly.text, text.c_str());
    sEarly.isEmptyStringUsable = empty.isEmpty() && empty == CKoString() && *empty.begin() == 0;
}

/// Runs before every shared library's constructors.
void runEarly(int /*argc*/, char** /*argv*/, char** /*environment*/)
{
    sEarly.block = ::operator new(100);
    sEarly.bytesAfterNew = KoMemory::getAllocatedBytes();
    sEarly.traceLevel = KoStartupOptions::getMemoryTraceLevel();
    sEarly.isBreakEnabled = KoStartupOptions::isBreakEnabled();
    sEarly.bias = KoOperatingSystem::getMonotonicBias(nullptr);
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

int main()
{
    const unsigned int before = KoMemory::getAllocatedBytes();
    ::operator delete(sEarly.block);
    const unsigned int released = before - KoMemory::getAllocatedBytes();
    std::printf("early: level %u, break %d, bytes %u, text %s, empty %d\n", sEarly.traceLevel,
                static_cast<int>(sEarly.isBreakEnabled), sEarly.bytesAfterNew, sEarly.text,
                static_cast<int>(sEarly.isEmptyStringUsable));
    std::printf("static: null string %d, null stream read %u\n", static_cast<int>(sClient.isNullStringUsable),
                sClient.bytesRead);
    std::printf("main: level %u, break %d, released %u, same bias %d\n",
                KoStartupOptions::getMemoryTraceLevel(), static_cast<int>(KoStartupOptions::isBreakEnabled()),
                released, static_cast<int>(KoOperatingSystem::getMonotonicBias(nullptr) == sEarly.bias));
    return 0;
}
