#include "pf/base/CKoString.h"

#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "tests/base/StringTesting.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/FaultInjection.h"

using namespace KoTest;
using testing::ElementsAre;

namespace
{

constexpr unsigned int BAD_CAPACITY = 0xFFFFFFECU;

TEST(CKoStringStorage, EmptyStringsShareAStaticBlockThatIsNeverWritten)
{
    const CKoString::SStringData* const shared = &CKoString::nullData;
    const AllocationCounter allocations;
    {
        const CKoString plain;
        const CKoString copy(plain);
        const CKoString fromNull(static_cast<const char*>(nullptr));
        const CKoString fromNothing("");
        const CKoString fromNoBytes("abc", 0U);
        const CKoString fromNoUnits(static_cast<const unsigned int*>(nullptr));
        CKoString assigned("x");
        assigned = CKoString::null;
        for (const CKoString* string : {&plain, &copy, &fromNull, &fromNothing, &fromNoBytes, &fromNoUnits,
                                        static_cast<const CKoString*>(&assigned)})
        {
            EXPECT_EQ(blockOf(*string), shared);
        }
        EXPECT_EQ(shared->refCount, 2U);
    }
    EXPECT_EQ(shared->refCount, 2U);
    if (FaultInjection::isAvailable())
    {
        EXPECT_EQ(allocations.count(), 1U) << "only the string that held a text";
    }
}

TEST(CKoStringStorage, ConstructionTakesExactlyTheBytesOfTheText)
{
    EXPECT_EQ(see(CKoString("euro \xE2\x82\xAC")), (Seen{"euro \xE2\x82\xAC", 6U, 8U}));
    EXPECT_EQ(see(CKoString("abcdef", 3U)), (Seen{"abc", 3U, 3U}));
    EXPECT_EQ(see(CKoString("ab\0def", 6U)), (Seen{"ab", 2U, 2U}));
    const unsigned int units[] = {0x41U, 0x20ACU, 0U, 0x42U};
    EXPECT_EQ(see(CKoString(units)), (Seen{"A\xE2\x82\xAC", 2U, 4U}));
    EXPECT_EQ(see(CKoString(units + 1, units + 2)), (Seen{"\xE2\x82\xAC", 1U, 3U}));
}

TEST(CKoStringStorage, CopiesShareUntilOneIsChanged)
{
    CKoString first("text");
    CKoString second(first);
    CKoString third;
    third = first;
    EXPECT_EQ(blockOf(first), blockOf(second));
    EXPECT_EQ(blockOf(first)->refCount, 3U);

    second.append("s");
    third = second;
    EXPECT_EQ(textOf(first), "text");
    EXPECT_EQ(textOf(third), "texts");
    EXPECT_EQ(blockOf(first)->refCount, 1U);
    CKoString& self = third;
    third = self;
    EXPECT_EQ(blockOf(third)->refCount, 2U);
}

TEST(CKoStringStorage, MovingTakesTheBlockAndLeavesTheSourceEmpty)
{
    CKoString source("text");
    const CKoString::SStringData* const block = blockOf(source);
    CKoString target(std::move(source));
    CKoString last("old");
    last = std::move(target);
    CKoString& self = last;
    last = std::move(self);
    EXPECT_EQ(blockOf(last), block);
    EXPECT_EQ(blockOf(source), &CKoString::nullData); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(blockOf(target), &CKoString::nullData); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(block->refCount, 1U);
}

TEST(CKoStringStorage, SwapMakesBothPrivateFirst)
{
    CKoString a("long text");
    CKoString b;
    const CKoString sharer(a);
    a.swap(b);
    EXPECT_EQ(textOf(a), "");
    EXPECT_EQ(textOf(b), "long text");
    EXPECT_EQ(blockOf(a)->refCount, 1U);
    EXPECT_EQ(blockOf(b)->refCount, 1U);
    EXPECT_EQ(textOf(sharer), "long text");
    b.swap(b);
    EXPECT_EQ(textOf(b), "long text");
}

TEST(CKoStringStorage, AddReferenceSharesOrMakesPrivateWithExactlyThatCapacity)
{
    struct Case
    {
        bool isShared;
        bool forWrite;
        unsigned int capacity;
        Seen expected;
        bool isSameBlock;
    };
    const Case cases[] = {
        {false, true, 4U, {"a\xC3\xA9g", 3U, 4U}, true},
        {false, true, 2U, {"a\xC3\xA9g", 3U, 4U}, true},
        {false, true, 9U, {"a\xC3\xA9g", 3U, 9U}, false},
        {true, true, 4U, {"a\xC3\xA9g", 3U, 4U}, false},
        {true, true, 2U, {"a", 1U, 2U}, false},
        {true, true, 3U, {"a\xC3\xA9", 2U, 3U}, false},
        {true, true, 0U, {"", 0U, 0U}, false},
        {false, false, 9U, {"a\xC3\xA9g", 3U, 9U}, false},
        {true, false, 9U, {"a\xC3\xA9g", 3U, 9U}, false},
    };
    for (const Case& c : cases)
    {
        SCOPED_TRACE(testing::Message() << c.isShared << c.forWrite << ' ' << c.capacity);
        CKoString string("a\xC3\xA9g");
        const CKoString sharer(c.isShared ? string : CKoString());
        const CKoString::SStringData* const before = blockOf(string);
        string.addReference(c.forWrite, c.capacity);
        EXPECT_EQ(see(string), c.expected);
        EXPECT_EQ(blockOf(string) == before, c.isSameBlock);
        EXPECT_EQ(blockOf(string)->refCount, 1U);
        EXPECT_STREQ(string.c_str(), c.expected.text.c_str());
    }

    CKoString counted("text");
    counted.addReference(false, 4U);
    EXPECT_EQ(blockOf(counted)->refCount, 2U);
    CKoString empty;
    empty.addReference(false, 0U);
    EXPECT_EQ(CKoString::nullData.refCount, 2U);
    counted.removeReference();
}

TEST(CKoStringStorage, ReserveLeavesALargeEnoughBlockAloneEvenWhenShared)
{
    CKoString string("abc");
    const CKoString sharer(string);
    string.reserve(3U);
    EXPECT_EQ(blockOf(string), blockOf(sharer));
    string.reserve(4U);
    EXPECT_EQ(see(string), (Seen{"abc", 3U, 4U}));
    EXPECT_EQ(blockOf(sharer)->refCount, 1U);
}

TEST(CKoStringStorage, CapacitiesThatNoBlockCanHaveAreReportedAndChangeNothing)
{
    const AssertionReports reports;
    EXPECT_EQ(blockOf(CKoString(BAD_CAPACITY)), &CKoString::nullData);
    CKoString string("abc");
    const CKoString::SStringData* const block = blockOf(string);
    string.reserve(0xFFFFFFFFU);
    string.addReference(true, BAD_CAPACITY);
    const unsigned int unit = 0x41U;
    string.fromUCS4Sequence(&unit, 0xFFFFFFFEU);

    // A block that claims to be as long as a block can be cannot be appended to.
    blockOf(string)->byteLength = BAD_CAPACITY - 2U;
    blockOf(string)->capacity = BAD_CAPACITY - 2U;
    string.append("xy");
    string.append(CKoString("xyz"));
    string.internalAppend("xyzu", 4U);
    CKoString::const_iterator position = string.begin();
    string.insert(position, CKoString("12345"));
    blockOf(string)->byteLength = 3U;
    blockOf(string)->capacity = 3U;

    EXPECT_EQ(see(string), (Seen{"abc", 3U, 3U}));
    EXPECT_EQ(blockOf(string), block);
    EXPECT_EQ(position, string.begin());
    EXPECT_THAT(reports.summaries(),
                ElementsAre("CKoString: CKoString::ctor: Capacity -20 not valid!",
                            "CKoString: CKoString::addReference: Capacity -1 not valid!",
                            "CKoString: CKoString::addReference: Capacity -20 not valid!",
                            "CKoString: CKoString::addReference: Capacity -2 not valid!",
                            "CKoString: CKoString::addReference: Capacity -20 not valid!",
                            "CKoString: CKoString::addReference: Capacity -19 not valid!",
                            "CKoString: CKoString::addReference: Capacity -18 not valid!",
                            "CKoString: CKoString::addReference: Capacity -17 not valid!"));
}

TEST(CKoStringStorage, OperationsThatRebuildABlockReportOneWhoseCapacityIsBroken)
{
    const AssertionReports reports;
    CKoString string(" abc ");
    blockOf(string)->capacity = BAD_CAPACITY + 1U;
    string.trim();
    string.clear();
    CKoString::const_iterator position = string.begin();
    string.replace(position, 1U, CKoString("x"));
    blockOf(string)->capacity = 5U;
    EXPECT_EQ(see(string), (Seen{" abc ", 5U, 5U}));
    EXPECT_THAT(reports.summaries(),
                ElementsAre("CKoString: CKoString::trim: Capacity -19 not valid!",
                            "CKoString: CKoString::addReference: Capacity -19 not valid!",
                            "CKoString: CKoString::replace: Capacity -19 not valid!"));
}

TEST(CKoStringStorage, ABlockWithoutReferencesIsReportedAndLeftAlone)
{
    const AssertionReports reports;
    CKoString string("abc");
    blockOf(string)->refCount = 0U;
    string.removeReference();
    EXPECT_EQ(see(string), (Seen{"abc", 3U, 3U}));
    EXPECT_THAT(reports.summaries(), ElementsAre("CKoString: ???"));
    blockOf(string)->refCount = 1U;
    string.removeReference();
    EXPECT_EQ(blockOf(string), &CKoString::nullData);
}

TEST(CKoStringStorage, CharConstructNeedsAPrivateBlockWithRoom)
{
    const AssertionReports reports;
    CKoString string(4U);
    string.charConstruct("a\xC3\xA9", 3U, 0U);
    string.charConstruct("", 0U, 99U);
    EXPECT_EQ(see(string), (Seen{"a\xC3\xA9", 2U, 4U}));
    string.charConstruct("xy", 2U, 3U);
    string.charConstruct("x", 0xFFFFFFFFU, 4U);
    const CKoString sharer(string);
    string.charConstruct("x", 1U, 3U);
    EXPECT_EQ(see(sharer), (Seen{"a\xC3\xA9", 2U, 4U}));
    EXPECT_EQ(reports.summaries().size(), 3U);
}

TEST(CKoStringStorage, EqualityComparesCharactersThenBytes)
{
    const CKoString text("abc");
    EXPECT_TRUE(text == CKoString(text));
    EXPECT_TRUE(text == CKoString("abc"));
    EXPECT_TRUE(text != CKoString("abd"));
    EXPECT_TRUE(text != CKoString("a\xC3\xA9"));
    EXPECT_TRUE(CKoString() == CKoString(8U));
    blockOf(text)->charCount = 2U;
    EXPECT_FALSE(text == CKoString("abc")) << "different counts decide before the bytes do";
    blockOf(text)->charCount = 3U;
}

TEST(CKoStringStorage, HashTakesBytesAsSigned)
{
    EXPECT_EQ(getHashValueForString(CKoString()), 0U);
    EXPECT_EQ(getHashValueForString(CKoString("ab")), 583U);
    EXPECT_EQ(getHashValueForString(CKoString("\xDF\xFF")), static_cast<unsigned int>(5 * -33 - 1));
}

TEST(CKoStringStorage, CopiesOfOneStringLiveAndDieInSeveralThreads)
{
    const CKoString original("shared by all");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
    {
        threads.emplace_back(
            [copy = original]
            {
                for (int turn = 0; turn < 2000; ++turn)
                {
                    CKoString mine(copy);
                    CKoString changed(mine);
                    changed.append("!");
                    mine = changed;
                    ASSERT_EQ(mine.byteLength(), copy.byteLength() + 1U);
                }
            });
    }
    for (std::thread& thread : threads)
    {
        thread.join();
    }
    EXPECT_EQ(blockOf(original)->refCount, 1U);
}

} // namespace
