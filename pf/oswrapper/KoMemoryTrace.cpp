#include "pf/oswrapper/KoMemoryTrace.h"

#include "pf/oswrapper/KoAtomic.h"
#include "pf/oswrapper/KoLoadOrder.h"
#include "pf/oswrapper/KoMemory.h"
#include "pf/oswrapper/KoStartupOptions.h"
#include "pf/oswrapper/TKoStartupCaller.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace
{

/// The record in front of the caller's bytes.
struct SBlockRecord
{
    unsigned int size;   ///< bytes requested; 0 once the block is out of the books
    unsigned int offset; ///< from the C allocator's block to the caller's bytes
};

static_assert(sizeof(SBlockRecord) == 8, "the record is what a header has room for on every target");

constexpr unsigned int HEADER_SIZE = sizeof(SBlockRecord) > alignof(std::max_align_t)
                                         ? sizeof(SBlockRecord)
                                         : alignof(std::max_align_t);

SKoMemTraceData sTraceRecord;

// The record is copied in and out: what lies in front of the caller's bytes is raw memory, and the caller's
// alignment may be smaller than the record's.
SBlockRecord readRecord(const void* user)
{
    SBlockRecord record;
    std::memcpy(&record, static_cast<const char*>(user) - sizeof(record), sizeof(record));
    return record;
}

void writeRecord(void* user, const SBlockRecord& record)
{
    std::memcpy(static_cast<char*>(user) - sizeof(record), &record, sizeof(record));
}

void* book(void* raw, unsigned int size, unsigned int offset, SKoMemTraceData& data)
{
    void* user = static_cast<char*>(raw) + offset;
    writeRecord(user, {size, offset});
    KoAtomic::add(data.allocatedBytes, size);
    return user;
}

void* countBytesAllocator(void* raw, unsigned int size, SKoMemTraceData& data)
{
    return raw == nullptr ? nullptr : book(raw, size, data.headerSize, data);
}

void* countBytesDeallocator(void* user, SKoMemTraceData& data)
{
    if (user == nullptr)
    {
        return nullptr;
    }
    const SBlockRecord record = readRecord(user);
    KoAtomic::subtract(data.allocatedBytes, record.size);
    return static_cast<char*>(user) - record.offset;
}

/// The C allocator's resize would move an over-aligned block to another offset, so its bytes move here.
void* moveToNewBlock(void* block, unsigned int oldSize, unsigned int size)
{
    void* moved = KoMemory::alloc(size);
    if (moved != nullptr)
    {
        std::memcpy(moved, block, oldSize < size ? oldSize : size);
        KoMemory::release(block);
    }
    return moved;
}

void initAtLoad()
{
    KoPrivate::memTrace();
}

TKoStartupCaller<initAtLoad> sCaller KO_INIT_ORDER(KoLoadOrder::MEMORY_TRACE);

} // namespace

SKoMemTraceData* KoPrivate::sMemTraceData = nullptr;

SKoMemTraceData& KoPrivate::initMemTrace()
{
    sTraceRecord = {KoStartupOptions::getMemoryTraceLevel(), 0, 0, nullptr, nullptr};
    if (sTraceRecord.level != 0)
    {
        sTraceRecord.headerSize = HEADER_SIZE;
        sTraceRecord.allocatorHook = countBytesAllocator;
        sTraceRecord.deallocatorHook = countBytesDeallocator;
    }
    sMemTraceData = &sTraceRecord;
    sPlainSizes = sTraceRecord.allocatorHook == nullptr ? UINT_MAX : 0;
    return sTraceRecord;
}

void* KoPrivate::reallocTraced(void* block, unsigned int size, SKoMemTraceData& data)
{
    const SBlockRecord record = readRecord(block);
    if (record.offset != data.headerSize)
    {
        return moveToNewBlock(block, record.size, size);
    }
    if (size > UINT_MAX - data.headerSize)
    {
        errno = ENOMEM;
        return nullptr;
    }
    void* raw = data.deallocatorHook(block, data);
    void* user = data.allocatorHook(std::realloc(raw, size + data.headerSize), size, data);
    if (user == nullptr)
    {
        // The old block lives on outside the books; its release must not subtract a second time.
        writeRecord(block, {0, record.offset});
    }
    return user;
}

void* KoPrivate::allocAligned(std::size_t size, std::size_t alignment)
{
    errno = 0;
    if (size == 0)
    {
        return nullptr;
    }
    SKoMemTraceData& data = memTrace();
    const std::size_t effective = alignment < sizeof(void*) ? sizeof(void*) : alignment;
    const std::size_t offset = effective > data.headerSize ? effective : data.headerSize;
    const std::size_t header = data.allocatorHook != nullptr ? offset : 0;
    if (header > UINT_MAX || size > UINT_MAX - header)
    {
        errno = ENOMEM;
        return nullptr;
    }
    void* raw = nullptr;
    errno = ::posix_memalign(&raw, effective, size + header);
    if (errno != 0)
    {
        return nullptr;
    }
    return header == 0 ? raw
                       : book(raw, static_cast<unsigned int>(size), static_cast<unsigned int>(header), data);
}
