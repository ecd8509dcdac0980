#pragma once

#include "pf/base/KoExport.h"

#include <cerrno>
#include <cstdlib>

/// Snapshot of the heap accounting.
struct SKoHeapInfo
{
    unsigned int allocatedBytes; ///< requested bytes of all live blocks; 0 when the process is not traced
};

/// What the inline functions of KoMemory need; not for other callers.
namespace KoPrivate
{

/// Sizes below this plus one go straight to the C allocator: UINT_MAX in an untraced process, 0 while that is
/// not known or blocks have a header. Set before the process has a second thread.
KO_EXPORT extern unsigned int sPlainSizes;

/// The cases that KoMemory::alloc and KoMemory::release leave: size 0, a traced process, the first call of
/// all.
KO_EXPORT void* allocUncommon(unsigned int size);
KO_EXPORT void releaseUncommon(void* block);

} // namespace KoPrivate

/// All heap memory of the library and of the processes built on it.
///
/// The global `operator new` and `operator delete` are replaced by it. Blocks of all its functions share one
/// layout: any of them releases or resizes a block of any other. Blocks are aligned for every standard type.
///
/// With the start-up option "--memtrace=1" the requested bytes of all live blocks are counted; a small header
/// in front of each block remembers its size. Every allocation and resize sets `errno` to 0 first: read an
/// error number before anything allocates. Any thread may call; tracing off, a call costs what the C
/// allocator costs.
namespace KoMemory
{

/// \return the block; null for size 0, or with `errno` when memory is exhausted.
KO_EXPORT inline void* alloc(unsigned int size)
{
    errno = 0;
    if (__builtin_expect(size - 1U < KoPrivate::sPlainSizes, 1)) // size 0 wraps and is none of them
    {
        return std::malloc(size);
    }
    return KoPrivate::allocUncommon(size);
}

/// As alloc, but never null for a size above 0: a failure writes a backtrace file and ends the process.
KO_EXPORT void* allocChecked(unsigned int size);

/// Identical to alloc.
KO_EXPORT void* allocCached(unsigned int size);

/// Resizes a block. A null block is allocated; size 0 releases the block and gives null.
/// \return the block, possibly moved; null with `errno` when memory is exhausted: the old block stays
/// allocated but is no longer counted.
KO_EXPORT void* realloc(void* block, unsigned int size);

/// As realloc, but a failure for a size above 0 writes a backtrace file and ends the process.
KO_EXPORT void* reallocChecked(void* block, unsigned int size);

/// Releases a block of any function above or of `operator new`; null is ignored.
KO_EXPORT inline void release(void* block)
{
    if (__builtin_expect(KoPrivate::sPlainSizes != 0, 1))
    {
        std::free(block);
        return;
    }
    KoPrivate::releaseUncommon(block);
}

/// The same; the size is ignored.
KO_EXPORT void release(void* block, unsigned int size);

/// A snapshot of the accounting; changes of other threads meanwhile may be in it or not.
KO_EXPORT SKoHeapInfo getHeapInfo();

/// The counter of SKoHeapInfo: modulo 2^32, 0 when the process is not traced.
KO_EXPORT unsigned int getAllocatedBytes();

} // namespace KoMemory

/// The same under plain symbol names, for code that knows no namespaces.
extern "C"
{
    KO_EXPORT void* allocateMemory(unsigned int size);
    KO_EXPORT void* allocateCheckedMemory(unsigned int size);
    KO_EXPORT void* allocateCachedMemory(unsigned int size);
    KO_EXPORT void* reallocateMemory(void* block, unsigned int size);
    KO_EXPORT void* reallocateCheckedMemory(void* block, unsigned int size);
    KO_EXPORT void releaseMemory(void* block);
    KO_EXPORT void releaseMemoryEx(void* block, unsigned int size);
}
