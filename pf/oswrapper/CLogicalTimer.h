#pragma once

#include "pf/base/CKoNonCopyable.h"
#include "pf/oswrapper/CLogicalTimerManager.h"

/// A timer whose callback runs in CLogicalTimerManager::performWork. Derive from it and implement onTimeout,
/// which may start, stop and destroy any timer of the manager, its own included.
///
/// Threads: those of its manager. While the destructor runs no other thread may use the timer; one that is
/// destroyed on another thread than the manager's must be stopped first, so that its callback is not running.
class KO_EXPORT CLogicalTimer : public CKoNonCopyable, public KoIntrusive::SKoListBaseHook
{
public:
    /// Not registered. \param manager must live longer.
    explicit CLogicalTimer(CLogicalTimerManager& manager);
    /// Stops the timer.
    virtual ~CLogicalTimer();

    /// Starts or restarts the timer, see CLogicalTimerManager::registerTimer. \return false, with nothing
    /// changed, when `ms` is 0.
    bool start(unsigned int ms, bool singleShot);

    /// Stops the timer; its callback does not run until it is started again. Nothing happens when it is not
    /// registered.
    void stop();

    /// Runs onTimeout. An exception that leaves it ends the process through the error handler of KoError.
    void handleTimeout();

    /// The callback.
    virtual void onTimeout() = 0;

private:
    friend class CLogicalTimerManager;
    struct SLayout;

    /// Where a timer stands in the current pass.
    enum State : unsigned int
    {
        IDLE = 0U,
        FIRED = 1U,
        REINSERTED = 2U
    };

    CLogicalTimerManager* m_manager; // null once the manager has ended
    unsigned long long m_expiry;     // monotonic nanoseconds minus the bias; 0 when none is to come
    unsigned long long m_period;     // nanoseconds; 0 for a single-shot timer
    unsigned int m_state;            // a State
};
