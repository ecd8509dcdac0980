#include "pf/oswrapper/CKoRamwatcher.h"

#include "pf/oswrapper/KoAtomic.h"
#include "pf/oswrapper/KoOperatingSystem.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

// The table belongs to the process, so every test has a process of its own.
namespace
{

using KoTest::ChildProcess;
using KoTest::ChildResult;
using KoTest::ScopedEnvironment;

void expectInChild(const char* variable, const std::function<void()>& body)
{
    const ScopedEnvironment environment("ENABLE_RAMWATCH", variable);
    const ChildResult result = ChildProcess::run(
        [&body]
        {
            CKoRamwatcher::evalIsEnabled();
            body();
            return testing::Test::HasFailure() ? ChildProcess::EXPECTATION_FAILED : 0;
        });
    EXPECT_EQ(result.exitStatus, 0) << result.describe();
}

TEST(CKoRamwatcher, IsOffWithoutTheVariableAndStillSafe)
{
    expectInChild(nullptr,
                  []
                  {
                      EXPECT_FALSE(CKoRamwatcher::isEnabled());
                      EXPECT_NE(CKoRamwatcher::getElement(4), nullptr);
                      CKoRamwatcher::sElement out[1];
                      unsigned int count = 1;
                      CKoRamwatcher::dumpWatches(out, count);
                      EXPECT_EQ(count, 0U);
                      CKoRamwatcher::releaseElements();
                  });
}

TEST(CKoRamwatcher, KeepsOneRecordPerElementSizeAndThread)
{
    expectInChild("",
                  []
                  {
                      CKoRamwatcher::sElement* first = CKoRamwatcher::getElement(8);
                      KoAtomic::add(first->elementCount, 5);
                      KoAtomic::add(first->capacityCount, 7);
                      EXPECT_EQ(CKoRamwatcher::getElement(8), first);
                      EXPECT_NE(CKoRamwatcher::getElement(12), first);
                      int otherThread = 0;
                      std::thread(
                          [&otherThread, first]
                          {
                              otherThread = KoOperatingSystem::getCurrentTID();
                              EXPECT_NE(CKoRamwatcher::getElement(8), first);
                          })
                          .join();

                      CKoRamwatcher::sElement out[4] = {};
                      unsigned int count = 4;
                      CKoRamwatcher::dumpWatches(out, count);
                      ASSERT_EQ(count, 3U);
                      const unsigned int self = static_cast<unsigned int>(KoOperatingSystem::getCurrentTID());
                      EXPECT_EQ(out[0].instanceCount, self * 100000 + 2);
                      EXPECT_EQ(out[0].elementCount, 5U);
                      EXPECT_EQ(out[0].capacityCount, 7U);
                      EXPECT_EQ(out[0].elementSize, 8U);
                      EXPECT_EQ(out[2].instanceCount, static_cast<unsigned int>(otherThread) * 100000 + 1);
                      EXPECT_EQ(out[2].elementSize, 8U);
                      count = 2;
                      CKoRamwatcher::dumpWatches(out, count);
                      EXPECT_EQ(count, 2U);

                      const KoTest::AssertionCounter assertions(1);
                      count = 9;
                      CKoRamwatcher::dumpWatches(nullptr, count);
                      EXPECT_EQ(count, 9U);
                  });
}

TEST(CKoRamwatcher, SharesOneRecordBeyond512Pairs)
{
    expectInChild("yes",
                  []
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

                      std::vector<CKoRamwatcher::sElement> out(600);
                      unsigned int count = 600;
                      CKoRamwatcher::dumpWatches(out.data(), count);
                      EXPECT_EQ(count, 512U);
                      CKoRamwatcher::releaseElements();
                      EXPECT_EQ(CKoRamwatcher::getElement(1), overflow);
                  });
}

} // namespace
