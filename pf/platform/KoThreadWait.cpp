#include "pf/platform/KoThreadWait.h"

#include "pf/platform/KoFutex.h"
#include "pf/platform/KoLayerLock.h"
#include "pf/platform/KoThreadRecord.h"

#include <cerrno>
#include <climits>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

// Who announces a wait writes it and then looks whether it is to end; who wants it to end writes that and
// then looks for a wait. Both pairs are sequentially consistent, so one of the two sees the other. The wait
// is an object on the sleeper's stack: the waker marks the word that leads to it, and the sleeper does not
// take the word back while the mark is there.

namespace
{

using namespace KoPlatform;

constexpr unsigned long long NS_PER_SECOND = 1000000000ULL;
constexpr unsigned long long PAUSE_NS = 20000ULL;

/// Sections of the calling thread in which it is not ended.
__thread int sDeferrals __attribute__((tls_model("initial-exec")));

/// Replaces the announced wait. \return what it was.
ThreadWait* announce(ThreadRecord& record, ThreadWait* wait)
{
    std::uintptr_t former = __atomic_load_n(&record.wait, __ATOMIC_RELAXED) & ~THREAD_BEING_WOKEN;
    const std::uintptr_t own = former;
    while (!__atomic_compare_exchange_n(&record.wait, &former, reinterpret_cast<std::uintptr_t>(wait), false,
                                        __ATOMIC_SEQ_CST, __ATOMIC_RELAXED))
    {
        // The waker may have a lower priority, so the processor has to be given to it.
        pauseFor(PAUSE_NS);
        former = own;
    }
    return reinterpret_cast<ThreadWait*>(own);
}

struct SleepingPlace
{
    unsigned int* word;
    bool shared;
};

void wakeAll(void* place)
{
    const SleepingPlace& sleepers = *static_cast<const SleepingPlace*>(place);
    futexWake(sleepers.word, INT_MAX, sleepers.shared);
}

/// Leaves a thread that the layer did not start.
[[noreturn]] void exitByKernel()
{
    endRecordOfCaller();
    for (;;)
    {
        syscall(SYS_exit, 0);
    }
}

} // namespace

namespace KoPlatform
{

ThreadWait::ThreadWait(void (*wake)(void*), void* object) noexcept
    : m_wake(wake)
    , m_object(object)
{
    ThreadRecord* const record = callersRecord();
    if (record != nullptr)
    {
        m_outer = announce(*record, this);
        m_announced = true;
    }
}

ThreadWait::~ThreadWait()
{
    if (m_announced)
    {
        announce(*sThreadRecord, m_outer);
    }
}

TerminationDeferral::TerminationDeferral() noexcept
{
    ++sDeferrals;
}

TerminationDeferral::~TerminationDeferral()
{
    --sDeferrals;
}

bool isTerminationRequested() noexcept
{
    const ThreadRecord* const record = sThreadRecord;
    return record != nullptr && __atomic_load_n(&record->endRequested, __ATOMIC_SEQ_CST) != 0U &&
           sDeferrals == 0;
}

bool mayBeEnded() noexcept
{
    return sDeferrals == 0 && callersRecord() != nullptr;
}

void endCallingThread() noexcept
{
    ThreadRecord* const record = callersRecord();
    if (record == nullptr)
    {
        exitByKernel();
    }
    announce(*record, nullptr);
    std::jmp_buf* const exit = record->exit;
    {
        const LayerLock lock(sThreadTableLock);
        record->state = ThreadState::LEAVING;
        record->exitValue = record->requestedExitValue;
        record->exit = nullptr;
        // Thread-local objects that are destroyed now may wait again.
        __atomic_store_n(&record->endRequested, 0U, __ATOMIC_RELAXED);
    }
    if (exit == nullptr)
    {
        exitByKernel();
    }
    std::longjmp(*exit, 1);
}

int futexWaitTerminable(unsigned int* word, unsigned int value, bool shared,
                        unsigned long long deadlineNs) noexcept
{
    SleepingPlace place = {word, shared};
    const ThreadWait wait(&wakeAll, &place);
    const int error = isTerminationRequested() ? 0 : futexWait(word, value, shared, deadlineNs);
    if (!isTerminationRequested())
    {
        return error;
    }
    if (__atomic_load_n(word, __ATOMIC_RELAXED) != value)
    {
        wakeAll(&place);
    }
    return ECANCELED;
}

void pauseFor(unsigned long long ns) noexcept
{
    timespec left = {};
    left.tv_sec = static_cast<time_t>(ns / NS_PER_SECOND);
    left.tv_nsec = static_cast<long>(ns % NS_PER_SECOND);
    while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR)
    {
    }
}

bool wakeAnnouncedWait(ThreadRecord& record, unsigned int generation) noexcept
{
    std::uintptr_t word = __atomic_load_n(&record.wait, __ATOMIC_SEQ_CST);
    if (word == 0U || (word & THREAD_BEING_WOKEN) != 0U)
    {
        return word != 0U;
    }
    if (!__atomic_compare_exchange_n(&record.wait, &word, word | THREAD_BEING_WOKEN, false, __ATOMIC_SEQ_CST,
                                     __ATOMIC_RELAXED))
    {
        return true;
    }
    // The thread cannot end before the mark is gone. Acquire pairs with the release of who frees the record.
    const bool isSameThread = __atomic_load_n(&record.generation, __ATOMIC_ACQUIRE) == generation;
    if (isSameThread)
    {
        const ThreadWait& wait = *reinterpret_cast<ThreadWait*>(word);
        wait.m_wake(wait.m_object);
    }
    __atomic_store_n(&record.wait, word, __ATOMIC_RELEASE);
    return isSameThread;
}

} // namespace KoPlatform
