#pragma once

#include <csignal>
#include <ctime>

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

    explicit SignalStorm(Target target = CALLING_THREAD, unsigned int intervalUs = 1000);
    ~SignalStorm();
    SignalStorm(const SignalStorm&) = delete;
    SignalStorm& operator=(const SignalStorm&) = delete;

    /// Signals delivered since the construction.
    unsigned int count() const;

private:
    timer_t m_timer{};
    struct sigaction m_former
    {
    };
};

} // namespace KoTest
