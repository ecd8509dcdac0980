#include "pf/base/CKoString.h"

#include <string>

#include "tests/base/StringTesting.h"
#include "tests/support/FaultInjection.h"

using namespace KoTest;

namespace
{

using Position = CKoString::const_iterator;

/// The replacement as it is defined: one after the other.
void replaceStepwise(CKoString& string, const CKoString& from, const CKoString& to)
{
    Position position = string.find(from);
    while (position != string.end())
    {
        string.replace(position, from.length(), to);
        position = string.find(from, Position(position.address() + to.byteLength()));
    }
}

TEST(CKoStringReplace, OnePassGivesTextCountAndCapacityOfTheSteps)
{
    Random random;
    SCOPED_TRACE(random.trace());
    for (int turn = 0; turn < 20000 && !HasFailure(); ++turn)
    {
        const bool isOdd = turn % 4 == 0;
        const CKoString from = make(turn % 7 == 0 ? random.bytes(3) : "a" + random.text(1));
        const CKoString to = make(turn % 5 == 0 ? random.bytes(3) : random.text(3));
        CKoString text = make(isOdd ? random.bytes(30) : random.text(10));
        for (unsigned int i = random.below(isOdd ? 6 : 900); i != 0; i /= 2)
        {
            text.append(from).append(make(isOdd ? random.bytes(9) : random.text(9)));
        }
        text.reserve(random.below(2 * text.byteLength() + 8U));
        CKoString own(text);
        own.addReference(true, text.capacity());
        CKoString ownSteps(text);
        ownSteps.addReference(true, text.capacity());
        CKoString shared(text);
        CKoString sharedSteps(text);
        const Seen before = see(text);

        own.replaceAll(from, to);
        replaceStepwise(ownSteps, from, to);
        shared.replaceAll(from, to);
        replaceStepwise(sharedSteps, from, to);
        const std::string what = testing::PrintToString(before.text) + ": " +
                                 testing::PrintToString(textOf(from)) + " by " +
                                 testing::PrintToString(textOf(to));
        ASSERT_EQ(see(own), see(ownSteps)) << what;
        ASSERT_EQ(see(shared), see(sharedSteps)) << what;
        ASSERT_EQ(see(text), before);
    }
}

TEST(CKoStringReplace, ManyMatchesTakeOneAllocation)
{
    std::string bytes;
    std::string expected;
    for (int i = 0; i < 2000; ++i)
    {
        bytes += "some {x} text";
        expected += "some value text";
    }
    CKoString text(bytes.c_str());
    const CKoString from("{x}");
    const CKoString to("value");
    const AllocationCounter allocations;
    text.replaceAll(from, to);
    const unsigned int count = allocations.count();
    EXPECT_EQ(textOf(text), expected);
    text.replaceAll(to, from);
    EXPECT_EQ(textOf(text), bytes);
    EXPECT_EQ(text.capacity(), expected.size());
    if (FaultInjection::isAvailable())
    {
        EXPECT_EQ(count, 1U);
    }
}

TEST(CKoStringReplace, ReplacesWithoutOverlapAndWithoutSearchingWhatItInserted)
{
    struct Case
    {
        const char* text;
        const char* from;
        const char* to;
        const char* expected;
    };
    const Case cases[] = {
        {"aXa", "a", "aa", "aaXaa"}, {"aaaaa", "aa", "b", "bba"},           {"aabb", "ab", "", "ab"},
        {"abc", "", "x", "abc"},     {"\xC3\xA9", "\xA9", "x", "\xC3\xA9"}, {"aaa", "a", "", ""},
    };
    for (const Case& c : cases)
    {
        CKoString text(c.text);
        text.replaceAll(CKoString(c.from), CKoString(c.to));
        EXPECT_EQ(textOf(text), c.expected);
    }
}

TEST(CKoStringReplace, TheStringItselfAsArgumentCountsAsItWas)
{
    CKoString text("aXa");
    text.replaceAll(CKoString("a"), text);
    EXPECT_EQ(textOf(text), "aXaXaXa");
    text.replaceAll(text, CKoString("done"));
    EXPECT_EQ(textOf(text), "done");
}

TEST(CKoStringReplace, ArgumentsReplaceTheLowestMarkerFirst)
{
    struct Case
    {
        const char* text;
        const char* first;
        const char* second;
    };
    const Case cases[] = {
        {"%2 %1", "%2 x", "x x"},
        {"%1 %1", "x %1", "x x"},
        {"%0%9", "x%9", "xx"},
        {"%%3 %", "%x %", "%x %"},
        {"none %", "none %", "none %"},
        {"%a %5 %:", "%a x %:", "%a x %:"},
        {"\xC3\xA9%1", "\xC3\xA9x", "\xC3\xA9x"},
    };
    for (const Case& c : cases)
    {
        CKoString text(c.text);
        const CKoString argument("x");
        text.replaceArg(argument);
        EXPECT_EQ(textOf(text), c.first);
        text.replaceArg(argument);
        EXPECT_EQ(textOf(text), c.second);
    }
    CKoString self("<%1>");
    self.replaceArg(self);
    EXPECT_EQ(textOf(self), "<<%1>>");
}

} // namespace
