#include "pf/util/CKoPerformanceCheck.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformThread.h"
#include "tests/support/AssertionCounter.h"

namespace
{

unsigned long long sNow;

/// Lets the monotonic clock stand still except where a test moves it.
class MovedClock
{
public:
    MovedClock()
        : m_former(KoPlatform::setClockSource([] { return sNow; }))
    {
        sNow = 1000U;
    }
    ~MovedClock() { KoPlatform::setClockSource(m_former); }

private:
    KoPlatform::ClockSource m_former;
};

/// Does what the letters say, s(tart), p(ause), r(esume) and (sto)P, ten times as long after each as before.
unsigned long long measured(CKoPerformanceCheck& check, const char* steps)
{
    unsigned long long result = 0;
    for (unsigned long long elapsed = 1U; *steps != '\0'; ++steps, elapsed *= 10U)
    {
        *steps == 's'   ? check.start()
        : *steps == 'p' ? check.pause()
        : *steps == 'r' ? check.resume()
                        : void();
        result = *steps == 'P' ? check.stop() : result;
        sNow += elapsed;
    }
    return result;
}

TEST(CKoPerformanceCheck, addsUpWhatRunsAndReportsOperationsInTheWrongState)
{
    const MovedClock clock;
    struct Case
    {
        const char* steps;
        unsigned long long result;
        const char* line;
    };
    const Case cases[] = {{"sP", 1, ""},      {"sprP", 101, ""},     {"spP", 1, ""},      {"sPrP", 101, ""},
                          {"sPsP", 100, ""},  {"rP", 1, ""},         {"P", 0, "216"},     {"sPP", 1, "216"},
                          {"ssP", 10, "123"}, {"spsP", 100, "123"},  {"sppP", 12, "154"}, {"sPpP", 12, "154"},
                          {"srP", 10, "186"}, {"sprrP", 1001, "186"}};
    for (const Case& each : cases)
    {
        const KoTest::AssertionReports reports;
        CKoPerformanceCheck check;
        EXPECT_EQ(measured(check, each.steps), each.result) << each.steps;
        const std::vector<std::string> expected(*each.line != '\0' ? 1U : 0U,
                                                std::string("CKoPerformanceCheck ") + each.line + ": ???");
        EXPECT_EQ(reports.summaries(true), expected) << each.steps;
    }
    CKoPerformanceCheck paused;
    sNow = 5U;
    EXPECT_EQ(measured(paused, "pP"), 5U) << "a new one takes the whole count";
}

TEST(CKoPerformanceCheck, reportsClocksThatItCannotRead)
{
    const KoTest::AssertionReports reports;
    errno = 0;
    CKoPerformanceCheck thread(INT_MAX);
    EXPECT_EQ(thread.getThreadTime(), 0U);
    CKoPerformanceCheck process(INT_MAX, false);
    EXPECT_EQ(process.getProcessTime(), 0U);
    EXPECT_EQ(errno, 0);
    CKoPerformanceCheck damaged;
    const int unknownKind = 3;
    std::memcpy(static_cast<char*>(static_cast<void*>(&damaged)) + 2 * sizeof(int), &unknownKind,
                sizeof(int));
    EXPECT_EQ(measured(damaged, "sprP"), 0U);
    const std::string one = "CKoPerformanceCheck ";
    const std::string other = "CKoPerformanceCheckQNX ";
    const std::vector<std::string> expected = {other + "46: ???", other + "68: ???", other + "55: ???",
                                               other + "79: ???", one + "142: ???",  one + "173: ???",
                                               one + "204: ???",  one + "235: ???"};
    EXPECT_EQ(reports.summaries(true), expected);
}

TEST(CKoPerformanceCheck, measuresAnotherThreadFromItsCreationOn)
{
    const auto sleepUntil = [](void* mayEnd) -> void*
    {
        while (!static_cast<std::atomic<bool>*>(mayEnd)->load())
        {
            KoPlatform::delay(1U);
        }
        return nullptr;
    };
    const KoTest::AssertionCounter assertions(0);
    for (int i = 0; i < 20; ++i)
    {
        std::atomic<bool> mayEnd(false);
        const int thread = KoPlatform::ThreadCreate(0, sleepUntil, &mayEnd, nullptr);
        ASSERT_NE(thread, -1);
        EXPECT_GT(CKoPerformanceCheck(thread).getThreadTime(), 0U);
        mayEnd = true;
        KoPlatform::ThreadJoin_r(thread, nullptr);
    }
}

TEST(CKoPerformanceCheck, tellsProcessorTimeFromElapsedTime)
{
    CKoPerformanceCheck real, thread(0), process(0, true);
    CKoPerformanceCheck* const checks[] = {&real, &thread, &process};
    unsigned long long slept[3], worked[3];
    for (CKoPerformanceCheck* check : checks)
    {
        check->start();
    }
    KoPlatform::delay(30U);
    for (int i = 0; i < 3; ++i)
    {
        slept[i] = checks[i]->stop();
        checks[i]->start();
    }
    const std::clock_t begin = std::clock();
    while (std::clock() - begin < CLOCKS_PER_SEC / 50)
    {
    }
    for (int i = 0; i < 3; ++i)
    {
        worked[i] = checks[i]->stop();
    }
    EXPECT_GE(slept[0], 30000000U);
    EXPECT_LT(slept[1], 15000000U);
    EXPECT_GE(worked[1], 15000000U);
    EXPECT_GE(worked[2], 15000000U);
}

TEST(CKoPerformanceCheck, translatesCounts)
{
    const auto text = [](unsigned long long ns)
    {
        const SKoTimeBreakdown parts = CKoPerformanceCheck::translate(ns);
        return std::to_string(parts.seconds) + " " + std::to_string(parts.milliseconds) + " " +
               std::to_string(parts.microseconds) + " " + std::to_string(parts.nanoseconds);
    };
    EXPECT_EQ(text(1234567890U), "1 234 567 890");
    EXPECT_EQ(text(999U), "0 0 0 999");
    EXPECT_EQ(text(ULLONG_MAX), "1266874889 709 551 615")
        << "the seconds cut, the rest of the whole quotient";
}

} // namespace
