#include "pf/util/KoBacktrace.h"

#include "pf/base/CKoString.h"
#include "pf/oswrapper/CKoAsserter.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cinttypes>
#include <fcntl.h>
#include <future>
#include <sstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace
{

using KoTest::ChildProcess;
using KoTest::ChildResult;
using KoTest::TemporaryDirectory;
using testing::HasSubstr;

/// One record of a backtrace file, taken apart by the layout it must have.
struct Record
{
    std::string information;
    std::string header;
    std::vector<std::uintptr_t> addresses;
    std::vector<std::string> map;
};

/// Up to six addresses of at least eight digits, each followed by a blank; all six except in the last line.
bool isAddressLine(const std::string& line, bool isLast, std::vector<std::uintptr_t>& addresses)
{
    std::istringstream words(line);
    std::size_t count = 0;
    for (std::string word; words >> word; ++count)
    {
        if (word.size() < 8 || word.find_first_not_of("0123456789ABCDEF") != word.npos)
        {
            return false;
        }
        addresses.push_back(static_cast<std::uintptr_t>(std::stoull(word, nullptr, 16)));
    }
    return line.back() == ' ' && (count == 6 || (isLast && count < 6));
}

/// Takes the next record of a file apart and fails the test on any other layout.
Record parseRecord(std::istream& file)
{
    Record record;
    std::string line;
    const auto next = [&file, &line] { return std::getline(file, line) ? line : std::string("END"); };
    EXPECT_EQ(next(), "");
    EXPECT_EQ(next().substr(0, 23), "[QNX backtrace] INFO - ");
    record.information = line.substr(23);
    EXPECT_EQ(next(), "");
    record.header = next();
    EXPECT_EQ(next(), "data below is the actual callstack created with QNX libbacktrace.so");
    EXPECT_EQ(next(), "usable for analysis with proper project MAP file");
    EXPECT_EQ(next(), "");
    EXPECT_EQ(next(), "");
    while (next() != "" && line != "END")
    {
        EXPECT_TRUE(isAddressLine(line, file.peek() == '\n', record.addresses)) << line;
    }
    while (next() != "" && line != "END")
    {
        record.map.push_back(line);
    }
    EXPECT_EQ(next(), "");
    return record;
}

std::vector<Record> parse(const std::string& bytes)
{
    std::istringstream file(bytes);
    std::vector<Record> records;
    while (file.peek() != std::istream::traits_type::eof() && !testing::Test::HasFailure())
    {
        records.push_back(parseRecord(file));
    }
    return records;
}

std::string defaultName()
{
    return "PID" + std::to_string(getpid()) + ".txt";
}

CKoString releaseInfos(CKoString& name)
{
    name = CKoString("app");
    return CKoString("Release 7");
}

class KoBacktraceTest : public testing::Test
{
protected:
    void dump(const char* information, bool append = true) const
    {
        KoBacktrace::doBacktrace(CKoString(information), CKoString(m_directory.path().c_str()),
                                 CKoString("txt"), append);
    }

    void dumpNoAlloc(const char* information, bool append = true) const
    {
        KoBacktrace::doBacktraceNoAlloc(information, m_directory.path().c_str(), "txt", append);
    }

    TemporaryDirectory m_directory;
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
    const std::vector<Record> records = parse(m_directory.read(defaultName()));
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[0].information, "first");
    EXPECT_EQ(records[1].information, "second, %s %n");
    for (const Record& record : records)
    {
        EXPECT_EQ(record.header, "TID: 1 PID: " + std::to_string(getpid()));
        EXPECT_GT(record.addresses.size(), 3U);
        EXPECT_THAT(record.map, testing::Contains(HasSubstr("libsys_vanta.gpp.so")));
    }
    const std::string appended = m_directory.read(defaultName());
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
        const std::vector<std::uintptr_t> found = parse(m_directory.read(defaultName()))[0].addresses;
        EXPECT_LE(found.size(), 100U);
        EXPECT_THAT(found, testing::Contains(callers.back())) << "the innermost client function";
        const bool showsAll = depth < 100;
        EXPECT_EQ(found.size() == 100U, !showsAll);
        EXPECT_EQ(std::count(found.begin(), found.end(), callers.front()), showsAll ? 1 : 0);
    }
}

TEST_F(KoBacktraceTest, TheMapNamesEachLoadedObjectOnceAndStopsAfterFifty)
{
    dumpNoAlloc("few");
    const std::string longName(200, 'n');
    std::vector<void*> mappings;
    for (int i = 0; i < 60; ++i)
    {
        m_directory.write("object" + std::to_string(i) + longName, std::string(4096, 'x'));
        const int file = ::open(m_directory.file("object" + std::to_string(i) + longName).c_str(), O_RDONLY);
        mappings.push_back(::mmap(nullptr, 4096, PROT_READ | PROT_EXEC, MAP_PRIVATE, file, 0));
        ASSERT_NE(mappings.back(), MAP_FAILED);
        ::close(file);
    }
    dumpNoAlloc("many");
    for (void* mapping : mappings)
    {
        ::munmap(mapping, 4096);
    }
    const std::vector<Record> records = parse(m_directory.read(defaultName()));
    ASSERT_EQ(records.size(), 2U);
    EXPECT_EQ(records[1].map.size(), 50U);
    for (const std::string& line : records[1].map)
    {
        EXPECT_THAT(line, testing::MatchesRegex("[0-9A-F]+-[0-9A-F]+ .+"));
        EXPECT_LT(line.size(), 150U);
    }
    EXPECT_EQ(std::count_if(records[0].map.begin(), records[0].map.end(),
                            [](const std::string& line) { return line.find("libsys_vanta") != line.npos; }),
              1);
}

CKoString assertingInfos(CKoString& name)
{
    doCheapAssert(99, "Infos");
    return releaseInfos(name);
}

TEST_F(KoBacktraceTest, TheInformationFunctionNamesFileAndHeaderAndMayAssert)
{
    const KoTest::ScopedEnvironment directory("KO_ASSERTION_BACKTRACE_DIR", m_directory.path().c_str());
    const ChildResult result = ChildProcess::run(
        [this]
        {
            KoBacktrace::setInfos(assertingInfos);
            dump("outer");
            KoBacktrace::setInfos(nullptr);
            dump("none");
            return 0;
        });
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    const std::vector<Record> outer = parse(m_directory.read("app.txt"));
    ASSERT_EQ(outer.size(), 1U);
    EXPECT_EQ(outer[0].information, "outer");
    EXPECT_EQ(outer[0].header, "Release 7");
    EXPECT_GT(outer[0].map.size(), 2U);
    const std::string name = "PID" + std::to_string(result.pid);
    ASSERT_EQ(parse(m_directory.read(name + ".ass")).size(), 1U);
    EXPECT_EQ(parse(m_directory.read(name + ".ass"))[0].information, "ASSERTION \"???\" failed in Infos 99");
    ASSERT_EQ(parse(m_directory.read(name + ".txt")).size(), 1U);
    EXPECT_EQ(parse(m_directory.read(name + ".txt"))[0].header, "TID: 1 PID: " + std::to_string(result.pid));
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
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [this]
            {
                for (int i = 0; i < 4; ++i)
                {
                    dump("a");
                    dumpNoAlloc("b");
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(parse(m_directory.read(defaultName())).size(), 32U);
}

std::promise<void> sIsInside;
std::promise<void> sMayLeave;

CKoString waitingInfos(CKoString& name)
{
    sIsInside.set_value();
    sMayLeave.get_future().wait();
    return releaseInfos(name);
}

int forkDuringDump(const std::function<void(const char*)>& dump)
{
    KoBacktrace::setInfos(waitingInfos);
    std::thread dumping([&dump] { dump("thread"); });
    sIsInside.get_future().wait();
    KoBacktrace::setInfos(releaseInfos);
    const ChildResult child = ChildProcess::run([&dump] { return dump("child"), 0; }, 10000);
    sMayLeave.set_value();
    dumping.join();
    return child.exitStatus;
}

TEST_F(KoBacktraceTest, AChildForkedDuringAnotherThreadsDumpCanDump)
{
    const ChildResult result =
        ChildProcess::run([this] { return forkDuringDump([this](const char* text) { dump(text); }); });
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_EQ(parse(m_directory.read("app.txt")).size(), 2U);
}

} // namespace
