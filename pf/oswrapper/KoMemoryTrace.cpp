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
    unsigned int size;           ///< bytes requested
    unsigned int offsetAndState; ///< from the C allocator's block to the caller's bytes; UNBOOKED
};

/// A block that outlived its failed resize: allocated, but no longer counted. Offsets are even.
constexpr unsigned int UNBOOKED = 1;

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

unsigned int offsetOf(const SBlockRecord& record)
{
    return record.offsetAndState & ~UNBOOKED;
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
    if ((record.offsetAndState & UNBOOKED) == 0)
    {
        KoAtomic::subtract(data.allocatedBytes, record.size);
    }
    return static_cast<char*>(user) - offsetOf(record);
}

/// Gives the C allocator's block room for `size` bytes behind a plain header; null when there is no memory.
void* resizeRaw(void* raw, const SBlockRecord& record, unsigned int size, unsigned int headerSize)
{
    const unsigned int offset = offsetOf(record);
    if (offset == headerSize)
    {
        return std::realloc(raw, size + headerSize);
    }
    // The C allocator would keep the bytes of an over-aligned block where only its larger header ends.
    void* moved = std::malloc(size + headerSize);
    if (moved != nullptr)
    {
        std::memcpy(static_cast<char*>(moved) + headerSize, static_cast<char*>(raw) + offset,
                    record.size < size ? record.size : size);
        std::free(raw);
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
    void* raw = data.deallocatorHook(block, data);
    void* resized = nullptr;
    if (size <= UINT_MAX - data.headerSize)
    {
        resized = resizeRaw(raw, record, size, data.headerSize);
    }
    else
    {
        errno = ENOMEM;
    }
    if (resized == nullptr)
    {
        writeRecord(block, {record.size, record.offsetAndState | UNBOOKED});
    }
    return data.allocatorHook(resized, size, data);
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
