#pragma once

#include <cstddef>

/// The heap accounting behind KoMemory and the replaced operators. Not part of the library's interface.
///
/// A traced block: header, then what the caller gets. The two words in front of the caller's bytes are the
/// block record; on hosts that align blocks to more than 8 bytes the header grows in front of the record, for
/// an over-aligned block up to its alignment.

struct SKoMemTraceData;

/// Books a block and gives what the caller gets; null for a null block.
using KoAllocatorHook = void* (*)(void* raw, unsigned int size, SKoMemTraceData& data);

/// Takes a block out of the books and gives what the C allocator knows; null for a null block.
using KoDeallocatorHook = void* (*)(void* user, SKoMemTraceData& data);

/// Layout of all blocks of the process; fixed from the first allocation on.
struct SKoMemTraceData
{
    unsigned int level;          ///< memory trace level, 0 or 1
    unsigned int allocatedBytes; ///< requested bytes of all live blocks; changed atomically
    unsigned int headerSize;     ///< bytes hidden in front of each block, 0 without tracing
    KoAllocatorHook allocatorHook;
    KoDeallocatorHook deallocatorHook;
};

namespace KoPrivate
{

/// Null until the first allocation or the library's load, whichever comes first; set before the process has a
/// second thread.
extern SKoMemTraceData* sMemTraceData;

/// Evaluates the trace level, once. \return the record.
SKoMemTraceData& initMemTrace();

inline SKoMemTraceData& memTrace()
{
    return sMemTraceData != nullptr ? *sMemTraceData : initMemTrace();
}

/// Resizes a block of a traced process; `block` is not null and `size` not 0.
void* reallocTraced(void* block, unsigned int size, SKoMemTraceData& data);

/// A block with the alignment of an over-aligned type, a power of two. Null with `errno` on failure, null for
/// size 0.
void* allocAligned(std::size_t size, std::size_t alignment);

enum FailedRequest
{
    FAILED_ALLOCATION,
    FAILED_REALLOCATION
};

/// What follows a failed checked request: backtrace file, log line and the end of the process. Allocates
/// nothing.
[[noreturn]] void failAllocation(FailedRequest request, std::size_t size, int error);

} // namespace KoPrivate
