#include "pf/oswrapper/CKoCriticalSection.h"

#include <atomic>
#include <cerrno>
#include <new>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "pf/oswrapper/KoOperatingSystem.h"
#include "pf/oswrapper/KoSyslog.h"
#include "pf/oswrapper/TKoAutoLock.h"
#include "pf/oswrapper/TKoInplaceFactory_0.h"
#include "pf/oswrapper/TKoOptional.h"
#include "tests/platform/LockTestSupport.h"
#include "tests/support/Deadline.h"
#include "tests/support/LogCapture.h"
#include "tests/support/SignalStorm.h"

namespace
{

using Guard = TKoAutoLock<CKoCriticalSection>;

/// The owner word, which the tests may look at but not touch.
unsigned int ownerOf(const CKoCriticalSection& section)
{
    unsigned int words[2];
    static_assert(sizeof(words) == sizeof(section), "two words");
    __builtin_memcpy(words, static_cast<const void*>(&section), sizeof(words));
    return words[1];
}

/// Locked before the constructors of this file's other objects run, which must not reset it.
struct EarlyUser
{
    EarlyUser();
};
__attribute__((init_priority(200))) EarlyUser sEarlyUser;
CKoCriticalSection sLockedEarly;

EarlyUser::EarlyUser()
{
    sLockedEarly.lock();
}

TEST(CKoCriticalSection, ExcludesContendingThreads)
{
    CKoCriticalSection section;
    const KoTest::SignalStorm storm(KoTest::SignalStorm::WHOLE_PROCESS);
    KoTest::addInTurns(
        50000, [&](int) { section.lock(); }, [&] { section.unlock(); });
    EXPECT_EQ(ownerOf(section), 0U);
}

TEST(CKoCriticalSection, IsReadyBeforeAnyConstructorHasRun)
{
    EXPECT_NE(ownerOf(sLockedEarly), 0U);
    sLockedEarly.unlock();
    EXPECT_EQ(ownerOf(sLockedEarly), 0U);
}

TEST(CKoCriticalSection, DoesNotBlockItsOwnerWhoseFirstUnlockReleases)
{
    const auto relock = []
    {
        CKoCriticalSection section;
        errno = EXDEV;
        section.lock();
        const unsigned int owner = ownerOf(section);
        EXPECT_NE(owner, 0U);
        section.lock();
        EXPECT_EQ(ownerOf(section), owner);
        section.unlock();
        EXPECT_EQ(ownerOf(section), 0U);
        section.unlock();
        EXPECT_EQ(ownerOf(section), 0U);
        EXPECT_EQ(errno, EXDEV);
    };
    // The fast paths differ in a process with several threads.
    relock();
    std::thread(relock).join();
}

TEST(CKoCriticalSection, IsNotReleasedByOthersNorLostToAnArmedTimeout)
{
    CKoCriticalSection section;
    section.lock();
    const unsigned int owner = ownerOf(section);
    std::thread([&] { section.unlock(); }).join();
    EXPECT_EQ(ownerOf(section), owner);

    std::atomic<bool> entered{false};
    std::thread other(
        [&]
        {
            KoOperatingSystem::setKernelTimeout(1ULL, 0x2000);
            const Guard guard(section);
            entered = true;
        });
    const unsigned int* const words = static_cast<const unsigned int*>(static_cast<const void*>(&section));
    EXPECT_TRUE(
        KoTest::waitUntil([&] { return (__atomic_load_n(&words[1], __ATOMIC_RELAXED) >> 31U) != 0U; }));
    EXPECT_FALSE(entered);
    section.unlock();
    other.join();
    EXPECT_TRUE(entered);
}

TEST(CKoCriticalSection, LogsWhenItIsDestroyedLocked)
{
    const KoTest::LogCapture log;
    alignas(CKoCriticalSection) unsigned char storage[sizeof(CKoCriticalSection)];
    auto* const section = new (storage) CKoCriticalSection();
    section->lock();
    section->~CKoCriticalSection();
    EXPECT_EQ(log.texts(KoSyslog::Critical),
              std::vector<std::string>{"Failed to destroy CKoCriticalSection: error=16"});
}

/// Counts its lives.
struct Counted
{
    Counted() { ++sAlive; }
    ~Counted() { --sAlive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

    static int sAlive;
    int value = 17;
};

int Counted::sAlive = 0;

TEST(TKoOptional, HoldsAValueWhileItsFlagIsSet)
{
    using Optional = TKoOptional<Counted, 8, 4>;
    const KoPrivate::TKoInplaceFactory_0 factory;
    {
        Optional optional;
        EXPECT_FALSE(Optional::SKoHidden::is_initialized(optional));
        optional.destroy();
        optional.construct(factory);
        EXPECT_TRUE(Optional::SKoHidden::is_initialized(optional));
        optional.get()->value = 18;
        optional.reset(factory);
        EXPECT_EQ(optional.get()->value, 17) << "a new value";
        EXPECT_EQ(Counted::sAlive, 1);
        optional.destroy();
        EXPECT_FALSE(Optional::SKoHidden::is_initialized(optional));
        EXPECT_EQ(Counted::sAlive, 0);
        optional.reset(factory);
        EXPECT_EQ(Counted::sAlive, 1);
    }
    EXPECT_EQ(Counted::sAlive, 0);
    factory.apply<Counted>(nullptr);
    EXPECT_EQ(Counted::sAlive, 0);
    EXPECT_EQ(sizeof(Optional), 12U);
}

} // namespace
