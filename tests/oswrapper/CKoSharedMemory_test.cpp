#include "pf/oswrapper/CKoSharedMemory.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "pf/oswrapper/CKoAsserter.h"
#include "pf/oswrapper/CKoReferencedSharedMemory.h"
#include "pf/oswrapper/CKoShMem.h"
#include "tests/oswrapper/SharedMemorySupport.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChannelPeers.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FaultInjection.h"

namespace
{

using KoTest::ObjectName;

constexpr unsigned int PAGE = 4096;
constexpr int ERROR = 2;

using Mapper = bool (*)(CKoSharedMemory&);
bool map(CKoSharedMemory& memory)
{
    return memory.map(false, false, true);
}
bool map2(CKoSharedMemory& memory)
{
    return memory.map2(false, true, false);
}

TEST(CKoSharedMemory, TellsTheCreatorFromThoseWhoOpen)
{
    for (const Mapper mapper : {map, map2})
    {
        const ObjectName name;
        const KoTest::LogCapture log;
        CKoSharedMemory first(name, PAGE);
        CKoSharedMemory second(name, PAGE);
        ASSERT_TRUE(mapper(first));
        EXPECT_FALSE(mapper(first)) << "mapped already";
        EXPECT_FALSE(mapper(second));
        std::memcpy(first.getAddress(), "shared", 7);
        EXPECT_STREQ(static_cast<const char*>(second.getAddress()), "shared");
        first.unmap();
        first.unmap();
        EXPECT_EQ(first.getAddress(), nullptr);
        EXPECT_FALSE(mapper(first));
        EXPECT_STREQ(static_cast<const char*>(first.getAddress()), "shared");
        EXPECT_EQ(log.size(), 0U);
    }
}

TEST(CKoSharedMemory, DiscardsAnExistingObjectOnDemand)
{
    const ObjectName name;
    CKoSharedMemory old(name, PAGE);
    ASSERT_TRUE(old.map(true, false, false)) << "there is none yet";
    std::memcpy(old.getAddress(), "old", 4);
    CKoSharedMemory fresh(name, 3 * PAGE);
    ASSERT_TRUE(fresh.map(true, true, true)) << "new, and for reading only";
    EXPECT_STREQ(static_cast<const char*>(fresh.getAddress()), "");
    EXPECT_STREQ(static_cast<const char*>(old.getAddress()), "old");
    EXPECT_EQ(name.size(), 3 * PAGE);
}

TEST(CKoSharedMemory, LogsWhatCannotBeOpenedOrMapped)
{
    const ObjectName name;
    CKoSharedMemory owner(name, PAGE);
    ASSERT_TRUE(map(owner));
    const std::string text = name.c_str();
    const std::string slash = text + "/x";
    struct Case
    {
        std::string name;
        Mapper mapper;
        std::string line;
    };
    for (const Case& each :
         {Case{slash, map, "Unable to create file mapping handle named " + slash + ": Invalid argument"},
          Case{slash, map2, "Unable to create file mapping handle named " + slash + ": errno=22"},
          Case{text, map, "Unable to map file " + text + " to memory: No such device or address"},
          Case{text, map2, "Unable to map file " + text + " to memory: errno=6"}})
    {
        const KoTest::LogCapture log;
        CKoSharedMemory memory(each.name.c_str(), 2 * PAGE);
        EXPECT_FALSE(each.mapper(memory));
        EXPECT_EQ(memory.getAddress(), nullptr);
        EXPECT_EQ(log.texts(ERROR), std::vector<std::string>{each.line});
    }
}

TEST(CKoSharedMemory, ReportsAMappingThatCannotGoOrCome)
{
    KO_SKIP_WITHOUT_FAULT_INJECTION();
    const ObjectName name;
    const std::string text = name.c_str();
    const KoTest::LogCapture log;
    const KoTest::AssertionCounter assertions(3);
    {
        CKoSharedMemory memory(name, PAGE);
        EXPECT_TRUE(map(memory));
        const KoTest::FailingCall refused(KoTest::FAULT_UNMAP, EINVAL);
        memory.unmap();
        EXPECT_EQ(memory.getAddress(), nullptr);
        memory.unlink();
    }
    {
        const KoTest::FailingCall refused(KoTest::FAULT_MAP, ENOMEM);
        EXPECT_FALSE(CKoReferencedSharedMemory::create(name, PAGE));
        EXPECT_FALSE(name.exists());
    }
    EXPECT_EQ(log.texts(ERROR),
              (std::vector<std::string>{"Unable to remove file mapping (" + text +
                                            ") from address space: Invalid argument",
                                        "Unable to map file " + text + " to memory: Cannot allocate memory",
                                        "Could not create shared memory " + text}));
}

TEST(CKoSharedMemory, ReportsAMissingName)
{
    CKoSharedMemory nameless(nullptr, PAGE);
    const KoTest::ReportCase cases[] = {
        {"CKoSharedMemory: ???", [&] { EXPECT_FALSE(map(nameless)); }},
        {"CKoSharedMemory: ???", [&] { EXPECT_FALSE(map2(nameless)); }},
        {"CKoSharedMemory: ???", [&] { nameless.unlink(); }},
    };
    KoTest::expectReports(cases, [&] { EXPECT_EQ(nameless.getAddress(), nullptr); });
    const ObjectName missing;
    const KoTest::AssertionCounter none(0);
    CKoSharedMemory(missing, PAGE).unlink();
}

/// Ends as another user, who may neither remove nor create over the object.
int openForeignObject(const char* name)
{
    CKoAsserter::setExpectedAssertions(0xFFFFFFFFU);
    CKoAsserter::setOccuredAssertions(0);
    if (setuid(65533) != 0)
        return 77;
    CKoSharedMemory memory(name, PAGE);
    if (memory.map(true, false, true) || memory.getAddress() == nullptr)
        return 1;
    if (CKoAsserter::getOccuredAssertions() != 1U)
        return 2;
    const int descriptor = KoSharedMemoryAccess::open(
        name, PAGE, KoSharedMemoryAccess::CREATE_IF_MISSING | KoSharedMemoryAccess::SET_SIZE);
    return descriptor != -1 && std::strcmp(static_cast<const char*>(memory.getAddress()), "foreign") == 0 ? 0
                                                                                                          : 3;
}

TEST(CKoSharedMemory, OpensAnObjectOfAnotherUserThatItMayNotDiscard)
{
    const ObjectName name;
    CKoSharedMemory memory(name, PAGE);
    const mode_t mask = umask(0);
    EXPECT_TRUE(map(memory));
    umask(mask);
    std::memcpy(memory.getAddress(), "foreign", 8);
    const KoTest::ChildResult result = KoTest::ChildProcess::run([&] { return openForeignObject(name); });
    if (result.exitStatus == 77)
        GTEST_SKIP() << "only root can be somebody else";
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
}

/// Creates at the same moment as somebody else and touches every page at once. \return whether it has
/// created.
using Creator = bool (*)(const char* name);

constexpr unsigned int RACED = 4 * PAGE;

bool touchAll(void* address)
{
    auto* const bytes = static_cast<volatile unsigned char*>(address);
    EXPECT_NE(bytes, nullptr);
    for (unsigned int offset = 0; bytes != nullptr && offset < RACED; offset += PAGE)
        bytes[offset] = 1;
    return bytes != nullptr;
}

bool raceMap(const char* name)
{
    CKoSharedMemory memory(name, RACED);
    const bool created = map(memory);
    return touchAll(memory.getAddress()) && created;
}

bool raceMap2(const char* name)
{
    CKoSharedMemory memory(name, RACED);
    const bool created = map2(memory);
    return touchAll(memory.getAddress()) && created;
}

bool raceShMem(const char* name)
{
    CKoShMem memory(name, RACED);
    const int result = memory.create(false);
    EXPECT_NE(result, CKoShMem::FAILED);
    EXPECT_TRUE(memory.map(KoSharedMemoryAccess::MAP_READ_WRITE));
    return touchAll(memory.getAddress()) && result == CKoShMem::CREATED;
}

TKoRefCountPointer<CKoReferencedSharedMemory> sKept;

/// The creator keeps the object until the other has found it, with both references counted.
bool raceReferenced(const char* name)
{
    sKept = CKoReferencedSharedMemory::create(name, RACED - 4);
    if (sKept)
        return true;
    const CKoReferencedSharedMemory opened(name, RACED - 4, false);
    EXPECT_EQ(opened.getSharedMemoryRefCount(), 2U);
    return false;
}

struct Race : KoTest::Starter
{
    std::atomic<unsigned int> created[2]{};
    std::atomic<unsigned int> wrongRounds{0};
};

void runSide(Race& race, unsigned int side, unsigned int rounds, const char* name, Creator create)
{
    const KoTest::LogCapture log;
    CKoAsserter::setExpectedAssertions(0xFFFFFFFFU);
    for (unsigned int round = 1; round <= rounds; ++round)
    {
        race.await(side, 3 * round);
        race.created[side] = create(name) ? 1U : 0U;
        race.await(side, 3 * round + 1);
        sKept = {};
        if (side == 0)
        {
            race.wrongRounds += race.created[0] + race.created[1] == 1U ? 0U : 1U;
            KoSharedMemoryAccess::unlink(name);
        }
        race.await(side, 3 * round + 2);
    }
}

TEST(CKoSharedMemory, HasOneCreatorInARaceAndNobodyTouchesAPageThatIsNotThere)
{
    const unsigned int rounds = 600 / KoTest::slowness();
    const unsigned int expected = CKoAsserter::getExpectedAssertions();
    for (const Creator creator : {raceMap, raceMap2, raceShMem, raceReferenced})
    {
        Race& race = KoTest::makeShared<Race>();
        const ObjectName name;
        {
            const KoTest::Peer peer(KoTest::IN_PROCESS, [&] { runSide(race, 1, rounds, name, creator); });
            runSide(race, 0, rounds, name, creator);
        }
        EXPECT_EQ(race.wrongRounds, 0U);
    }
    CKoAsserter::setExpectedAssertions(expected);
}

} // namespace
