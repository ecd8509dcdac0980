// Kernel timers, logical timers and the deadline record.
#include "pf/oswrapper/CLogicalTimer.h"
#include "pf/oswrapper/CLogicalTimerManager.h"
#include "pf/oswrapper/CTimer.h"
#include "pf/oswrapper/CTimerManager.h"
#include "pf/oswrapper/SKoKernelTimer.h"
#include "pf/platform/KoPlatformClock.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Deadline.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/SignalStorm.h"
#include "tests/support/Threads.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <tuple>

namespace
{

/// The monotonic clock stands still while it lives and moves when the test says so.
class MovedClock
{
public:
    MovedClock()
    {
        sNow = KoPlatform::monotonicNow();
        KoPlatform::setClockSource([] { return sNow; });
    }
    ~MovedClock() { KoPlatform::setClockSource(nullptr); }
    static void advanceMs(unsigned int ms) { sNow += ms * 1000000ULL; }

private:
    static inline unsigned long long sNow = 0;
};

/// A timer whose callback is a function, in which it may be destroyed.
template <class Base, class Manager>
class FunctionTimer : public Base
{
public:
    FunctionTimer(Manager& manager, std::function<void()> callback)
        : Base(manager)
        , m_callback(std::move(callback))
    {
    }
    void onTimeout() override
    {
        const std::function<void()> callback = m_callback;
        callback();
    }

private:
    std::function<void()> m_callback;
};
using Timer = FunctionTimer<CTimer, CTimerManager>;
using LogicalTimer = FunctionTimer<CLogicalTimer, CLogicalTimerManager>;

TEST(CTimerManager, waitsForItsTimeOutOrASignalAndFiresOneTimerPerCallNeverEarly)
{
    for (const int timeoutMs : {0, 30})
    {
        const KoTest::Stopwatch watch;
        EXPECT_FALSE(CTimerManager(timeoutMs).performWork());
        EXPECT_TRUE(watch.isWithin(timeoutMs == 0 ? 1 : 30, 1000));
    }
    CTimerManager manager(-1);
    {
        const KoTest::SignalStorm storm;
        EXPECT_FALSE(manager.performWork());
    }
    std::uint64_t shots = 0;
    std::uint64_t ticks = 0;
    Timer once(manager, [&] { ++shots; });
    Timer often(manager, [&] { ++ticks; });
    const KoTest::Stopwatch watch;
    EXPECT_TRUE(once.start(25, true) && often.start(10, false));
    while (ticks < 5U)
    {
        const auto before = shots + ticks;
        EXPECT_TRUE(manager.performWork());
        EXPECT_TRUE(shots + ticks == before + 1U && watch.isWithin(std::max(ticks * 10, shots * 25), 5000));
    }
    EXPECT_EQ(shots, 1U);
}

TEST(CTimerManager, whatATimerSentBeforeItsStopRestartOrEndComesToNothing)
{
    MovedClock clock;
    CTimerManager manager(-1);
    int calls = 0;
    const auto place = std::make_unique<std::optional<Timer>>(std::in_place, manager, [&] { ++calls; });
    std::optional<Timer>& timer = *place;
    Timer first(manager, [] {});
    // Its own pulse is queued behind one that was received.
    const auto expire = [&]
    {
        first.start(5, true);
        timer->start(10, false);
        clock.advanceMs(10);
        EXPECT_TRUE(manager.performWork());
    };
    expire();
    timer->stop();
    EXPECT_FALSE(manager.performWork());
    expire();
    timer->start(20, true);
    clock.advanceMs(19);
    first.start(1, true);
    clock.advanceMs(1);
    EXPECT_TRUE(manager.performWork() && manager.performWork());
    EXPECT_EQ(calls, 1);
    expire();
    const void* const address = &*timer;
    timer.reset();
    timer.emplace(manager, [&] { timer.reset(); }); // ends in its own callback
    EXPECT_EQ(&*timer, address);
    timer->start(50, true);
    EXPECT_FALSE(manager.performWork());
    clock.advanceMs(50);
    EXPECT_TRUE(manager.performWork());
    EXPECT_TRUE(!timer && calls == 1);
}

TEST(CTimerManager, aLoopThatIsNotServedCostsNoMemory)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    MovedClock clock;
    CTimerManager manager(-1);
    int calls = 0;
    Timer periodic(manager, [&] { ++calls; });
    Timer restarted(manager, [&] { ++calls; });
    periodic.start(1, false);
    restarted.start(1, false);
    clock.advanceMs(1);
    manager.performWork();
    const KoTest::AllocationCounter allocations;
    for (int hour = 0; hour < 1000; ++hour)
    {
        clock.advanceMs(3600000);
        restarted.start(1, false);
    }
    EXPECT_EQ(allocations.count(), 0U);
    clock.advanceMs(1);
    EXPECT_TRUE(manager.performWork() && manager.performWork());
    EXPECT_EQ(calls, 3);
}

TEST(CTimerManager, exceptionsOutOfCallbacksEndTheProcess)
{
    const auto endOf = [](const std::function<void()>& callback)
    {
        const auto result = KoTest::ChildProcess::run(
            [&]
            {
                CTimerManager manager(-1);
                Timer timer(manager, callback);
                timer.start(1, true);
                return manager.performWork() ? 0 : 2;
            });
        return std::to_string(result.exitStatus) + " " + result.logTexts().at(0);
    };
    EXPECT_EQ(endOf([] { throw std::runtime_error("paper"); }),
              "1 Unhandled exception in CNubConnection: paper");
    EXPECT_EQ(endOf([] { throw 1; }), "1 Unhandled unknown exception in CNubConnection");
}

TEST(SKoKernelTimer, bindsACallToItsDeadline)
{
    EXPECT_TRUE(SKoKernelTimer(0).timeoutOccurred());
    SKoKernelTimer endless(-1);
    EXPECT_TRUE(!endless.timeoutOccurred() && endless.start());
    MovedClock clock;
    SKoKernelTimer timer(20);
    clock.advanceMs(19);
    EXPECT_FALSE(timer.timeoutOccurred());
    clock.advanceMs(1);
    EXPECT_TRUE(timer.timeoutOccurred() && timer.start());
    timer.deadlineNs = 0;
    EXPECT_FALSE(timer.start());
    EXPECT_EQ(errno, ETIMEDOUT);
}

/// A step of a script, the same for the same seed and number. 0 is a refused start, up to 11 are
/// milliseconds, above that timers are stopped, at 14 made anew, and at 15 the clock moves.
template <class Timers>
void act(unsigned int seed, std::size_t number, Timers& timers)
{
    std::mt19937 random(static_cast<unsigned int>(seed * 1000003U + number));
    const auto roll = [&](unsigned int sides) { return static_cast<unsigned int>(random() % sides); };
    for (unsigned int left = roll(6); left > 0U; --left)
    {
        const unsigned int timer = roll(12);
        const unsigned int what = roll(16);
        timers.apply(timer, what, roll(4) == 0U);
    }
}

/// The rules, in the plainest form.
struct ModelTimers
{
    struct Entry
    {
        unsigned int expiry, period, order; // expiry 0: not registered
        bool isDue;
    };

    void apply(unsigned int timer, unsigned int what, bool singleShot)
    {
        if (what == 15U)
            now += timer;
        else if (what > 11U)
            timers[timer] = {};
        else if (what != 0U)
            timers[timer] = {now + what, singleShot ? 0U : what, ++order, false};
    }

    void pass()
    {
        std::vector<std::pair<unsigned int, Entry*>> due;
        for (Entry& entry : timers)
            if ((entry.isDue = entry.expiry != 0U && entry.expiry <= now))
                due.emplace_back(entry.order, &entry);
        std::sort(due.begin(), due.end(),
                  [](const auto& a, const auto& b)
                  { return std::tie(a.second->expiry, a.first) < std::tie(b.second->expiry, b.first); });
        for (const auto& each : due)
        {
            Entry& entry = *each.second;
            if (!std::exchange(entry.isDue, false))
                continue;
            entry.expiry = entry.period != 0U ? entry.expiry + entry.period : 0U;
            log.push_back(static_cast<unsigned int>(&entry - timers));
            act(seed, log.size(), *this);
        }
        for (const auto& [orderThen, entry] : due)
            if (entry->order == orderThen)
                entry->order = ++order;
    }

    unsigned int seed;
    unsigned int now = 0;
    unsigned int order = 0;
    Entry timers[12] = {};
    std::vector<unsigned int> log = {};
};

struct RealTimers
{
    void apply(unsigned int timer, unsigned int what, bool singleShot)
    {
        if (what <= 11U)
            EXPECT_EQ(timers[timer]->start(what, singleShot), what != 0U);
        else if (what < 14U)
            timers[timer]->stop();
        else if (what == 14U)
            renew(timer);
        else
            MovedClock::advanceMs(timer);
    }
    void renew(unsigned int timer)
    {
        const auto callback = [this, timer]
        {
            log.push_back(timer);
            EXPECT_EQ(manager.handleSignalledTimer(), 0);
            act(seed, log.size(), *this);
        };
        timers[timer].reset();
        timers[timer] = std::make_unique<LogicalTimer>(manager, callback);
    }

    unsigned int seed;
    CLogicalTimerManager& manager;
    std::unique_ptr<LogicalTimer> timers[12] = {};
    std::vector<unsigned int> log = {};
};

TEST(CLogicalTimerManager, followsTheRulesThroughRandomScriptsAndLateLoops)
{
    MovedClock clock;
    const KoTest::SignalStorm storm(KoTest::SignalStorm::CALLING_THREAD, 200000); // ends a wait in vain
    for (unsigned int seed = 1; seed <= 1500U; ++seed)
    {
        CLogicalTimerManager manager(-1, seed % 2U == 0U);
        RealTimers real{seed, manager};
        ModelTimers model{seed};
        for (unsigned int timer = 0; timer < 12U; ++timer)
            real.renew(timer);
        for (unsigned int step = 1; step <= 12U; ++step)
        {
            act(seed, 1000000U + step, real);
            act(seed, 1000000U + step, model);
            const unsigned int late = seed * step % 30U;
            clock.advanceMs(late);
            model.now += late;
            const auto before = static_cast<int>(model.log.size());
            model.pass();
            const int expected = static_cast<int>(model.log.size()) - before;
            // Only what is due has to end the wait; the pulse of a timer that was stopped comes to nothing.
            int count = expected > 0 ? manager.performWork() : manager.handleSignalledTimer();
            if (count != expected)
                count += manager.performWork();
            ASSERT_EQ(count, expected) << "seed " << seed << " step " << step;
            ASSERT_EQ(real.log, model.log) << "seed " << seed << " step " << step;
        }
    }
}

TEST(CLogicalTimerManager, isNotWokenForATimerThatWasStopped)
{
    MovedClock clock;
    CLogicalTimerManager manager(-1, false);
    LogicalTimer timer(manager, [] {});
    timer.start(10, true);
    timer.stop();
    clock.advanceMs(20);
    const KoTest::SignalStorm storm;
    EXPECT_EQ(manager.performWork(), 0);
    EXPECT_GT(storm.count(), 0U); // ended the wait
}

TEST(CLogicalTimerManager, isNeverEarlyAndKeepsTheGridOnTheRealClock)
{
    CLogicalTimerManager manager(100, false);
    const KoTest::Stopwatch watch;
    std::vector<unsigned int> order;
    std::uint64_t ticks = 0;
    std::vector<std::unique_ptr<LogicalTimer>> timers;
    for (const unsigned int ms : {30U, 10U, 20U, 10U})
    {
        const auto callback = [&, ms, index = timers.size()]
        {
            order.push_back(ms + static_cast<unsigned int>(index));
            EXPECT_TRUE(watch.isWithin(ms, 5000));
        };
        timers.push_back(std::make_unique<LogicalTimer>(manager, callback));
        timers.back()->start(ms, true);
    }
    LogicalTimer ticker(manager, [&] { EXPECT_TRUE(watch.isWithin(++ticks * 4, 5000)); });
    ticker.start(4, false);
    while (order.size() < 4U || ticks < 10U)
        manager.performWork();
    EXPECT_EQ(order, std::vector<unsigned int>({11, 13, 22, 30}));
}

TEST(CLogicalTimerManager, otherThreadsMayStartAndStopTimersUnderAStormOfSignals)
{
    CLogicalTimerManager manager(20, true);
    const KoTest::SignalStorm storm(KoTest::SignalStorm::WHOLE_PROCESS, 100);
    std::atomic<int> running{3};
    const auto useTimers = [&](int)
    {
        std::atomic<int> calls{0};
        LogicalTimer timer(manager, [&] { ++calls; });
        LogicalTimer distant(manager, [] { ADD_FAILURE() << "early"; });
        for (int round = 0; round < 100; ++round)
        {
            distant.start(1000000, round % 2 == 0);
            const int before = calls;
            timer.start(1, round % 3 == 0);
            EXPECT_TRUE(KoTest::waitUntil([&] { return calls != before; }));
            timer.stop();
            const int stopped = calls;
            sched_yield();
            EXPECT_EQ(calls, stopped);
        }
        --running;
    };
    std::thread others([&] { KoTest::inThreads(3, useTimers); });
    while (running != 0)
        manager.performWork();
    others.join();
}

TEST(CLogicalTimerManager, whatIsThrownOutOfAPassLeavesItInOrder)
{
    MovedClock clock;
    CLogicalTimerManager manager(-1, true);
    int calls = 0;
    LogicalTimer before(manager, [&] { ++calls; });
    LogicalTimer thrower(manager, [] { throw 1; });
    LogicalTimer after(manager, [&] { calls += 10; });
    before.start(10, false);
    thrower.start(10, true);
    after.start(10, true);
    clock.advanceMs(10);
    {
        const KoTest::LogCapture log;
        KoError::setErrorHandler([](void*) { throw 2.0; }, nullptr);
        EXPECT_THROW(manager.performWork(), double);
        KoError::setErrorHandler(nullptr, nullptr);
    }
    EXPECT_EQ(calls, 1);
    clock.advanceMs(10);
    std::thread([&] { EXPECT_EQ(manager.performWork(), 2); }).join(); // the lock is free
    EXPECT_EQ(calls, 12);
}

TEST(CLogicalTimerManager, andTheOtherOneEndWithTimersLeftAfterAReport)
{
    auto kernel = std::make_unique<CTimerManager>(1);
    auto logical = std::make_unique<CLogicalTimerManager>(1, false);
    CLogicalTimerManager other(1, false);
    Timer timer(*kernel, [] {});
    LogicalTimer logicalTimer(*logical, [] {});
    logicalTimer.start(5, false);
    const KoTest::ReportCase cases[] = {
        {"CLogicalTimerManager: ???", [&] { other.registerTimer(logicalTimer, 1, true); }},
        {"CLogicalTimerManager: ???", [&] { other.unregisterTimer(logicalTimer); }},
        {"CLogicalTimerManager: Cannot delete timer manager since timers are still active",
         [&] { logical.reset(); }},
        {"CTimerManager: Cannot delete timer manager since timers are still available",
         [&] { kernel.reset(); }},
    };
    KoTest::expectReports(cases, [] {});
    EXPECT_TRUE(timer.start(1, false) && !logicalTimer.start(1, true)); // both to no effect
}

} // namespace
