#include "pf/oswrapper/KoMemory.h"

#include "pf/oswrapper/KoError.h"
#include "pf/oswrapper/KoStartupOptions.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unistd.h>

// The whole file also runs in a traced process; what is counted there is nothing here.
namespace
{

using KoTest::ChildProcess;
using KoTest::ChildResult;
using KoTest::FailingAllocation;
using KoTest::ScopedEnvironment;
using testing::HasSubstr;

bool isTraced()
{
    return KoStartupOptions::getMemoryTraceLevel() != 0;
}

unsigned int counted(unsigned int bytes)
{
    return isTraced() ? bytes : 0;
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

TEST(KoMemory, NothingIsAllocatedForSizeZero)
{
    errno = EDOM;
    EXPECT_EQ(KoMemory::alloc(0), nullptr);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(KoMemory::allocChecked(0), nullptr);
    EXPECT_EQ(allocateCachedMemory(0), nullptr);
    EXPECT_EQ(KoMemory::reallocChecked(nullptr, 0), nullptr);
    KoMemory::release(nullptr);
    KoMemory::release(nullptr, 7);
}

TEST(KoMemory, EveryBlockIsBookedAlignedAndReleasableByEveryForm)
{
    void* (*const allocators[])(unsigned int) = {KoMemory::alloc,       KoMemory::allocChecked,
                                                 KoMemory::allocCached, allocateMemory,
                                                 allocateCheckedMemory, allocateCachedMemory};
    void (*const releasers[])(void*) = {releaseMemory, [](void* block) { KoMemory::release(block); },
                                        [](void* block) { KoMemory::release(block, 1); },
                                        [](void* block) { releaseMemoryEx(block, 1); },
                                        [](void* block) { EXPECT_EQ(reallocateMemory(block, 0), nullptr); }};
    for (const auto allocate : allocators)
    {
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

// Not every compiler declares the sized forms by itself.
void deleteSized(void* block, std::size_t size)
{
#if defined(__cpp_sized_deallocation)
    ::operator delete[](block, size);
#else
    static_cast<void>(size);
    ::operator delete[](block);
#endif
}

struct alignas(256) SOverAligned
{
    char bytes[512];
};

TEST(OperatorNew, EveryFormIsBookedAlignedAndGivenBack)
{
    const std::align_val_t wide{64};
    const Books books;
    const struct
    {
        void* block;
        void (*release)(void*);
    } forms[] = {
        {::operator new(24), [](void* p) { ::operator delete(p); }},
        {::operator new[](24), [](void* p) { deleteSized(p, 24); }},
        {::operator new(24, std::nothrow), [](void* p) { ::operator delete(p, std::nothrow); }},
        {::operator new[](24, std::nothrow), [](void* p) { ::operator delete[](p, std::nothrow); }},
        {::operator new(24, wide), [](void* p) { ::operator delete (p, std::align_val_t{64}); }},
        {::operator new[](24, wide), [](void* p) { ::operator delete[](p, std::align_val_t{64}); }},
        {::operator new(24, wide, std::nothrow),
         [](void* p) { ::operator delete (p, std::align_val_t{64}, std::nothrow); }},
        {::operator new[](24, wide, std::nothrow), [](void* p) { KoMemory::release(p); }},
    };
    EXPECT_EQ(books.balance(), counted(8 * 24));
    for (std::size_t i = 0; i < 8; ++i)
    {
        EXPECT_TRUE(isAligned(forms[i].block, i < 4 ? alignof(std::max_align_t) : 64U)) << i;
        std::memset(forms[i].block, 0x5A, 24);
        forms[i].release(forms[i].block);
    }
    EXPECT_EQ(books.balance(), 0U);

    SOverAligned* objects = new SOverAligned[3];
    EXPECT_TRUE(isAligned(objects, 256));
    EXPECT_EQ(books.balance(), counted(sizeof(SOverAligned) * 3));
    std::memset(objects->bytes, 'o', sizeof(objects->bytes));
    char* resized = static_cast<char*>(KoMemory::realloc(objects, 3000));
    EXPECT_EQ(std::string(resized, 512), std::string(512, 'o'));
    EXPECT_EQ(books.balance(), counted(3000));
    KoMemory::release(resized);
    SOverAligned* single = new SOverAligned();
    EXPECT_TRUE(isAligned(single, 256));
    delete single;
    EXPECT_EQ(books.balance(), 0U);
    EXPECT_EQ(::operator new(0), nullptr);
    EXPECT_EQ(::operator new(0, wide), nullptr);
}

TEST(OperatorNew, ASizeBeyondTheInterfaceIsAFailureAndNotACutSize)
{
    const bool isWide = sizeof(std::size_t) > sizeof(unsigned int);
    for (const std::size_t size :
         {SIZE_MAX, isWide ? static_cast<std::size_t>(UINT_MAX) + 17 : SIZE_MAX - 15})
    {
        EXPECT_EQ(::operator new(size, std::nothrow), nullptr);
        EXPECT_EQ(errno, ENOMEM);
        EXPECT_EQ(::operator new[](size, std::align_val_t{64}, std::nothrow), nullptr);
        EXPECT_EQ(errno, ENOMEM);
    }
}

#endif

struct FailingCase
{
    std::function<void*()> request;
    std::string text;
    bool mustInject = true;
};

std::vector<FailingCase> failingCases()
{
    static void* block = KoMemory::alloc(16);
    static volatile std::size_t huge = SIZE_MAX - 7;
    const bool mustInjectHuge = huge <= UINT_MAX && !isTraced();
    return {
        {[] { return KoMemory::allocChecked(4096); }, "failed to allocate 4096 bytes (err: 12)"},
        {[] { return KoMemory::reallocChecked(block, 77); }, "failed to reallocate 77 bytes (err: 12)"},
        {[] { return ::operator new(33); }, "failed to allocate 33 bytes (err: 12)"},
        {[] { return ::operator new[](34, std::align_val_t{128}); }, "failed to allocate 34 bytes (err: 12)"},
        {[] { return ::operator new(huge); },
         "failed to allocate " + std::to_string(huge) + " bytes (err: 12)", mustInjectHuge}};
}

/// Ends the process with the number of allocations since the failure.
void exitWithAllocations(void* counter)
{
    ::_exit(100 + static_cast<int>(static_cast<KoTest::AllocationCounter*>(counter)->count()));
}

ChildResult runFailing(const FailingCase& wanted, bool isCounting)
{
    return ChildProcess::run(
        [&]
        {
            static KoTest::AllocationCounter counter;
            if (isCounting)
            {
                KoError::setErrorHandler(exitWithAllocations, &counter);
            }
            const FailingAllocation failing(1, FailingAllocation::FROM_THERE);
            return wanted.request() == nullptr ? 2 : 3;
        });
}

TEST(KoMemory, AFailedCheckedRequestLeavesABacktraceAndEndsTheProcess)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const KoTest::TemporaryDirectory directory;
    const ScopedEnvironment directoryVariable("KO_ASSERTION_BACKTRACE_DIR", directory.path().c_str());
    for (const FailingCase& wanted : failingCases())
    {
        for (const char* abortSwitch : {static_cast<const char*>(nullptr), ""})
        {
            const ScopedEnvironment abortVariable("KO_ENABLE_ABORT_ON_FAILED_MEMORY_ALLOCATION", abortSwitch);
            const ChildResult result = runFailing(wanted, false);
            EXPECT_EQ(result.exitStatus, abortSwitch == nullptr ? 1 : -1) << wanted.text << result.describe();
            EXPECT_EQ(result.signal, abortSwitch == nullptr ? 0 : SIGABRT);
            ASSERT_EQ(result.log.size(), abortSwitch == nullptr ? 2U : 1U) << wanted.text;
            EXPECT_EQ(result.logTexts()[0], wanted.text);
            EXPECT_EQ(result.log[0].severity, 1);
            const std::string record = directory.read("PID" + std::to_string(result.pid) + ".ass");
            EXPECT_THAT(record,
                        testing::StartsWith("\n[QNX backtrace] INFO - " + wanted.text + "\n\nTID: 1 PID: "));
            EXPECT_THAT(record, HasSubstr("sys_vanta"));
        }
        EXPECT_EQ(runFailing(wanted, true).exitStatus, wanted.mustInject ? 101 : 100)
            << wanted.text << ": nothing but the request itself allocates on the way to the error handler";
    }
}

} // namespace
