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
/// every interruptible call of the target returns EINTR. One storm at a time.
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
        m_former = handleBy([](int) { ++sCount; });
        sigevent event{};
        event.sigev_signo = SIGNAL;
        event.sigev_notify = target == CALLING_THREAD ? SIGEV_THREAD_ID : SIGEV_SIGNAL;
        event._sigev_un._tid = static_cast<pid_t>(syscall(SYS_gettid));
        EXPECT_EQ(timer_create(CLOCK_MONOTONIC, &event, &m_timer), 0);
        const timespec interval{0, intervalUs * 1000};
        const itimerspec period{interval, interval};
        EXPECT_EQ(timer_settime(m_timer, 0, &period, nullptr), 0);
    }
    ~SignalStorm()
    {
        timer_delete(m_timer);
        // A signal that is still pending must not meet the former handler, whose default is to end the
        // process.
        handleBy(SIG_IGN);
        sigaction(SIGNAL, &m_former, nullptr);
    }
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;

    /// Signals delivered since the construction.
    unsigned int count() const { return sCount; }

private:
    using Action = struct sigaction;

    /// \return what handled the signal before.
    static Action handleBy(void (*handler)(int))
    {
        Action action{};
        Action former{};
        action.sa_handler = handler;
        EXPECT_EQ(sigaction(SIGNAL, &action, &former), 0);
        return former;
    }

    static constexpr int SIGNAL = SIGUSR2;
    static inline std::atomic<unsigned int> sCount{0};

    timer_t m_timer{};
    Action m_former;
};

} // namespace KoTest
