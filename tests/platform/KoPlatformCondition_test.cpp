#include <gtest/gtest.h>

#include "tests/platform/LockTestSupport.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SignalStorm.h"

namespace
{

using namespace KoPlatform;
using namespace KoTest;

/// A store of permits in which every wake-up counts: none may get lost.
struct Permits
{
    _sync mutex = makeMutex(SHARED);
    _sync condition = {SHARED_CONDITION, 0U};
    int available = 0;

    static constexpr unsigned int SHARED_CONDITION = 0x40000000U;

    void give(bool signalLocked)
    {
        pthread_mutex_lock(&mutex);
        ++available;
        signalLocked ? pthread_cond_signal(&condition) : 0;
        pthread_mutex_unlock(&mutex);
        signalLocked ? 0 : pthread_cond_signal(&condition);
    }

    /// \return false when a wait that must end by a wake-up did not.
    bool take(bool timed)
    {
        bool woken = true;
        pthread_mutex_lock(&mutex);
        while (available == 0 && woken)
        {
            const int error = pthread_cond_timedwait(&condition, &mutex, deadlineIn(timed ? 1 : 60000));
            woken = timed || error == 0;
        }
        available -= woken ? 1 : 0;
        pthread_mutex_unlock(&mutex);
        return woken;
    }
};

TEST(PlatformCondition, LosesNoWakeUpAmongManyThreadsAndProcesses)
{
    const int rounds = slowness() == 1 ? 5000 : 500;
    auto& permits = makeShared<Permits>();
    const SignalStorm storm(SignalStorm::WHOLE_PROCESS);
    const auto play = [&](int index)
    {
        bool woken = true;
        for (int i = 0; i < rounds && woken; ++i)
        {
            index % 2 == 0 ? permits.give(index != 0) : void(woken = permits.take(index == 1));
        }
        EXPECT_TRUE(woken) << "a wake-up was lost";
        return woken ? 0 : 1;
    };
    const auto giver = [&] { return play(6); };
    inThreads(8, [&](int index) { index == 6 ? ChildProcess::run(giver).exitStatus : play(index); });
    EXPECT_EQ(permits.available, 0);
}

} // namespace
