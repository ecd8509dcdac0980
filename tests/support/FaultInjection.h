#pragma once

#include <cstddef>
#include <cstdint>

/// Faults of the C library, injected by interposing its functions in the test executable. They hit the
/// calling thread only. Under the address and thread sanitizers, which interpose these functions themselves,
/// nothing is injected and isAvailable() is false: use KO_SKIP_WITHOUT_FAULT_INJECTION().
///
/// Keep the scopes narrow: the test framework allocates, too.
namespace KoTest
{

class FaultInjection
{
public:
    static bool isAvailable();
};

/// Counts the calling thread's allocations (malloc, calloc, realloc, posix_memalign) while it lives.
class AllocationCounter
{
public:
    AllocationCounter();
    unsigned int count() const;

private:
    std::uint32_t m_before;
};

/// Lets the n-th allocation of the calling thread from now on fail with ENOMEM (n = 1 is the next one).
class FailingAllocation
{
public:
    enum Repeat
    {
        ONCE,      ///< only the n-th
        FROM_THERE ///< the n-th and all that follow
    };

    explicit FailingAllocation(std::uint32_t n, Repeat repeat = ONCE);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

    /// Whether the n-th allocation has come.
    bool hasFailed() const;
};

/// The interposed calls other than allocation.
enum FaultCall
{
    FAULT_OPEN, ///< openat, which opens all files of the platform layer
    FAULT_READ,
    FAULT_WRITE,
    FAULT_FUTEX, ///< the futex calls, which go through syscall()
    FAULT_MAP,   ///< mmap
    FAULT_UNMAP, ///< munmap
    FAULT_CALL_COUNT
};

/// Lets calls of one kind fail: `skip` calls pass, then `count` calls fail with this errno and do nothing.
/// The reads or writes that pass move at most maxBytes each (0 = what is asked for).
class FailingCall
{
public:
    FailingCall(FaultCall call, int errorNumber, unsigned int count = 1, unsigned int skip = 0,
                std::size_t maxBytes = 0);
    ~FailingCall();
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;

    /// How many calls have failed so far.
    unsigned int failed() const;

private:
    FaultCall m_call;
};

} // namespace KoTest

#define KO_SKIP_WITHOUT_FAULT_INJECTION()                                                                    \
    do                                                                                                       \
    {                                                                                                        \
        if (!KoTest::FaultInjection::isAvailable())                                                          \
            GTEST_SKIP() << "the sanitizer interposes the C library itself";                                 \
    } while (false)
