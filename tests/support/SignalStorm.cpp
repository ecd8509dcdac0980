#include "tests/support/SignalStorm.h"

#include <atomic>

#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace KoTest
{

namespace
{

constexpr int STORM_SIGNAL = SIGUSR2;
std::atomic<unsigned int> sCount{0};

extern "C" void countSignal(int /*signal*/)
{
    sCount.fetch_add(1, std::memory_order_relaxed);
}

sigevent makeEvent(SignalStorm::Target target)
{
    sigevent event{};
    event.sigev_signo = STORM_SIGNAL;
    event.sigev_notify = SIGEV_SIGNAL;
    if (target == SignalStorm::CALLING_THREAD)
    {
        event.sigev_notify = SIGEV_THREAD_ID;
        event._sigev_un._tid = static_cast<pid_t>(syscall(SYS_gettid));
    }
    return event;
}

} // namespace

SignalStorm::SignalStorm(Target target, unsigned int intervalUs)
{
    struct sigaction action
    {
    };
    action.sa_handler = countSignal;
    sigemptyset(&action.sa_mask);
    sCount = 0;
    EXPECT_EQ(sigaction(STORM_SIGNAL, &action, &m_former), 0);

    sigevent event = makeEvent(target);
    EXPECT_EQ(timer_create(CLOCK_MONOTONIC, &event, &m_timer), 0);
    itimerspec period{};
    period.it_interval.tv_sec = static_cast<time_t>(intervalUs / 1000000U);
    period.it_interval.tv_nsec = static_cast<long>(intervalUs % 1000000U) * 1000L;
    period.it_value = period.it_interval;
    EXPECT_EQ(timer_settime(m_timer, 0, &period, nullptr), 0);
}

SignalStorm::~SignalStorm()
{
    timer_delete(m_timer);
    // A signal that is still pending must not meet the former handler, whose default is to end the process.
    struct sigaction ignore
    {
    };
    ignore.sa_handler = SIG_IGN;
    sigaction(STORM_SIGNAL, &ignore, nullptr);
    sigaction(STORM_SIGNAL, &m_former, nullptr);
}

unsigned int SignalStorm::count() const
{
    return sCount.load(std::memory_order_relaxed);
}

} // namespace KoTest
