#include "pf/platform/KoPlatformTimer.h"

#include "pf/platform/KoPlatformChannel.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "tests/support/Deadline.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/Threads.h"

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace
{

using namespace KoPlatform;

constexpr unsigned long long NS_PER_MS = 1000000ULL;
constexpr int PRIORITY = 63;

/// A channel with a connection to it, and what timers on it do.
class KoPlatformTimer : public testing::Test
{
protected:
    KoPlatformTimer()
        : m_channel(ChannelCreate(CHANNEL_FIXED_PRIORITY | CHANNEL_UNBLOCK))
        , m_connection(ConnectAttach(0, 0, m_channel, CONNECTION_SIDE_CHANNEL, CONNECTION_CLOSE_ON_EXEC))
    {
    }
    ~KoPlatformTimer() override
    {
        for (const int timer : m_timers)
            TimerDestroy(timer);
        ConnectDetach(m_connection);
        ChannelDestroy(m_channel);
    }

    /// The timer is destroyed at the end, if it still is there.
    int create(std::intptr_t value, int priority = PRIORITY)
    {
        const SPulseEvent event = {m_connection, priority, 0, value};
        m_timers.push_back(TimerCreate(CLOCK_ID_MONOTONIC, &event));
        return m_timers.back();
    }
    static int arm(int timer, unsigned long long firstNs, unsigned long long intervalNs = 0, int flags = 0)
    {
        const STimerSetting setting = {firstNs, intervalNs};
        return TimerSettime(timer, flags, &setting, nullptr);
    }
    /// The value of the next pulse within the time, or -1 without one.
    std::intptr_t next(unsigned long long withinMs = 0) const
    {
        const unsigned long long ns = withinMs * NS_PER_MS;
        TimerTimeout(CLOCK_ID_MONOTONIC, TIMEOUT_RECEIVE, nullptr, &ns, nullptr);
        _pulse pulse = {};
        return MsgReceivePulse(m_channel, &pulse, sizeof(pulse), nullptr) == 0
                   ? reinterpret_cast<std::intptr_t>(pulse.value.sival_ptr)
                   : -1;
    }
    std::vector<std::intptr_t> drain() const
    {
        std::vector<std::intptr_t> values;
        for (std::intptr_t value = next(); value != -1; value = next())
            values.push_back(value);
        return values;
    }

    const int m_channel;
    const int m_connection;
    std::vector<int> m_timers;
};

using Values = std::vector<std::intptr_t>;

TEST_F(KoPlatformTimer, DeliversByPriorityThenExpiryThenArmingHoweverManyAreDue)
{
    constexpr int COUNT = 100;
    for (int i = 0; i < COUNT; ++i)
        create(i + 1);
    const int urgent = create(1000, PRIORITY + 1);
    // A scrambled order of expiry, each time given to two timers.
    const unsigned long long soon = monotonicNow() + 20 * NS_PER_MS;
    for (int i = 0; i < COUNT; ++i)
        arm(m_timers[static_cast<std::size_t>(i)], soon + static_cast<unsigned int>(i * 37 % 50), 0,
            TIMER_ABSTIME);
    arm(urgent, soon + 60, 0, TIMER_ABSTIME);
    arm(m_timers[7], soon + 1000, 0, TIMER_ABSTIME);
    arm(m_timers[8], 0);
    delayUntil(soon + NS_PER_MS);
    Values expected = {1000};
    for (int rank = 0; rank < 50; ++rank)
        for (int i = 0; i < COUNT; ++i)
            if (i * 37 % 50 == rank && i != 7 && i != 8)
                expected.push_back(i + 1);
    expected.push_back(8);
    EXPECT_EQ(drain(), expected);
}

TEST_F(KoPlatformTimer, StaysOnItsGridAndCoalescesWhatNobodyReceived)
{
    constexpr unsigned long long PERIOD = 10 * NS_PER_MS;
    const int timer = create(5);
    const unsigned long long start = monotonicNow();
    arm(timer, start + PERIOD, PERIOD, TIMER_ABSTIME);
    for (unsigned int i = 1; i <= 5; ++i)
    {
        ASSERT_EQ(next(1000), 5);
        ASSERT_GE(monotonicNow(), start + i * PERIOD);
    }
    delayUntil(start + 100 * NS_PER_MS + PERIOD / 2);
    EXPECT_EQ(drain(), Values{5});
    STimerSetting old = {};
    const STimerSetting off = {0, 0};
    ASSERT_EQ(TimerSettime(timer, 0, &off, &old), 0);
    EXPECT_EQ(old.intervalNs, PERIOD);
    EXPECT_TRUE(old.firstNs > 0 && old.firstNs <= PERIOD) << old.firstNs;
    ASSERT_EQ(TimerSettime(timer, 0, &off, &old), 0);
    EXPECT_EQ(old.firstNs + old.intervalNs, 0U);
}

TEST_F(KoPlatformTimer, KeepsAQueuedPulseWhenDisarmedDropsItWhenArmedAndEmptiesItWhenDestroyed)
{
    const int timer = create(7);
    const auto expire = [&]
    {
        arm(timer, 1, 0, TIMER_ABSTIME);
        arm(timer, 0); // looks, and so queues the pulse
    };
    expire();
    EXPECT_EQ(drain(), Values{7});
    expire();
    arm(timer, 50 * NS_PER_MS);
    const KoTest::Stopwatch watch;
    EXPECT_EQ(next(), -1);
    EXPECT_EQ(next(10000), 7);
    EXPECT_TRUE(watch.isWithin(50, 1000));
    expire();
    EXPECT_EQ(TimerDestroy(timer), 0);
    EXPECT_EQ(create(8), timer) << "its number is free";
    EXPECT_EQ(drain(), Values{0});
    EXPECT_EQ(TimerDestroy(timer), 0);
    EXPECT_EQ(TimerDestroy(timer), -1);
}

TEST_F(KoPlatformTimer, WakesAThreadThatWaitsForALaterOne)
{
    const int late = create(1);
    const int early = create(2);
    arm(late, 10000 * NS_PER_MS);
    for (const unsigned int pauseMs : {0U, 1U, 30U}) // before, while and after the waiting thread rests
    {
        const KoTest::Stopwatch watch;
        std::thread other(
            [&]
            {
                delay(pauseMs);
                arm(early, NS_PER_MS);
            });
        EXPECT_EQ(next(9000), 2);
        EXPECT_TRUE(watch.isWithin(pauseMs + 1, pauseMs + 500));
        other.join();
    }
}

TEST_F(KoPlatformTimer, SendsNothingOnceItsConnectionOrChannelIsGone)
{
    const int connection = ConnectAttach(0, 0, m_channel, 0, 0);
    const SPulseEvent event = {connection, PRIORITY, 0, 3};
    const int timer = TimerCreate(CLOCK_ID_MONOTONIC, &event);
    arm(timer, 1, NS_PER_MS);
    ASSERT_EQ(next(1000), 3);
    ConnectDetach(connection);
    drain();
    EXPECT_EQ(next(20), -1);
    EXPECT_EQ(TimerCreate(CLOCK_ID_MONOTONIC, &event), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(arm(timer, 1), 0);
    ChannelDestroy(m_channel);
    EXPECT_EQ(arm(timer, 1), 0);
    EXPECT_EQ(TimerDestroy(timer), 0);
    const SPulseEvent late = {m_connection, PRIORITY, 0, 3};
    EXPECT_EQ(TimerCreate(CLOCK_ID_MONOTONIC, &late), -1);
    EXPECT_EQ(errno, ESRCH);
}

TEST_F(KoPlatformTimer, LeavesNothingOfACreationThatRunsOutOfMemory)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const int first = create(1);
    const SPulseEvent event = {m_connection, PRIORITY, 0, 2};
    bool failed = true;
    for (std::uint32_t n = 1; failed; ++n)
    {
        int timer = -1;
        {
            const KoTest::FailingAllocation fault(n);
            timer = TimerCreate(CLOCK_ID_MONOTONIC, &event);
            failed = fault.hasFailed();
        }
        EXPECT_EQ(timer == -1, failed);
        EXPECT_TRUE(timer == -1 || timer == first + 1);
        TimerDestroy(timer);
    }
}

/// Receivers of every kind on one channel: none may keep from another what it does not take itself.
TEST_F(KoPlatformTimer, IsServedWithPulsesAndMessagesByMixedReceivers)
{
    constexpr int SENDERS = 3;
    constexpr int ROUNDS = 2000;
    constexpr std::intptr_t TICK = -2;
    std::atomic<int> messages{0};
    std::atomic<int> pulses{0};
    std::atomic<int> ticks{0};
    const auto receive = [&](int kind)
    {
        for (;;)
        {
            const unsigned long long ns = 200000ULL * static_cast<unsigned int>(kind);
            if (kind > 1)
                TimerTimeout(CLOCK_ID_MONOTONIC, TIMEOUT_RECEIVE, nullptr, &ns, nullptr);
            _pulse pulse = {};
            const int id = kind % 2 == 0 ? MsgReceive(m_channel, &pulse, sizeof(pulse), nullptr)
                                         : MsgReceivePulse(m_channel, &pulse, sizeof(pulse), nullptr);
            if (id == -1 && errno == ESRCH)
                return;
            if (id > 0)
                messages += MsgReply(id, 0, nullptr, 0) == 0 ? 1 : 0;
            else if (id == 0)
                ++(reinterpret_cast<std::intptr_t>(pulse.value.sival_ptr) == TICK ? ticks : pulses);
        }
    };
    arm(create(TICK), 1, NS_PER_MS / 2);
    std::vector<std::thread> receivers;
    for (const int kind : {0, 1, 2, 3, 0})
        receivers.emplace_back(receive, kind);
    KoTest::inThreads(SENDERS,
                      [&](int sender)
                      {
                          for (int i = 0; i < ROUNDS; ++i)
                          {
                              ASSERT_EQ(MsgSend(m_connection, &i, sizeof(i), nullptr, 0), 0);
                              while (MsgSendPulse(m_connection, sender, 0, i) == -1)
                                  delay(1);
                          }
                      });
    const KoTest::Stopwatch watch;
    while ((pulses < SENDERS * ROUNDS || ticks < 3) && !watch.isPast(10000))
        delay(1);
    ChannelDestroy(m_channel);
    for (std::thread& receiver : receivers)
        receiver.join();
    EXPECT_EQ(messages, SENDERS * ROUNDS);
    EXPECT_EQ(pulses, SENDERS * ROUNDS);
    EXPECT_GE(ticks, 3);
}

} // namespace
