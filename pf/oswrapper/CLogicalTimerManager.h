#pragma once

#include "pf/base/CKoNonCopyable.h"
#include "pf/base/KoExport.h"
#include "pf/containers/TKoIntrusiveList.h"
#include "pf/oswrapper/CKoCriticalSection.h"
#include "pf/oswrapper/TKoOptional.h"

class CLogicalTimer;

/// Names the manager in reports about the list of its timers.
template <>
struct KoIntrusive::TKoListUser<CLogicalTimer>
{
    static constexpr const char* FILE_TEXT = "CLogicalTimerManager";
};

/// Runs any number of CLogicalTimer objects on one timer of the kernel: the registered timers stand on a list
/// in the order of their expiry, and the kernel's timer is set for the first.
///
///     CLogicalTimerManager manager(100, false);
///     CSampler sampler(manager);                    // derived from CLogicalTimer
///     sampler.start(20, false);
///     while (isRunning) manager.performWork();
///
/// Owns a channel, a connection to it, the kernel's timer and, if thread-safe, a lock. Not copyable. It must
/// outlive its timers.
///
/// Threads: without the lock the manager and its timers belong to the thread that calls performWork. With it,
/// any thread may start and stop timers. A handling pass and its callbacks hold the lock: other threads wait
/// until the pass ends, while calls from within a callback go ahead. A callback must not wait for a thread
/// that starts or stops timers of the manager, must not destroy the manager, and its thread must not be
/// terminated in it.
///
/// Cost: starting a timer walks the list from both ends at once, so it is cheap for expiries near either end;
/// a pass costs what its due timers cost. Nothing allocates.
class KO_EXPORT CLogicalTimerManager : public CKoNonCopyable
{
public:
    /// \param timeoutMs how long performWork waits at most, in milliseconds: negative for no limit; 0 stands
    /// for 1. \param threadSafe whether other threads start and stop timers. A channel or timer that cannot
    /// be created is reported as an assertion.
    CLogicalTimerManager(int timeoutMs, bool threadSafe);

    /// Timers that are still registered are reported as an assertion and stopped for good.
    ~CLogicalTimerManager();

    /// Starts or restarts `timer`, counting from this call: it expires after `ms` milliseconds, then every
    /// `ms` milliseconds unless `singleShot`. Of timers with the same expiry the one that was registered
    /// first expires first.
    void registerTimer(CLogicalTimer& timer, unsigned int ms, bool singleShot);

    /// Stops `timer`; nothing happens when it is not registered.
    void unregisterTimer(CLogicalTimer& timer);

    /// Waits until a timer is due, at most for the time given to the constructor, and runs a handling pass.
    /// An unexpected failure of the wait ends the process. \return the number of callbacks that ran; 0 also
    /// after an interruption by a signal.
    int performWork();

    /// Runs the callbacks of all timers that are due now, each once, in the order of their expiry, except of
    /// those that a callback stops before their turn. A timer that a callback starts waits for a later pass.
    /// A periodic timer's next expiry is one period after the last, however late it was handled; while that
    /// is still in the past, every pass handles one. \return the number of callbacks that ran; 0 when called
    /// from a callback.
    int handleSignalledTimer();

private:
    using List = TKoIntrusiveList<CLogicalTimer, KoIntrusive::TKoListBaseHookAccessor<CLogicalTimer>>;
    using Lock = TKoOptional<CKoCriticalSection, 8, 4>;
    class Guard;
    class Pass;
    struct SLayout;

    void create();
    void destroy();
    void doRegisterTimer(CLogicalTimer& timer);
    void doUnregisterTimer(CLogicalTimer& timer);
    List::iterator insertSorted(CLogicalTimer& timer, List::iterator end);
    void resort(List& fired);
    static void sortByExpiry(List& timers);
    static List::iterator endOfRun(List& timers);
    static void mergeBehind(List& earlier, List& later);
    void rearm();
    void start();
    void cancel();
    void abandonTimers();

    List m_timers; // ascending by expiry, equal ones in the order of registration
    int m_timeoutMs;
    int m_channelId;
    int m_connectionId;
    int m_timerId;         // -1 until created
    unsigned int m_inPass; // 1 while a pass runs: the kernel's timer is set at its end
    Lock m_lock;           // only in a thread-safe manager
};
