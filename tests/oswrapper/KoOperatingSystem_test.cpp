#include "pf/oswrapper/KoOperatingSystem.h"

#include <cerrno>
#include <climits>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

#include "pf/containers/TKoVector.h"
#include "pf/oswrapper/CKoOSUtility.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Deadline.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SignalStorm.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

using namespace KoOperatingSystem;
using KoTest::AssertionCounter;

constexpr unsigned long long NONE = ~0ULL;
constexpr unsigned long long NS_PER_MS = 1000000ULL;

unsigned long long toNs(const timespec& time)
{
    return static_cast<unsigned long long>(time.tv_sec) * 1000ULL * NS_PER_MS +
           static_cast<unsigned long long>(time.tv_nsec);
}

unsigned long long hostClock(clockid_t id)
{
    timespec now{};
    clock_gettime(id, &now);
    return toNs(now);
}

TEST(KoOperatingSystem, ReadsClocksAndComputesTimesFromThem)
{
    unsigned long long stored = 0;
    const unsigned long long before = hostClock(CLOCK_MONOTONIC);
    const unsigned long long values[] = {getSysPageTime(), getClockValue(2), getMonotonicTime(&stored),
                                         calculateKernelTimeout(0)};
    const unsigned long long after = hostClock(CLOCK_MONOTONIC);
    for (const unsigned long long value : values)
    {
        EXPECT_TRUE(value >= before && value <= after);
    }
    EXPECT_EQ(stored, values[2]);
    EXPECT_TRUE(setKernelTimeout(values[3], 0x6000) && resetKernelTimeout());
    EXPECT_EQ(KoPlatform::takeTimeout(~0U, nullptr), NONE) << "cancelled";
    EXPECT_LE(getRealTimeMs() - static_cast<unsigned int>(getClockValue(0) / NS_PER_MS) + 5000U, 5000U);
    EXPECT_EQ(getClockValue(-6) + getClockValue(99) + getClockValue(INT_MIN), 0U);

    const unsigned long long bias = getMonotonicBias(&stored);
    EXPECT_TRUE(bias > 0U && bias <= before && stored == bias && getMonotonicBias(nullptr) == bias);
    EXPECT_GE(timeDiffMonotonic(before), values[0] - before);
    const AssertionCounter assertions(1);
    EXPECT_EQ(timeDiffMonotonic(after + 3600000ULL * NS_PER_MS), 0U);
}

TEST(KoOperatingSystem, ComputesDeadlinesIn64BitsAndWithCarry)
{
    for (const int ms : {INT_MIN, -5, -1, 0, 1, 999, 1999, 4295, INT_MAX})
    {
        const unsigned long long span = ms < 0 ? 0ULL : static_cast<unsigned long long>(ms) * NS_PER_MS;
        timespec time{};
        const unsigned long long before = hostClock(CLOCK_MONOTONIC) + span;
        const unsigned long long realBefore = hostClock(CLOCK_REALTIME) + span;
        const unsigned long long deadline = calculateKernelTimeout(ms);
        EXPECT_EQ(&CKoOSUtility::translateToOSTimeout(ms, time), &time);
        EXPECT_TRUE(ms < 0 ? deadline == NONE : deadline >= before) << ms;
        EXPECT_TRUE(ms < 0 || deadline <= hostClock(CLOCK_MONOTONIC) + span) << ms;
        EXPECT_TRUE(toNs(time) >= realBefore && toNs(time) <= hostClock(CLOCK_REALTIME) + span) << ms;
        EXPECT_LT(time.tv_nsec, 1000000000L) << ms;
    }
}

TEST(KoOperatingSystem, ReportsAHostThatCannotTellTheTimeOrBlockOnLocks)
{
    const KoTest::TemporaryDirectory backtraces;
    KoTest::ChildProcess::Program program;
    program.path = KO_HOST_FAULT_PROBE;
    program.environment = {{"KO_ASSERTION_BACKTRACE_DIR", backtraces.path().c_str()}};
    const KoTest::ChildResult result = KoTest::ChildProcess::execute(program);
    EXPECT_EQ(result.standardOutput, "usable 1, errno kept 1, time 0, stored 0, deadline 0\n");
    const char* const expected[] = {"Failed to create CKoCriticalSection: error=95",
                                    "Failed to create mutex: error=95",
                                    "KoMutexAccess:",
                                    "ASSERTION \"???\" failed in KoMutexAccess ",
                                    "KoOperatingSystem:",
                                    "ASSERTION \"???\" failed in KoOperatingSystem "};
    ASSERT_EQ(result.log.size(), 6U) << result.describe();
    for (std::size_t i = 0; i < 6; ++i)
    {
        EXPECT_EQ(result.logTexts()[i].find(expected[i]), 0U) << result.logTexts()[i];
    }
}

TEST(KoOperatingSystem, SleepsNeverShorterAndNotWithoutEndUnderSignals)
{
    const KoTest::SignalStorm storm(KoTest::SignalStorm::CALLING_THREAD, 200U);
    for (const unsigned int ms : {0U, 1U, 3U, 100U})
    {
        const KoTest::Stopwatch watch;
        sleepMs(ms);
        EXPECT_TRUE(watch.isWithin(ms, ms + 300)) << ms;
    }
    EXPECT_TRUE(storm.count() >= 10U || !KoTest::FaultInjection::isAvailable());
}

int format(char* buffer, int size, const char* text, ...) KO_PRINTF(3, 4);
int format(char* buffer, int size, const char* text, ...)
{
    va_list arguments;
    va_start(arguments, text);
    const int stored = KoOperatingSystem::vsnprintf(buffer, size, text, arguments);
    va_end(arguments);
    return stored;
}

TEST(KoOperatingSystem, ClipsFormattedText)
{
    const struct
    {
        int size;
        const char* text;
        std::string left;
    } cases[] = {{8, "01234567890123456789", "0123456"},
                 {8, "0123456", "0123456"},
                 {8, "01234567", "0123456"},
                 {1, "abc", ""},
                 {8, "", ""}};
    for (const auto& test : cases)
    {
        char buffer[] = "########################";
        EXPECT_EQ(format(buffer, test.size, "%s", test.text), static_cast<int>(test.left.size()));
        EXPECT_EQ(buffer, test.left);
        EXPECT_EQ(buffer[test.size], '#') << "nothing beyond the size";
    }
    char buffer[8] = "#";
    EXPECT_EQ(format(buffer, 0, "%s", "text") + format(buffer, -3, "%s", "text"), 0);
    EXPECT_STREQ(buffer, "#");
    EXPECT_EQ(format(buffer, 8, "%ls", L"\u03b1"), 0) << "no such character in this locale";
    EXPECT_STREQ(buffer, "");
    const AssertionCounter assertions(2);
    EXPECT_EQ(format(nullptr, 8, "%s", "text") + format(nullptr, -1, "%s", "text"), 0);
}

/// Changes the mask and gives the members that were reported.
std::vector<int> change(const std::vector<int>& signals, KoOSTypes::SignalMaskMode mode, int expectedCount)
{
    int previous[64] = {};
    const int count =
        setSignalMask(signals.data(), static_cast<unsigned int>(signals.size()), previous, mode);
    EXPECT_EQ(count, expectedCount);
    return std::vector<int>(previous, previous + (count > 0 ? count : 0));
}

TEST(KoOperatingSystem, ChangesTheSignalMaskOfTheCallingThread)
{
    using Signals = std::vector<int>;
    // The emulator keeps the last signal for itself.
    const int highest = KoTest::isEmulated() ? 62 : 64;
    std::thread(
        [&]
        {
            change({2, 15}, KoOSTypes::SET_SIGNALS, 0);
            EXPECT_EQ(change({highest, 1}, KoOSTypes::BLOCK_SIGNALS, 2), (Signals{2, 15}));
            EXPECT_EQ(change({2}, KoOSTypes::UNBLOCK_SIGNALS, 4), (Signals{1, 2, 15, highest}));
            EXPECT_EQ(change({}, KoOSTypes::SET_SIGNALS, 3), (Signals{1, 15, highest}));
            const int one[] = {10};
            EXPECT_EQ(setSignalMask(one, 1, nullptr, KoOSTypes::SET_SIGNALS), 0);
            const int bad[] = {12, 65};
            EXPECT_EQ(setSignalMask(bad, 2, nullptr, KoOSTypes::SET_SIGNALS), -1);
            EXPECT_EQ(getLastError(), EINVAL);
            EXPECT_EQ(setSignalMask(one, 1, nullptr, static_cast<KoOSTypes::SignalMaskMode>(3)), -1);
            EXPECT_EQ(setSignalMask(nullptr, 1, nullptr, KoOSTypes::SET_SIGNALS), -1);
            EXPECT_EQ(change({}, KoOSTypes::BLOCK_SIGNALS, 1), Signals{10}) << "failures change nothing";
        })
        .join();
    EXPECT_EQ(change({}, KoOSTypes::BLOCK_SIGNALS, 0), Signals()) << "the mask is the thread's own";
}

/// Runs each test in a working directory of its own that holds the program "tool", which writes its arguments
/// into a file.
class Spawn : public testing::Test
{
protected:
    Spawn()
    {
        writeProgram("tool", "for word in \"$0\" \"$@\"; do printf '[%s]' \"$word\"; done > out\n");
        writeProgram("exit", "exit $1\n");
        writeProgram("die", "kill -$1 $$\n");
        m_former = get_current_dir_name();
        EXPECT_EQ(chdir(m_directory.path().c_str()), 0);
    }
    ~Spawn() override
    {
        EXPECT_EQ(chdir(m_former), 0);
        std::free(m_former);
    }

    void writeProgram(const char* name, const std::string& body) const
    {
        m_directory.write(name, "#!/bin/sh\n" + body);
        chmod(m_directory.file(name).c_str(), 0700);
    }

    std::string wordsOf(const char* arguments) const
    {
        EXPECT_EQ(joinProcess(spawnProcess("tool", arguments)), 0);
        return m_directory.read("out");
    }

    KoTest::TemporaryDirectory m_directory;

private:
    char* m_former;
};

TEST_F(Spawn, CutsArgumentsIntoWordsAtBlanks)
{
    // The program's own name is what the kernel starts the script with.
    const struct
    {
        const char* arguments;
        const char* words;
    } cases[] = {
        {nullptr, ""},
        {"", ""},
        {"  -a   -b ", "[-a][-b][]"},
        {"   ", "[]"},
        {"tab\tand\nline 'quoted text'", "[tab\tand\nline]['quoted][text']"},
        {"1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16", "[1][2][3][4][5][6][7][8][9][10][11][12][13][14]"},
        {"1 2 3 4 5 6 7 8 9 10 11 12 13 14  ", "[1][2][3][4][5][6][7][8][9][10][11][12][13][14]"},
    };
    for (const auto& test : cases)
    {
        EXPECT_EQ(wordsOf(test.arguments), "[./tool]" + std::string(test.words))
            << (test.arguments != nullptr ? test.arguments : "null");
    }
}

TEST_F(Spawn, RefusesProgramsThatAreNotThereAndTextsThatDoNotFitIntoTheStack)
{
    for (const char* program : {"missing", "sh", "/bin/sh", static_cast<const char*>(nullptr)})
    {
        EXPECT_EQ(spawnProcess(program, nullptr), -1) << "looked up in the working directory only";
    }
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "no child is left";
    const std::string text(64U * 1024U * 1024U, 'x');
    {
        const KoTest::AssertionCounter assertions(1);
        EXPECT_EQ(spawnProcess("tool", text.c_str()), -1);
    }
    const KoTest::AssertionCounter assertions(0);
    EXPECT_EQ(spawnProcess(text.c_str(), nullptr), -1) << "not reported";
}

TEST_F(Spawn, DecodesHowAChildEnded)
{
    for (const int code : {0, 7, 127, 128, 255})
    {
        EXPECT_EQ(joinProcess(spawnProcess("exit", std::to_string(code).c_str())),
                  code < 128 ? code : code - 256);
    }
    EXPECT_EQ(joinProcess(spawnProcess("die", "9")), 9);
    EXPECT_EQ(joinProcess(spawnProcess("die", "15")), 15);
    EXPECT_EQ(joinProcess(-1), -1);
    EXPECT_TRUE(joinProcess(getpid()) == -1 && errno == ECHILD) << "no child";
}

std::string endLine(int pid, int code)
{
    return "process " + std::to_string(pid) + " has terminated with exit code " + std::to_string(code);
}

TEST_F(Spawn, ReapsAndLogsEachChildThroughInterruptions)
{
    const KoTest::SignalStorm storm;
    writeProgram("slow", "sleep 0.2\nexit $1\n");
    EXPECT_EQ(joinProcess(spawnProcess("slow", "3")), 3);
    const KoTest::LogCapture log;
    TKoVector<int> pids;
    EXPECT_EQ(waitForProcesses(pids), 0);
    const int listed = spawnProcess("slow", "255");
    const int killed = spawnProcess("die", "9");
    const int stranger = spawnProcess("exit", "4");
    pids.push_back(listed);
    pids.push_back(killed);
    pids.push_back(killed);
    EXPECT_EQ(waitForProcesses(pids), -1) << "the second entry of the same child is never matched";
    EXPECT_TRUE(pids.empty()) << "no child is left";
    EXPECT_THAT(
        log.texts(KoSyslog::Info),
        testing::UnorderedElementsAre(endLine(listed, 255), endLine(killed, -1), endLine(stranger, 4)));
    EXPECT_TRUE(storm.count() >= 20U || !KoTest::FaultInjection::isAvailable())
        << "held back by the sanitizer";
}

} // namespace
