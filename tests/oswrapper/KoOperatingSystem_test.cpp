#include "pf/oswrapper/KoOperatingSystem.h"

#include <cerrno>
#include <climits>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoOSUtility.h"
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

} // namespace
