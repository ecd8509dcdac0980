#include <cerrno>
#include <cstdlib>
#include <new>
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
#include "tests/support/BacktraceText.h"
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
constexpr const char* RECORD_START = "\n[QNX backtrace] INFO - failed to ";
constexpr const char* BACKTRACE_DIRECTORY = "KO_ASSERTION_BACKTRACE_DIR";

/// An operation whose allocations are all checked.
struct Operation
{
    const char* name;
    void (*run)();
};

const Operation CHECKED[] = {
    {"string: construction, append, insert and replacement on shared blocks",
     []
     {
         const unsigned int wide[] = {0x41, 0x3B1, 0};
         const CKoString text("one two one");
         const CKoString fromWide(wide);
         CKoString appended(text);
         CKoString inserted(text);
         CKoString replaced(text);
         appended.append(" three").append(fromWide);
         CKoString::const_iterator position = inserted.begin();
         inserted.insert(position, text);
         replaced.replaceAll("one", "eleven");
         replaced.replaceAll("two", "2");
     }},
    {"string: truncate, trim, clear, parts, format",
     []
     {
         const CKoString text(" %1 one ");
         CKoString cut(text);
         CKoString trimmed(text);
         CKoString cleared(text);
         CKoString formatted(100U);
         cut.truncate(3);
         trimmed.trim();
         cleared.clear();
         formatted.format("%s %d", text.c_str(), 7);
         formatted = text.getLeft(2) + text.getRight(3) + text.getMid(text.begin(), 4);
         cut.replaceArg(text);
     }},
    {"vectors and map: append, insert, reserve, resize and copy",
     []
     {
         const CKoString text("text");
         TKoVector<int> numbers;
         numbers.insert(0, 1);
         numbers.insert(0, 2);
         const TKoVector<int> copiedNumbers(numbers);
         TKoSmallVector<CKoString> texts;
         texts.push_back(text);
         texts.insert(0, text);
         texts.reserve(20);
         texts.resize(40, text);
         const TKoSmallVector<CKoString> copiedTexts(texts);
         TKoMap<CKoString, unsigned int> map;
         map.insert(text, 1U);
         map.insert("other", 2U);
     }},
    {"buffers: construction, resize and copyTo",
     []
     {
         CKoBuffer buffer(100);
         buffer.resize(200);
         const CKoBuffer shared(buffer);
         buffer.copyTo("text", 4, 10);
         const CKoRawMemoryBuffer raw(100);
     }},
    {"streams: a string and a buffer written and read back",
     []
     {
         KoTest::MemoryStream stream;
         CKoBuffer buffer(300);
         CKoString text("text");
         stream << text << buffer;
         stream >> text >> buffer;
     }},
    {"report: an assertion, whose information text is a string",
     [] { doAssert(7, "AllocationFailure_test", "provoked"); }},
};

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
    EXPECT_EQ(KoTest::countOf(RECORD_START, allFiles(directory)), 1U) << result.describe();
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
                    const KoTest::FailingAllocation fault(n, KoTest::FailingAllocation::FROM_THERE);
                    operation.run();
                    return fault.hasFailed() ? CAME_BACK : EXIT_SUCCESS;
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
    EXPECT_EQ(KoTest::countOf(RECORD_START, allFiles(directory)), 1U);
}

} // namespace
