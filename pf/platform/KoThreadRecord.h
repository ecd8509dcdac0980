#pragma once

#include "pf/platform/KoPlatformSync.h"

#include <csetjmp>
#include <cstdint>
#include <pthread.h>

/// The threads of the process by number: what the calls of KoPlatformThread.h and KoThreadWait.h know about
/// each. A record stays where it is when its thread has ended, so that it may be looked at at any time, and
/// serves the next thread with its number.
namespace KoPlatform
{

constexpr int MAIN_THREAD = 1;

/// Set in the word of an announced wait while another thread calls its wake function.
constexpr std::uintptr_t THREAD_BEING_WOKEN = 1U;

enum class ThreadState : unsigned char
{
    FREE,    ///< nobody's
    RUNNING, ///< from before the thread starts until it begins to end
    LEAVING, ///< its body is over, its thread-local objects may still be there
    ENDED    ///< waits for being joined, or was the main thread
};

/// What sThreadTableLock guards. All zero is nobody's.
struct ThreadFacts
{
    static constexpr int NAME_SIZE = 16; ///< what the host keeps of a name, with its end

    ThreadState state;
    bool started; ///< by ThreadCreate
    bool detached;
    bool beingJoined;
    bool prioritySet; ///< to be passed on to the host when the thread begins
    int id;
    int priority;          ///< 0 as long as nobody has asked for it; see callersPriority
    unsigned int kernelId; ///< 0 before the thread has begun and when it has ended
    char name[NAME_SIZE];  ///< to be passed on when the thread begins; empty for none
    pthread_t handle;
    void* (*routine)(void*);
    void* argument;
    void* exitValue;
    void* requestedExitValue;
    std::jmp_buf* exit; ///< leads back to the start routine; null when its body is over
};

/// The rest is atomic.
struct ThreadRecord : ThreadFacts
{
    unsigned int generation;   ///< advances when the record becomes free
    unsigned int ended;        ///< 1 when the thread has; joining threads sleep on it
    unsigned int endRequested; ///< 1 when the thread is to end
    const void* visited;       ///< what the thread announced to be inside of; see KoThreadVisit.h
    std::uintptr_t wait;       ///< the innermost announced ThreadWait, and whether it is being woken
};

extern _sync sThreadTableLock;

/// The calling thread's record, null when it is not known yet or there is none; see callersRecord.
extern __thread ThreadRecord* sThreadRecord __attribute__((tls_model("initial-exec")));

/// Takes the lowest free number, or -1 when all are taken.
int takeThreadId() noexcept;

/// Makes a number of the table free again. Any other is ignored.
void giveThreadIdBack(int id) noexcept;

/// The record of a number: of a taken one, with the storage that it needs; null when there is none.
ThreadRecord* provideThreadRecord(int id) noexcept;

/// Fills a free record, with the lock held.
void occupyThreadRecord(ThreadRecord& record, int id) noexcept;

/// Makes a record and its number free, with the lock held.
void freeThreadRecord(ThreadRecord& record) noexcept;

/// The record of a thread that is there or waits for being joined, with the lock held; null when there is
/// none.
ThreadRecord* findThreadRecord(int id) noexcept;

/// The calling thread's record; null when the table has no room for it.
ThreadRecord* callersRecord() noexcept;

/// Whether another thread has announced to be inside of the object.
bool isVisited(const void* object) noexcept;

/// Forgets all threads but the calling one, which is the main thread now: in a forked child.
void forgetOtherThreads() noexcept;

/// Lets the calling thread's end be noticed. \return false when it will not be.
bool watchEndOfCaller() noexcept;

/// Gives the calling thread's number back, or leaves its record to who joins it.
void endRecordOfCaller() noexcept;

bool isPriority(int priority) noexcept;

/// Passes the recorded priority on to the host, with the lock held and the thread running.
void applyPriority(const ThreadRecord& record) noexcept;

/// Passes the recorded name on likewise. \return 0 or an error number.
int applyName(const ThreadRecord& record) noexcept;

/// Records a priority, with the lock held.
void recordPriority(ThreadRecord& record, int priority) noexcept;

/// The recorded priority; for a thread that nobody has given one, what the host's scheduling amounts to. With
/// the lock held.
int priorityOf(ThreadRecord& record) noexcept;

} // namespace KoPlatform
