#include "pf/oswrapper/KoOperatingSystem.h"

#include "pf/containers/TKoVector.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformProcess.h"
#include "pf/platform/KoPlatformRetry.h"
#include "pf/platform/KoPlatformThread.h"
#include "pf/platform/KoPlatformTimeout.h"

#include <cerrno>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr int HIGHEST_SIGNAL = 64;

// A wait status: the low byte is 0 after a normal exit and names the signal otherwise, the next byte is the
// exit code.
constexpr int LOW_BYTE = 0xFF;
constexpr int SIGNAL_BITS = 0x7F;
constexpr int EXIT_CODE_SHIFT = 8;

int exitCodeOf(int status)
{
    return (status >> EXIT_CODE_SHIFT) & LOW_BYTE;
}

bool endedByExit(int status)
{
    return (status & LOW_BYTE) == 0;
}

int decodeStatus(int status)
{
    if (endedByExit(status))
    {
        return static_cast<signed char>(exitCodeOf(status));
    }
    return exitCodeOf(status) == 0 ? status & SIGNAL_BITS : -1;
}

void logEnd(int pid, int status)
{
    KoSyslog::logMsg(0, KoSyslog::Info, "process %d has terminated with exit code %d", pid,
                     endedByExit(status) ? exitCodeOf(status) : -1);
}

bool fillSet(sigset_t& set, const int* signals, unsigned int count)
{
    for (unsigned int i = 0U; i < count; ++i)
    {
        if (sigaddset(&set, signals[i]) != 0)
        {
            return false;
        }
    }
    return true;
}

/// \return the number of members written, or -1 when a test failed.
int listMembers(const sigset_t& set, int* members)
{
    int count = 0;
    for (int number = 1; number <= HIGHEST_SIGNAL; ++number)
    {
        const int isMember = sigismember(&set, number);
        if (isMember == -1)
        {
            return -1;
        }
        if (isMember == 1)
        {
            members[count++] = number;
        }
    }
    return count;
}

} // namespace

namespace KoOperatingSystem
{

int getCurrentPID()
{
    return getpid();
}

int getCurrentTID()
{
    return KoPlatform::threadSelf();
}

bool setKernelTimeout(unsigned long long deadline, int states)
{
    const auto flags = static_cast<unsigned int>(states) | KoPlatform::TIMEOUT_ABSOLUTE;
    return setKernelTimer(deadline, static_cast<int>(flags));
}

bool resetKernelTimeout()
{
    return setKernelTimer(0ULL, 0);
}

int joinProcess(int pid)
{
    if (pid == -1)
    {
        return -1;
    }
    int status = 0;
    const auto wait = [&] { return waitpid(pid, &status, KoPlatform::WAIT_EXITED); };
    return KoPlatform::repeatInterrupted(wait) == -1 ? -1 : decodeStatus(status);
}

int waitForProcesses(TKoVector<int>& pids)
{
    if (pids.empty())
    {
        return 0;
    }
    while (!pids.empty())
    {
        int status = 0;
        const int pid = KoPlatform::repeatInterrupted([&] { return wait(&status); });
        if (pid == -1)
        {
            pids.clear();
            break;
        }
        pids.remove(pid);
        logEnd(pid, status);
    }
    return -1;
}

int setSignalMask(const int* signals, unsigned int count, int* previousSignals,
                  KoOSTypes::SignalMaskMode mode)
{
    if (signals == nullptr && count != 0U)
    {
        errno = EINVAL;
        return -1;
    }
    sigset_t newSet;
    sigset_t oldSet;
    if (sigemptyset(&newSet) != 0 || sigemptyset(&oldSet) != 0 || !fillSet(newSet, signals, count) ||
        KoPlatform::SignalProcmask(0, 0, mode, &newSet, &oldSet) != 0)
    {
        return -1;
    }
    if (previousSignals == nullptr)
    {
        return 0;
    }
    const int members = listMembers(oldSet, previousSignals);
    if (members == -1)
    {
        KoPlatform::SignalProcmask_r(0, 0, KoOSTypes::SET_SIGNALS, &oldSet, nullptr);
    }
    return members;
}

} // namespace KoOperatingSystem

bool setKernelTimer(unsigned long long time, int flags)
{
    const auto arm = [&]
    { return KoPlatform::TimerTimeout(KoPlatform::CLOCK_ID_MONOTONIC, flags, nullptr, &time, nullptr); };
    return KoPlatform::repeatInterrupted(arm) == 0;
}
