#pragma once

#include "pf/base/CKoNonCopyable.h"
#include "pf/oswrapper/CTimerManager.h"

#include <atomic>

/// A timer of the kernel that sends its expiries to the channel of a manager. The base of CTimer. A call of
/// the kernel that fails ends the process.
class KO_EXPORT CTimerBase : public CKoNonCopyable
{
public:
    /// Stops and deletes the kernel's timer.
    virtual ~CTimerBase();

protected:
    /// Creates the kernel's timer, disarmed.
    explicit CTimerBase(CTimerManager& manager);

    /// Arms it: the first expiry after `ms` milliseconds, then every `ms` milliseconds unless `singleShot`. A
    /// pulse of it that is queued is dropped. 0 disarms. \return true.
    bool doStart(unsigned int ms, bool singleShot);
    /// Disarms it; a pulse that is queued stays.
    void doStop();

    int m_timerId; // -1 until created
    CTimerManager& m_manager;
};

/// A timer whose callback runs in CTimerManager::performWork. Derive from it and implement onTimeout.
///
/// Construct and destroy it on the manager's thread, also within callbacks, its own included. start and stop
/// may be called from another thread, one at a time, while performWork runs.
class KO_EXPORT CTimer : public CTimerBase, public KoIntrusive::SKoSlistBaseHook
{
public:
    /// Inactive. \param manager must live longer.
    explicit CTimer(CTimerManager& manager);
    /// Stops the timer; what it had sent reaches nobody.
    ~CTimer() override;

    /// Starts or restarts the timer, counting from this call: the first expiry after `ms` milliseconds, then
    /// every `ms` milliseconds unless `singleShot`. With 0 it never expires. \return true.
    bool start(unsigned int ms, bool singleShot);

    /// Stops the timer; its callback does not run until it is started again.
    void stop();

    /// Runs onTimeout. An exception that leaves it ends the process through the error handler of KoError.
    void handleTimeout();

    /// Whether it has been started and not been stopped since; a single-shot timer that has expired still is.
    bool isActive() const;

    /// The callback.
    virtual void onTimeout() = 0;

private:
    struct SLayout;

    // Relaxed: start and stop may come from another thread, and the timer's pulses order all that matters.
    std::atomic<bool> m_active;
};
