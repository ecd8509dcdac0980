#include "pf/oswrapper/CKoBarrier.h"

#include "pf/oswrapper/KoSemaphoreAccess.h"
#include "pf/oswrapper/KoSemaphoreRecord.h"
#include "pf/platform/KoFutex.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "pf/platform/KoThreadVisit.h"
#include "pf/platform/KoThreadWait.h"

#include <algorithm>

static_assert(sizeof(KoPrivate::CKoSubBarrier) == 40 && sizeof(CKoBarrier) == 84,
              "the object may lie in memory that processes share");

// Cycles are counted; the lowest bit chooses the half, the rest is the half's round. A half's word holds the
// round that it is open for and how many threads are still to arrive in it, so that one step both counts a
// thread down and makes sure that its cycle is not over. One step, too, ends a round and opens the half for
// the next but one cycle. Whoever meets a half that is not open for the current cycle knows that this cycle
// is over and moves the barrier on, in case the thread that ended it cannot.

namespace
{

using namespace KoPrivate;

constexpr unsigned int ARRIVAL_BITS = 20U; // more threads than a process can have
constexpr unsigned int ARRIVALS = (1U << ARRIVAL_BITS) - 1U;
constexpr unsigned int ONE_ROUND = ARRIVALS + 1U;

// A released thread leaves at once, one of a process that was killed meanwhile never does.
constexpr unsigned long long LEAVE_NS = 1000000000ULL;
constexpr unsigned long long PAUSE_NS = 100000ULL;

/// The round of a half's word.
unsigned int roundOf(unsigned int word)
{
    return word & ~ARRIVALS;
}

/// The round of a cycle, in the same place.
unsigned int roundOfCycle(unsigned int cycle)
{
    return (cycle >> 1U) << ARRIVAL_BITS;
}

/// Acquire pairs with the release of every thread that arrived or ended the round.
unsigned int load(const unsigned int& word)
{
    return __atomic_load_n(&word, __ATOMIC_ACQUIRE);
}

/// Release tells what the thread has done to those that wait, acquire what they have done to it.
bool exchange(unsigned int& word, unsigned int from, unsigned int to)
{
    return __atomic_compare_exchange_n(&word, &from, to, false, __ATOMIC_ACQ_REL, __ATOMIC_RELAXED);
}

} // namespace

namespace KoPrivate
{

CKoSubBarrier::CKoSubBarrier(unsigned int participants, bool shared)
    : m_semaphore(KoOSTypes::sInvalidSemHandle)
    , m_participants(std::min(participants, ARRIVALS))
    , m_remaining(m_participants)
{
    const auto maximum = static_cast<int>(std::max(m_participants, 1U));
    KoSemaphoreAccess::create(m_semaphore, 0, maximum, shared);
}

CKoSubBarrier::~CKoSubBarrier()
{
    const unsigned long long deadlineNs = KoPlatform::futexClockNow() + LEAVE_NS;
    while (mustLeave(deadlineNs) && KoPlatform::futexClockNow() < deadlineNs)
    {
        KoPlatform::pauseFor(PAUSE_NS);
    }
    KoSemaphoreAccess::destroy(m_semaphore);
}

/// Whether released threads have not left yet. Each takes its unit inside, so whoever has the lock and sees
/// no unit is alone.
bool CKoSubBarrier::mustLeave(unsigned long long deadlineNs)
{
    if (enterSemaphore(m_semaphore, deadlineNs) != 0)
    {
        return false;
    }
    const bool result = load(m_semaphore.count) != 0U;
    leaveSemaphore(m_semaphore);
    return result;
}

void CKoSubBarrier::waitForEndOf(unsigned int round)
{
    if (enterSemaphore(m_semaphore, KoPlatform::NO_DEADLINE) != 0)
    {
        return;
    }
    const auto isOver = [this, round] { return roundOf(load(m_remaining)) != round; };
    const SWaitResult result = waitInSemaphore(m_semaphore, KoPlatform::NO_DEADLINE, isOver);
    if (result.inside)
    {
        takeUnit(m_semaphore);
        leaveSemaphore(m_semaphore);
    }
}

} // namespace KoPrivate

CKoBarrier::CKoBarrier(unsigned int participants, bool shared)
    : m_halves{{participants, shared}, {participants, shared}}
{
}

CKoBarrier::CKoBarrier(unsigned int participants)
    : CKoBarrier(participants, false)
{
}

void CKoBarrier::wait()
{
    if (m_halves[0].m_participants < 2U)
    {
        return;
    }
    for (;;)
    {
        unsigned int word = 0U;
        const unsigned int cycle = findOpenCycle(word);
        const bool isLast = (word & ARRIVALS) == 1U;
        if (isLast && endCycle(cycle, word))
        {
            return;
        }
        CKoSubBarrier& half = halfOf(cycle);
        if (!isLast && exchange(half.m_remaining, word, word - 1U))
        {
            half.waitForEndOf(roundOf(word));
            return;
        }
    }
}

void CKoBarrier::breakThrough()
{
    unsigned int word = 0U;
    unsigned int cycle = findOpenCycle(word);
    while (!endCycle(cycle, word))
    {
        cycle = findOpenCycle(word);
    }
}

/// The current cycle and its half's word, as they were at one moment.
unsigned int CKoBarrier::findOpenCycle(unsigned int& word)
{
    for (;;)
    {
        const unsigned int cycle = load(m_cycle);
        word = load(halfOf(cycle).m_remaining);
        if (roundOf(word) == roundOfCycle(cycle))
        {
            return cycle;
        }
        exchange(m_cycle, cycle, cycle + 1U);
    }
}

/// Ends a cycle if its half's word is still that one: opens the half for its next round, makes the other half
/// the current one, and releases the threads that have arrived and wait.
bool CKoBarrier::endCycle(unsigned int cycle, unsigned int word)
{
    CKoSubBarrier& half = halfOf(cycle);
    KoOSTypes::SEMHANDLE& semaphore = half.m_semaphore;
    const unsigned int waiting = half.m_participants - (word & ARRIVALS);
    // Released threads may destroy the barrier.
    const KoPlatform::ThreadVisit visit(&semaphore);
    // Not even a damaged lock keeps them from being released.
    const bool inside = enterSemaphore(semaphore, KoPlatform::NO_DEADLINE) == 0;
    const bool ended = exchange(half.m_remaining, word, (roundOf(word) + ONE_ROUND) | half.m_participants);
    if (ended)
    {
        exchange(m_cycle, cycle, cycle + 1U);
        giveUnits(semaphore, waiting);
    }
    if (inside)
    {
        leaveSemaphore(semaphore);
    }
    if (ended && waiting != 0U)
    {
        KoPlatform::pthread_cond_broadcast(&semaphore.condition);
    }
    return ended;
}
