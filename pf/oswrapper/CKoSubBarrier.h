#pragma once

#include "pf/base/KoExport.h"
#include "pf/oswrapper/KoOSTypes.h"

class CKoBarrier;

namespace KoPrivate
{

/// One half of a CKoBarrier: where the threads of every second cycle meet.
///
/// The semaphore's count is the number of threads that were released and have not left yet. The number still
/// to arrive shares its word with the number of the cycle it counts for, so that a thread cannot be counted
/// in a cycle that was over before it came. Used by CKoBarrier only.
class CKoSubBarrier
{
public:
    /// \param participants how many threads meet. \param shared whether they may be of several processes.
    KO_EXPORT CKoSubBarrier(unsigned int participants, bool shared);

    /// Waits until the threads that were released have left, but at most a second.
    KO_EXPORT ~CKoSubBarrier();

    CKoSubBarrier(const CKoSubBarrier&) = delete;
    CKoSubBarrier& operator=(const CKoSubBarrier&) = delete;

private:
    friend class ::CKoBarrier;

    bool mustLeave(unsigned long long deadlineNs);
    void waitForEndOf(unsigned int round);

    KoOSTypes::SEMHANDLE m_semaphore;
    const unsigned int m_participants;
    unsigned int m_remaining; ///< below, the threads still to arrive; above, the round they are counted for
};

} // namespace KoPrivate
