#include "tests/support/FaultInjection.h"

#include <cerrno>
#include <cstdlib>

#include <malloc.h>

namespace KoTest
{

namespace
{

/// Per thread; in the executable's own thread-local block, so that touching it allocates nothing.
struct AllocationState
{
    std::uint32_t count;
    std::uint32_t failFrom; ///< 0 = nothing fails
    bool failOnlyOnce;
    bool hasFailed;
};

thread_local AllocationState tState{};

} // namespace

bool FaultInjection::isAvailable()
{
#ifdef KO_TEST_SANITIZER
    return false;
#else
    return true;
#endif
}

AllocationCounter::AllocationCounter()
    : m_before(tState.count)
{
}

unsigned int AllocationCounter::count() const
{
    return tState.count - m_before;
}

FailingAllocation::FailingAllocation(std::uint32_t n, Repeat repeat)
{
    tState.failFrom = tState.count + n;
    tState.failOnlyOnce = repeat == ONCE;
    tState.hasFailed = false;
}

FailingAllocation::~FailingAllocation()
{
    tState.failFrom = 0;
}

bool FailingAllocation::hasFailed() const
{
    return tState.hasFailed;
}

} // namespace KoTest

#ifndef KO_TEST_SANITIZER

namespace
{

using namespace KoTest;

/// Counts an allocation and tells whether it is to fail; sets errno then.
bool failsNow()
{
    AllocationState& state = tState;
    ++state.count;
    const bool fails = state.failFrom != 0 &&
                       (state.failOnlyOnce ? state.count == state.failFrom : state.count >= state.failFrom);
    if (fails)
    {
        state.hasFailed = true;
        errno = ENOMEM;
    }
    return fails;
}

} // namespace

extern "C"
{
    // The C library's own entries behind the interposed names.
    void* __libc_malloc(std::size_t size);
    void* __libc_calloc(std::size_t count, std::size_t size);
    void* __libc_realloc(void* block, std::size_t size);
    void* __libc_memalign(std::size_t alignment, std::size_t size);

    void* malloc(std::size_t size) noexcept
    {
        return failsNow() ? nullptr : __libc_malloc(size);
    }

    void* calloc(std::size_t count, std::size_t size) noexcept
    {
        return failsNow() ? nullptr : __libc_calloc(count, size);
    }

    void* realloc(void* block, std::size_t size) noexcept
    {
        return failsNow() ? nullptr : __libc_realloc(block, size);
    }

    int posix_memalign(void** block, std::size_t alignment, std::size_t size) noexcept
    {
        void* const result = failsNow() ? nullptr : __libc_memalign(alignment, size);
        *block = result != nullptr ? result : *block;
        return result != nullptr ? 0 : ENOMEM;
    }
}

#endif
