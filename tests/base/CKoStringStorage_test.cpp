#include "pf/base/CKoString.h"

#include <utility>
#include <vector>

#include <gmock/gmock.h>

#include "tests/base/StringTesting.h"
#include "tests/support/AssertionCounter.h"
#include "tests/support/FaultInjection.h"
#include "tests/support/Threads.h"

using namespace KoTest;

namespace
{

constexpr unsigned int BAD_CAPACITY = 0xFFFFFFECU;
constexpr unsigned int UNITS[] = {0x41U, 0x20ACU, 0U, 0x80000000U, 0x42U};

TEST(CKoStringStorage, EmptyStringsShareAStaticBlockThatIsNeverWritten)
{
    const AllocationCounter allocations;
    {
        const CKoString plain;
        const CKoString copy(plain);
        const CKoString fromNull(static_cast<const char*>(nullptr));
        const CKoString fromNothing("");
        const CKoString fromNoBytes("abc", 0U);
        CKoString assigned(static_cast<const unsigned int*>(nullptr));
        assigned = CKoString::null;
        for (const CKoString* string :
             {&plain, &copy, &fromNull, &fromNothing, &fromNoBytes, static_cast<const CKoString*>(&assigned)})
        {
            EXPECT_EQ(blockOf(*string), &CKoString::nullData);
        }
    }
    EXPECT_EQ(CKoString::nullData.refCount, 2U);
    EXPECT_EQ(allocations.count(), 0U);
}

TEST(CKoStringStorage, ConstructionTakesExactlyTheBytesOfTheText)
{
    EXPECT_EQ(see(CKoString("euro \xE2\x82\xAC")), (Seen{"euro \xE2\x82\xAC", 6U, 8U}));
    EXPECT_EQ(see(CKoString("abcdef", 3U)), (Seen{"abc", 3U, 3U}));
    EXPECT_EQ(see(CKoString("ab\0def", 6U)), (Seen{"ab", 2U, 2U}));
    EXPECT_EQ(see(CKoString(UNITS)), (Seen{"A\xE2\x82\xAC", 2U, 4U}));
    EXPECT_EQ(see(CKoString(UNITS + 1, UNITS + 2)), (Seen{"\xE2\x82\xAC", 1U, 3U}));
}

TEST(CKoStringStorage, CopiesShareMovesTakeAndSwapsMakePrivate)
{
    CKoString first("text");
    CKoString second(first);
    CKoString third;
    third = first;
    EXPECT_EQ(blockOf(first)->refCount, 3U);
    second.append("s");
    third = second;
    EXPECT_EQ(textOf(first), "text");
    EXPECT_EQ(blockOf(first)->refCount, 1U);
    const CKoString& self = third;
    third = self;
    EXPECT_EQ(blockOf(third)->refCount, 2U);

    const CKoString::SStringData* const block = blockOf(first);
    CKoString target(std::move(first));
    third = std::move(target);
    EXPECT_EQ(blockOf(third), block);
    EXPECT_EQ(blockOf(target), &CKoString::nullData); // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(block->refCount + blockOf(second)->refCount, 2U);

    const CKoString sharer(third);
    third.swap(target);
    EXPECT_EQ(textOf(third) + textOf(target) + textOf(sharer), "texttext");
    EXPECT_EQ(blockOf(third)->refCount + blockOf(target)->refCount + blockOf(sharer)->refCount, 3U);
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
    // clang-format off
    const Case cases[] = {
        {false, true, 4U, {"a\xC3\xA9g", 3U, 4U}, true}, {false, true, 2U, {"a\xC3\xA9g", 3U, 4U}, true},
        {false, true, 9U, {"a\xC3\xA9g", 3U, 9U}, false}, {true, true, 4U, {"a\xC3\xA9g", 3U, 4U}, false},
        {true, true, 2U, {"a", 1U, 2U}, false}, {true, true, 3U, {"a\xC3\xA9", 2U, 3U}, false},
        {true, true, 0U, {"", 0U, 0U}, false}, {true, false, 9U, {"a\xC3\xA9g", 3U, 9U}, false},
    };
    // clang-format on
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
    counted.removeReference();
}

TEST(CKoStringStorage, BrokenPreconditionsAreReportedAndChangeNothing)
{
    const AssertionReports reports;
    EXPECT_EQ(blockOf(CKoString(BAD_CAPACITY)), &CKoString::nullData);
    CKoString string("abc");
    CKoString::SStringData* const block = blockOf(string);
    Position position = string.begin();
    string.reserve(0xFFFFFFFFU);
    string.addReference(true, BAD_CAPACITY);
    string.fromUCS4Sequence(UNITS, 0xFFFFFFFEU);
    CKoString many(std::string(70000, 'a').c_str());
    many.replaceAll(CKoString("a"), many);

    // A block that claims to be as long as a block can be cannot be appended to.
    block->byteLength = block->capacity = BAD_CAPACITY - 2U;
    string.append("xy").append(CKoString("xyz")).internalAppend("xyzu", 4U);
    string.insert(position, CKoString("12345"));
    block->byteLength = 3U;

    block->capacity = BAD_CAPACITY + 1U;
    block->text()[2] = ' ';
    string.trim().clear();
    string.replace(position, 1U, CKoString("x"));
    string.replaceAll(CKoString("a"), CKoString("x"));
    block->text()[2] = 'c';
    block->capacity = 3U;

    block->refCount = 0U;
    string.removeReference();
    block->refCount = 1U;

    string.charConstruct("xy", 2U, 2U);
    string.charConstruct("x", 0xFFFFFFFFU, 3U);
    const CKoString sharer(string);
    string.charConstruct("x", 1U, 0U);

    EXPECT_EQ(see(string), (Seen{"abc", 3U, 3U}));
    EXPECT_EQ(see(many).length, 70000U);
    EXPECT_EQ(position, sharer.begin());
    std::vector<std::string> expected = {"CKoString: CKoString::ctor: Capacity -20 not valid!"};
    for (const char* capacity : {"-1", "-20", "-2", "-1", "-20", "-19", "-18", "-17"})
    {
        expected.push_back(std::string("CKoString: CKoString::addReference: Capacity ") + capacity +
                           " not valid!");
    }
    for (const char* operation : {"trim", "addReference", "replace", "replace"})
    {
        expected.push_back(std::string("CKoString: CKoString::") + operation + ": Capacity -19 not valid!");
    }
    expected.insert(expected.end(), 4U, "CKoString: ???");
    EXPECT_EQ(reports.summaries(), expected);
}

TEST(CKoStringStorage, AValueWithItsTopBitSetEndsTheConversion)
{
    const AssertionReports reports;
    CKoString string("old");
    string.fromUCS4Sequence(UNITS, 5U);
    EXPECT_EQ(see(string), (Seen{std::string("A\xE2\x82\xAC\0", 5), 3U, 5U}));
    string.fromWCharSequence(UNITS + 3, UNITS + 5);
    EXPECT_EQ(textOf(string), "");
    string.fromWCharSequence(UNITS + 2, UNITS);
    EXPECT_EQ(reports.summaries(), std::vector<std::string>(2, "CKoString: ???"));
}

TEST(CKoStringStorage, ComparesCharacterCountsThenBytesAndHashesSignedBytes)
{
    const CKoString text("abc");
    EXPECT_TRUE(text == CKoString(text) && text == CKoString("abc") && CKoString() == CKoString(8U));
    EXPECT_TRUE(text != CKoString("abd") && text != CKoString("a\xC3\xA9"));
    blockOf(text)->charCount = 2U;
    EXPECT_FALSE(text == CKoString("abc")) << "different counts decide before the bytes do";

    EXPECT_EQ(getHashValueForString(CKoString()), 0U);
    EXPECT_EQ(getHashValueForString(CKoString("ab")), 583U);
    EXPECT_EQ(getHashValueForString(CKoString("\xDF\xFF")), static_cast<unsigned int>(5 * -33 - 1));
}

TEST(CKoStringStorage, CopiesOfOneStringLiveAndDieInSeveralThreads)
{
    const CKoString original("shared by all");
    const auto copyAndChange = [&original](int)
    {
        const CKoString copy(original);
        for (int turn = 0; turn < 2000; ++turn)
        {
            CKoString mine(copy);
            CKoString changed(mine);
            mine = changed.append("!");
            ASSERT_EQ(mine.byteLength(), copy.byteLength() + 1U);
        }
    };
    inThreads(4, copyAndChange);
    EXPECT_EQ(blockOf(original)->refCount, 1U);
}

} // namespace
