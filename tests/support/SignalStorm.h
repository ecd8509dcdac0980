#pragma once

#include <atomic>
#include <csignal>
#include <ctime>

#include <sys/syscall.h>
#include <unistd.h>

#include <gtest/gtest.h>

namespace KoTest
{

/// Interrupts its target again and again while it lives. The handler is installed without SA_RESTART, so that
/// every interruptible call of the target returns EINTR. It stays installed after the storm: a signal that a
/// thread has still pending then must not meet the default, which ends the process. One storm at a time.
class SignalStorm
{
public:
    enum Target
    {
        CALLING_THREAD,
        WHOLE_PROCESS
    };

    explicit SignalStorm(Target target = CALLING_THREAD, long intervalUs = 1000)
    {
        sCount = 0;
        struct sigaction action = {};
        action.sa_handler = [](int) { ++sCount; };
        EXPECT_EQ(sigaction(SIGNAL, &action, nullptr), 0);
        sigevent event{};
        event.sigev_signo = SIGNAL;
        event.sigev_notify = target == CALLING_THREAD ? SIGEV_THREAD_ID : SIGEV_SIGNAL;
        event._sigev_un._tid = static_cast<pid_t>(syscall(SYS_gettid));
        EXPECT_EQ(timer_create(CLOCK_MONOTONIC, &event, &m_timer), 0);
        const timespec interval{0, intervalUs * 1000};
        const itimerspec period{interval, interval};
        EXPECT_EQ(timer_settime(m_timer, 0, &period, nullptr), 0);
    }
    ~SignalStorm() { timer_delete(m_timer); }
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;

    /// Signals delivered since the construction.
    unsigned int count() const { return sCount; }

private:
    static constexpr int SIGNAL = SIGUSR2;
    static inline std::atomic<unsigned int> sCount{0};

    timer_t m_timer{};
};

} // namespace KoTest
