#pragma once

#include "pf/oswrapper/CKoSubBarrier.h"

/// A place where a fixed number of threads wait for each other, again and again.
///
///     for (Frame& frame : frames) { render(frame); barrier.wait(); }
///
/// Not copyable. With `shared` the object may lie in memory that processes share. Any thread may call; more
/// threads than participants may take turns. What a thread did before wait() is seen by all of its cycle
/// after it. Nobody may be inside when the object is destroyed.
///
/// A process that is killed while it waits has arrived, and so has a thread that is ended: the others go on
/// without it when the rest has come, and the next cycle lacks it until somebody calls breakThrough(). One
/// that is killed while it releases a cycle delays the others by at most a second. After either, destroying
/// the barrier may take a few seconds.
class CKoBarrier
{
public:
    /// \param participants threads that meet, counted up to 2^20 - 1; fewer than 2 need not wait for anybody.
    /// \param shared makes it usable across processes when the object lies in shared memory.
    KO_EXPORT CKoBarrier(unsigned int participants, bool shared);
    /// A barrier of one process.
    KO_EXPORT explicit CKoBarrier(unsigned int participants);
    ~CKoBarrier() = default;
    CKoBarrier(const CKoBarrier&) = delete;
    CKoBarrier& operator=(const CKoBarrier&) = delete;

    /// Waits without limit until as many threads as participate have called this in the current cycle, or
    /// until the cycle is broken. Preserves `errno`.
    KO_EXPORT void wait();

    /// Releases the threads that wait in the current cycle, if any, and starts a new one. Who is just about
    /// to wait is released or counted in the new cycle. Preserves `errno`.
    KO_EXPORT void breakThrough();

private:
    KoPrivate::CKoSubBarrier& halfOf(unsigned int cycle) { return m_halves[cycle & 1U]; }
    unsigned int findOpenCycle(unsigned int& word);
    bool endCycle(unsigned int cycle, unsigned int word);

    KoPrivate::CKoSubBarrier m_halves[2];
    unsigned int m_cycle = 0U; ///< its lowest bit is the index of the current half
};
