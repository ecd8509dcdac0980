#include "pf/oswrapper/CKoRamwatcher.h"

#include "pf/oswrapper/KoAtomic.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>
#include <vector>

// The table belongs to the process, so every test has a process of its own.
namespace
{

using KoTest::ChildProcess;

/// Runs a check in a process that was started with this value of the variable.
void expectInChild(const char* variable, void (*check)())
{
    const KoTest::ScopedEnvironment environment("ENABLE_RAMWATCH", variable);
    const KoTest::ChildResult result = ChildProcess::run(
        [check]
        {
            CKoRamwatcher::evalIsEnabled();
            check();
            return testing::Test::HasFailure() ? ChildProcess::EXPECTATION_FAILED : 0;
        });
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
}

std::vector<CKoRamwatcher::sElement> dump(unsigned int capacity)
{
    std::vector<CKoRamwatcher::sElement> records(capacity);
    CKoRamwatcher::dumpWatches(records.data(), capacity);
    records.resize(capacity);
    return records;
}

unsigned int ownThread()
{
    return static_cast<unsigned int>(KoOperatingSystem::getCurrentTID());
}

void checkOff()
{
    EXPECT_FALSE(CKoRamwatcher::isEnabled());
    EXPECT_NE(CKoRamwatcher::getElement(4), nullptr);
    EXPECT_TRUE(dump(1).empty());
    CKoRamwatcher::releaseElements();
}

void checkRecords()
{
    CKoRamwatcher::sElement* first = CKoRamwatcher::getElement(8);
    KoAtomic::add(first->elementCount, 5);
    KoAtomic::add(first->capacityCount, 7);
    EXPECT_EQ(CKoRamwatcher::getElement(8), first);
    CKoRamwatcher::getElement(12);
    unsigned int otherThread = 0;
    std::thread([&otherThread] { otherThread = ownThread(), CKoRamwatcher::getElement(8); }).join();
    const CKoRamwatcher::sElement expected[] = {{ownThread() * 100000 + 2, 5, 7, 8},
                                                {ownThread() * 100000 + 1, 0, 0, 12},
                                                {otherThread * 100000 + 1, 0, 0, 8}};
    const std::vector<CKoRamwatcher::sElement> out = dump(4);
    ASSERT_EQ(out.size(), 3U);
    EXPECT_EQ(std::memcmp(out.data(), expected, sizeof(expected)), 0);
    EXPECT_EQ(dump(2).size(), 2U);

    const KoTest::AssertionCounter assertions(1);
    unsigned int count = 9;
    CKoRamwatcher::dumpWatches(nullptr, count);
    EXPECT_EQ(count, 9U);
}

void checkOverflow()
{
    CKoRamwatcher::sElement* known = CKoRamwatcher::getElement(1);
    for (unsigned int size = 2; size <= 512; ++size)
    {
        CKoRamwatcher::getElement(size);
    }
    CKoRamwatcher::sElement* overflow = CKoRamwatcher::getElement(6000);
    EXPECT_EQ(CKoRamwatcher::getElement(6001), overflow);
    EXPECT_EQ(overflow->instanceCount, 0U);
    EXPECT_EQ(CKoRamwatcher::getElement(1), known);
    EXPECT_EQ(dump(600).size(), 512U);
    CKoRamwatcher::releaseElements();
    EXPECT_EQ(CKoRamwatcher::getElement(1), overflow);
}

TEST(CKoRamwatcher, KeepsOneRecordPerElementSizeAndThreadUpTo512)
{
    expectInChild(nullptr, checkOff);
    expectInChild("", checkRecords);
    expectInChild("yes", checkOverflow);
}

} // namespace
