#include "pf/platform/KoThreadRecord.h"

#include "pf/platform/KoFutex.h"
#include "pf/platform/KoLayerLock.h"
#include "pf/platform/KoPlatformThread.h"

#include <climits>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

using namespace KoPlatform;

constexpr int BITS_PER_WORD = 32;
constexpr int TABLE_WORDS = 2048;
constexpr unsigned int RESERVED = 0x3U; // 0 stands for no number, 1 is the main thread's

constexpr int RECORDS_PER_CHUNK = 64;
constexpr int CHUNKS = TABLE_WORDS * BITS_PER_WORD / RECORDS_PER_CHUNK;
constexpr std::size_t CHUNK_BYTES = RECORDS_PER_CHUNK * sizeof(ThreadRecord);

/// One bit per number that is taken. Relaxed throughout: a number guards no data.
unsigned int sTaken[TABLE_WORDS] = {RESERVED};

/// Records in chunks that come when they are first needed, from the kernel, because a thread may be asked for
/// its number while it allocates memory. They stay: their number is bounded by that of the threads that lived
/// at the same time.
ThreadRecord sFirstChunk[RECORDS_PER_CHUNK];
ThreadRecord* sChunks[CHUNKS] = {sFirstChunk};

/// \return the lowest free number of a word, or -1.
int takeFromWord(int index)
{
    unsigned int& word = sTaken[index];
    unsigned int taken = __atomic_load_n(&word, __ATOMIC_RELAXED);
    while (taken != ~0U)
    {
        const int bit = __builtin_ctz(~taken);
        const unsigned int mask = 1U << bit;
        taken = __atomic_fetch_or(&word, mask, __ATOMIC_RELAXED);
        if ((taken & mask) == 0U)
        {
            return index * BITS_PER_WORD + bit;
        }
    }
    return -1;
}

bool isInTable(int id)
{
    return id >= MAIN_THREAD && id < TABLE_WORDS * BITS_PER_WORD;
}

/// \return the chunk, null when it has not been needed yet. Acquire pairs with the release in addChunk.
ThreadRecord* chunkOf(int id)
{
    return __atomic_load_n(&sChunks[id / RECORDS_PER_CHUNK], __ATOMIC_ACQUIRE);
}

/// \return the chunk that is there afterwards, null when there is no memory.
ThreadRecord* addChunk(int id)
{
    void* const storage =
        mmap(nullptr, CHUNK_BYTES, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (storage == MAP_FAILED)
    {
        return nullptr;
    }
    ThreadRecord* other = nullptr;
    ThreadRecord* const chunk = static_cast<ThreadRecord*>(storage);
    if (__atomic_compare_exchange_n(&sChunks[id / RECORDS_PER_CHUNK], &other, chunk, false, __ATOMIC_ACQ_REL,
                                    __ATOMIC_ACQUIRE))
    {
        return chunk;
    }
    munmap(storage, CHUNK_BYTES);
    return other;
}

/// The library may be asked about the main thread before that has asked for anything itself.
void adoptMainThread(ThreadRecord& record)
{
    occupyThreadRecord(record, MAIN_THREAD);
    record.kernelId = static_cast<unsigned int>(getpid());
}

/// Gives a thread that has a number the record to it.
ThreadRecord* adoptCaller(int id)
{
    ThreadRecord* const record = provideThreadRecord(id);
    if (record == nullptr)
    {
        return nullptr;
    }
    const unsigned int kernelId = kernelThreadSelf();
    const LayerLock lock(sThreadTableLock);
    if (record->state == ThreadState::FREE)
    {
        occupyThreadRecord(*record, id);
    }
    record->kernelId = kernelId;
    return record;
}

/// A thread that ends is no longer to be found, unless somebody has to join it. The main thread's number
/// stays its own.
void markEnded(ThreadRecord& record)
{
    const LayerLock lock(sThreadTableLock);
    if (record.id != MAIN_THREAD && (!record.started || record.detached))
    {
        freeThreadRecord(record);
        return;
    }
    record.state = ThreadState::ENDED;
    record.kernelId = 0U;
    // Release pairs with the acquire of who joins.
    __atomic_store_n(&record.ended, 1U, __ATOMIC_RELEASE);
    futexWake(&record.ended, INT_MAX, false);
}

} // namespace

namespace KoPlatform
{

_sync sThreadTableLock = {0U, 0U};
__thread ThreadRecord* sThreadRecord __attribute__((tls_model("initial-exec")));

int takeThreadId() noexcept
{
    for (int index = 0; index < TABLE_WORDS; ++index)
    {
        const int id = takeFromWord(index);
        if (id != -1)
        {
            return id;
        }
    }
    return -1;
}

void giveThreadIdBack(int id) noexcept
{
    if (isInTable(id) && id != MAIN_THREAD)
    {
        __atomic_fetch_and(&sTaken[id / BITS_PER_WORD], ~(1U << (id % BITS_PER_WORD)), __ATOMIC_RELAXED);
    }
}

ThreadRecord* provideThreadRecord(int id) noexcept
{
    if (!isInTable(id))
    {
        return nullptr;
    }
    ThreadRecord* const present = chunkOf(id);
    ThreadRecord* const chunk = present != nullptr ? present : addChunk(id);
    return chunk != nullptr ? chunk + id % RECORDS_PER_CHUNK : nullptr;
}

void occupyThreadRecord(ThreadRecord& record, int id) noexcept
{
    static_cast<ThreadFacts&>(record) = ThreadFacts{};
    record.id = id;
    record.state = ThreadState::RUNNING;
    // Relaxed: nobody looks at them before the lock is given back.
    __atomic_store_n(&record.ended, 0U, __ATOMIC_RELAXED);
    __atomic_store_n(&record.endRequested, 0U, __ATOMIC_RELAXED);
}

void freeThreadRecord(ThreadRecord& record) noexcept
{
    const int id = record.id;
    static_cast<ThreadFacts&>(record) = ThreadFacts{};
    // Release pairs with the acquire of who wakes the thread.
    __atomic_fetch_add(&record.generation, 1U, __ATOMIC_RELEASE);
    giveThreadIdBack(id);
}

ThreadRecord* findThreadRecord(int id) noexcept
{
    ThreadRecord* const chunk = isInTable(id) ? chunkOf(id) : nullptr;
    if (chunk == nullptr)
    {
        return nullptr;
    }
    ThreadRecord& record = chunk[id % RECORDS_PER_CHUNK];
    if (id == MAIN_THREAD && record.state == ThreadState::FREE)
    {
        adoptMainThread(record);
    }
    return record.state != ThreadState::FREE ? &record : nullptr;
}

ThreadRecord* callersRecord() noexcept
{
    if (sThreadRecord == nullptr)
    {
        sThreadRecord = adoptCaller(threadSelf());
    }
    return sThreadRecord;
}

bool isVisited(const void* object) noexcept
{
    // Both acquires pair with releases: of who adds a chunk, and of a visitor that leaves.
    for (ThreadRecord* const& entry : sChunks)
    {
        const ThreadRecord* const chunk = __atomic_load_n(&entry, __ATOMIC_ACQUIRE);
        for (int i = 0; chunk != nullptr && i < RECORDS_PER_CHUNK; ++i)
        {
            if (__atomic_load_n(&chunk[i].visited, __ATOMIC_ACQUIRE) == object && &chunk[i] != sThreadRecord)
            {
                return true;
            }
        }
    }
    return false;
}

void endRecordOfCaller() noexcept
{
    if (sThreadRecord != nullptr)
    {
        // A thread that is ended leaves without unwinding.
        __atomic_store_n(&sThreadRecord->visited, nullptr, __ATOMIC_RELEASE);
        markEnded(*sThreadRecord);
    }
    else
    {
        giveThreadIdBack(sThreadIdentity.threadId);
    }
    sThreadRecord = nullptr;
    sThreadIdentity.threadId = 0;
}

void forgetOtherThreads() noexcept
{
    // The one thread keeps its priority and the waits that it has announced.
    const ThreadRecord* const former = sThreadRecord;
    const int priority = former != nullptr ? former->priority : 0;
    const std::uintptr_t wait = former != nullptr ? former->wait & ~THREAD_BEING_WOKEN : 0U;
    sThreadTableLock = _sync{0U, 0U};
    for (unsigned int& word : sTaken)
    {
        word = 0U;
    }
    sTaken[0] = RESERVED;
    for (ThreadRecord* chunk : sChunks)
    {
        for (int i = 0; chunk != nullptr && i < RECORDS_PER_CHUNK; ++i)
        {
            chunk[i] = ThreadRecord{};
        }
    }
    if (former != nullptr)
    {
        sThreadRecord = &sFirstChunk[MAIN_THREAD];
        adoptMainThread(*sThreadRecord);
        sThreadRecord->priority = priority;
        sThreadRecord->wait = wait;
    }
}

} // namespace KoPlatform
