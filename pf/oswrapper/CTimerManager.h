#pragma once

#include "pf/base/CKoNonCopyable.h"
#include "pf/base/KoExport.h"
#include "pf/containers/TKoIntrusiveSlist.h"

class CTimer;

/// Names the manager in reports about the list of its timers.
template <>
struct KoIntrusive::TKoListUser<CTimer>
{
    static constexpr const char* FILE_TEXT = "CTimerManager";
};

/// Runs the callbacks of CTimer objects on the thread that calls performWork. Each timer is a timer of the
/// kernel; for many timers CLogicalTimerManager is cheaper.
///
///     CTimerManager manager(100);
///     CHeartbeat heartbeat(manager);                // derived from CTimer
///     heartbeat.start(20, false);
///     while (isRunning) manager.performWork();
///
/// Owns a channel and a connection to it. Not copyable. It has no lock: construction and destruction of its
/// timers and performWork belong to one thread, or must not overlap. It must outlive its timers.
class KO_EXPORT CTimerManager : public CKoNonCopyable
{
public:
    /// \param timeoutMs how long performWork waits at most, in milliseconds: negative for no limit; 0 stands
    /// for 1. Ends the process when the channel cannot be created.
    explicit CTimerManager(int timeoutMs);

    /// Closes the channel. Timers that are still there are reported as an assertion and taken off the list.
    ~CTimerManager();

    /// Adds a timer to the front of the list. For the constructor of CTimer.
    void registerTimer(CTimer& timer);
    /// Takes a timer off the list. For the destructor of CTimer. A timer that is not on it ends the process.
    void unregisterTimer(CTimer& timer);

    /// Waits for one expiry, at most for the time given to the constructor, and runs the timer's callback.
    /// Expiries of timers that were stopped or destroyed meanwhile are dropped. To drain all that is due,
    /// call it repeatedly. An unexpected failure of the wait ends the process. \return whether a callback
    /// ran; false also after an interruption by a signal.
    bool performWork();

    /// The connection that timers send their pulses to.
    int connectionId() const { return m_connectionId; }

private:
    struct SLayout;

    TKoIntrusiveSlist<CTimer, KoIntrusive::TKoSlistBaseHookAccessor<CTimer>> m_timers; // newest first
    int m_timeoutMs;
    int m_channelId;
    int m_connectionId;
};
