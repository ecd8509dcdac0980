#include "pf/util/KoBacktrace.h"

#include "pf/base/CKoString.h"
#include "pf/oswrapper/CKoAsserter.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/BacktraceText.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Deadline.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/Threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <sstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

using KoTest::backtraceHeader;
using KoTest::backtraceRecord;
using KoTest::ChildProcess;
using KoTest::ChildResult;
using KoTest::countOf;
using KoTest::TemporaryDirectory;
using testing::MatchesRegex;

std::string defaultName(pid_t pid = ::getpid())
{
    return "PID" + std::to_string(pid) + ".txt";
}

CKoString releaseInfos(CKoString& name)
{
    name = CKoString("app");
    return CKoString("Release 7");
}

class KoBacktraceTest : public testing::Test
{
protected:
    void dump(const char* information) const
    {
        KoBacktrace::doBacktrace(CKoString(information), CKoString(m_directory.path().c_str()),
                                 CKoString("txt"), true);
    }

    void dumpNoAlloc(const char* information, bool append = true) const
    {
        KoBacktrace::doBacktraceNoAlloc(information, m_directory.path().c_str(), "txt", append);
    }

    TemporaryDirectory m_directory;
    KoTest::ScopedEnvironment m_variable{"KO_ASSERTION_BACKTRACE_DIR", m_directory.path().c_str()};
};

TEST_F(KoBacktraceTest, BothEntriesAppendRecordsOfTheSameFormToTheSameFile)
{
    const mode_t before = ::umask(027);
    dump("first");
    ::umask(before);
    errno = EDOM;
    dumpNoAlloc("second, %s %n");
    EXPECT_EQ(errno, EDOM);
    EXPECT_THAT(m_directory.names(), testing::ElementsAre(defaultName()));
    struct stat status = {};
    ASSERT_EQ(::stat(m_directory.file(defaultName()).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0640U);
    const std::string appended = m_directory.read(defaultName());
    EXPECT_THAT(appended, MatchesRegex(backtraceRecord("first", backtraceHeader(::getpid())) +
                                       backtraceRecord("second, %s %n", backtraceHeader(::getpid()))));
    dumpNoAlloc("third", false);
    const std::string overwritten = m_directory.read(defaultName());
    EXPECT_EQ(overwritten.substr(0, 29), "\n[QNX backtrace] INFO - third");
    EXPECT_EQ(overwritten.substr(appended.size() / 2), appended.substr(appended.size() / 2))
        << "nothing is cut";
}

/// Calls itself down to a depth, then dumps. Notes the address its caller goes on at.
__attribute__((noinline)) int descend(int depth, const std::function<void()>& dump,
                                      std::vector<std::uintptr_t>& callers)
{
    const std::uintptr_t thumbBit = sizeof(void*) == 4 ? 1 : 0;
    callers.push_back(reinterpret_cast<std::uintptr_t>(__builtin_return_address(0)) & ~thumbBit);
    if (depth == 0)
    {
        dump();
        return 0;
    }
    const int below = descend(depth - 1, dump, callers);
    __asm__ volatile("" ::: "memory"); // keeps the compiler from making a loop of it
    return below + 1;
}

TEST_F(KoBacktraceTest, TheStackShownIsTheCallersWithItsClientFunctions)
{
    for (const int depth : {3, 300})
    {
        std::vector<std::uintptr_t> callers;
        descend(
            depth, [this] { dumpNoAlloc("stack", false); }, callers);
        const std::string text = m_directory.read(defaultName());
        std::istringstream words(text.substr(text.find("\n\n\n")));
        std::vector<std::uintptr_t> found;
        for (std::uintptr_t address; words >> std::hex >> address && words.peek() == ' ';)
        {
            found.push_back(address);
        }
        EXPECT_LE(found.size(), 100U);
        EXPECT_THAT(found, testing::Contains(callers.back())) << "the innermost client function";
        const bool showsAll = depth < 100;
        EXPECT_EQ(found.size() == 100U, !showsAll);
        EXPECT_THAT(found, testing::Contains(callers.front()).Times(showsAll ? 1 : 0));
    }
}

TEST_F(KoBacktraceTest, TheMapNamesEachLoadedObjectOnceAndStopsAfterFifty)
{
    std::vector<void*> mappings;
    for (int i = 0; i < 60; ++i)
    {
        const std::string name = "object" + std::to_string(i) + std::string(200, 'n');
        m_directory.write(name, std::string(4096, 'x'));
        const int file = ::open(m_directory.file(name).c_str(), O_RDONLY);
        mappings.push_back(::mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE, file, 0));
        ASSERT_NE(mappings.back(), MAP_FAILED);
        ::close(file);
    }
    dumpNoAlloc("many");
    for (void* mapping : mappings)
    {
        ::munmap(mapping, 4096);
    }
    const std::string many = m_directory.read(defaultName());
    EXPECT_THAT(many, MatchesRegex(backtraceRecord("many", backtraceHeader(::getpid()), "{50}")));
    std::istringstream lines(many);
    for (std::string line; std::getline(lines, line);)
    {
        EXPECT_LT(line.size(), 150U);
    }
    dumpNoAlloc("few");
    EXPECT_EQ(countOf("/libsys_vanta.gpp.so", m_directory.read(defaultName()).substr(many.size())), 1U);
}

TEST_F(KoBacktraceTest, TheInformationFunctionNamesFileAndHeaderAndMayAssertOrEndTheProcess)
{
    const ChildResult result = ChildProcess::run(
        [this]
        {
            KoBacktrace::setInfos(
                [](CKoString& name)
                {
                    doCheapAssert(99, "Infos");
                    return releaseInfos(name);
                });
            dump("outer");
            KoBacktrace::setInfos(nullptr);
            dump("none");
            KoBacktrace::setInfos([](CKoString&) -> CKoString { std::exit(3); });
            dump("last");
            return 0;
        });
    EXPECT_EQ(result.exitStatus, 3);
    EXPECT_EQ(result.log.size(), 2U) << result.describe();
    EXPECT_THAT(m_directory.read("app.txt"), MatchesRegex(backtraceRecord("outer", "Release 7")));
    EXPECT_THAT(m_directory.read("PID" + std::to_string(result.pid) + ".ass"),
                MatchesRegex(backtraceRecord("ASSERTION \"\\?\\?\\?\" failed in Infos 99",
                                             backtraceHeader(result.pid))));
    EXPECT_THAT(m_directory.read(defaultName(result.pid)),
                MatchesRegex(backtraceRecord("none", backtraceHeader(result.pid))));
}

TEST_F(KoBacktraceTest, AFileThatCannotBeOpenedIsNamedOnStandardOutput)
{
    const std::string link = m_directory.file(defaultName());
    ASSERT_EQ(::symlink(m_directory.file("target").c_str(), link.c_str()), 0);
    m_directory.write("target", "");
    const std::string tooLong = m_directory.path() + "/" + std::string(1100, 'd');
    testing::internal::CaptureStdout();
    dumpNoAlloc("x");
    KoBacktrace::doBacktraceNoAlloc("x", tooLong.c_str(), "txt", true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "Cannot open " + link + "\nCannot open " + tooLong.substr(0, 1023) + "\n");
    EXPECT_EQ(m_directory.read("target"), "");
}

TEST_F(KoBacktraceTest, TheNoAllocationEntryReportsEachMissingText)
{
    const char* directory = m_directory.path().c_str();
    const KoTest::AssertionCounter assertions(4);
    KoBacktrace::doBacktraceNoAlloc(nullptr, directory, "txt", true);
    KoBacktrace::doBacktraceNoAlloc("x", nullptr, "txt", true);
    KoBacktrace::doBacktraceNoAlloc(nullptr, directory, nullptr, true);
    EXPECT_TRUE(m_directory.names().empty());
}

TEST_F(KoBacktraceTest, RecordsOfThreadsNeverInterleave)
{
    const auto dumpRepeatedly = [this](int)
    {
        for (int i = 0; i < 4; ++i)
        {
            dump("a");
            dumpNoAlloc("a");
        }
    };
    KoTest::inThreads(3, dumpRepeatedly);
    const std::string records = m_directory.read(defaultName());
    EXPECT_EQ(countOf("INFO - a\n\nTID", records), 24U);
    EXPECT_THAT(records, MatchesRegex("(" + backtraceRecord("a", "TID: [0-9]+ PID: [0-9]+") + ")+"));
}

pid_t sForked = -1;
std::thread sOther;
std::atomic<bool> sOtherIsDone{false};

/// Forks twice: another thread's child reports at once. The own one goes on with the dump, and must not let
/// another thread of its own dump meanwhile.
CKoString forkingInfos(CKoString& name)
{
    KoBacktrace::setInfos(releaseInfos);
    const auto report = [] { return doCheapAssert(1, "beside"), 0; };
    std::thread([&report] { EXPECT_EQ(ChildProcess::run(report, 10000).exitStatus, 0); }).join();
    sForked = ::fork();
    if (sForked == 0)
    {
        ::alarm(20);
        sOther = std::thread([] { doCheapAssert(1, "other"), sOtherIsDone = true; });
        EXPECT_FALSE(KoTest::waitUntil([] { return sOtherIsDone.load(); }, 50));
    }
    return releaseInfos(name);
}

TEST_F(KoBacktraceTest, ChildrenForkedDuringADumpCanReport)
{
    const ChildResult result = ChildProcess::run(
        [this]
        {
            KoBacktrace::setInfos(forkingInfos);
            dump("both");
            int status = 0;
            if (sForked == 0)
            {
                sOther.join();
                ::_exit(testing::Test::HasFailure() ? 1 : 0);
            }
            ::waitpid(sForked, &status, 0);
            return status == 0 && !testing::Test::HasFailure() ? 0 : 1;
        });
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_EQ(countOf("INFO - both\n", m_directory.read("app.txt")), 2U);
    EXPECT_EQ(countOf("INFO - ASSERTION", m_directory.read("app.ass")), 2U);
}

} // namespace
