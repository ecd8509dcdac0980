// Asks for its arguments before any constructor has run and prints what it got.

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "pf/platform/KoPlatformProcess.h"

namespace
{

int sAllocations = 0;
int sEarlyCount = -1;
char** sEarlyVector = nullptr;
bool sErrnoKept = false;

void askEarly(int /*argc*/, char** /*argv*/, char** /*environment*/)
{
    const int before = sAllocations;
    errno = ENOTTY;
    sEarlyCount = KoPlatform::argumentCount();
    sEarlyVector = KoPlatform::argumentVector();
    sErrnoKept = errno == ENOTTY;
    sAllocations -= before;
}

__attribute__((section(".preinit_array"), used)) void (*const sAskEarly)(int, char**, char**) = &askEarly;

} // namespace

int main()
{
    const int allocations = sAllocations;
    std::printf("%d\n", sEarlyCount);
    for (int i = 1; i < sEarlyCount; ++i)
    {
        std::printf("[%s]\n", sEarlyVector[i]);
    }
    const bool same =
        sEarlyCount == KoPlatform::argumentCount() && sEarlyVector == KoPlatform::argumentVector();
    std::printf("allocations %d, errno kept %d, same later %d, null at the end %d\n", allocations,
                static_cast<int>(sErrnoKept), static_cast<int>(same),
                static_cast<int>(sEarlyVector[sEarlyCount] == nullptr));
    return 0;
}
