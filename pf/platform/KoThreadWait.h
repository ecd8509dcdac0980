#pragma once

/// How the calls of this layer that block let themselves be ended by ThreadDestroy.
///
/// Terminating a thread is a request. Whoever sleeps in the layer announces the sleep with a ThreadWait, asks
/// isTerminationRequested() before and after it, puts its own books in order, gives the layer's locks back
/// and calls endCallingThread(). A call that sleeps on a futex word has all of this but its books in
/// futexWaitTerminable.
///
///     {
///         const ThreadWait wait(wakeReceiver, &receiver);
///         if (!isTerminationRequested()) { sleep(receiver); }
///     }
///     if (isTerminationRequested()) { remove(receiver); endCallingThread(); }
namespace KoPlatform
{

/// Announces that the calling thread is about to sleep, for as long as the object lives. May be nested. On
/// the stack only, by the thread that sleeps. Cost: two compare-and-swaps.
class ThreadWait
{
public:
    /// \param wake is called by a thread that wants this one to look at isTerminationRequested() again: any
    /// number of times, also before the sleep has begun, so a call that comes to nothing does no harm. It
    /// must not block and must not end its caller. \param object its argument.
    ThreadWait(void (*wake)(void*), void* object) noexcept;

    /// Waits until a call of `wake` that is under way has returned.
    ~ThreadWait();

    ThreadWait(const ThreadWait&) = delete;
    ThreadWait& operator=(const ThreadWait&) = delete;

private:
    friend bool wakeAnnouncedWait(struct ThreadRecord& record, unsigned int generation) noexcept;

    void (*const m_wake)(void*);
    void* const m_object;
    ThreadWait* m_outer = nullptr;
    bool m_announced = false;
};

/// While it lives the calling thread is not ended: isTerminationRequested() is false. For sections that hold
/// locks of the layer; a request waits for their end. May be nested. On the stack only. Cost: two additions.
class TerminationDeferral
{
public:
    TerminationDeferral() noexcept;
    ~TerminationDeferral();
    TerminationDeferral(const TerminationDeferral&) = delete;
    TerminationDeferral& operator=(const TerminationDeferral&) = delete;
};

/// Whether another thread wants the calling one to end, and now is a time for it. A few loads.
bool isTerminationRequested() noexcept;

/// Whether a request to end the calling thread would be followed now: a wait that nothing but time can break
/// has to look for one again and again.
bool mayBeEnded() noexcept;

/// Ends the calling thread with the exit status of the request. A thread of ThreadCreate leaves through the
/// routine that it was started with; a thread that the layer did not start is ended by the kernel, without
/// its thread-local destructors. No frame in between is unwound. Announced waits are withdrawn.
[[noreturn]] void endCallingThread() noexcept;

/// futexWait that ends early, with `ECANCELED`, when the calling thread is to end. A wake-up that it may have
/// got as well is passed on to all other sleepers of the word. 0 may be nobody's wake-up.
int futexWaitTerminable(unsigned int* word, unsigned int value, bool shared,
                        unsigned long long deadlineNs) noexcept;

/// Sleeps that long, whatever comes: for pauses inside the layer, in which no thread ends.
void pauseFor(unsigned long long ns) noexcept;

/// Wakes the thread of a record if it has announced a wait and is still the one of this generation. \return
/// whether to look again: false once that thread has announced none or is gone.
bool wakeAnnouncedWait(struct ThreadRecord& record, unsigned int generation) noexcept;

} // namespace KoPlatform
