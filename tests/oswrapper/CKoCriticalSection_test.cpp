#include "pf/oswrapper/CKoCriticalSection.h"

#include <cerrno>

#include <gtest/gtest.h>

#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/oswrapper/TKoAutoLock.h"
#include "pf/oswrapper/TKoInplaceFactory_0.h"
#include "pf/oswrapper/TKoOptional.h"
#include "tests/platform/LockTestSupport.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SignalStorm.h"

namespace
{

/// The record, which the tests may look at but not touch.
const _sync& recordOf(const CKoCriticalSection& section)
{
    return *static_cast<const _sync*>(static_cast<const void*>(&section));
}

TEST(CKoCriticalSection, ExcludesContendingThreads)
{
    CKoCriticalSection section;
    const KoTest::SignalStorm storm(KoTest::SignalStorm::WHOLE_PROCESS);
    KoTest::addInTurns(
        50000, [&](int) { section.lock(); }, [&] { section.unlock(); });
    EXPECT_EQ(recordOf(section).owner, 0U);
}

TEST(CKoCriticalSection, DoesNotBlockItsOwnerWhoseFirstUnlockReleases)
{
    const auto relock = [](int)
    {
        CKoCriticalSection section;
        errno = EXDEV;
        const unsigned int self = KoPlatform::kernelThreadSelf();
        for (const bool again : {true, true, false, false})
        {
            again ? section.lock() : section.unlock();
            EXPECT_EQ(recordOf(section).owner, again ? self : 0U);
        }
        EXPECT_EQ(errno, EXDEV);
    };
    // The fast paths differ in a process with several threads.
    relock(0);
    KoTest::inThreads(1, relock);
}

TEST(CKoCriticalSection, IsNotReleasedByOthersNorLostToAnArmedTimeout)
{
    CKoCriticalSection section;
    section.lock();
    std::thread other(
        [&]
        {
            section.unlock();
            KoOperatingSystem::setKernelTimeout(1ULL, 0x2000);
            const TKoAutoLock<CKoCriticalSection> guard(section);
            EXPECT_EQ(recordOf(section).owner & 0x7FFFFFFFU, KoPlatform::kernelThreadSelf());
        });
    EXPECT_TRUE(KoTest::hasWaiter(recordOf(section)));
    section.unlock();
    other.join();
}

TEST(TKoOptional, HoldsASectionWhileItsFlagIsSetAndLogsOneThatIsDestroyedLocked)
{
    using Optional = TKoOptional<CKoCriticalSection, 8, 4>;
    const KoPrivate::TKoInplaceFactory_0 factory;
    const KoTest::LogCapture log;
    {
        Optional optional;
        optional.destroy();
        EXPECT_FALSE(Optional::SKoHidden::is_initialized(optional));
        optional.construct(factory);
        optional.get()->lock();
        optional.reset(factory);
        EXPECT_TRUE(Optional::SKoHidden::is_initialized(optional));
        EXPECT_EQ(recordOf(*optional.get()).owner, 0U) << "a new one";
        EXPECT_EQ(log.size(), 1U);
        optional.get()->lock();
    }
    factory.apply<CKoCriticalSection>(nullptr);
    EXPECT_EQ(log.texts(KoSyslog::Critical),
              std::vector<std::string>(2, "Failed to destroy CKoCriticalSection: error=16"));
}

} // namespace
