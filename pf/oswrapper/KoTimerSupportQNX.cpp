#include "pf/oswrapper/KoTimerSupport.h"

#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/platform/KoPlatformClock.h"
#include "pf/platform/KoPlatformTimeout.h"
#include "pf/platform/KoPlatformTimer.h"

#include <cerrno>

namespace
{

constexpr int PULSE_CODE = 0;
constexpr int PULSE_PRIORITY = 63; // the highest of the scale of threads

constexpr unsigned int LOCAL_NODE = 0U;
constexpr int OWN_PROCESS = 0;

} // namespace

namespace KoPrivate
{

int createTimerChannel()
{
    return KoPlatform::ChannelCreate(KoPlatform::CHANNEL_FIXED_PRIORITY | KoPlatform::CHANNEL_UNBLOCK);
}

int connectToTimerChannel(int channelId)
{
    return KoPlatform::ConnectAttach(LOCAL_NODE, OWN_PROCESS, channelId, KoPlatform::CONNECTION_SIDE_CHANNEL,
                                     KoPlatform::CONNECTION_CLOSE_ON_EXEC);
}

int createPulseTimer(int connectionId, const void* target)
{
    const KoPlatform::SPulseEvent event = {connectionId, PULSE_PRIORITY, PULSE_CODE,
                                           reinterpret_cast<std::intptr_t>(target)};
    return KoPlatform::TimerCreate(KoPlatform::CLOCK_ID_MONOTONIC, &event);
}

bool setPulseTimer(int timerId, int flags, unsigned long long firstNs, unsigned long long intervalNs)
{
    const KoPlatform::STimerSetting setting = {firstNs, intervalNs};
    return KoPlatform::TimerSettime(timerId, flags, &setting, nullptr) == 0;
}

bool receiveTimerPulse(int channelId, int timeoutMs, _pulse& pulse)
{
    if (timeoutMs > 0)
    {
        const unsigned long long timeoutNs = static_cast<unsigned int>(timeoutMs) * TIMER_NS_PER_MS;
        if (!setKernelTimer(timeoutNs, KoPlatform::TIMEOUT_RECEIVE))
        {
            KoError::fatalError(0, "Setting timeout failed");
        }
    }
    if (KoPlatform::MsgReceivePulse(channelId, &pulse, sizeof(pulse), nullptr) == 0)
    {
        return true;
    }
    if (errno != ETIMEDOUT && errno != EINTR)
    {
        KoError::fatalError(0, "MsgReceivePulse failed");
    }
    return false;
}

} // namespace KoPrivate
