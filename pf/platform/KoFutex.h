#pragma once

/// The host's futex calls as the locks need them. All return 0 or an error number, leave `errno` alone and
/// absorb interruptions, unless they say otherwise. Deadlines are absolute nanoseconds of the monotonic
/// clock, NO_DEADLINE for none; `shared` tells whether other processes use the word.
namespace KoPlatform
{

/// Map of an owner word: the kernel thread id of the owner, and two bits that the kernel sets.
constexpr unsigned int OWNER_ID = 0x3FFFFFFFU;
constexpr unsigned int OWNER_DIED = 0x40000000U;
constexpr unsigned int OWNER_WAITERS = 0x80000000U;

/// Whether the kernel knows priority-inheriting words: 0, or `ENOTSUP`.
int futexCheckPriorityInheritance();

/// Waits until the kernel has made the caller the owner of the word. `ESRCH` as for futexTryLock; `EPERM`
/// likewise when the owner is a stranger.
int futexLock(unsigned int* word, bool shared, unsigned long long deadlineNs);

/// Makes the caller the owner of a word whose owner ended, if that can be done at once. `ESRCH` when the
/// owner is gone and nobody waits for the word, so that the caller may take it itself.
int futexTryLock(unsigned int* word, bool shared);

/// Hands the caller's word to the first waiter, or frees it.
int futexUnlock(unsigned int* word, bool shared);

/// Sleeps while the word has the value. `EAGAIN` when it has another one already.
int futexWait(unsigned int* word, unsigned int value, bool shared, unsigned long long deadlineNs);

/// The same; `EINTR` when a signal handler interrupted the sleep.
int futexWaitOnce(unsigned int* word, unsigned int value, bool shared, unsigned long long deadlineNs);

/// Wakes up to `count` sleepers. The word need not exist any more: at worst somebody is woken for nothing.
int futexWake(unsigned int* word, int count, bool shared);

/// Adds 2 to an even word and wakes up to `count` sleepers in one step, so that only those are woken that
/// slept before.
int futexAdvance(unsigned int* word, int count, bool shared);

/// Counts the threads that sleep on the word. \return the number, or -1 when the kernel cannot tell.
int futexCountSleepers(unsigned int* word, bool shared);

/// The time that the deadlines are compared with, whatever source the layer's own clock has.
unsigned long long futexClockNow();

/// Whether a thread with this kernel id exists: anywhere, or in the calling process.
bool threadExists(unsigned int kernelId, bool anywhere);

} // namespace KoPlatform
