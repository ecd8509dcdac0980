#include "pf/platform/KoPlatformMemory.h"

#include "pf/oswrapper/KoErrnoGuard.h"

#include <memory>

#include <sys/mman.h>

namespace
{

/// The usual large page of the hosts, and what it takes until it is worth a call.
constexpr std::size_t LARGE_PAGE = std::size_t(2) << 20U;
constexpr std::size_t WORTHWHILE = 2U * LARGE_PAGE;

} // namespace

void KoPlatform::preferLargePages(void* block, std::size_t byteLength)
{
    if (byteLength < WORTHWHILE)
    {
        return;
    }
    const KoErrnoGuard guard;
    // Only large pages that lie in the block as a whole.
    void* inside = block;
    std::size_t space = byteLength;
    if (std::align(LARGE_PAGE, LARGE_PAGE, inside, space) != nullptr)
    {
        (void)madvise(inside, space & ~(LARGE_PAGE - 1U), MADV_HUGEPAGE);
    }
}
