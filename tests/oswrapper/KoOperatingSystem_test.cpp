#include "pf/oswrapper/KoOperatingSystem.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoOSUtility.h"
#include "pf/oswrapper/KoErrnoGuard.h"
#include "pf/oswrapper/KoKernelTrace.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Deadline.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/SignalStorm.h"
#include "tests/support/TemporaryDirectory.h"

namespace
{

using namespace KoOperatingSystem;
using KoTest::AssertionCounter;
using KoTest::Stopwatch;

constexpr unsigned long long NONE = ~0ULL;
constexpr int MONOTONIC = 2;

unsigned long long hostClock(clockid_t id)
{
    timespec now{};
    clock_gettime(id, &now);
    return static_cast<unsigned long long>(now.tv_sec) * 1000000000ULL +
           static_cast<unsigned long long>(now.tv_nsec);
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

TEST(KoOperatingSystem, ReadsClocksThatTheHostReadsToo)
{
    unsigned long long stored = 0;
    const unsigned long long before = hostClock(CLOCK_MONOTONIC);
    const unsigned long long values[] = {getSysPageTime(), getClockValue(MONOTONIC),
                                         getMonotonicTime(nullptr), getMonotonicTime(&stored),
                                         calculateKernelTimeout(0)};
    const unsigned long long after = hostClock(CLOCK_MONOTONIC);
    for (const unsigned long long value : values)
    {
        EXPECT_GE(value, before);
        EXPECT_LE(value, after);
    }
    EXPECT_EQ(stored, values[3]);

    EXPECT_GE(getClockValue(0) / 1000000000ULL, 1700000000ULL) << "the wall clock";
    EXPECT_LE(getRealTimeMs() - static_cast<unsigned int>(getClockValue(0) / 1000000ULL) + 5000U, 5000U);
    for (const int unknown : {-1, -6, 99, INT_MIN})
    {
        EXPECT_EQ(getClockValue(unknown), 0U) << unknown;
    }
}

TEST(KoOperatingSystem, ReportsAHostThatCannotTellTheTimeOrBlockOnLocks)
{
    const KoTest::TemporaryDirectory backtraces;
    KoTest::ChildProcess::Program program;
    program.path = KO_HOST_FAULT_PROBE;
    program.environment = {{"KO_ASSERTION_BACKTRACE_DIR", backtraces.path().c_str()}};
    const KoTest::ChildResult result = KoTest::ChildProcess::execute(program);
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    EXPECT_EQ(result.standardOutput, "usable 1, errno kept 1, time 0, stored 0, deadline 0\n");
    const std::vector<std::string> texts = result.logTexts();
    const char* const expected[] = {"Failed to create CKoCriticalSection: error=95",
                                    "Failed to create mutex: error=95",
                                    "KoMutexAccess:",
                                    "ASSERTION \"???\" failed in KoMutexAccess ",
                                    "KoOperatingSystem:",
                                    "ASSERTION \"???\" failed in KoOperatingSystem "};
    ASSERT_EQ(texts.size(), 6U) << result.describe();
    for (std::size_t i = 0; i < texts.size(); ++i)
    {
        EXPECT_EQ(texts[i].find(expected[i]), 0U) << texts[i];
    }
}

TEST(KoOperatingSystem, KeepsTheBiasAndMeasuresDifferences)
{
    unsigned long long stored = 0;
    const unsigned long long bias = getMonotonicBias(&stored);
    EXPECT_GT(bias, 0U);
    EXPECT_EQ(stored, bias);
    EXPECT_EQ(getMonotonicBias(nullptr), bias);

    const unsigned long long earlier = getMonotonicTime(nullptr);
    sleepMs(2);
    EXPECT_GE(timeDiffMonotonic(earlier), 2000000U);
    const AssertionCounter assertions(1);
    EXPECT_EQ(timeDiffMonotonic(earlier + 3600ULL * 1000000000ULL), 0U);
}

TEST(KoOperatingSystem, ComputesDeadlinesIn64Bits)
{
    for (const int ms : {-1, -5, INT_MIN})
    {
        EXPECT_EQ(calculateKernelTimeout(ms), NONE) << ms;
    }
    for (const int ms : {1, 4295, 60000, INT_MAX})
    {
        const unsigned long long before = getSysPageTime();
        const unsigned long long deadline = calculateKernelTimeout(ms);
        const unsigned long long span = static_cast<unsigned long long>(ms) * 1000000ULL;
        EXPECT_GE(deadline, before + span) << ms;
        EXPECT_LE(deadline, getSysPageTime() + span) << ms;
    }
}

TEST(KoOperatingSystem, ConvertsToAWallClockTimeWithCarry)
{
    for (const int ms : {-7, 0, 999, 1999, INT_MAX})
    {
        const unsigned long long span = ms < 0 ? 0ULL : static_cast<unsigned long long>(ms) * 1000000ULL;
        timespec time{};
        const unsigned long long before = hostClock(CLOCK_REALTIME) + span;
        EXPECT_EQ(&CKoOSUtility::translateToOSTimeout(ms, time), &time);
        const unsigned long long value = static_cast<unsigned long long>(time.tv_sec) * 1000000000ULL +
                                         static_cast<unsigned long long>(time.tv_nsec);
        EXPECT_GE(value, before) << ms;
        EXPECT_LE(value, hostClock(CLOCK_REALTIME) + span) << ms;
        EXPECT_LT(time.tv_nsec, 1000000000L) << ms;
    }
}

TEST(KoOperatingSystem, SleepsNeverShorterAndNotWithoutEndUnderSignals)
{
    for (const unsigned int intervalUs : {1000U, 200U})
    {
        const KoTest::SignalStorm storm(KoTest::SignalStorm::CALLING_THREAD, intervalUs);
        for (const unsigned int ms : {0U, 1U, 3U, 100U})
        {
            const Stopwatch watch;
            sleepMs(ms);
            EXPECT_TRUE(watch.isWithin(ms, ms + 300)) << ms;
        }
        EXPECT_TRUE(storm.count() >= 10U || !KoTest::FaultInjection::isAvailable());
    }
}

TEST(KoOperatingSystem, ArmsATimeoutForTheNextBlockingCallOfTheThread)
{
    const unsigned long long deadline = calculateKernelTimeout(60000);
    EXPECT_TRUE(setKernelTimeout(deadline, 0x6000));
    std::thread([] { EXPECT_EQ(KoPlatform::takeTimeout(~0U, nullptr), NONE) << "it is another thread's"; })
        .join();
    unsigned int states = 0;
    EXPECT_EQ(KoPlatform::takeTimeout(KoPlatform::TIMEOUT_MUTEX, &states), deadline);
    EXPECT_EQ(states, 0x6000U);

    EXPECT_TRUE(setKernelTimeout(deadline, 0x20));
    EXPECT_TRUE(resetKernelTimeout());
    EXPECT_EQ(KoPlatform::takeTimeout(~0U, nullptr), NONE) << "cancelled";

    EXPECT_TRUE(setKernelTimer(5000000000ULL, 0x8000)) << "relative";
    const unsigned long long relative = KoPlatform::takeTimeout(KoPlatform::TIMEOUT_JOIN, nullptr);
    EXPECT_GT(relative, getSysPageTime());
    EXPECT_LE(relative, getSysPageTime() + 5000000000ULL);
}

TEST(KoOperatingSystem, ClipsFormattedText)
{
    const struct
    {
        int size;
        int stored;
        const char* text;
        const char* left;
    } cases[] = {{8, 7, "01234567890123456789", "0123456"},
                 {8, 7, "0123456", "0123456"},
                 {8, 7, "01234567", "0123456"},
                 {8, 3, "abc", "abc"},
                 {1, 0, "abc", ""},
                 {8, 0, "", ""}};
    for (const auto& test : cases)
    {
        char buffer[32];
        std::memset(buffer, '#', sizeof(buffer));
        EXPECT_EQ(format(buffer, test.size, "%s", test.text), test.stored) << test.text;
        EXPECT_STREQ(buffer, test.left);
        EXPECT_EQ(buffer[test.size], '#') << "nothing beyond the size";
    }
    char untouched = '#';
    EXPECT_EQ(format(&untouched, 0, "%s", "text"), 0);
    EXPECT_EQ(format(&untouched, -3, "%s", "text"), 0);
    EXPECT_EQ(format(nullptr, 0, "%s", "text"), 0);
    EXPECT_EQ(untouched, '#');
    char impossible[8] = "before";
    EXPECT_EQ(format(impossible, sizeof(impossible), "%ls", L"\u03b1"), 0)
        << "no such character in this locale";
    EXPECT_STREQ(impossible, "");
    const AssertionCounter assertions(2);
    EXPECT_EQ(format(nullptr, 8, "%s", "text"), 0);
    EXPECT_EQ(format(nullptr, -1, "%s", "text"), 0);
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
        [highest]
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

TEST(KoOperatingSystem, NamesTheProcessTheThreadAndTheLastError)
{
    EXPECT_EQ(getCurrentPID(), getpid());
    EXPECT_EQ(getCurrentTID(), 1);
    waitAttachDebugger();
    setLastError(EXDEV);
    {
        const KoErrnoGuard guard;
        errno = EPERM;
    }
    EXPECT_EQ(getLastError(), EXDEV);
}

TEST(KoKernelTrace, TreatsAKernelThatDoesNotTraceAsSuccess)
{
    char data[] = "data";
    errno = EXDEV;
    EXPECT_TRUE(KoKernelTrace::addSimpleUserEvent(1, 2, 3));
    EXPECT_TRUE(KoKernelTrace::addComplexUserEvent(1, data, sizeof(data)));
    EXPECT_TRUE(KoKernelTrace::addStringUserEvent(1, data));
    EXPECT_FALSE(KoKernelTrace::addComplexUserEvent(1, nullptr, 4));
    EXPECT_FALSE(KoKernelTrace::addComplexUserEvent(1, data, 0));
    EXPECT_FALSE(KoKernelTrace::addStringUserEvent(1, nullptr));
    EXPECT_EQ(errno, EXDEV);
}

} // namespace
