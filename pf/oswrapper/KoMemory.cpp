#include "pf/oswrapper/KoMemory.h"

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoAtomic.h"
#include "pf/oswrapper/KoError.h"
#include "pf/oswrapper/KoMemoryTrace.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/util/KoBacktrace.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace
{

// The inline functions are part of the exported interface, too: for callers that look them up by name.
__attribute__((used)) void* (*const sAlloc)(unsigned int) = KoMemory::alloc;
__attribute__((used)) void (*const sRelease)(void*) = KoMemory::release;

} // namespace

unsigned int KoPrivate::sPlainSizes = 0;

void* KoPrivate::allocUncommon(unsigned int size)
{
    SKoMemTraceData& data = memTrace();
    if (size == 0)
    {
        return nullptr;
    }
    if (data.allocatorHook == nullptr)
    {
        return std::malloc(size);
    }
    if (size > UINT_MAX - data.headerSize)
    {
        errno = ENOMEM;
        return nullptr;
    }
    return data.allocatorHook(std::malloc(size + data.headerSize), size, data);
}

void KoPrivate::releaseUncommon(void* block)
{
    SKoMemTraceData& data = memTrace();
    std::free(data.deallocatorHook != nullptr ? data.deallocatorHook(block, data) : block);
}

void* KoMemory::allocChecked(unsigned int size)
{
    void* block = alloc(size);
    if (block == nullptr && size > 0)
    {
        KoPrivate::failAllocation(KoPrivate::FAILED_ALLOCATION, size, errno);
    }
    return block;
}

void* KoMemory::allocCached(unsigned int size)
{
    return alloc(size);
}

void* KoMemory::realloc(void* block, unsigned int size)
{
    errno = 0;
    if (block == nullptr)
    {
        return alloc(size);
    }
    if (size == 0)
    {
        release(block);
        return nullptr;
    }
    SKoMemTraceData& data = KoPrivate::memTrace();
    return data.allocatorHook == nullptr ? std::realloc(block, size)
                                         : KoPrivate::reallocTraced(block, size, data);
}

void* KoMemory::reallocChecked(void* block, unsigned int size)
{
    void* resized = realloc(block, size);
    if (resized == nullptr && size > 0)
    {
        KoPrivate::failAllocation(KoPrivate::FAILED_REALLOCATION, size, errno);
    }
    return resized;
}

void KoMemory::release(void* block, unsigned int)
{
    release(block);
}

SKoHeapInfo KoMemory::getHeapInfo()
{
    return {getAllocatedBytes()};
}

unsigned int KoMemory::getAllocatedBytes()
{
    return KoAtomic::load(KoPrivate::memTrace().allocatedBytes);
}

void KoPrivate::failAllocation(FailedRequest request, std::size_t size, int error)
{
    char text[64];
    std::snprintf(text, sizeof(text), "failed to %s %zu bytes (err: %d)",
                  request == FAILED_ALLOCATION ? "allocate" : "reallocate", size, error);
    KoBacktrace::doBacktraceNoAlloc(text, getBacktraceDirectory(), "ass", true);
    if (std::getenv("KO_ENABLE_ABORT_ON_FAILED_MEMORY_ALLOCATION") != nullptr)
    {
        KoSyslog::logMsg(0, KoSyslog::Critical, "%s", text);
        std::abort();
    }
    KoError::criticalError(0, "%s", text);
}

void* allocateMemory(unsigned int size)
{
    return KoMemory::alloc(size);
}

void* allocateCheckedMemory(unsigned int size)
{
    return KoMemory::allocChecked(size);
}

void* allocateCachedMemory(unsigned int size)
{
    return KoMemory::allocCached(size);
}

void* reallocateMemory(void* block, unsigned int size)
{
    return KoMemory::realloc(block, size);
}

void* reallocateCheckedMemory(void* block, unsigned int size)
{
    return KoMemory::reallocChecked(block, size);
}

void releaseMemory(void* block)
{
    KoMemory::release(block);
}

void releaseMemoryEx(void* block, unsigned int size)
{
    KoMemory::release(block, size);
}
