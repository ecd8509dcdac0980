#include "pf/base/CKoString.h"

#include <vector>

#include "tests/base/StringTesting.h"
#include "tests/support/Deadline.h"
#include "tests/support/FaultInjection.h"

using namespace KoTest;

namespace
{

/// The search as it is defined: from character to character, up to the first zero byte.
Position findSlowly(const CKoString& text, Position from, const CKoString& pattern, bool forward)
{
    if (!forward && from == text.end())
    {
        --from;
    }
    for (; !pattern.isEmpty() && *from.address() != '\0'; from += forward ? 1 : -1)
    {
        const std::size_t left = static_cast<std::size_t>(text.end().address() - from.address());
        if (left >= pattern.byteLength() &&
            std::memcmp(from.address(), pattern.c_str(), pattern.byteLength()) == 0)
        {
            return from;
        }
        if (!forward && from == text.begin())
        {
            break;
        }
    }
    return text.end();
}

TEST(CKoStringSearch, FindsWhatTheStepsFind)
{
    Random random;
    SCOPED_TRACE(random.trace());
    for (int turn = 0; turn < 20000 && !HasFailure(); ++turn)
    {
        // Few different letters and repeated beginnings, so that candidates fail late.
        std::string bytes = turn % 4 == 0 ? random.bytes(40) : "";
        const std::string unit =
            std::string(random.below(5), 'a') + (turn % 3 == 0 ? random.character() : "b");
        for (unsigned int i = random.below(40); i != 0; --i)
        {
            bytes += random.below(12) == 0 ? random.character() : unit;
        }
        const CKoString text = make(bytes);
        const unsigned int start = random.below(text.byteLength() + 1U);
        const CKoString pattern =
            make(turn % 2 == 0 ? textOf(text).substr(start, random.below(40)) : unit + unit + random.text(1));
        const Position from = at(text, static_cast<int>(random.below(text.length() + 1U)));
        for (const bool forward : {true, false})
        {
            ASSERT_EQ(text.findString(from, pattern, forward), findSlowly(text, from, pattern, forward))
                << testing::PrintToString(textOf(text)) << " from " << from.address() - text.c_str() << ": "
                << testing::PrintToString(textOf(pattern)) << ' ' << forward;
        }
    }
}

TEST(CKoStringSearch, GivesTheEndWhenThereIsNothingToFind)
{
    const CKoString text("one two one");
    const CKoString other("one");
    EXPECT_EQ(text.find(CKoString()), text.end());
    EXPECT_EQ(text.find(CKoString("one two one!")), text.end());
    EXPECT_EQ(text.find(other, other.begin()), text.end());
    EXPECT_EQ(text.findString(text.end(), other, false) - text.begin(), 8) << "the last one";
    EXPECT_EQ(CKoString().findString(CKoString().end(), other, false), CKoString().end());

    const unsigned int units[] = {'a', 'b', 0U, 'a', 'c'};
    const CKoString withZero(units, units + 5);
    EXPECT_EQ(withZero.find(CKoString("ac")), withZero.end());
    EXPECT_EQ(withZero.findString(withZero.end(), CKoString("ab"), false), withZero.end());
    EXPECT_EQ(withZero.find(CKoString("ab")), withZero.begin());
    EXPECT_EQ(withZero.find(CKoString(units + 1, units + 4)) - withZero.begin(), 1);
}

TEST(CKoStringSearch, TakesLinearTimeForTheWorstPatterns)
{
    const std::string half(100000, 'a');
    const std::string quarter(50000, 'a');
    const Stopwatch stopwatch;
    for (const std::string& bytes : {half + half, half + "b" + half})
    {
        const CKoString text = make(bytes);
        for (const std::string& pattern : {quarter + "b" + quarter, "b" + half + "a", half + "ab"})
        {
            text.find(make(pattern));
            text.findString(text.end(), make(pattern), false);
        }
    }
    // A quadratic search compares some 10^10 bytes here.
    EXPECT_TRUE(stopwatch.isWithin(0, 1000));
}

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

TEST(CKoStringReplaceAll, OnePassGivesTextCountAndCapacityOfTheSteps)
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
        const Seen before = see(text);
        for (const bool isShared : {true, false})
        {
            CKoString fast(text);
            CKoString slow(text);
            if (!isShared)
            {
                fast.swap(slow);
            }
            fast.replaceAll(from, to);
            replaceStepwise(slow, from, to);
            ASSERT_EQ(see(fast), see(slow))
                << isShared << testing::PrintToString(before.text) << ": "
                << testing::PrintToString(textOf(from)) << " by " << testing::PrintToString(textOf(to));
        }
        ASSERT_EQ(see(text), before);
    }
}

TEST(CKoStringReplaceAll, ManyMatchesTakeOneAllocation)
{
    CKoString text;
    for (int i = 0; i < 2000; ++i)
    {
        text.append("some {x} text");
    }
    const Seen before = see(text);
    const CKoString from("{x}");
    const CKoString to("value");
    const AllocationCounter allocations;
    text.replaceAll(from, to);
    const unsigned int count = allocations.count();
    EXPECT_EQ(see(text).length, before.length + 4000U);
    text.replaceAll(to, from);
    EXPECT_EQ(see(text), (Seen{before.text, before.length, before.length + 4000U}));
    EXPECT_EQ(count, FaultInjection::isAvailable() ? 1U : 0U);
}

TEST(CKoStringReplaceAll, ArgumentsCountAsTheyWereOnEntry)
{
    CKoString text("aXa");
    text.replaceAll(CKoString(), text);
    text.replaceAll(CKoString("a"), text);
    EXPECT_EQ(textOf(text), "aXaXaXa") << "what was inserted is not searched again";
    text.replaceAll(text, CKoString("done"));
    EXPECT_EQ(textOf(text), "done");
}

TEST(CKoStringReplaceArg, TakesTheLowestMarkerFirst)
{
    // clang-format off
    const char* const cases[][3] = {
        {"%2 %1", "%2 x", "x x"}, {"%1 %1", "x %1", "x x"}, {"%0%9", "x%9", "xx"}, {"%%3 %", "%x %", "%x %"},
        {"none %", "none %", "none %"}, {"%a %5 %:", "%a x %:", "%a x %:"}, {"\xC3\xA9%1", "\xC3\xA9x", "\xC3\xA9x"},
    };
    // clang-format on
    for (const auto& c : cases)
    {
        CKoString text(c[0]);
        text.replaceArg(CKoString("x"));
        EXPECT_EQ(textOf(text), c[1]);
        text.replaceArg(CKoString("x"));
        EXPECT_EQ(textOf(text), c[2]);
    }
    CKoString self("<%1>");
    self.replaceArg(self);
    EXPECT_EQ(textOf(self), "<<%1>>");
}

TEST(CKoStringIterator, GoesThroughTheCharactersBothWays)
{
    const CKoString text("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
    const std::vector<unsigned int> expected = {0x61U, 0xE9U, 0x20ACU, 0x1F600U};
    std::vector<unsigned int> forward;
    std::vector<unsigned int> backward;
    for (Position at = text.begin(), back = text.end(); at != text.end(); ++at)
    {
        forward.push_back(*at);
        backward.insert(backward.begin(), *--back);
    }
    EXPECT_EQ(forward, expected);
    EXPECT_EQ(backward, expected);
    for (const unsigned int index : {0U, 1U, 2U, 3U, 4U, 5U, 0xFFFFFFFFU})
    {
        EXPECT_EQ(text[index], index < 4 ? expected[index] : 0U);
    }
}

TEST(CKoStringIterator, StopsAtTheEndAndTurnsAtTheZeroBeforeTheText)
{
    struct Case
    {
        const char* text;
        int fromBegin[7]; ///< bytes from the first character after -3 to 3 steps
        int fromEnd[7];
    };
    const Case cases[] = {
        {"ab", {0, 0, -1, 0, 1, 2, 2}, {-1, 0, 1, 2, 2, 2, 2}},
        {"", {0, 0, -1, 0, 0, 0, 0}, {0, 0, -1, 0, 0, 0, 0}},
        {"\xC3\xA9", {0, 0, -1, 0, 2, 2, 2}, {0, -1, 0, 2, 2, 2, 2}},
        {"\xE2\xC3\xA9", {0, 0, -1, 0, 1, 3, 3}, {-1, 0, 1, 3, 3, 3, 3}},
    };
    for (const Case& c : cases)
    {
        const CKoString text(c.text);
        for (int steps = -3; steps <= 3; ++steps)
        {
            Position first = text.begin();
            Position last = text.end();
            EXPECT_EQ((first += steps).address() - text.c_str(), c.fromBegin[steps + 3]) << c.text << steps;
            EXPECT_EQ((last += steps).address() - text.c_str(), c.fromEnd[steps + 3]) << c.text << steps;
            EXPECT_EQ(*first == 0U, first == text.end() || first.address() < text.c_str());
        }
        Position far = text.begin();
        EXPECT_EQ(far += 0x7FFFFFFF, text.end());
        EXPECT_EQ(*(far += -0x7FFFFFFF), *text.begin());
    }
}

TEST(CKoStringIterator, NullPositionsAreHarmless)
{
    CKoString text("a");
    Position nowhere;
    EXPECT_EQ(*++nowhere, 0U);
    EXPECT_EQ(text.begin() - nowhere, 0);
    text.begin().incrementSteps(nullptr, 1);
    text.insert(nowhere, CKoString("x"));
    text.remove(nowhere, 1U);
    EXPECT_EQ(textOf(text), "a");
    EXPECT_EQ(text.findString(nowhere, CKoString("a"), true), text.end());
}

TEST(CKoStringIterator, DifferencesAreSignedCountsOfCharacters)
{
    CKoString text("\xC3\xA9\xE2\x82\xAC");
    text.append(std::string(90, '.').c_str()).replaceAll(CKoString("..."), CKoString("..\xC3\xA9"));
    Position from = text.begin();
    for (int i = 0; i <= 92; ++i, ++from)
    {
        ASSERT_TRUE(from - text.begin() == i && text.begin() - from == -i && text.end() - from == 92 - i)
            << i;
    }
    EXPECT_EQ(text.begin() - at(text, -1), 1);
}

TEST(CKoStringIterator, DecodingNeverReadsBehindTheText)
{
    // Leads as continuation bytes: positions inside them ask for more bytes than the text has.
    const CKoString text("\xC3\xFC");
    EXPECT_EQ(*text.begin(), 0xFCU);
    EXPECT_EQ(*at(text, 1), 0U) << "the low bits of a lead that stands alone";
    EXPECT_EQ(at(text, 2), text.end());
    EXPECT_EQ(*at(CKoString("\xE2\xFF\xFE"), 1), 0xFFU) << "a byte that leads nothing stands for itself";
}

} // namespace
