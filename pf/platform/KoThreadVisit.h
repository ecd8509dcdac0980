#pragma once

#include "pf/platform/KoThreadRecord.h"

/// How an object can be destroyed by the thread that got what it waited for, while the thread that gave it is
/// still on its way out.
namespace KoPlatform
{

/// Announces that the calling thread is inside of an object, for as long as this lives, so that awaitVisitors
/// waits for it. On the stack only. May be nested; the innermost counts. Cost: two stores.
///
/// Memory order: whoever sees, by acquire, what the visitor has done to the object sees the visit as well.
class ThreadVisit
{
public:
    explicit ThreadVisit(const void* object) noexcept
        : m_record(sThreadRecord != nullptr ? sThreadRecord : callersRecord())
    {
        if (m_record != nullptr)
        {
            // Relaxed: published by what is done to the object.
            m_outer = m_record->visited;
            __atomic_store_n(&m_record->visited, object, __ATOMIC_RELAXED);
        }
    }
    ~ThreadVisit()
    {
        if (m_record != nullptr)
        {
            // Release pairs with the acquire in isVisited: the object may be gone after this.
            __atomic_store_n(&m_record->visited, m_outer, __ATOMIC_RELEASE);
        }
    }
    ThreadVisit(const ThreadVisit&) = delete;
    ThreadVisit& operator=(const ThreadVisit&) = delete;

private:
    ThreadRecord* const m_record;
    const void* m_outer = nullptr;
};

/// Waits until no other thread of the process is inside of the object, but at most a second: one that hangs
/// in it must not take the caller with it.
void awaitVisitors(const void* object) noexcept;

} // namespace KoPlatform
