#pragma once

/// \file
/// A stopwatch with pause and resume over one of three clocks: elapsed time, or the processor time that one
/// thread or one process uses.
///
///     CKoPerformanceCheck check;
///     check.start();
///     work();
///     const SKoTimeBreakdown used = CKoPerformanceCheck::translate(check.stop());

#include "pf/base/KoExport.h"
#include "pf/util/SKoTimeBreakdown.h"

/// A plain value. start, pause, resume and stop are for certain states each; called in another one they
/// report an assertion and do what they do all the same. A clock that cannot be read is reported as well and
/// counts as 0. One object is used by one thread at a time; nothing is allocated.
class KO_EXPORT CKoPerformanceCheck
{
public:
    /// Measures elapsed time, on the monotonic clock.
    CKoPerformanceCheck();

    /// Measures the processor time of a thread of this process, and reports an assertion if there is none.
    /// \param threadId its number (KoOperatingSystem::getCurrentTID); 0 for the calling thread.
    explicit CKoPerformanceCheck(int threadId);

    /// Measures the processor time of a process, and reports an assertion if there is none.
    /// \param processId ignored when `currentProcess` is true.
    CKoPerformanceCheck(int processId, bool currentProcess);

    /// Begins a measurement from 0. For a new or stopped check.
    void start();

    /// Adds the time since start or resume. For a started or resumed check; one that is new takes the clock's
    /// whole count.
    void pause();

    /// Goes on measuring. For a paused check; a stopped one adds to its last result, a new one starts.
    void resume();

    /// Ends the measurement. For a started, paused or resumed check. \return the nanoseconds measured,
    /// without the pauses.
    unsigned long long stop();

    /// Nanoseconds since system start.
    unsigned long long getRealTime() const;

    /// Nanoseconds of processor time that the check's thread has used; for a check of a thread.
    unsigned long long getThreadTime() const;

    /// Nanoseconds of processor time that the check's process has used; for a check of a process.
    unsigned long long getProcessTime() const;

    /// Takes a count of nanoseconds apart. Of the seconds the low 32 bits are kept.
    static SKoTimeBreakdown translate(unsigned long long ns);

private:
    enum Kind : int
    {
        REAL_TIME,
        THREAD_TIME,
        PROCESS_TIME
    };

    enum State : int
    {
        NEW,
        STARTED,
        PAUSED,
        RESUMED,
        STOPPED
    };

    unsigned long long readCpuTime(unsigned int line) const;
    bool readNow(unsigned long long& now, unsigned int line) const;
    void beginNow(unsigned int line);
    void addSinceBegin(unsigned int line);

    int m_processId;
    int m_threadId;
    int m_kind;
    int m_state;
    unsigned long long m_begin;
    unsigned long long m_accumulated;
    int m_clockId;
};
