#include "pf/oswrapper/KoMemory.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>

#include "pf/oswrapper/KoError.h"
#include "pf/oswrapper/KoMemUtilities.h"
#include "pf/oswrapper/KoStartupOptions.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TemporaryDirectory.h"

// The tests of blocks and operators also run in a traced process; what is counted there is nothing here.
namespace
{

using KoTest::ChildProcess;
using KoTest::ChildResult;
using KoTest::FailingAllocation;
using KoTest::ScopedEnvironment;

unsigned int counted(unsigned int bytes)
{
    return KoStartupOptions::getMemoryTraceLevel() != 0 ? bytes : 0;
}

bool isAligned(const void* pointer, std::size_t alignment)
{
    return reinterpret_cast<std::uintptr_t>(pointer) % alignment == 0;
}

/// Bytes booked since the construction.
class Books
{
public:
    unsigned int balance() const { return KoMemory::getAllocatedBytes() - m_before; }

private:
    unsigned int m_before = KoMemory::getAllocatedBytes();
};

TEST(KoMemory, EveryBlockIsBookedAlignedAndReleasableByEveryForm)
{
    void* (*const allocators[])(unsigned int) = {KoMemory::alloc,       KoMemory::allocChecked,
                                                 KoMemory::allocCached, allocateMemory,
                                                 allocateCheckedMemory, allocateCachedMemory};
    void (*const releasers[])(void*) = {releaseMemory, [](void* block) { KoMemory::release(block); },
                                        [](void* block) { KoMemory::release(block, 1); },
                                        [](void* block) { releaseMemoryEx(block, 1); },
                                        [](void* block) { EXPECT_EQ(reallocateMemory(block, 0), nullptr); }};
    KoMemory::release(nullptr);
    EXPECT_EQ(KoMemory::reallocChecked(nullptr, 0), nullptr);
    for (const auto allocate : allocators)
    {
        errno = EDOM;
        EXPECT_EQ(allocate(0), nullptr);
        EXPECT_EQ(errno, 0);
        for (const auto release : releasers)
        {
            for (const unsigned int size : {1U, 100U, 5000U})
            {
                const Books books;
                errno = EDOM;
                void* block = allocate(size);
                EXPECT_EQ(errno, 0);
                EXPECT_TRUE(isAligned(block, alignof(std::max_align_t)));
                std::memset(block, 0xA5, size);
                EXPECT_EQ(books.balance(), counted(size));
                EXPECT_EQ(KoMemory::getHeapInfo().allocatedBytes, KoMemory::getAllocatedBytes());
                release(block);
                EXPECT_EQ(books.balance(), 0U);
            }
        }
    }
}

TEST(KoMemory, ResizingKeepsTheContentAndTheBooks)
{
    const Books books;
    unsigned char* block = static_cast<unsigned char*>(KoMemory::realloc(nullptr, 10));
    std::memcpy(block, "0123456789", 10);
    for (const unsigned int size : {20000U, 10U, 3U, 64U})
    {
        errno = EDOM;
        block = static_cast<unsigned char*>(size % 2 == 0 ? KoMemory::reallocChecked(block, size)
                                                          : reallocateCheckedMemory(block, size));
        EXPECT_EQ(errno, 0);
        EXPECT_EQ(std::memcmp(block, "012", 3), 0);
        EXPECT_EQ(books.balance(), counted(size));
    }
    KoMemory::release(block);
    EXPECT_EQ(books.balance(), 0U);
}

TEST(KoMemory, AFailedResizeLeavesTheBlockUncountedButUsable)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const Books books;
    for (void* allocated : {KoMemory::alloc(8), ::operator new (8, std::align_val_t{256})})
    {
        std::memcpy(allocated, "content", 8);
        for (int i = 0; i < 2; ++i)
        {
            const unsigned int before = books.balance();
            const FailingAllocation failing(1);
            EXPECT_EQ(KoMemory::realloc(allocated, 800), nullptr);
            EXPECT_EQ(errno, ENOMEM);
            EXPECT_EQ(before - books.balance(), i == 0 ? counted(8) : 0);
        }
        void* resized = KoMemory::realloc(allocated, 700);
        EXPECT_STREQ(static_cast<char*>(resized), "content");
        KoMemory::release(resized);
    }
    EXPECT_EQ(books.balance(), 0U);
}

#if !defined(KO_TEST_SANITIZER) && !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

struct SPlain
{
    char bytes[24];
};

struct alignas(64) SWide
{
    char bytes[64];
};

TEST(OperatorNew, EveryFormIsBookedAlignedAndGivenBack)
{
    const std::align_val_t wide{64};
    const struct
    {
        void* block;
        void (*release)(void*);
    } forms[] = {
        {new SPlain, [](void* p) { delete static_cast<SPlain*>(p); }},
        {::operator new(24), [](void* p) { ::operator delete(p); }},
        {::operator new[](24), [](void* p) { ::operator delete[](p); }},
        {::operator new(24, std::nothrow), [](void* p) { ::operator delete(p, std::nothrow); }},
        {::operator new[](24, std::nothrow), [](void* p) { ::operator delete[](p, std::nothrow); }},
        {new SWide, [](void* p) { delete static_cast<SWide*>(p); }},
        {new SWide[3], [](void* p) { delete[] static_cast<SWide*>(p); }},
        {::operator new(24, wide), [](void* p) { ::operator delete (p, std::align_val_t{64}); }},
        {::operator new(24, wide, std::nothrow),
         [](void* p) { ::operator delete (p, std::align_val_t{64}, std::nothrow); }},
        {::operator new[](24, wide, std::nothrow), [](void* p) { KoMemory::release(p); }},
    };
    Books books;
    for (std::size_t i = 0; i < std::size(forms); ++i)
    {
        EXPECT_TRUE(isAligned(forms[i].block, i < 5 ? alignof(std::max_align_t) : 64U)) << i;
        std::memset(forms[i].block, 0x5A, 24);
        forms[i].release(forms[i].block);
    }
    EXPECT_EQ(books.balance(), 0U - counted(8 * 24 + 4 * sizeof(SWide)));
    // Read back from memory: a compiler may take it for granted that the operator gives no null.
    void* volatile nothing[] = {::operator new(0), ::operator new(0, wide)};
    EXPECT_EQ(nothing[0], nullptr);
    EXPECT_EQ(nothing[1], nullptr);
}

TEST(OperatorNew, ASizeBeyondTheInterfaceIsAFailureAndNotACutSize)
{
    // Cut to 32 bits it would be 17.
    static volatile std::size_t size =
        SIZE_MAX - (sizeof(std::size_t) > sizeof(unsigned int) ? UINT_MAX - 17U : 0U);
    EXPECT_EQ(::operator new(size, std::nothrow), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(::operator new[](size, std::align_val_t{64}, std::nothrow), nullptr);
    EXPECT_EQ(errno, ENOMEM);
}

#endif

/// Ends the process with the number of allocations since the failure.
void exitWithAllocations(void* counter)
{
    ::_exit(100 + static_cast<int>(static_cast<KoTest::AllocationCounter*>(counter)->count()));
}

TEST(KoMemory, AFailedCheckedRequestLeavesABacktraceAndEndsTheProcess)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const KoTest::TemporaryDirectory directory;
    const ScopedEnvironment directoryVariable("KO_ASSERTION_BACKTRACE_DIR", directory.path().c_str());
    static void* block = KoMemory::alloc(16);
    static volatile std::size_t huge = SIZE_MAX - 7;
    const struct
    {
        void* (*request)();
        std::string text;
        bool mustInject = true;
    } cases[] = {
        {[] { return KoMemory::allocChecked(4096); }, "allocate 4096"},
        {[] { return KoMemory::reallocChecked(block, 77); }, "reallocate 77"},
        {[] { return ::operator new(33); }, "allocate 33"},
        {[] { return ::operator new[](34, std::align_val_t{128}); }, "allocate 34"},
        {[] { return ::operator new(huge); }, "allocate " + std::to_string(huge),
         huge <= UINT_MAX && counted(1) == 0},
    };
    for (const auto& wanted : cases)
    {
        const std::string text = "failed to " + wanted.text + " bytes (err: 12)";
        for (const char* abortSwitch : {static_cast<const char*>(nullptr), ""})
        {
            const ScopedEnvironment abortVariable("KO_ENABLE_ABORT_ON_FAILED_MEMORY_ALLOCATION", abortSwitch);
            const ChildResult result = ChildProcess::run(
                [&wanted]
                {
                    KoTest::AllocationCounter counter;
                    KoError::setErrorHandler(exitWithAllocations, &counter);
                    const FailingAllocation failing(1, FailingAllocation::FROM_THERE);
                    return wanted.request() == nullptr ? 2 : 3;
                });
            // Nothing but the request itself allocates on the way to the error handler.
            EXPECT_EQ(result.exitStatus, abortSwitch != nullptr ? -1 : wanted.mustInject ? 101 : 100);
            EXPECT_EQ(result.signal, abortSwitch == nullptr ? 0 : SIGABRT);
            ASSERT_EQ(result.log.size(), 1U) << text << result.describe();
            EXPECT_EQ(result.logTexts()[0], text);
            EXPECT_EQ(result.log[0].severity, 1);
            const std::string record = directory.read("PID" + std::to_string(result.pid) + ".ass");
            EXPECT_THAT(record, testing::StartsWith("\n[QNX backtrace] INFO - " + text + "\n\nTID: 1 PID: "));
            EXPECT_THAT(record, testing::HasSubstr("sys_vanta"));
        }
    }
}

/// Fills `count` elements from `first` on in a guarded array and compares with a plain loop.
template <class Element>
void expectLikeLoop(void (*fill)(Element*, unsigned int, Element), Element value)
{
    for (unsigned int first = 0; first < 9; ++first)
    {
        for (unsigned int count = 0; count < 40; ++count)
        {
            alignas(16) Element actual[64] = {};
            std::vector<Element> expected(64);
            fill(actual + first, count, value);
            std::fill_n(expected.data() + first, count, value);
            EXPECT_EQ(std::vector<Element>(actual, actual + 64), expected) << first << " " << count;
        }
    }
    fill(nullptr, 5, value);
}

TEST(KoMemUtilities, FillsExactlyTheElementsAtEveryAlignmentAndCount)
{
    expectLikeLoop<unsigned long long>(KoMemUtilities::memFillUInt64, 0x0123456789ABCDEFULL);
    expectLikeLoop<unsigned int>(KoMemUtilities::memFillUInt32, 0x89ABCDEFU);
    expectLikeLoop<unsigned short>(KoMemUtilities::memFillUInt16, 0xBEEF);
    expectLikeLoop<unsigned char>(KoMemUtilities::memFillUInt8, 0xE1);
}

TEST(KoMemUtilities, FillsNibblesAndLeavesTheirNeighbours)
{
    for (unsigned int start = 0; start < 2; ++start)
    {
        for (unsigned int count = 0; count < 40; ++count)
        {
            std::vector<unsigned char> bytes(24, 0x12);
            KoMemUtilities::memFillNibble(bytes.data(), count, 0xFC, start);
            for (unsigned int i = 0; i < 48; ++i)
            {
                const int cell = i % 2 == 0 ? bytes[i / 2] >> 4 : bytes[i / 2] & 0xF;
                const int untouched = i % 2 == 0 ? 1 : 2;
                EXPECT_EQ(cell, i < start || i >= start + count ? untouched : 0xC) << count << " " << i;
            }
        }
    }
    KoMemUtilities::memFillNibble(nullptr, 2, 0xA, 1);
}

TEST(KoMemUtilities, CastsOnlyAlignedPointers)
{
    alignas(4) char bytes[8];
    for (unsigned int offset = 0; offset < 4; ++offset)
    {
        void* pointer = bytes + offset;
        const void* constPointer = pointer;
        void* const ifWord = offset == 0 ? pointer : nullptr;
        void* const ifHalf = offset % 2 == 0 ? pointer : nullptr;
        EXPECT_EQ(KoMemUtilities::castToUInt32Ptr(pointer), ifWord);
        EXPECT_EQ(KoMemUtilities::castToUInt32Ptr(constPointer), ifWord);
        EXPECT_EQ(KoMemUtilities::castToUInt16Ptr(pointer), ifHalf);
        EXPECT_EQ(KoMemUtilities::castToUInt16Ptr(constPointer), ifHalf);
    }
}

} // namespace
