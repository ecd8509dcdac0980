#include "pf/oswrapper/CKoReferencedSharedMemory.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/platform/KoPlatformSharedMemory.h"
#include "pf/stream/CKoByteStream.h"
#include "pf/stream/KoStreamOperators.h"
#include "tests/oswrapper/SharedMemorySupport.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChannelPeers.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Deadline.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/MemoryStream.h"
#include "tests/support/Threads.h"

namespace
{

using KoTest::MemoryStream;
using KoTest::ObjectName;
using Memory = CKoReferencedSharedMemory;
using Reference = TKoRefCountPointer<Memory>;

constexpr unsigned int SIZE = 100;
constexpr unsigned int NO_SIZE = 0xFFFFFFFCU;
constexpr int ERROR = 2;

/// Lets whatever is reported be expected while it lives.
class AnyAssertions
{
public:
    AnyAssertions() { CKoAsserter::setExpectedAssertions(0xFFFFFFFFU); }
    ~AnyAssertions() { CKoAsserter::setExpectedAssertions(m_before); }
    AnyAssertions(const AnyAssertions&) = delete;
    AnyAssertions& operator=(const AnyAssertions&) = delete;

private:
    const unsigned int m_before = CKoAsserter::getExpectedAssertions();
};

TEST(CKoReferencedSharedMemory, KeepsTheNameUntilTheLastReferenceIsGone)
{
    const ObjectName name;
    {
        const Reference created = Memory::create(name, SIZE);
        ASSERT_TRUE(created);
        EXPECT_EQ(created->getSize(), SIZE);
        EXPECT_EQ(name.size(), SIZE + 4);
        EXPECT_EQ(created->getSharedMemoryRefCount(), 1U);
        const auto* const data = static_cast<const unsigned char*>(created->getDataPtr());
        EXPECT_TRUE(std::all_of(data, data + SIZE, [](unsigned char byte) { return byte == 0; }));
        {
            const Memory smaller(name, 1, false);
            EXPECT_EQ(smaller.getSize(), 1U);
            EXPECT_EQ(created->getSharedMemoryRefCount(), 2U);
        }
        const KoTest::ChildResult child = KoTest::ChildProcess::run(
            [&]
            {
                const Reference opened(new Memory(name, SIZE, false));
                const Reference copy = opened;
                std::memcpy(copy->getDataPtr(), "child", 6);
                return static_cast<int>(opened->getSharedMemoryRefCount());
            });
        EXPECT_EQ(child.exitStatus, 2) << child.describe();
        EXPECT_STREQ(static_cast<const char*>(created->getDataPtr()), "child");
        EXPECT_EQ(created->getSharedMemoryRefCount(), 1U);
        EXPECT_TRUE(name.exists());
    }
    EXPECT_FALSE(name.exists());
}

TEST(CKoReferencedSharedMemory, ReportsWhatItDoesNotFindAndLeavesNothingBehind)
{
    const ObjectName there;
    const ObjectName missing;
    const Reference kept = Memory::create(there, SIZE);
    const std::string create = "Could not create shared memory ";
    const std::string open = "Could not open referenced shared memory ";
    struct Case
    {
        const char* name;
        unsigned int size;
        bool create;
        unsigned int assertions;
        std::string line;
    };
    for (const Case& each : {Case{missing, SIZE, false, 1, open + missing.c_str()},
                             Case{there, SIZE, true, 1, create + there.c_str()},
                             Case{there, NO_SIZE, false, 1, open + there.c_str()},
                             Case{missing, NO_SIZE, true, 1, create + missing.c_str()},
                             Case{missing, 0xFFFFFFFFU, true, 1, create + missing.c_str()},
                             Case{nullptr, SIZE, true, 2, create + "???"}})
    {
        const KoTest::LogCapture log;
        const KoTest::AssertionCounter assertions(each.assertions);
        const Memory failed(each.name, each.size, each.create);
        EXPECT_EQ(failed.getDataPtr(), nullptr);
        EXPECT_EQ(failed.getSize(), NO_SIZE);
        EXPECT_EQ(failed.getSharedMemoryRefCount(), 0U);
        EXPECT_EQ(log.texts(ERROR), std::vector<std::string>{each.line});
    }
    const KoTest::LogCapture log;
    {
        const KoTest::AssertionCounter assertions(3);
        EXPECT_FALSE(Memory::create(there, SIZE));
        const Memory larger(there, SIZE + 1, false);
        EXPECT_EQ(larger.getDataPtr(), nullptr) << "a byte that the object does not have";
    }
    EXPECT_EQ(kept->getSharedMemoryRefCount(), 1U);
    EXPECT_FALSE(missing.exists());
}

TEST(CKoReferencedSharedMemory, CountsAfterEveryOrderOfTakingStreamingAndDropping)
{
    const unsigned int seed = std::random_device()();
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    for (unsigned int round = 0; round < 200 / KoTest::slowness(); ++round)
    {
        const ObjectName name;
        std::vector<Reference> held{Memory::create(name, SIZE)};
        ASSERT_TRUE(held[0]);
        CKoByteStream stream;
        unsigned int inTransit = 0;
        for (int step = 0; !held.empty() && step < 30; ++step)
        {
            switch (random() % 4U)
            {
            case 0:
                held.emplace_back(new Memory(name, SIZE, false));
                break;
            case 1:
                stream << held[random() % held.size()];
                ++inTransit;
                break;
            case 2:
                if (inTransit != 0U)
                {
                    held.emplace_back();
                    stream >> held.back();
                    ASSERT_NE(held.back()->getDataPtr(), nullptr);
                    --inTransit;
                }
                break;
            default:
                std::swap(held[random() % held.size()], held.back());
                held.pop_back();
            }
            ASSERT_TRUE(held.empty() || held.back()->getSharedMemoryRefCount() == held.size() + inTransit);
        }
        held.clear();
        EXPECT_EQ(name.exists(), inTransit != 0U) << "a reference in transit keeps the object";
        for (Reference last; inTransit != 0U; --inTransit)
            stream >> last;
        EXPECT_FALSE(name.exists());
    }
}

TEST(CKoReferencedSharedMemory, WritesNameAndSizeAndCountsOnlyWhatWasWrittenWhole)
{
    const ObjectName name;
    const Reference reference = Memory::create(name, SIZE);
    const std::string text = name.c_str();
    MemoryStream whole;
    whole << reference;
    MemoryStream expected;
    expected << static_cast<unsigned int>(text.size());
    expected.write(text.data(), static_cast<unsigned int>(text.size()));
    expected << SIZE;
    EXPECT_EQ(whole.bytes, expected.bytes);
    EXPECT_EQ(reference->getSharedMemoryRefCount(), 2U);
    for (std::size_t limit = 0; limit < whole.bytes.size(); ++limit)
    {
        MemoryStream cut;
        cut.writeLimit = limit;
        cut << reference;
        EXPECT_EQ(reference->getSharedMemoryRefCount(), 2U) << limit;
    }
    MemoryStream none;
    {
        const KoTest::AssertionCounter assertions(1);
        none << Reference();
    }
    EXPECT_EQ(none.bytes, std::vector<unsigned char>(8, 0));
    none << SIZE;
    Reference read = reference;
    unsigned int behind = 0;
    const KoTest::AssertionCounter assertions(1);
    none >> read >> behind;
    EXPECT_FALSE(read);
    EXPECT_EQ(behind, SIZE);
}

/// A count that somebody has broken, or that cannot go up.
TEST(CKoReferencedSharedMemory, TakesNoReferenceWhoseCountCannotGoUp)
{
    const ObjectName name;
    const Reference kept = Memory::create(name, SIZE);
    unsigned int& count = static_cast<unsigned int*>(kept->getDataPtr())[-1];
    for (const unsigned int broken : {0U, 0xFFFFFFFFU})
    {
        const KoTest::LogCapture log;
        const KoTest::AssertionCounter assertions(2);
        count = broken;
        EXPECT_EQ(Memory(name, SIZE, false).getDataPtr(), nullptr);
        MemoryStream none;
        none << kept;
        EXPECT_EQ(none.bytes, std::vector<unsigned char>(8, 0));
        EXPECT_EQ(kept->getSharedMemoryRefCount(), broken);
    }
    count = 1;
}

TEST(CKoReferencedSharedMemory, RefusesHostileStreamsWithoutHarm)
{
    const ObjectName name;
    const Reference kept = Memory::create(name, SIZE);
    MemoryStream whole;
    whole << kept;
    // Every way of ending early, and every claim that cannot be.
    std::vector<std::vector<unsigned char>> records;
    for (std::size_t length = 0; length < whole.bytes.size(); ++length)
        records.emplace_back(whole.bytes.begin(), whole.bytes.begin() + static_cast<std::ptrdiff_t>(length));
    const auto claim = [&](std::size_t position, unsigned int value)
    {
        MemoryStream number;
        number << value;
        records.push_back(whole.bytes);
        std::copy(number.bytes.begin(), number.bytes.end(),
                  records.back().begin() + static_cast<std::ptrdiff_t>(position));
        records.back().resize(1000, 'n');
    };
    for (const unsigned int length : {0U, 1U, 257U, 0x80000000U, 0xFFFFFFFFU})
        claim(0, length);
    for (const unsigned int size : {SIZE + 1U, 4096U, 4097U, 0x7FFFFFFFU, NO_SIZE, 0xFFFFFFFFU})
        claim(whole.bytes.size() - 4, size);
    records.push_back(whole.bytes);
    records.back()[6] = '/';
    records.push_back(whole.bytes);
    records.back()[6] = '\0';
    const AnyAssertions any;
    for (const auto& record : records)
    {
        const KoTest::LogCapture log;
        const MemoryStream stream(record);
        Reference read = kept;
        const unsigned int before = CKoAsserter::getOccuredAssertions();
        stream >> read;
        EXPECT_TRUE(!read || read->getDataPtr() == nullptr);
        EXPECT_GE(CKoAsserter::getOccuredAssertions(), before + 1U);
        EXPECT_LE(log.size(), 3U);
        EXPECT_EQ(kept->getSharedMemoryRefCount(), 2U) << "and the one in transit";
    }
}

/// A process that may write to the object, but not remove it, leaves it as it is.
TEST(CKoReferencedSharedMemory, IsLeftAliveByASupervisorWhoMayNotRemoveIt)
{
    const ObjectName name;
    MemoryStream transit;
    const mode_t mask = umask(0);
    transit << Memory::create(name, SIZE);
    umask(mask);
    const KoTest::ChildResult result = KoTest::ChildProcess::run(
        [&]
        {
            if (setuid(65533) != 0)
                return 77;
            return !Memory::removeAbandoned(name) && (errno == EPERM || errno == EACCES) ? 0 : 1;
        });
    if (result.exitStatus == 77)
        GTEST_SKIP() << "only root can be somebody else";
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
    Reference read;
    transit >> read;
    EXPECT_NE(read->getDataPtr(), nullptr);
}

/// A child that opens the object and tells; killed at the end.
struct DoomedUser
{
    explicit DoomedUser(const ObjectName& name)
        : peer(KoTest::IN_PROCESS,
               [&]
               {
                   const Memory opened(name, SIZE, false);
                   isThere = opened.getDataPtr() != nullptr;
                   for (;;)
                       pause();
               })
    {
        EXPECT_TRUE(KoTest::waitUntil([&] { return isThere.load(); }));
    }

    std::atomic<bool>& isThere = KoTest::makeShared<std::atomic<bool>>();
    KoTest::Peer peer;
};

TEST(CKoReferencedSharedMemory, LetsASupervisorRemoveWhatOnlyTheDeadHaveCounted)
{
    const ObjectName name;
    EXPECT_FALSE(Memory::removeAbandoned(name));
    EXPECT_EQ(errno, ENOENT);
    {
        Reference created = Memory::create(name, SIZE);
        DoomedUser user(name);
        created = {};
        EXPECT_FALSE(Memory::removeAbandoned(name));
        EXPECT_EQ(errno, EBUSY) << "somebody alive maps it";
        user.peer.kill();
    }
    EXPECT_TRUE(name.exists());
    EXPECT_TRUE(Memory::removeAbandoned(name));
    EXPECT_FALSE(name.exists());
}

TEST(CKoReferencedSharedMemory, IsWholeOrNotThereWhenAProcessThatMakesAndDropsItIsKilled)
{
    std::mt19937 random(1);
    const ObjectName name;
    auto& made = KoTest::makeShared<std::atomic<unsigned int>>();
    int left = 0;
    const unsigned int rounds = 120 / KoTest::slowness();
    // Until one was killed in between, which is a matter of luck.
    for (unsigned int round = 0; round < rounds || (left == 0 && round < 10 * rounds); ++round)
    {
        made = 0;
        KoTest::Peer peer(KoTest::IN_PROCESS,
                          [&]
                          {
                              for (;; ++made)
                                  Memory::create(name, SIZE);
                          });
        const auto enough = random() % 50U;
        EXPECT_TRUE(KoTest::waitUntil([&] { return made > enough; }));
        peer.kill();
        peer.join();
        left += name.exists() ? 1 : 0;
        EXPECT_TRUE(!name.exists() || name.size() == SIZE + 4);
        EXPECT_TRUE(!name.exists() || Memory::removeAbandoned(name));
    }
    EXPECT_FALSE(name.exists());
    EXPECT_GT(left, 0) << "none was killed in between";
}

TEST(CKoReferencedSharedMemory, CannotBeOpenedWhileASupervisorHasClaimedIt)
{
    const ObjectName name;
    MemoryStream transit;
    transit << Memory::create(name, SIZE);
    const int claimed = KoPlatform::shm_claim(name);
    ASSERT_NE(claimed, -1) << "nobody maps it";
    {
        const KoTest::LogCapture log;
        const KoTest::AssertionCounter assertions(1);
        const KoTest::Stopwatch watch;
        EXPECT_EQ(Memory(name, SIZE, false).getDataPtr(), nullptr);
        EXPECT_TRUE(watch.isWithin(1000, 10000));
        EXPECT_EQ(log.texts(ERROR).size(), 2U);
    }
    const AnyAssertions tries; // a supervisor that gets no processor for a second
    const KoTest::LogCapture log;
    const KoTest::Peer supervisor(KoTest::IN_THREAD, [&] { KoSharedMemoryAccess::close(claimed); });
    EXPECT_TRUE(KoTest::waitUntil([&] { return Memory(name, SIZE, false).getSharedMemoryRefCount() == 2U; }))
        << "and the one in transit";
}

/// One side drops the last reference while the other opens: either the object is shared from then on, or it
/// is gone for good.
TEST(CKoReferencedSharedMemory, IsOpenedAliveOrNotAtAllWhileItsLastReferenceGoes)
{
    const unsigned int rounds = 500 / KoTest::slowness();
    const ObjectName name;
    KoTest::Starter& starter = KoTest::makeShared<KoTest::Starter>();
    const AnyAssertions any;
    const KoTest::LogCapture log;
    const KoTest::Peer opener(KoTest::IN_PROCESS,
                              [&]
                              {
                                  for (unsigned int round = 1; round <= rounds; ++round)
                                  {
                                      starter.await(1, 3 * round);
                                      const auto opened = std::make_unique<Memory>(name, SIZE, false);
                                      const bool isAlive = opened->getDataPtr() != nullptr;
                                      EXPECT_TRUE(!isAlive || name.exists());
                                      starter.await(1, 3 * round + 1);
                                      EXPECT_EQ(opened->getSharedMemoryRefCount(), isAlive ? 1U : 0U);
                                      EXPECT_EQ(name.exists(), isAlive);
                                      starter.await(1, 3 * round + 2);
                                  }
                              });
    for (unsigned int round = 1; round <= rounds; ++round)
    {
        Reference last;
        EXPECT_TRUE(KoTest::waitUntil([&] { return !name.exists(); }));
        last = Memory::create(name, SIZE);
        EXPECT_TRUE(last);
        starter.await(0, 3 * round);
        last = {};
        starter.await(0, 3 * round + 1);
        starter.await(0, 3 * round + 2);
    }
}

struct Node : CKoThreadSafeRefCounter
{
    explicit Node(int& alive)
        : m_alive(alive)
    {
        ++m_alive;
    }
    ~Node() override { --m_alive; }
    void lastReferenceRemoved() override { delete this; }

    TKoRefCountPointer<Node> next;

private:
    int& m_alive;
};

TEST(TKoRefCountPointer, DeletesWithTheLastCopy)
{
    using Pointer = TKoRefCountPointer<Node>;
    static_assert(sizeof(Pointer) == sizeof(void*), "nothing but the pointer");
    int alive = 0;
    {
        Pointer first(new Node(alive));
        Pointer second = first;
        EXPECT_TRUE(first == second);
        first = *&first;
        first = Pointer();
        EXPECT_TRUE(first != second);
        EXPECT_EQ(alive, 1);
        first = std::move(second);
        EXPECT_FALSE(second);
        first->next = Pointer(new Node(alive));
        first = first->next;
        EXPECT_EQ(alive, 1) << "the node that kept it alive is gone";
        KoTest::inThreads(4,
                          [&](int)
                          {
                              for (int i = 0; i < 10000; ++i)
                                  const Pointer copy(first);
                          });
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

} // namespace
