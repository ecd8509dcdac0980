#include "pf/platform/KoFailure.h"
#include "pf/platform/KoFutex.h"
#include "pf/platform/KoLayerLock.h"
#include "pf/platform/KoPlatformThread.h"
#include "pf/platform/KoThreadRecord.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace
{

using namespace KoPlatform;

constexpr unsigned long long FIRST_PAUSE_NS = 50000ULL;
constexpr unsigned long long LONGEST_PAUSE_NS = 1000000ULL;

/// Fills a record for a thread that is to be started. \return its number, or -1.
int reserve(void* (*routine)(void*), void* argument, const SThreadAttributes& attributes,
            ThreadRecord*& record)
{
    const int id = takeThreadId();
    record = provideThreadRecord(id);
    if (record == nullptr)
    {
        giveThreadIdBack(id);
        return -1;
    }
    ThreadRecord* const creator = callersRecord();
    const int given = attributes.param.sched_priority;
    const LayerLock lock(sThreadTableLock);
    occupyThreadRecord(*record, id);
    record->started = true;
    record->detached = (attributes.flags & THREAD_DETACHED) != 0U;
    record->prioritySet = (attributes.flags & THREAD_EXPLICIT_SCHED) != 0U && isPriority(given);
    if (record->prioritySet || creator != nullptr)
    {
        recordPriority(*record, record->prioritySet ? given : priorityOf(*creator));
    }
    record->routine = routine;
    record->argument = argument;
    return id;
}

/// What a new thread does first: from here on others can reach it.
void* begin(ThreadRecord& self, std::jmp_buf& exit)
{
    sThreadIdentity.threadId = self.id;
    sThreadRecord = &self;
    const unsigned int kernelId = kernelThreadSelf();
    const LayerLock lock(sThreadTableLock);
    self.handle = pthread_self();
    self.kernelId = kernelId;
    self.exit = &exit;
    if (self.prioritySet)
    {
        applyPriority(self);
    }
    if (self.name[0] != '\0')
    {
        applyName(self);
    }
    return self.argument;
}

/// The record is looked for again: that of a thread which forked is another one in the child.
void noteExitValue(void* value)
{
    ThreadRecord& self = *sThreadRecord;
    const LayerLock lock(sThreadTableLock);
    self.state = ThreadState::LEAVING;
    self.exitValue = value;
    self.exit = nullptr;
    // Too late: what waits from here on belongs to the end of the thread.
    __atomic_store_n(&self.endRequested, 0U, __ATOMIC_RELAXED);
}

/// Notes the exit value also when the thread leaves its routine by pthread_exit: nothing leads back then.
void callRoutine(const ThreadRecord& self, void* argument)
{
    struct Note
    {
        void* value = nullptr;
        ~Note() { noteExitValue(value); }
    } note;
    note.value = self.routine(argument);
}

void runBody(ThreadRecord& self)
{
    std::jmp_buf exit;
    void* const argument = begin(self, exit);
    if (setjmp(exit) != 0)
    {
        return;
    }
    if (isTerminationRequested())
    {
        endCallingThread();
    }
    callRoutine(self, argument);
}

void* startRoutine(void* record)
{
    const bool watched = watchEndOfCaller();
    runBody(*static_cast<ThreadRecord*>(record));
    if (!watched)
    {
        endRecordOfCaller();
    }
    return nullptr;
}

/// \return 0 or an error number.
int startThread(ThreadRecord& record, const SThreadAttributes& attributes, pthread_t& handle)
{
    pthread_attr_t host;
    int error = pthread_attr_init(&host);
    if (error != 0)
    {
        return error;
    }
    if (attributes.stackSize != 0)
    {
        const int size = std::max(attributes.stackSize, STACK_SIZE_MIN);
        error = pthread_attr_setstacksize(&host, static_cast<std::size_t>(size));
    }
    if (error == 0 && (attributes.flags & THREAD_DETACHED) != 0U)
    {
        error = pthread_attr_setdetachstate(&host, PTHREAD_CREATE_DETACHED);
    }
    if (error == 0)
    {
        error = pthread_create(&handle, &host, &startRoutine, &record);
    }
    pthread_attr_destroy(&host);
    return error;
}

/// \return 0 and the record, or an error number.
int claimForJoin(int tid, ThreadRecord*& record)
{
    if (tid == threadSelf())
    {
        return EDEADLK;
    }
    const LayerLock lock(sThreadTableLock);
    record = findThreadRecord(tid);
    if (record == nullptr)
    {
        return ESRCH;
    }
    if (!record->started || record->detached)
    {
        return EINVAL;
    }
    if (record->beingJoined)
    {
        return EBUSY;
    }
    record->beingJoined = true;
    return 0;
}

void giveUpJoin(ThreadRecord& record)
{
    const LayerLock lock(sThreadTableLock);
    record.beingJoined = false;
}

/// \return 0 or an error number; `ECANCELED` when the calling thread is to end.
int awaitEnd(ThreadRecord& record, unsigned long long deadlineNs)
{
    // Acquire pairs with the release of the thread's end.
    while (__atomic_load_n(&record.ended, __ATOMIC_ACQUIRE) == 0U)
    {
        const int error = futexWaitTerminable(&record.ended, 0U, false, deadlineNs);
        if (error != 0 && error != EAGAIN)
        {
            return error;
        }
    }
    return 0;
}

/// \return the exit value.
void* reap(ThreadRecord& record)
{
    pthread_join(record.handle, nullptr);
    const LayerLock lock(sThreadTableLock);
    void* const value = record.exitValue;
    freeThreadRecord(record);
    return value;
}

/// Asks a thread to end. \return 0 or an error number.
int requestEnd(int tid, void* status, ThreadRecord*& record, unsigned int& generation)
{
    const LayerLock lock(sThreadTableLock);
    record = findThreadRecord(tid);
    if (record == nullptr || record->state != ThreadState::RUNNING)
    {
        return ESRCH;
    }
    generation = __atomic_load_n(&record->generation, __ATOMIC_RELAXED);
    record->requestedExitValue = status;
    __atomic_store_n(&record->endRequested, 1U, __ATOMIC_SEQ_CST);
    return 0;
}

[[noreturn]] void destroySelf(void* status)
{
    ThreadRecord* const self = callersRecord();
    if (self != nullptr)
    {
        const LayerLock lock(sThreadTableLock);
        self->requestedExitValue = status;
    }
    endCallingThread();
}

} // namespace

namespace KoPlatform
{

int ThreadCreate(int pid, void* (*routine)(void*), void* argument, const SThreadAttributes* attributes)
{
    const SThreadAttributes chosen = attributes != nullptr ? *attributes : SThreadAttributes{};
    if ((pid != 0 && pid != getpid()) || routine == nullptr || chosen.stackSize < 0)
    {
        return failWith(EINVAL);
    }
    ThreadRecord* record = nullptr;
    const int id = reserve(routine, argument, chosen, record);
    if (id == -1)
    {
        return failWith(EAGAIN);
    }
    pthread_t handle{};
    const int error = startThread(*record, chosen, handle);
    if (error != 0)
    {
        const LayerLock lock(sThreadTableLock);
        freeThreadRecord(*record);
        return failWith(error);
    }
    return id;
}

int ThreadJoin_r(int tid, void** status)
{
    const unsigned long long deadlineNs = takeTimeout(TIMEOUT_JOIN, nullptr);
    ThreadRecord* record = nullptr;
    const int claimError = claimForJoin(tid, record);
    if (claimError != 0)
    {
        return claimError;
    }
    const int error = awaitEnd(*record, deadlineNs);
    if (error != 0)
    {
        giveUpJoin(*record);
        if (error == ECANCELED)
        {
            endCallingThread();
        }
        return error;
    }
    void* const value = reap(*record);
    if (status != nullptr)
    {
        *status = value;
    }
    return 0;
}

int ThreadDestroy(int tid, int priority, void* status)
{
    if (priority != -1)
    {
        return failWith(EINVAL);
    }
    if (tid == 0 || tid == threadSelf())
    {
        destroySelf(status);
    }
    ThreadRecord* record = nullptr;
    unsigned int generation = 0U;
    const int error = requestEnd(tid, status, record, generation);
    if (error != 0)
    {
        return failWith(error);
    }
    // A wake-up may come before the thread sleeps, so it is repeated until the thread has left its wait.
    unsigned long long pauseNs = FIRST_PAUSE_NS;
    while (wakeAnnouncedWait(*record, generation))
    {
        pauseFor(pauseNs);
        pauseNs = std::min(2U * pauseNs, LONGEST_PAUSE_NS);
    }
    return 0;
}

} // namespace KoPlatform
