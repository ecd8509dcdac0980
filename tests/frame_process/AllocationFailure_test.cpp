#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>

#include "pf/base/CKoString.h"
#include "pf/containers/CKoBuffer.h"
#include "pf/containers/CKoRawMemoryBuffer.h"
#include "pf/containers/TKoMap.h"
#include "pf/containers/TKoSmallVector.h"
#include "pf/containers/TKoVector.h"
#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/KoError.h"
#include "pf/oswrapper/KoMemory.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/util/KoBacktrace.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/MemoryStream.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

using testing::AllOf;
using testing::Contains;
using testing::ElementsAre;
using testing::MatchesRegex;

constexpr int CAME_BACK = 7; ///< an allocation failed and the operation came back all the same
constexpr const char* BACKTRACE_DIRECTORY = "KO_ASSERTION_BACKTRACE_DIR";

/// Begins the faults once the operation's objects are prepared.
class Trigger
{
public:
    explicit Trigger(std::uint32_t n)
        : m_n(n)
    {
    }

    void start() { m_fault.emplace(m_n, KoTest::FailingAllocation::FROM_THERE); }

    /// The status with which the child ends when the operation has come back.
    int stop()
    {
        const bool hasFailed = m_fault && m_fault->hasFailed();
        m_fault.reset();
        return hasFailed ? CAME_BACK : EXIT_SUCCESS;
    }

private:
    std::uint32_t m_n;
    std::optional<KoTest::FailingAllocation> m_fault;
};

struct Operation
{
    const char* name;
    std::function<void(Trigger&)> run;
};

/// Operations whose allocations are all checked.
const Operation CHECKED[] = {
    {"memory: allocChecked, reallocChecked",
     [](Trigger& trigger)
     {
         trigger.start();
         void* const block = KoMemory::allocChecked(10);
         KoMemory::release(KoMemory::reallocChecked(block, 100000));
     }},
    {"memory: operator new in its forms",
     [](Trigger& trigger)
     {
         const std::align_val_t alignment{64};
         trigger.start();
         ::operator delete(::operator new(10));
         ::operator delete[](::operator new[](10));
         ::operator delete(::operator new(10, alignment), alignment);
     }},
    {"string: construction from text, wide text and capacity",
     [](Trigger& trigger)
     {
         const unsigned int wide[] = {0x41, 0x3B1, 0};
         trigger.start();
         const CKoString text("text");
         const CKoString fromWide(wide);
         const CKoString empty(100U);
     }},
    {"string: append, insert, replace on shared blocks",
     [](Trigger& trigger)
     {
         const CKoString text("one two one");
         CKoString copy(text);
         CKoString other(text);
         CKoString third(text);
         trigger.start();
         copy.append(" three").append(other);
         CKoString::const_iterator position = other.begin();
         other.insert(position, text);
         third.replaceAll("one", "eleven");
         third.replaceAll("two", "2");
     }},
    {"string: truncate, trim, clear, parts, format",
     [](Trigger& trigger)
     {
         const CKoString text(" %1 one ");
         CKoString cut(text);
         CKoString trimmed(text);
         CKoString cleared(text);
         CKoString formatted;
         trigger.start();
         cut.truncate(3);
         trimmed.trim();
         cleared.clear();
         formatted.format("%s %d", text.c_str(), 7);
         formatted = text.getLeft(2) + text.getRight(3) + text.getMid(text.begin(), 4);
         cut.replaceArg(text);
     }},
    {"vector: append, insert and copy",
     [](Trigger& trigger)
     {
         TKoVector<int> numbers;
         trigger.start();
         numbers.push_back(1);
         for (int i = 0; i < 10; ++i)
         {
             numbers.insert(0, i);
         }
         const TKoVector<int> copy(numbers);
     }},
    {"small vector: append, insert, reserve and resize of strings",
     [](Trigger& trigger)
     {
         const CKoString text("text");
         TKoSmallVector<CKoString> texts;
         trigger.start();
         texts.push_back(text);
         texts.insert(0, text);
         texts.reserve(20);
         texts.resize(40, text);
         const TKoSmallVector<CKoString> copy(texts);
     }},
    {"map: insert",
     [](Trigger& trigger)
     {
         const CKoString key("key");
         TKoMap<CKoString, unsigned int> map;
         trigger.start();
         map.insert(key, 1U);
         map.insert("other", 2U);
     }},
    {"buffer: construction, resize and copyTo",
     [](Trigger& trigger)
     {
         trigger.start();
         CKoBuffer buffer(100);
         buffer.resize(200);
         const CKoBuffer shared(buffer);
         buffer.copyTo("text", 4, 10);
         const CKoRawMemoryBuffer raw(100);
     }},
    {"stream: a string and a buffer read back",
     [](Trigger& trigger)
     {
         KoTest::MemoryStream stream;
         CKoBuffer buffer(300);
         CKoString text("text");
         stream << text << buffer;
         trigger.start();
         stream >> text >> buffer;
     }},
    {"report: an assertion, whose information text is a string",
     [](Trigger& trigger)
     {
         trigger.start();
         doAssert(7, "AllocationFailure_test", "provoked");
     }},
};

std::size_t countRecords(const std::string& text)
{
    const std::string start = "\n[QNX backtrace] INFO - failed to ";
    std::size_t count = 0;
    for (std::size_t at = text.find(start); at != std::string::npos; at = text.find(start, at + 1))
    {
        ++count;
    }
    return count;
}

std::string allFiles(const KoTest::TemporaryDirectory& directory)
{
    std::string text;
    for (const std::string& name : directory.names())
    {
        text += directory.read(name);
    }
    return text;
}

/// Checks the end of a process whose n-th allocation failed.
void expectFatalAllocation(const KoTest::ChildResult& result, const KoTest::TemporaryDirectory& directory)
{
    EXPECT_EQ(result.exitStatus, EXIT_FAILURE) << result.describe();
    EXPECT_EQ(countRecords(allFiles(directory)), 1U) << result.describe();
    EXPECT_THAT(result.logTexts(),
                AllOf(Contains(MatchesRegex("failed to (re)?allocate [0-9]+ bytes \\(err: 12\\)")).Times(1),
                      Contains("terminating process using exit(EXIT_FAILURE)").Times(1)))
        << result.describe();
}

TEST(AllocationFailure, endsTheProcessWithOneRecordWhicheverCheckedAllocationFails)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    for (const Operation& operation : CHECKED)
    {
        SCOPED_TRACE(operation.name);
        std::uint32_t n = 0;
        KoTest::ChildResult result;
        do
        {
            const KoTest::TemporaryDirectory directory;
            ++n;
            result = KoTest::ChildProcess::run(
                [&]
                {
                    setenv(BACKTRACE_DIRECTORY, directory.path().c_str(), 1);
                    Trigger trigger(n);
                    operation.run(trigger);
                    return trigger.stop();
                });
            if (result.exitStatus != EXIT_SUCCESS)
            {
                SCOPED_TRACE("allocation " + std::to_string(n));
                expectFatalAllocation(result, directory);
            }
        } while (result.exitStatus == EXIT_FAILURE && n < 100);
        EXPECT_EQ(result.exitStatus, EXIT_SUCCESS) << "allocation " << n;
        EXPECT_GT(n, 1U) << "nothing was allocated";
    }
}

/// A block of its own with known bytes.
class KnownBlock
{
public:
    KnownBlock()
        : m_block(KoMemory::alloc(sizeof(BYTES)))
    {
        std::memcpy(m_block, BYTES, sizeof(BYTES));
    }
    ~KnownBlock() { KoMemory::release(m_block); }
    KnownBlock(const KnownBlock&) = delete;
    KnownBlock& operator=(const KnownBlock&) = delete;

    void* get() const { return m_block; }
    bool isUnchanged() const { return std::memcmp(m_block, BYTES, sizeof(BYTES)) == 0; }

private:
    static constexpr char BYTES[] = "fifteen bytes..";
    void* m_block;
};

TEST(AllocationFailure, uncheckedAllocationGivesNullAndTheReason)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    void* (*const allocators[])(unsigned int) = {
        &KoMemory::alloc,
        &KoMemory::allocCached,
        &allocateMemory,
        &allocateCachedMemory,
        [](unsigned int size) { return ::operator new(size, std::nothrow); },
        [](unsigned int size) { return ::operator new[](size, std::nothrow); },
        [](unsigned int size) { return ::operator new(size, std::align_val_t(64), std::nothrow); }};
    for (const auto allocator : allocators)
    {
        const KoTest::FailingAllocation fault(1);
        errno = 0;
        void* const block = allocator(100);
        const int error = errno;
        EXPECT_EQ(block, nullptr);
        EXPECT_EQ(error, ENOMEM);
    }
}

TEST(AllocationFailure, uncheckedResizeLeavesTheBlockAsItWas)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const KnownBlock block;
    for (const unsigned int size : {1U, 16U, 100000U})
    {
        const KoTest::FailingAllocation fault(1);
        void* const resized = KoMemory::realloc(block.get(), size);
        const int error = errno;
        EXPECT_EQ(resized, nullptr);
        EXPECT_EQ(error, ENOMEM);
        EXPECT_TRUE(block.isUnchanged());
    }
}

TEST(AllocationFailure, rawBufferOfAFailingAllocatorHoldsNoBlock)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const KoTest::FailingAllocation fault(1);
    const CKoRawMemoryBuffer buffer(100, &KoMemory::alloc);
    EXPECT_EQ(buffer.getBuffer(), nullptr);
    EXPECT_EQ(buffer.getCapacity(), 0U);
}

TEST(AllocationFailure, reportsThatTakeNoStringNeedNoHeap)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const KoTest::TemporaryDirectory directory;
    const KoTest::ChildResult result = KoTest::ChildProcess::run(
        [&]
        {
            const KoTest::FailingAllocation fault(1, KoTest::FailingAllocation::FROM_THERE);
            KoSyslog::logMsg(0, KoSyslog::Warning, "%s %d", "line", 1);
            KoError::reportOSError(0, KoSyslog::Error, ENOENT, "text");
            KoBacktrace::doBacktraceNoAlloc("failed to do", directory.path().c_str(), "txt", true);
            CKoAsserter::setExpectedAssertions(CKoAsserter::getOccuredAssertions() + 1);
            doCheapAssert(8, "AllocationFailure_test");
            if (!fault.hasFailed())
            {
                doFatalError(9, "AllocationFailure_test", "the end");
            }
            return CAME_BACK;
        });

    EXPECT_EQ(result.exitStatus, EXIT_FAILURE) << result.describe();
    EXPECT_THAT(result.logTexts(),
                ElementsAre("line 1", "text (operating system error 2, No such file or directory)",
                            "AllocationFailure_test:9: FATAL ERROR \"the end\" occured",
                            "AllocationFailure_test:9: FATAL ERROR \"the end\" occured",
                            "terminating process using exit(EXIT_FAILURE)"));
    EXPECT_EQ(countRecords(allFiles(directory)), 1U);
}

} // namespace
